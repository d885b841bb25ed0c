// A shader of level stripes: raises every other band of altitude and paints it.
#include <core/plugin.h>
#include <core/shader.h>

#include <cmath>

class StripesShader : public trSurfaceShader {
 public:
  StripesShader() {
    Param(spacing_, "spacing", 10.0);
    Param(height_, "height", 2.0);
    Param(colour_, "colour", trManRgb(0.25f, 0.5f, 1.0f));
  }
  long Displace(trShadingInterface& si) override {
    DisplaceInput(si);
    if (IsEnabled() && IsRaised(si)) si.P() += si.N() * height_;
    return 1;
  }
  long Shade(trShadingInterface& si) override {
    ShadeInput(si);
    if (!IsEnabled() || !IsRaised(si)) return 1;
    si.Cutil() = colour_.ToRender();
    si.SetShadingToLambert(colour_.ToRender());
    return 1;
  }

 private:
  bool IsRaised(trShadingInterface& si) const {
    return std::fmod(std::floor(si.Pt().y / spacing_), 2.0) != 0;
  }

  double spacing_, height_;
  trManRgb colour_;
};

extern "C" OV_API long trPluginStartup(trPluginStartupInfo* info) {
  trPluginSdkVersion version;
  version.PrivateInit();
  version.SetVersion(kOvSdkVersion);
  trPluginToken token(info, version, "stripes");
  token.AddClass("shader/surface", "stripes_shader", trCreateNode<StripesShader>, trDestroyNode, "");
  return 1;
}
