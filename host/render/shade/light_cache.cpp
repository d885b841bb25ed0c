// The table of indirect light.
#include "host/render/shade/light_cache.h"

#include <atomic>
#include <bit>

namespace ovhost {
namespace {

/// Entries that lie together and among which a key has its place.
constexpr std::uint64_t kGroup = 8;
constexpr auto kRelaxed = std::memory_order_relaxed;

}  // namespace

/// The version is odd while an entry is written; who reads the same even one before and after has read well
/// (a sequence lock; Boehm 2012).
struct alignas(LightCache::kEntryBytes) LightCache::Entry {
  std::atomic<std::uint64_t> version{0}, key{0};
  std::array<std::atomic<std::uint64_t>, std::tuple_size_v<Words>> words{};
};

LightCache::LightCache(int bits)
    : entries_(new Entry[size_t(1) << bits]), shift_(64 - bits), mask_((std::uint64_t(1) << bits) - 1) {
  static_assert(sizeof(Entry) == kEntryBytes);
}

LightCache::~LightCache() = default;

std::uint64_t LightCache::GroupOf(std::uint64_t key) const {
  return (key * 0x9e3779b97f4a7c15ull >> shift_) & ~(kGroup - 1);
}

bool LightCache::Read(std::uint64_t key, CachedLight& light) const {
  const std::uint64_t group = GroupOf(key);
  for (std::uint64_t i = 0; i < kGroup; ++i) {
    const Entry& entry = entries_[group + i];
    if (entry.key.load(kRelaxed) != key) continue;
    const std::uint64_t version = entry.version.load(std::memory_order_acquire);
    Words words;
    const bool isKeys = entry.key.load(std::memory_order_acquire) == key;
    for (size_t w = 0; w < words.size(); ++w) words[w] = entry.words[w].load(std::memory_order_acquire);
    if (!isKeys || version % 2 != 0 || entry.version.load(kRelaxed) != version) return false;
    light = std::bit_cast<CachedLight>(words);
    return true;
  }
  return false;
}

void LightCache::Write(std::uint64_t key, const CachedLight& light) {
  const std::uint64_t group = GroupOf(key);
  // An empty entry, or else the one that the key's other bits name.
  Entry* entry = &entries_[group + key / 2 % kGroup];
  for (std::uint64_t i = 0; i < kGroup; ++i) {
    Entry& other = entries_[group + i];
    const std::uint64_t found = other.key.load(kRelaxed);
    if (found == key) return;
    if (found != 0) continue;
    entry = &other;
    break;
  }
  std::uint64_t version = entry->version.load(kRelaxed);
  if (version % 2 != 0 ||
      !entry->version.compare_exchange_strong(version, version + 1, std::memory_order_acquire, kRelaxed))
    return;
  entry->key.store(key, std::memory_order_release);
  const auto words = std::bit_cast<Words>(light);
  for (size_t w = 0; w < words.size(); ++w) entry->words[w].store(words[w], std::memory_order_release);
  entry->version.store(version + 2, std::memory_order_release);
}

}  // namespace ovhost
