// heightfield_make_river: cuts rivers into the ground.
#pragma once

#include "core/idioms.h"
#include "heightfield/operator.h"
#include "heightfield/river_course.h"

/// `heightfield_make_river`. A river runs from each source the least-cost way down to the border or the sea,
/// and cuts a channel that grows with what drains into it; or the raster becomes the mask of that, 1 where
/// there is water.
class HeightfieldMakeRiver : public OrdinaryOperator {
 public:
  HeightfieldMakeRiver();
  void UpdateDerived() override;

 protected:
  long Compute(trHeightfield* input) override;

 private:
  enum Choice : long { kHighGround = 0, kPlaces = 1 };
  enum Result : long { kGround = 0, kMask = 1 };
  static constexpr int kPlacesMost = 4;
  /// The nearest place of a course to a point, while rivers are laid over the raster.
  struct Nearest {
    float beyondBank = HUGE_VALF;  ///< metres from the water's edge, negative in the water
    float bed = 0, width = 0, depth = 0;
  };

  std::vector<std::int32_t> Sources(const std::vector<float>& ground, int columns, int rows) const;
  /// Heights that lead water: the ground, and what makes it wind.
  std::vector<float> LeadingHeights(const std::vector<float>& ground, int columns) const;
  /// Marks the points that a course reaches.
  void Lay(const RiverCourse& course, std::vector<Nearest>& nearest) const;
  /// Height of a point of the ground next to the river, metres.
  double Cut(double ground, const Nearest& at) const;
  double BankReach() const;

  long sourceChoice_, numberOfSources_;
  tr2Vector source_[kPlacesMost];
  unsigned char endAtSea_;
  double seaLevel_;
  long seed_;
  double meandering_, meanderScale_;
  double riverWidth_, riverDepth_, bankSlope_, bedSmoothing_, minimumFall_, maximumCut_;
  long resultMode_;
  trIntHint choiceHint_, countHint_, resultHint_;
  trDoubleHint altitudeHint_, shareHint_, metresHint_, angleHint_, fallHint_;
  trRandomSeedGuiPushButton randomiseButton_{this};

  double bankTangent_ = 1;
};
