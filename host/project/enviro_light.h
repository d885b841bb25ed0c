// Sky light.
#pragma once

#include "core/node.h"

/// Lets the sky and the ground light surfaces and the air. Strength 1 is what is really there.
class OV_API trEnviroLightNode : public trBase {
 public:
  trEnviroLightNode();

  bool IsEnabled() const { return enable_ != 0; }
  trFCol StrengthOnSurfaces() const { return Tinted(onSurfaces_); }
  trFCol StrengthInAtmosphere() const { return Tinted(inAtmosphere_); }

 private:
  trFCol Tinted(double strength) const {
    return colour_.ToRender() * static_cast<float>(strength > 0 ? strength : 0);
  }

  trDoubleHint strengthHint_;
  unsigned char enable_;
  trManRgb colour_;
  double onSurfaces_, inAtmosphere_;
};
