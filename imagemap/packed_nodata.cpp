// Runs of pixels.
#include "imagemap/packed_nodata.h"

#include <algorithm>

void GeogPackedNODATA::Clear() { *this = GeogPackedNODATA(); }

void GeogPackedNODATA::Add(std::uint64_t index) {
  if (!ranges_.empty() && ranges_.back().last + 1 == index)
    ranges_.back().last = index;
  else
    ranges_.push_back({index, index});
  ++count_;
}

void GeogPackedNODATA::Merge(const GeogPackedNODATA& other) {
  std::vector<Range> all(ranges_.size() + other.ranges_.size());
  std::merge(ranges_.begin(), ranges_.end(), other.ranges_.begin(), other.ranges_.end(), all.begin(),
             [](const Range& a, const Range& b) { return a.first < b.first; });
  ranges_.clear();
  count_ = 0;
  for (const Range& range : all)
    if (!ranges_.empty() && range.first <= ranges_.back().last + 1)
      ranges_.back().last = std::max(ranges_.back().last, range.last);
    else
      ranges_.push_back(range);
  for (const Range& range : ranges_) count_ += static_cast<std::int64_t>(range.last - range.first + 1);
}

bool GeogPackedNODATA::Next(std::uint64_t& index) {
  if (ranges_.empty()) return false;
  const auto begin = [this](std::int64_t run) {
    run_ = run;
    step_ = 0;
    currentFirst_ = ranges_[static_cast<std::size_t>(run)].first;
    currentLast_ = ranges_[static_cast<std::size_t>(run)].last;
  };
  if (!isIterating_) {
    isIterating_ = true;
    begin(0);
  }
  if (currentFirst_ + static_cast<std::uint64_t>(step_) > currentLast_) {
    if (run_ + 1 >= static_cast<std::int64_t>(ranges_.size())) return false;
    begin(run_ + 1);
  }
  index = currentFirst_ + static_cast<std::uint64_t>(step_++);
  return true;
}

trString GeogPackedNODATA::Dump() const {
  trString text = "GeogPackedNODATA size=" + std::to_string(count_) + "\nRanges (" +
                  std::to_string(ranges_.size()) + "):\n";
  for (const Range& range : ranges_)
    text += std::to_string(range.first) + "-" + std::to_string(range.last) + "\n";
  return text;
}
