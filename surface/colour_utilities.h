// Shaders that act on the colour of a surface after its input has shaded: levels and gamma, contour lines, a
// ramp of colour by distance.
#pragma once

#include "core/idioms.h"

/// What they share: displacement is the input's alone.
class ColourUtility : public trSurfaceShader {
 public:
  long Displace(trShadingInterface& si) override {
    DisplaceInput(si);
    return 1;
  }
  unsigned char HasDisplacement() override { return 0; }
  unsigned char HasShade() override { return 1; }
};

class ColourAdjustShader : public ColourUtility {
 public:
  ColourAdjustShader();
  void OnParamChanged(long index, trBase* who) override;
  void UpdateDerived() override;
  long Shade(trShadingInterface& si) override;

 private:
  /// A colour and the slider that moves its channels together: the slider shows the middle channel.
  struct Level {
    trManRgb colour;
    float adjust;
    const char *colourName, *adjustName;
    trDoubleHint hint;
    void SliderFollows(trBase* node);
    void ColourFollows(trBase* node);
  };
  void Declare(Level& level, float value, const trRange& range, const char* about);

  Level black_{{}, 0, "black_point", "black_point_adjust", {}};
  Level white_{{}, 1, "white_point", "white_point_adjust", {}};
  Level gamma_{{}, 1, "gamma", "gamma_adjust", {}};
  unsigned char clampBelowBlack_, clampAboveWhite_;
  trFCol inverseGamma_{1.0f};
};

class ContourShader : public ColourUtility {
 public:
  ContourShader();
  void OnParamChanged(long index, trBase* who) override;
  long Shade(trShadingInterface& si) override;
  unsigned char HasDisplacement() override { return 1; }

 private:
  struct Lines {
    double interval, thickness;
    trManRgb colour;
  };
  /// Where an altitude lies: on a line or not, and how far the line has faded there, 0 to 1.
  struct Band {
    bool hit = false, isMain = false;
    double faded = 0;
  };
  Band Find(double x) const;
  bool OnLine(const Lines& lines, double x, double& faded) const;

  trHeading mainHeading_, intermediateHeading_;
  Lines main_, intermediate_;
  double numberOfIntermediates_, smoothingDistance_, baseAltitude_;
  unsigned char smoothEdges_, useY_;
  bool isCoupling_ = false;
};

class DistanceShader : public ColourUtility {
 public:
  DistanceShader();
  long StartRender(trRenderingInterface& rendering) override;
  long Shade(trShadingInterface& si) override;

 private:
  unsigned char applyFar_, applyNear_, clampFar_, clampNear_;
  trManRgb farColour_, nearColour_;
  double farDistance_, nearDistance_;
  long mode_, space_;
  trCameraLink camera_;
  trDoubleHint distanceHint_;
  trIntHint modeHint_, spaceHint_;
  bool hasCamera_ = false;
  trVector cameraPosition_, cameraAxis_;
};
