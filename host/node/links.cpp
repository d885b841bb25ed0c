// Links: looking names and paths up, and remembering the answer until the graph changes where it matters.
#include "core/links.h"

#include <filesystem>

#include "core/project.h"
#include "host/node/links.h"
#include "host/node/node_data.h"

namespace ovhost {
namespace {
std::atomic<std::uint32_t> generation{1};
}

std::uint32_t GraphGeneration() { return generation.load(std::memory_order_acquire); }
void BumpGraphGeneration() { generation.fetch_add(1, std::memory_order_acq_rel); }

void ResolveAllLinks(trBase* root) {
  for (trBase* node : AllNodes(root))
    for (const trParamInfo& param : node->Data().params)
      if (param.type >= trParamType::kFile) static_cast<trFile*>(param.member)->LinkedNode(false);
}

}  // namespace ovhost

trFile::~trFile() { trLinkIndex::Leave(*this); }

void trFile::SetOwner(trBase* owner) {
  trLinkIndex::Leave(*this);
  owner_ = owner;
  trLinkIndex::Enter(*this);
  ovhost::BumpGraphGeneration();
}

void trFile::SetText(const trString& text) {
  trLinkIndex::Leave(*this);
  text_ = text;
  trLinkIndex::Enter(*this);
  ovhost::BumpGraphGeneration();
}

trBase* trFile::LinkedNode(bool checkKind) const {
  if (!isLookedUp_.load(std::memory_order_acquire)) {
    trBase* found = text_.empty() || !owner_ ? nullptr : owner_->NodeByPath(text_);
    const bool isRightKind = found && (!*RequiredFact() || found->IsTrue(RequiredFact()));
    cachedNode_.store(found, std::memory_order_relaxed);
    cachedNodeOfKind_.store(isRightKind ? found : nullptr, std::memory_order_relaxed);
    isLookedUp_.store(true, std::memory_order_release);
  }
  return (checkKind ? cachedNodeOfKind_ : cachedNode_).load(std::memory_order_relaxed);
}

trString trFile::LinkString() const { return LinkedNode(false) ? text_ : trString(); }

trString trFile::FullPath() const {
  if (text_.empty()) return {};
  const std::filesystem::path path(text_);
  if (path.is_absolute()) return path.lexically_normal().string();
  const juProject* project = owner_ ? juProject::Of(owner_) : nullptr;
  const std::filesystem::path folder(project ? project->Folder() : trString());
  return (folder / path).lexically_normal().string();
}

bool trFile::HasChanged() const { return text_ != acceptedText_ || !IsLinkedNodeEqualToAccepted(); }

void trFile::AcceptChange() {
  acceptedText_ = text_;
  acceptedNode_ = LinkedNode(false);
}

bool trFile::IsLinkedNodeEqualToAccepted() const { return LinkedNode(false) == acceptedNode_; }
