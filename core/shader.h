// The shader contract: nodes that the renderer calls from many threads at once.
//
// Displace, Shade and the value operations run on any number of threads, each with its own
// trShadingInterface; they change nothing but that. Parameters are read-only during a render. StartRender and
// FinishRender come once a render, on the main thread.
#pragma once

#include <limits>

#include "core/node.h"
#include "core/shading.h"

class trRenderingInterface;
class trAtomicIntegrator;
struct trAtmosSample;
class trLightState;

/// Base of all shaders. Declares `input_node` (shader link) and `enable` ahead of a class's own parameters.
class OV_API trShader : public trBase {
 public:
  trShader();

  long OnUserDestroy() override;
  void OnParamChanged(long index, trBase* who) override;

  // --- Virtual operations, in slot order
  /// Moves the point. 0 is a failure, which ends the chain. The input is asked to displace and for nothing
  /// else; a class that asks it for its value too declares the fact "displaces_by_colour".
  virtual long Displace(trShadingInterface& si);
  /// Sets colours and the surface's reflection.
  virtual long Shade(trShadingInterface& si);
  virtual long Spawn(trShadingInterface& si);
  /// Whether Displace, or Shade, has any effect at the present settings.
  virtual unsigned char HasDisplacement();
  virtual unsigned char HasShade();
  /// The shader as a value. By default the luminance of FColValue; the colour that Shade leaves in Cutil from
  /// black; and that colour as a vector. The state comes back as it was.
  virtual float FloatValue(trShadingInterface& si);
  virtual trFCol FColValue(trShadingInterface& si);
  virtual trVector VectorValue(trShadingInterface& si);
  virtual unsigned char IsAtmosShader() const;
  virtual unsigned char IsFunction() const;
  virtual long StartRender(trRenderingInterface& rendering);
  virtual long FinishRender(trRenderingInterface& rendering);

  /// The shader linked by input_node, or null. Thread-safe during a render.
  trShader* InputShader() const;
  bool IsEnabled() const { return enable_ != 0; }

  // --- The forms by which one shader calls another
  // Thread-safe. Beyond the virtual call they guard against graphs that feed themselves.
  long DisplaceTS(trShadingInterface& si) {
    trShadingInterface::DepthGuard guard(si, this);
    return guard.Tripped() ? 1 : Displace(si);
  }
  long ShadeTS(trShadingInterface& si) {
    trShadingInterface::DepthGuard guard(si, this);
    return guard.Tripped() ? 1 : Shade(si);
  }
  float FloatValueTS(trShadingInterface& si) {
    trShadingInterface::DepthGuard guard(si, this);
    return guard.Tripped() ? 0.0f : FloatValue(si);
  }
  trFCol FColValueTS(trShadingInterface& si) {
    trShadingInterface::DepthGuard guard(si, this);
    return guard.Tripped() ? trFCol() : FColValue(si);
  }
  trVector VectorValueTS(trShadingInterface& si) {
    trShadingInterface::DepthGuard guard(si, this);
    return guard.Tripped() ? trVector() : VectorValue(si);
  }
  /// Whether this shader or anything on its input chain displaces, or shades.
  bool HasDisplacementTS();
  bool HasShadeTS();

  /// The first node of the class among the nodes fed by this one, near ones first; null if there is none.
  /// With `throughAll` the search goes on past them.
  trBase* FindOutputNodeByClass(const trString& className, bool throughAll) const;

 protected:
  /// Runs the input chain, as every chaining shader does first.
  void DisplaceInput(trShadingInterface& si) {
    if (trShader* input = InputShader()) input->DisplaceTS(si);
  }
  void ShadeInput(trShadingInterface& si) {
    if (trShader* input = InputShader()) input->ShadeTS(si);
  }

 private:
  trShaderLink inputNode_;
  unsigned char enable_;
};

/// The shader a link leads to, or null. Thread-safe during a render.
inline trShader* LinkedShader(const trShaderLink& link) {
  return static_cast<trShader*>(link.LinkedNode(true));
}
inline trShader* trShader::InputShader() const { return LinkedShader(inputNode_); }

/// Base of nearly all shaders; displacement and colour both possible. By default both only run the input.
class OV_API trSurfaceShader : public trShader {};

/// Colour only: its Displace does nothing, so nothing that stands before it displaces through it either.
class OV_API trColourShader : public trShader {
 public:
  long Displace(trShadingInterface& si) final;
  unsigned char HasDisplacement() final { return 0; }
};

/// A shader that makes a surface out of a mesh. The host gives it the object's transform before a render.
class OV_API trGeometryShader : public trShader {
 public:
  long Shade(trShadingInterface& si) final;
  unsigned char HasShade() final { return 0; }

  /// Main thread only, before rendering.
  void SetObjectTransform(const trTransform<double>& objectToWorld) {
    forward_ = objectToWorld.forward;
    inverse_ = objectToWorld.inverse;
  }

 protected:
  const trMatrix4x4<double>& Forward() const { return forward_; }
  const trMatrix4x4<double>& Inverse() const { return inverse_; }

 private:
  trMatrix4x4<double> forward_, inverse_;
};

/// Where a volume lies, and what of it is the same in every direction round a centre. World space, metres.
struct trVolumeShape {
  trVector centre;
  /// The shell that holds all of it.
  double innerRadius = 0, outerRadius = std::numeric_limits<double>::infinity();
  /// What it takes from light, and what it scatters of even light, depend on the distance from `centre`
  /// alone: the host tabulates it.
  bool isSymmetric = false;
  /// Something takes from the lights by place before this volume scatters them: LightLeft tells how much.
  bool hasModulatedLight = false;
};

/// What a volume is at a point, for who follows light from scattering to scattering.
struct trVolumeMatter {
  trFCol extinction;  ///< per metre
  trFCol albedo;      ///< of what is taken, the share that is scattered, 0 to 1
};

/// A volume. The integrator asks it to break a ray into samples, sorts those of all volumes by depth, and
/// asks for each to be evaluated in that order.
class OV_API trAtmosShader : public trShader {
 public:
  trAtmosShader();
  long Displace(trShadingInterface& si) final;
  long Shade(trShadingInterface& si) final;
  unsigned char HasDisplacement() final { return 0; }
  unsigned char HasShade() final { return 0; }
  unsigned char IsAtmosShader() const final { return 1; }

  /// Once at the start of every render. Main thread only.
  virtual long PrepareAtmosphere(trRenderingInterface& rendering);
  /// Adds this volume's samples along the state's ray; `rayData` is the volume's own record of the ray, null
  /// at first. Thread-safe.
  virtual long AddRaySamples(trRenderState& state, trAtomicIntegrator& integrator, void*& rayData);
  /// Fills in a sample's colours and opacities. Thread-safe.
  virtual long EvaluateRaySample(trRenderState& state, trAtmosSample& sample);
  /// Destroys `rayData`; null is allowed. Thread-safe.
  virtual void FreeIntegrationData(trAtomicIntegrator& integrator, void* rayData);

  /// By default a volume may lie anywhere and has no symmetry. Main thread only, before rendering.
  virtual trVolumeShape Shape() const;
  /// Of lights that cast shadows, the share that this volume still scatters at a point of the world, 0 to 1,
  /// by what modulates its light there; 1 by default. EvaluateRaySample counts it where the ray
  /// `modulatesLight`. Asked where the shape says hasModulatedLight, by those who have the volume's light
  /// from tables made without. Thread-safe; leaves the state as it was.
  virtual double LightLeft(trRenderState& state, const trVector& point);
  /// What this volume lets through of a light on its way to a point of the world, 0 to 1 per channel; what
  /// else stands between doesn't count. `spot` is the extent over which the answer may be shared, metres. By
  /// default a march along the way with the state's draws. Asked of volumes without symmetry: at surfaces,
  /// and for samples of all volumes while they are evaluated, this one's included. Thread-safe; leaves the
  /// state as it was but for its draws.
  virtual trFCol TransmittanceTowards(trRenderState& state, const trLightState& light, const trVector& point,
                                      const trVector& spot);

  /// Whether the next three tell what the volume is: then its light can be followed by paths instead of being
  /// asked for by samples. No by default. Main thread only, before rendering.
  virtual bool HasMatter() const { return false; }
  /// An upper bound of MatterAt's extinction anywhere, per metre; of the draws of null collisions.
  virtual double GreatestExtinction() const { return 0; }
  /// Thread-safe; leaves the state as it was.
  virtual trVolumeMatter MatterAt(trRenderState&, const trVector&) { return {}; }
  /// How strongly light that goes on by an angle of cosine `cosAngle` (1: straight on) is scattered; its mean
  /// over all directions is 1. Thread-safe.
  virtual float PhaseFunction(double) const { return 1.0f; }
};

/// A value node: no displacement, no shading.
class OV_API trFunction : public trShader {
 public:
  trFunction();
  long Displace(trShadingInterface& si) final;
  long Shade(trShadingInterface& si) final;
  unsigned char HasDisplacement() final { return 0; }
  unsigned char HasShade() final { return 0; }
  unsigned char IsFunction() const final { return 1; }
};

/// A function of which only FloatValue is written.
class OV_API trFloatFunction : public trFunction {
 public:
  trFCol FColValue(trShadingInterface& si) override { return trFCol(FloatValue(si)); }
  trVector VectorValue(trShadingInterface& si) override {
    const double v = FloatValue(si);
    return {v, v, v};
  }
};

/// A function of which only VectorValue is written: a number is its length, a colour its components.
class OV_API trVectorFunction : public trFunction {
 public:
  float FloatValue(trShadingInterface& si) override { return static_cast<float>(VectorValue(si).Length()); }
  trFCol FColValue(trShadingInterface& si) override {
    const trVector v = VectorValue(si);
    return {static_cast<float>(v.x), static_cast<float>(v.y), static_cast<float>(v.z)};
  }
};
