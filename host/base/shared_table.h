// A table of values worked out once for all threads, in which new ones take the place of old ones.
#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <cstdint>
#include <memory>
#include <type_traits>

namespace ovhost {

/// What a key stands for never depends on who asks first, so results don't depend on what was found here and
/// what had to be worked out again. Thread-safe and free of locks: who meets an entry that is being written
/// goes on without it.
template <typename Value>
class SharedTable {
  static_assert(std::is_trivially_copyable_v<Value> && sizeof(Value) % sizeof(std::uint64_t) == 0);
  using Words = std::array<std::uint64_t, sizeof(Value) / sizeof(std::uint64_t)>;
  /// The version is odd while an entry is written; who reads the same even one before and after has read well
  /// (a sequence lock; Boehm 2012).
  struct alignas(64) Entry {
    std::atomic<std::uint64_t> version{0}, key{0};
    std::array<std::atomic<std::uint64_t>, std::tuple_size_v<Words>> words{};
  };

 public:
  static constexpr std::uint64_t kEntryBytes = sizeof(Entry);

  /// Of 2^bits entries; at least 3 bits.
  explicit SharedTable(int bits)
      : entries_(new Entry[size_t(1) << bits]), shift_(64 - bits), mask_((std::uint64_t(1) << bits) - 1) {}

  std::uint64_t Bytes() const { return (mask_ + 1) * kEntryBytes; }

  /// The value of `key`, which isn't 0, from compute() where it isn't here, or not any more. compute() may
  /// ask for other keys.
  template <typename Compute>
  Value Find(std::uint64_t key, const Compute& compute) {
    Value value;
    if (!Read(key, value)) {
      value = compute();
      Write(key, value);
    }
    return value;
  }

 private:
  /// Entries that lie together and among which a key has its place.
  static constexpr std::uint64_t kGroup = 8;
  static constexpr auto kRelaxed = std::memory_order_relaxed;

  /// The first of the entries that may have a key.
  std::uint64_t GroupOf(std::uint64_t key) const {
    return (key * 0x9e3779b97f4a7c15ull >> shift_) & ~(kGroup - 1);
  }

  bool Read(std::uint64_t key, Value& value) const {
    const std::uint64_t group = GroupOf(key);
    for (std::uint64_t i = 0; i < kGroup; ++i) {
      const Entry& entry = entries_[group + i];
      if (entry.key.load(kRelaxed) != key) continue;
      const std::uint64_t version = entry.version.load(std::memory_order_acquire);
      Words words;
      const bool isKeys = entry.key.load(std::memory_order_acquire) == key;
      for (size_t w = 0; w < words.size(); ++w) words[w] = entry.words[w].load(std::memory_order_acquire);
      if (!isKeys || version % 2 != 0 || entry.version.load(kRelaxed) != version) return false;
      value = std::bit_cast<Value>(words);
      return true;
    }
    return false;
  }

  void Write(std::uint64_t key, const Value& value) {
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
    const auto words = std::bit_cast<Words>(value);
    for (size_t w = 0; w < words.size(); ++w) entry->words[w].store(words[w], std::memory_order_release);
    entry->version.store(version + 2, std::memory_order_release);
  }

  std::unique_ptr<Entry[]> entries_;
  int shift_;
  std::uint64_t mask_;
};

}  // namespace ovhost
