// Heightfields: nodes that are rasters of heights, and bring themselves up to date from the raster they take
// as input.
//
// Grid x runs along world x and grid y along world z; row 0 is the southern one of a georeferenced raster. A
// value is a height in raster units; metres are value times z scale.
#pragma once

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>

#include "core/image.h"
#include "core/node.h"

/// Geographic corners, degrees.
struct trLatLongCorners {
  double south = 0, west = 0, north = 0, east = 0;
};

/// Lowest and highest of a run of heights, in raster units; what isn't finite doesn't count. While nothing
/// counts, the lowest is above the highest.
struct OV_API trHeightRange {
  float lowest = HUGE_VALF, highest = -HUGE_VALF;

  void Take(const float* heights, std::int64_t count);
  void Take(const trHeightRange& other) {
    lowest = std::min(lowest, other.lowest);
    highest = std::max(highest, other.highest);
  }
};

namespace ovhost {
class HeightfieldWalk;
}

/// Holds off HfOperateTS of all other threads while it lives, for who works on rasters on their own account,
/// such as a button. Thread-safe.
class OV_API trHeightfieldTurn {
 public:
  trHeightfieldTurn();
  ~trHeightfieldTurn();
  trHeightfieldTurn(const trHeightfieldTurn&) = delete;
  trHeightfieldTurn& operator=(const trHeightfieldTurn&) = delete;
};

/// Base of all heightfield nodes. Declares the link `input_node` ahead of a class's own parameters and the
/// fact `is_heightfield`. HfOperateTS and the lookups are thread-safe; the rest is one thread at a time.
class OV_API trHeightfield : public trFloatMap, public trBase {
 public:
  trHeightfield();
  ~trHeightfield() override;
  using trBase::Init;
  using trImage::Init;

  /// Brings the raster up to date from the inputs. 1 is success. Called by HfOperateTS alone.
  virtual long HfOperate();

  // --- Being asked
  /// Brings this heightfield and all it depends on up to date, inputs first and without recursion, one at a
  /// time whoever asks; non-zero is success. A chain that feeds itself is an error and gives 0.
  long HfOperateTS();
  trHeightfield* HfInput() const;
  long HfIsValid() const { return isValid_.load(std::memory_order_acquire); }
  void HfValidate();
  void HfInvalidate();
  /// A change of parameter `index`: with `invalidate` non-zero the raster is out of date.
  void OnParamChanged(long index, trBase* who, unsigned char invalidate);
  void OnParamChanged(long index, trBase* who) override;
  /// Whether changes of its parameters are to start a preview; false for costly operators.
  void HfSetParamsMayAffectPreviews(bool may) { mayAffectPreviews_ = may; }
  bool HfParamsMayAffectPreviews() const { return mayAffectPreviews_; }
  /// Whether a newer raster of a heightfield that this one links to puts this one out of date, as it does
  /// unless a class says otherwise.
  void HfSetFollowsInputs(bool follows) { followsInputs_ = follows; }

  // --- Size and scale
  long HfXPnts() const { return width; }
  long HfYPnts() const { return height; }
  long HfXSize() const { return width - 1L; }  ///< intervals
  long HfYSize() const { return height - 1L; }
  /// Metres per interval, and per raster unit: the node's own, or its input's while its own are disabled.
  /// Without either they are 1.
  double HfXScale() const;
  double HfYScale() const;
  double HfZScale() const;
  double HfScaledXSize() const { return static_cast<double>(HfXSize()) * HfXScale(); }  ///< metres across
  double HfScaledYSize() const { return static_cast<double>(HfYSize()) * HfYScale(); }
  /// A scale past 1e200 counts as that, so that sizes and heights stay finite; NaN counts as 0.
  void HfSetScale(const double& x, const double& y, const double& z);
  void HfSetScaleEnabled(unsigned char enabled);
  /// Geographic corners: the node's own if enabled; else, while its scale is its input's, the input's.
  void HfSetLatLongEnabled(unsigned char enabled);
  void HfSetLatLongCorners(const trLatLongCorners& corners);
  unsigned char HfLatLongCorners(trLatLongCorners* corners) const;

  // --- Range, in raster units and metres; cached
  float HfMinZ() const { return minZ_; }
  float HfMaxZ() const { return maxZ_; }
  void HfSetMinZ(float z) { minZ_ = z; }
  void HfSetMaxZ(float z) { maxZ_ = z; }
  double HfMinHeight() const { return minZ_ * HfZScale(); }
  double HfMaxHeight() const { return maxZ_ * HfZScale(); }
  /// Rescans the raster. Points that aren't finite don't count; 0 and 0 when none is.
  void HfFindZRange();
  /// What a rescan would find, by who has looked at all heights already.
  void HfSetZRange(const trHeightRange& range);
  /// 0 at the lowest, 1 at the highest.
  double Hf01FromZ(const double& z) const;

  // --- The raster
  float* HfScanlineRaw(int row) { return static_cast<float*>(ScanlineRaw(row)); }
  const float* HfScanlineRaw(int row) const { return static_cast<const float*>(ScanlineRaw(row)); }
  /// Values at a position in grid points, clamped at the edges; 0 for an empty raster. Nearest is a step
  /// function; linear is bilinear; Catmull-Rom interpolates with a continuous gradient; cubic interpolates
  /// with the gradient from wider neighbours; smooth is the uniform cubic B-spline, which rounds peaks off.
  /// `gradient`, where not null, gets the length of the gradient there, raster units per interval.
  double HfZLookupNearest(const double& x, const double& y) const;
  double HfZLookupLinear(const double& x, const double& y, double* gradient) const;
  double HfZLookupSmooth(const double& x, const double& y, double* gradient) const;
  double HfZLookupCubic(const double& x, const double& y, double* gradient) const;
  double HfZLookupCatmullRom(const double& x, const double& y, double* gradient) const;

 private:
  friend class ovhost::HeightfieldWalk;

  /// The node whose own scale this one reports; null where there is none.
  const trHeightfield* ScaleOwner() const;
  /// Stands for the present rasters of all heightfields that this one links to.
  std::uint64_t InputsVersion() const;
  void DropValidity();

  trHeightfieldLink inputNode_;
  std::atomic<long> isValid_{0};
  /// The state of the graph in which the node last operated, and the result of that.
  std::atomic<std::uint64_t> operatedAt_{0};
  std::atomic<long> operatedResult_{0};
  bool isOperating_ = false;
  /// Counts up with every raster; what the inputs' were when this one's was made.
  std::uint64_t version_ = 0, inputsVersion_ = 0;
  bool followsInputs_ = true, mayAffectPreviews_ = true;

  unsigned char scaleEnabled_ = 0, latLongEnabled_ = 0;
  double xScale_ = 1, yScale_ = 1, zScale_ = 1;
  mutable std::atomic<const trHeightfield*> scaleOwner_{nullptr};  ///< as of `scaleOwnerAt_`
  mutable std::atomic<std::uint64_t> scaleOwnerAt_{0};
  trLatLongCorners corners_;
  float minZ_ = 0, maxZ_ = 0;
};
