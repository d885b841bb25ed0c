// What limits a layer to a part of a surface: altitude, slope and direction with fuzzy zones, coverage and
// fractal breakup. Groups of parameters that several classes declare alike.
#pragma once

#include "core/idioms.h"

/// The term of a fuzzy limit: exp(-margin / zone), where the margin is how far inside the limit a value lies.
/// `exact` takes the exact exponential, which is smoother at the zones' ends than the fast one.
inline double FuzzyTerm(double margin, double zone, bool exact) {
  const double x = -std::clamp(GuardedDivide(margin, zone), -50.0, 50.0);
  return exact ? std::exp(x) : trFastExp()(x);
}

/// Altitude limits. Metres.
class AltitudeLimits {
 public:
  /// Declares the limits; the key only where a class has it.
  void Declare(trBase* node);
  void DeclareKey(trBase* node, long keyDefault);
  void DeclareUseY(trBase* node);
  /// Sum of the terms of the limits that are on.
  double Terms(trShadingInterface& si, bool exact) const;

 private:
  trVector Position(trShadingInterface& si) const;

  trDoubleHint altitudeHint_, zoneHint_;
  trIntHint keyHint_;
  unsigned char limitMaximum_, limitMinimum_;
  double maximum_, maximumZone_, minimum_, minimumZone_;
  // Not of every class.
  unsigned char useY_ = 0;
  long key_ = 0;
};

/// The normal that a key names: 1 the terrain's, 2 the planet's or object's, else the final one.
class NormalKey {
 public:
  void Declare(trBase* node, const char* name);
  const trVector& Of(trShadingInterface& si) const {
    return key_ == 1 ? si.Nt() : key_ == 2 ? si.Ng() : si.N();
  }

 private:
  trIntHint hint_;
  long key_ = 0;
};

/// Slope limits. Degrees from the horizontal.
class SlopeLimits {
 public:
  void Declare(trBase* node, unsigned char limitMaximumDefault = 0);
  void DeclareKey(trBase* node) { key_.Declare(node, "slope_key"); }
  void DeclareUseY(trBase* node);
  double Terms(trShadingInterface& si, bool exact) const;

 private:
  trDoubleHint angleHint_;
  unsigned char limitMaximum_, limitMinimum_;
  double maximum_, maximumZone_, minimum_, minimumZone_;
  // Not of every class.
  NormalKey key_;
  unsigned char useY_ = 0;
};

/// The limit to a compass direction. Degrees.
class DirectionLimit {
 public:
  void Declare(trBase* node);
  /// Called from UpdateDerived.
  void Update();
  double Terms(trShadingInterface& si, bool exact) const;

 private:
  trDoubleHint headingHint_, declinationHint_, deviationHint_;
  NormalKey key_;
  unsigned char limit_;
  double heading_, declination_, maxDeviation_, zone_;
  trVector peak_{0, 0, 1};  ///< the direction of the two angles, unit
};

/// Coverage and the fractal that breaks it up.
struct Breakup {
  double coverage, contrast;
  unsigned char isOn, invert;
  trShaderLink shader;
  trDoubleHint contrastHint;

  /// The oldest class has the last two parameters the other way round.
  void Declare(trBase* node, bool invertFirst = false);
  /// The switch follows its link. Called from OnParamChanged.
  void OnParamChanged(trBase* node, long index, trBase* who) const {
    trSwitchFollowsLink(node, index, who, shader, isOn, "fractal_breakup");
  }
  trShader* Shader() const { return LinkedShader(shader); }
  /// Breaks `mask` up, where it isn't full cover. False where no fractal is linked: the mask stands as it is,
  /// unsoftened.
  bool Apply(trShadingInterface& si, trFCol& mask) const;
  /// The fractal as an offset of the mask, -0.5 to 0.5 a channel.
  trFCol Offset(trShadingInterface& si, trShader& fractal) const;
  /// m + contrast (m - 0.5 + offset), per channel.
  trFCol Broken(const trFCol& m, const trFCol& offset) const;
};

/// The mask shader of a layer, as coverage (before breakup) or over all.
struct LayerMaskShader {
  unsigned char isOn, invert, asCoverage;
  trShaderLink shader;

  void Declare(trBase* node);
  void OnParamChanged(trBase* node, long index, trBase* who) const {
    trSwitchFollowsLink(node, index, who, shader, isOn, "blend_by_shader");
  }
  /// The shader's value into `value`, 1 where it is off, and times the mask where it counts as coverage.
  /// False where it ends the mask: black if the value is 0, as it is if no shader is linked.
  bool Apply(trShadingInterface& si, trFCol& mask, float& value) const;
};

/// Makes the fractal of a new layer beside `node`, bundled with it and linked to its `breakup_shader`, with
/// `fractal_breakup` on or off. 0 where it can't be made.
long CreateBreakupFractal(trBase* node, bool switchOn);
