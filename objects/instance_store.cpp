// Blocks of instance records.
#include "objects/instance_store.h"

#include <limits>
#include <new>

bool InstanceStore::Make() {
  Clear();
  blocks_.reset(new (std::nothrow) Block[kBlocks]);
  return blocks_ != nullptr;
}

void InstanceStore::Clear() {
  blocks_.reset();
  count_ = 0;
}

bool InstanceStore::Add(const InstanceRecord& record) {
  if (!blocks_ || count_ == std::numeric_limits<std::int32_t>::max()) return false;
  const auto at = static_cast<std::size_t>(count_);
  Block& block = blocks_[at / kBlockSize];
  if (!block) block.reset(new (std::nothrow) InstanceRecord[kBlockSize]);
  if (!block) return false;
  block[at % kBlockSize] = record;
  ++count_;
  return true;
}

std::uint64_t InstanceStore::Bytes() const {
  if (!blocks_) return 0;
  const std::size_t blocks = (static_cast<std::size_t>(count_) + kBlockSize - 1) / kBlockSize;
  return kBlocks * sizeof(Block) + blocks * kBlockSize * sizeof(InstanceRecord);
}
