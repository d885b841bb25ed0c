// The reflection of a surface at one point: an emission colour and a short list of lobes, kept in place.
#pragma once

#include "core/colour.h"
#include "core/vector.h"

/// One lobe. Kind 2 is Lambert reflection, 3 Lambert transmission; the numbers are part of the shaders'
/// contract.
struct trLobe {
  enum Kind : int { kDiffuseReflection = 2, kDiffuseTransmission = 3 };
  int kind = kDiffuseReflection;
  trFCol colour;
};

/// Emission (radiance) and lobes. A value type: saving, scaling and restoring one is a copy of a few words.
/// Lobes of one kind and shape are summed, so that a stack of layers doesn't grow the list.
class trBsdf {
 public:
  static constexpr int kMaxLobes = 8;

  trFCol& Emission() { return emission_; }
  const trFCol& Emission() const { return emission_; }
  int NumLobes() const { return count_; }
  const trLobe& Lobe(int i) const { return lobes_[i]; }

  void Clear() {
    emission_ = trFCol();
    count_ = 0;
  }
  void ClearLobes() { count_ = 0; }
  /// Adds a lobe; one of a kind that is present adds its colour there. Past kMaxLobes kinds it is dropped: 0.
  long AddLobe(const trLobe& lobe) {
    for (int i = 0; i < count_; ++i)
      if (lobes_[i].kind == lobe.kind) return lobes_[i].colour += lobe.colour, 1;
    if (count_ == kMaxLobes) return 0;
    lobes_[count_++] = lobe;
    return 1;
  }
  void AddLambert(const trFCol& colour) { AddLobe({trLobe::kDiffuseReflection, colour}); }
  /// Multiplies emission and every lobe, per channel.
  void Scale(const trFCol& factor) {
    emission_ *= factor;
    for (int i = 0; i < count_; ++i) lobes_[i].colour *= factor;
  }
  /// Adds the emission and lobes of another.
  void Add(const trBsdf& other) {
    emission_ += other.emission_;
    for (int i = 0; i < other.count_; ++i) AddLobe(other.lobes_[i]);
  }
  /// Sum of the colours of one kind of lobe.
  trFCol ColourOf(int kind) const {
    trFCol sum;
    for (int i = 0; i < count_; ++i)
      if (lobes_[i].kind == kind) sum += lobes_[i].colour;
    return sum;
  }

 private:
  trFCol emission_;
  int count_ = 0;
  trLobe lobes_[kMaxLobes];
};
