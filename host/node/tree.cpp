// The tree of nodes: names, paths, children, renaming, destruction.
#include "host/node/tree.h"

#include <algorithm>

#include "host/node/class_pool.h"
#include "host/node/node_data.h"

namespace {

/// A name as paths can hold it.
std::string CleanName(const std::string& name) {
  std::string clean = name.empty() ? "Node" : name;
  std::replace(clean.begin(), clean.end(), '/', '_');
  return clean;
}

/// The first of "Rock 07", "Rock 08" ... that no node below `parent` has. What was counted is remembered, so
/// that many nodes of one name don't take the square of the time.
std::string FirstFree(trBase* parent, const std::string& stem, int number) {
  std::vector<trNamedNode*> counted;
  std::string candidate;
  for (;;) {
    const std::string digits = std::to_string(number);
    candidate = stem + (digits.size() < 2 ? "0" : "") + digits;
    if (!parent) return candidate;
    const auto taken = parent->Data().named.find(candidate);
    if (taken == parent->Data().named.end()) break;
    const bool isKnown = taken->second.freed == parent->Data().freed && taken->second.next > number;
    counted.push_back(&taken->second);
    number = isKnown ? taken->second.next : number + 1;
  }
  for (trNamedNode* node : counted) {
    node->next = number;
    node->freed = parent->Data().freed;
  }
  return candidate;
}

/// `name`, or the first of "name 02", "name 03" ... that no sibling has; a number at its end is counted on. A
/// printf number field ("Atmosphere %02d") is filled from 1 on.
std::string UniqueName(trBase* parent, const std::string& name) {
  std::string stem = CleanName(name);
  int number = 1;
  const size_t field = stem.find("%02d");
  if (field != std::string::npos) {
    stem.erase(field, 4);
    number = 0;
  } else {
    if (!parent || !parent->Data().named.count(stem)) return stem;
    size_t digits = stem.size();
    while (digits > 0 && stem.size() - digits < 6 && stem[digits - 1] >= '0' && stem[digits - 1] <= '9')
      --digits;
    if (digits < stem.size()) {
      number = std::stoi(stem.substr(digits));
      stem.resize(digits);
    } else {
      stem += ' ';
    }
  }
  return FirstFree(parent, stem, number + 1);
}

/// From now on paths and links find the node under its name.
void ListName(trBase* node) {
  trBase* const parent = node->Parent();
  if (!parent) return;
  parent->Data().named[node->Name()] = {node};
  trLinkIndex::Forget(parent, node->Name());
}

void UnlistName(trBase* node) {
  trNodeData& above = node->Parent()->Data();
  above.named.erase(node->Name());
  ++above.freed;
  trLinkIndex::Forget(node->Parent(), node->Name());
}

/// "power_fractal_shader_v3" as a name for people: "Power fractal shader v3 01".
std::string NameFromClass(const std::string& className) {
  std::string name = className;
  std::replace(name.begin(), name.end(), '_', ' ');
  if (!name.empty() && name[0] >= 'a' && name[0] <= 'z') name[0] = static_cast<char>(name[0] - 'a' + 'A');
  return name + " %02d";
}

trBase* Named(const trBase* parent, const std::string& name) {
  const auto found = parent->Data().named.find(name);
  return found == parent->Data().named.end() ? nullptr : found->second.node;
}

/// Follows "a/b/c" down from a node.
trBase* Descend(const trBase* from, const std::string& path) {
  const trBase* at = from;
  for (size_t begin = 0; begin <= path.size();) {
    const size_t end = std::min(path.find('/', begin), path.size());
    if (end > begin) {
      at = Named(at, path.substr(begin, end - begin));
      if (!at) return nullptr;
    }
    begin = end + 1;
  }
  return at == from ? nullptr : const_cast<trBase*>(at);
}

void CollectNodes(trBase* node, std::vector<trBase*>& out) {
  out.push_back(node);
  for (trBase* child : node->Data().children) CollectNodes(child, out);
  for (trBase* owned : node->Data().owned) CollectNodes(owned, out);
}

}  // namespace

namespace ovhost {

std::vector<trBase*> AllNodes(trBase* root) {
  std::vector<trBase*> nodes;
  if (root) CollectNodes(root, nodes);
  return nodes;
}

void AttachChild(trBase* parent, trBase* child, const std::string& name) {
  child->Data().name = UniqueName(parent, name);
  child->Init(parent, 1);
  parent->Data().children.push_back(child);
  ListName(child);
  BumpGraphGeneration();
}

trBase* CreateNode(const std::string& className, trBase* parent, const std::string& name, bool asChild) {
  const CatalogueEntry* entry = FindClass(className);
  if (!entry) return nullptr;
  trBase* node = entry->create();
  if (!node) return nullptr;
  node->Data().className = entry->className;
  node->Data().destroy = entry->destroy;
  const std::string wanted = name.empty() ? NameFromClass(entry->className) : name;
  if (parent && asChild) {
    AttachChild(parent, node, wanted);
  } else {
    node->Data().name = UniqueName(parent, wanted);
    node->Init(parent, 0);
    if (parent) parent->Data().owned.push_back(node);
    ListName(node);
    BumpGraphGeneration();
  }
  return node;
}

void Detach(trBase* node) {
  if (!node->Parent() || Named(node->Parent(), node->Name()) != node) return;
  UnlistName(node);
  // From the back: whole trees are destroyed that way.
  for (auto* list : {&node->Parent()->Data().children, &node->Parent()->Data().owned}) {
    const auto found = std::find(list->rbegin(), list->rend(), node);
    if (found != list->rend()) list->erase(std::next(found).base());
  }
}

void DestroyNode(trBase* node) {
  if (!node) return;
  node->PreDestroy();
  trNodeData& data = node->Data();
  while (!data.children.empty()) DestroyNode(data.children.back());
  Detach(node);
  if (data.destroy)
    data.destroy(node);
  else
    delete node;
  BumpGraphGeneration();
}

}  // namespace ovhost

trBase* trBase::CreateChild(const trString& className) {
  trBase* child = ovhost::CreateNode(className, this, "");
  if (!child) return nullptr;
  child->OnCreate();
  child->OnFirstCreate();
  return child;
}

trBase* trBase::Child(long index) const {
  return index >= 0 && index < NumChildren() ? data_->children[index] : nullptr;
}

long trBase::NumChildren() const { return static_cast<long>(data_->children.size()); }

void trBase::DestroyChild(long index, bool byUser) {
  trBase* child = Child(index);
  if (!child || (byUser && !child->CanUserDestroy())) return;
  if (byUser) child->OnUserDestroy();
  const std::vector<trBase*> bundled = child->GetBundledNodeList();
  ovhost::DestroyNode(child);
  for (trBase* node : bundled) ovhost::DestroyNode(node);
}

void trBase::DestroyChild(const trString& name, bool byUser) {
  for (long i = 0; i < NumChildren(); ++i)
    if (data_->children[i]->Name() == name) return DestroyChild(i, byUser);
}

trBase* trBase::NodeByPath(const trString& path) const {
  if (path.empty()) return nullptr;
  if (path[0] == '/') return Descend(Root(), path);
  for (const trBase* scope = this; scope; scope = scope->Parent())
    if (trBase* found = Descend(scope, path)) return found;
  return nullptr;
}

trBase* trBase::Parent() const { return data_->parent; }

trBase* trBase::Root() const {
  const trBase* node = this;
  while (node->data_->parent) node = node->data_->parent;
  return const_cast<trBase*>(node);
}

const trString& trBase::Name() const { return data_->name; }
const trString& trBase::ClassName() const { return data_->className; }

trString trBase::NameAndPath() const {
  if (!data_->parent) return "/";
  const trString above = data_->parent->NameAndPath();
  return (above == "/" ? above : above + "/") + data_->name;
}

void trBase::SetName(const trString& name) {
  const bool isListed = data_->parent && Named(data_->parent, data_->name) == this;
  if (isListed) UnlistName(this);
  const std::string unique = UniqueName(data_->parent, name);
  if (isListed) ListName(this);
  if (unique == data_->name) return;
  // Links that lead here or below are told apart by where they lead, so they are looked up before the change.
  struct Affected {
    trFile* link;
    const trBase* target;
  };
  std::vector<Affected> affected;
  for (const trBase* target : ovhost::AllNodes(this))
    for (trFile* link : trLinkIndex::LinksTo(target)) affected.push_back({link, target});
  if (isListed) UnlistName(this);
  data_->name = unique;
  if (isListed) ListName(this);
  ovhost::BumpGraphGeneration();
  for (const Affected& entry : affected) {
    if (entry.link->LinkedNode(false) == entry.target) continue;
    // The shortest form that still leads there: the bare name, else the whole path.
    const bool wasAbsolute = entry.link->FileStringR()[0] == '/';
    if (!wasAbsolute) entry.link->SetText(entry.target->Name());
    if (entry.link->LinkedNode(false) != entry.target) entry.link->SetText(entry.target->NameAndPath());
  }
}

void trBase::SetBundledWith(trBase* node) { data_->bundledWith = node; }

std::vector<trBase*> trBase::GetBundledNodeList() const {
  std::vector<trBase*> bundled;
  for (trBase* node : ovhost::AllNodes(Root()))
    if (node->data_->bundledWith == this) bundled.push_back(node);
  return bundled;
}

trBase* trCreateObject(const trString& className, trBase* owner, long) {
  trBase* node = ovhost::CreateNode(className, owner, "", false);
  if (node) node->OnCreate();
  return node;
}

void trDestroyObject(trBase* node) { ovhost::DestroyNode(node); }
