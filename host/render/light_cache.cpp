// The table of indirect light.
#include "host/render/light_cache.h"

namespace ovhost {
namespace {

/// Entries looked at for a key before it is left out.
constexpr int kMostProbes = 16;

}  // namespace

LightCache::LightCache(int bits)
    : entries_(new Entry[size_t(1) << bits]), shift_(64 - bits), mask_((std::uint64_t(1) << bits) - 1) {
  static_assert(sizeof(Entry) == kEntryBytes);
}

LightCache::~LightCache() = default;

LightCache::Entry* LightCache::Claim(std::uint64_t key) {
  std::uint64_t at = key * 0x9e3779b97f4a7c15ull >> shift_;
  for (int probe = 0; probe < kMostProbes; ++probe, at = (at + 1) & mask_) {
    Entry& entry = entries_[at];
    std::uint64_t found = entry.key.load(std::memory_order_relaxed);
    if (found == 0 && entry.key.compare_exchange_strong(found, key, std::memory_order_relaxed)) return &entry;
    if (found == key) return &entry;
  }
  return nullptr;
}

}  // namespace ovhost
