// A hash over parameters, as text.
#include "objects/network_stamp.h"

#include <unordered_set>
#include <vector>

#include "core/node.h"

namespace {

class Stamp {
 public:
  void Reach(const trBase* node) {
    if (node && seen_.insert(node).second) pending_.push_back(node);
  }
  std::uint64_t Take() {
    // In the order in which nodes are reached, which hangs on the network alone.
    for (std::size_t i = 0; i < pending_.size(); ++i) TakeNode(const_cast<trBase&>(*pending_[i]));
    return hash_;
  }

 private:
  void TakeNode(trBase& node) {
    TakeAddress(&node);
    for (long i = 0; i < node.NumParams(); ++i) {
      trString text;
      node.GetStringFromParam(i, text, &node);
      for (const char c : text) TakeByte(static_cast<unsigned char>(c));
      TakeByte(0);
      if (node.ParamType(i) >= trParamType::kFile)
        Reach(static_cast<const trFile*>(node.ParamPtr(i))->LinkedNode());
    }
    for (long i = 0; i < node.NumChildren(); ++i) Reach(node.Child(i));
  }
  /// A node that replaces another of the same name is a change.
  void TakeAddress(const trBase* node) {
    for (auto bits = reinterpret_cast<std::uintptr_t>(node); bits; bits >>= 8)
      TakeByte(static_cast<unsigned char>(bits));
  }
  /// FNV-1a.
  void TakeByte(unsigned char byte) { hash_ = (hash_ ^ byte) * 0x100000001b3ull; }

  std::unordered_set<const trBase*> seen_;
  std::vector<const trBase*> pending_;
  std::uint64_t hash_ = 0xcbf29ce484222325ull;
};

}  // namespace

std::uint64_t NetworkStamp(std::initializer_list<const trBase*> nodes) {
  Stamp stamp;
  for (const trBase* node : nodes) stamp.Reach(node);
  return stamp.Take();
}
