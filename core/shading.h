// The shading state: one sample on its way through a chain of shaders.
#pragma once

#include <cstdint>

#include "core/api.h"
#include "core/bsdf.h"
#include "core/colour.h"
#include "core/transform.h"
#include "core/vector.h"

class trRenderState;
class trScene;
struct trParticle;
struct trView;

/// Why a render runs.
namespace trRenderContext {
enum Context : int { kFinal = 0, kPreview = 1, kProgressive = 2 };
}

/// Random draws of an evaluation: a hash of what the draw is for (pixel, sample, depth) and how many came
/// before, so that a picture doesn't depend on who computes which part of it.
struct trRandomStream {
  std::uint64_t key = 0;
  std::uint32_t drawn = 0;

  /// Next draw, 0 to below 1. The mixer is that of SplitMix64 (Steele, Lea and Flood 2014).
  double Next() {
    std::uint64_t z = key + 0x9e3779b97f4a7c15ull * (++drawn);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return static_cast<double>((z ^ (z >> 31)) >> 11) * 0x1p-53;
  }
};

/// The object a sample lies on, as shaders may ask for it. Null members where there is none.
struct trShadingObject {
  const trTransform<double>* objectToWorld = nullptr;
  const trScene* scene = nullptr;
  /// The particle whose instance is shaded, and the scene whose inflator made it.
  const trParticle* particle = nullptr;
  const trScene* particleScene = nullptr;
};

/// One sample: points and normals in world space (metres), the running colour and reflection. Per-thread
/// state; all accessors are references to be read and written in place.
class trShadingInterface {
 public:
  trVector& P() { return p_; }
  const trVector& P() const { return p_; }
  trVector& Pg() { return pg_; }
  trVector& Pt() { return pt_; }
  trVector& Ptg() { return ptg_; }
  trVector& Ph() { return ph_; }
  trVector P_inObjectSpace() const { return InObjectSpace(p_); }
  trVector Pg_inObjectSpace() const { return InObjectSpace(pg_); }
  trVector Ph_inObjectSpace() const { return InObjectSpace(ph_); }
  trVector& N() { return n_; }
  const trVector& N() const { return n_; }
  trVector& Ng() { return ng_; }
  const trVector& Ng() const { return ng_; }
  trVector& Nt() { return nt_; }
  trVector& Ni() { return ni_; }
  trVector& Eye() { return eye_; }
  trVector& RootEye() { return rootEye_; }
  /// Filter footprint, metres; 0 when nothing smooths.
  double& SmoothSize() { return smoothSize_; }
  trFCol& Cutil() { return cutil_; }
  trFCol& Oo_surf() { return oo_; }
  trBsdf& Bsdf() { return bsdf_; }

  bool doCd() const { return (wants_ & kCd) != 0; }
  bool doCo() const { return (wants_ & kCo) != 0; }
  bool doCe() const { return (wants_ & kCe) != 0; }
  bool doCs() const { return (wants_ & kCs) != 0; }
  bool doOo() const { return (wants_ & kOo) != 0; }
  bool doAo() const { return (wants_ & kAo) != 0; }

  /// Replaces the shading by an emission, or by a Lambert reflection.
  void SetShadingToConstant(const trFCol& emission) {
    bsdf_.Clear();
    bsdf_.Emission() = emission;
  }
  void SetShadingToLambert(const trFCol& colour) {
    bsdf_.Clear();
    bsdf_.AddLambert(colour);
  }
  /// Blends in: what is there is multiplied by (1 - alpha), the new colour by `tint`, per channel.
  void BlendShadingToConstant(const trFCol& emission, const trFCol& alpha, const trFCol& tint) {
    BlendShadingToLambertAndEmissive(trFCol(), emission, alpha, tint);
  }
  void BlendShadingToLambert(const trFCol& colour, const trFCol& alpha, const trFCol& tint) {
    BlendShadingToLambertAndEmissive(colour, trFCol(), alpha, tint);
  }
  void BlendShadingToLambertAndEmissive(const trFCol& colour, const trFCol& emission, const trFCol& alpha,
                                        const trFCol& tint) {
    bsdf_.Scale(trFCol(1.0f) - alpha);
    if (!(colour * tint).IsBlack()) bsdf_.AddLambert(colour * tint);
    bsdf_.Emission() += emission * tint;
  }

  trRenderState& RenderState() { return *renderState_; }
  unsigned int Thread() const { return thread_; }
  trRenderContext::Context RenderContext() const { return context_; }
  float Frame() const { return frame_; }
  int LightDepth() const { return lightDepth_; }
  double RandDouble() { return random_.Next(); }
  const trView* PMainView() const { return mainView_; }

  double& DEV_FractalMultiplier() { return devMultiplier_; }
  double& DEV_FractalLowerThreshold() { return devLower_; }
  double& DEV_FractalUpperThreshold() { return devUpper_; }
  double& DEV_FractalTailBoost() { return devTailBoost_; }
  double& DEV_CloudFeatureScalar() { return devCloudFeature_; }

  // --- Host side
  enum Wants : unsigned { kCd = 1, kCo = 2, kCe = 4, kCs = 8, kOo = 16, kAo = 32 };
  void SetWants(unsigned wants) { wants_ = wants; }
  unsigned GetWants() const { return wants_; }
  void SetThread(unsigned thread) { thread_ = thread; }
  void SetRenderContext(trRenderContext::Context context) { context_ = context; }
  void SetFrame(float frame) { frame_ = frame; }
  void SetLightDepth(int depth) { lightDepth_ = depth; }
  void SetMainView(const trView* view) { mainView_ = view; }
  void SetRenderState(trRenderState* state) { renderState_ = state; }
  trRandomStream& Random() { return random_; }
  trShadingObject& Object() { return object_; }
  /// All points at `point`, all normals along `normal`, colours and reflection cleared.
  void SetSample(const trVector& point, const trVector& normal) {
    p_ = pg_ = pt_ = ptg_ = ph_ = point;
    n_ = ng_ = nt_ = ni_ = normal;
    ResetResults();
  }
  void ResetResults() {
    cutil_ = trFCol();
    oo_ = trFCol(1.0f);
    bsdf_.Clear();
  }

  bool DepthTripped() const { return depthTripped_; }
  /// Carries a tripped guard over a restored state, so that what is under way still ends.
  void KeepDepthTripped() { depthTripped_ = true; }

  /// Shaders that one evaluation nests at most.
  static constexpr int kMaxShaderDepth = 512;
  /// Guard of the nested shader calls: a graph that feeds itself trips it, which is reported once, and
  /// everything still under way returns a neutral result at once.
  class DepthGuard {
   public:
    explicit DepthGuard(trShadingInterface& si, const void* shader) : si_(si) {
      ++si_.depth_;
      if (si_.depth_ > kMaxShaderDepth && !si_.depthTripped_) TripDepthGuard(si_, shader);
    }
    ~DepthGuard() {
      if (--si_.depth_ == 0) si_.depthTripped_ = false;
    }
    bool Tripped() const { return si_.depthTripped_; }

   private:
    trShadingInterface& si_;
  };

 private:
  OV_API static void TripDepthGuard(trShadingInterface& si, const void* shader);
  trVector InObjectSpace(const trVector& p) const {
    return object_.objectToWorld ? object_.objectToWorld->inverse.Point(p) : p;
  }

  trVector p_, pg_, pt_, ptg_, ph_;
  trVector n_, ng_, nt_, ni_;
  trVector eye_, rootEye_;
  double smoothSize_ = 0;
  trFCol cutil_, oo_{1.0f};
  unsigned wants_ = kCd | kCo;
  unsigned thread_ = 0;
  trRenderContext::Context context_ = trRenderContext::kFinal;
  float frame_ = 0;
  int lightDepth_ = 0;
  int depth_ = 0;
  bool depthTripped_ = false;
  double devMultiplier_ = 1, devLower_ = 0, devUpper_ = 1, devTailBoost_ = 0, devCloudFeature_ = 1;
  trRandomStream random_;
  trRenderState* renderState_ = nullptr;
  const trView* mainView_ = nullptr;
  trShadingObject object_;
  trBsdf bsdf_;
};
