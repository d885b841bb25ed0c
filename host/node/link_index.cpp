// Keeping the index of links in step with the tree.
#include "host/node/link_index.h"

#include <algorithm>

#include "host/node/node_data.h"

namespace {

/// Calls `visit` with every name of a path or a list of one.
template <typename Visit>
void ForEachName(const std::string& text, const Visit& visit) {
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find('/', begin), text.size());
    if (end > begin) visit(text.substr(begin, end - begin));
    begin = end + 1;
  }
}

/// Trees are taken down from their end, so what was added last mostly goes first.
void TakeOut(std::vector<trFile*>& links, const trFile* link) {
  const auto found = std::find(links.rbegin(), links.rend(), link);
  if (found == links.rend()) return;
  *found = links.back();
  links.pop_back();
}

}  // namespace

trLinkIndex::~trLinkIndex() {
  for (const auto& [name, links] : byName_)
    for (trFile* link : links) {
      Unlist(*link);
      link->index_ = nullptr;
      link->isForgotten_ = false;
    }
}

void trLinkIndex::Enter(trFile& link) {
  link.isLookedUp_.store(false, std::memory_order_release);
  if (!link.owner_ || link.text_.empty()) return;
  auto& index = link.owner_->Root()->Data().linkIndex;
  if (!index) index = std::make_unique<trLinkIndex>();
  link.index_ = index.get();
  link.serial_ = ++index->lastSerial_;
  ForEachName(link.text_, [&](std::string name) { index->byName_[std::move(name)].push_back(&link); });
  index->ForgetLink(link);
}

void trLinkIndex::Leave(trFile& link) {
  trLinkIndex* const index = link.index_;
  if (!index) return;
  Unlist(link);
  ForEachName(link.text_, [&](const std::string& name) {
    const auto found = index->byName_.find(name);
    if (found == index->byName_.end()) return;
    TakeOut(found->second, &link);
    if (found->second.empty()) index->byName_.erase(found);
  });
  if (link.isForgotten_) TakeOut(index->forgotten_, &link);
  link.isForgotten_ = false;
  link.index_ = nullptr;
}

void trLinkIndex::Adopt(trBase* node) {
  for (trBase* below : ovhost::AllNodes(node))
    for (const trParamInfo& param : below->Data().params) {
      if (param.type < trParamType::kFile) continue;
      auto& link = *static_cast<trFile*>(param.member);
      Leave(link);
      Enter(link);
    }
  if (node->Parent()) node->Data().linkIndex.reset();
}

void trLinkIndex::ForgetLink(trFile& link) {
  link.isLookedUp_.store(false, std::memory_order_release);
  if (link.isForgotten_) return;
  link.isForgotten_ = true;
  forgotten_.push_back(&link);
}

void trLinkIndex::Forget(const trBase* parent, const std::string& name) {
  trLinkIndex* const index = parent->Root()->Data().linkIndex.get();
  if (!index) return;
  const auto found = index->byName_.find(name);
  if (found == index->byName_.end()) return;
  for (trFile* link : found->second) index->ForgetLink(*link);
}

void trLinkIndex::ForgetTarget(trBase* node) {
  std::vector<trFile*>& links = node->Data().linksHere;
  for (trFile* link : links) {
    link->listedAt_ = nullptr;
    link->index_->ForgetLink(*link);
  }
  links.clear();
}

const std::vector<trFile*>& trLinkIndex::LinksTo(const trBase* node) {
  if (trLinkIndex* const index = node->Root()->Data().linkIndex.get()) index->Update();
  return node->Data().linksHere;
}

void trLinkIndex::Update() {
  for (trFile* link : forgotten_) {
    link->isForgotten_ = false;
    trBase* const target = link->LinkedNode(false);
    if (target == link->listedAt_) continue;
    Unlist(*link);
    List(*link, target);
  }
  forgotten_.clear();
}

void trLinkIndex::List(trFile& link, trBase* target) {
  link.listedAt_ = target;
  if (!target) return;
  std::vector<trFile*>& links = target->Data().linksHere;
  const auto isBefore = [](const trFile* a, const trFile* b) { return a->serial_ < b->serial_; };
  links.insert(std::upper_bound(links.begin(), links.end(), &link, isBefore), &link);
}

void trLinkIndex::Unlist(trFile& link) {
  if (!link.listedAt_) return;
  std::vector<trFile*>& links = link.listedAt_->Data().linksHere;
  const auto isBefore = [](const trFile* a, const trFile* b) { return a->serial_ < b->serial_; };
  const auto found = std::lower_bound(links.begin(), links.end(), &link, isBefore);
  if (found != links.end() && *found == &link) links.erase(found);
  link.listedAt_ = nullptr;
}
