// What the heightfield operators share: the flat raster of an operator without input, the shape of the
// ordinary ones, and work row by row.
#pragma once

#include <functional>

#include "core/heightfield.h"

/// The heightfield that an operator without an input has: 2 by 2 points of height 0.
long MakeFlat(trHeightfield& field);

/// Whether there is anything to work on: an operator whose button was never pressed has no points.
inline bool HasPoints(const trHeightfield* field) { return field && field->pixels; }

/// A count or an index of points that a user gave: rounded, and brought within what an int holds.
int RoundedCount(double count);

/// Runs `work(row)` for the rows from 0 to `rows` on all cores; the calling thread takes part. What `work`
/// throws is thrown on. The order of rows is open.
void ForEachRow(long rows, const std::function<void(long row)>& work);

/// The same with one report a row by `node`, in the calling thread, the fraction being the share of rows
/// done. False when the user stopped it; some rows are done then.
bool ForEachRow(trBase& node, const trString& text, long rows, const std::function<void(long row)>& work);

/// Makes all rows of a heightfield's raster by `work(row)`, as ForEachRow does, and sets its range, while
/// rows are still in the cache.
void MakeRows(trHeightfield& field, const std::function<void(long row)>& work);
bool MakeRows(trHeightfield& field, const trString& text, const std::function<void(long row)>& work);

/// An operator that is computed whenever its raster is out of date.
class OrdinaryOperator : public trHeightfield {
 public:
  long HfOperate() override;

 protected:
  /// Makes the raster; `input` is up to date, or null without points to work on. 0 is failure.
  virtual long Compute(trHeightfield* input) = 0;
  /// Makes each row of a raster of the input's size from the input's row.
  template <typename Work>
  long MapRows(const trHeightfield& input, Work work) {
    if (!Init(0, 0, input.width, input.height)) return 0;
    const std::int64_t count = width;
    MakeRows(*this, [&](long row) {
      work(input.HfScanlineRaw(static_cast<int>(row)), HfScanlineRaw(static_cast<int>(row)), count);
    });
    return 1;
  }
  /// The input's raster as it is.
  long CopyRows(const trHeightfield& input);
  /// After a failed computation the raster stays in use as far as it is.
  void KeepWhatAFailureLeaves() { keepsFailed_ = true; }

 private:
  bool keepsFailed_ = false;
};
