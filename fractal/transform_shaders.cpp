// transform_input_shader and transform_merge_shader.
#include "fractal/transform_shaders.h"

#include "core/idioms.h"
#include "core/scene.h"

namespace {

/// Footprints up to this, metres, count as none.
constexpr double kNoFootprint = 9.999999974752427e-07;

/// Spaces of earlier versions and what they are now.
struct OldSpace {
  long was, is;
};
constexpr OldSpace kOldSpaces[] = {{1000, kTexInstanceAnchor}, {1001, kTexInstanceCentre}};

bool IsSupported(long space) {
  return space == 101 || (space >= 200 && space <= 202) || (space >= 900 && space <= 902) || space == 1900 ||
         space == 1910 || space == 1920;
}

const trParticleInflator* InflatorOf(const trShadingObject& object) {
  return object.particle && object.particleScene ? object.particleScene->GetParticleInflator() : nullptr;
}

/// The particle's position as its compact form keeps it, in single precision. Volatile, as GCC 12's
/// straight-line vectoriser drops a narrowing of neighbours that is widened at once.
trVector InstanceAnchor(const trShadingObject& object) {
  if (!object.particle) return {};
  const trVector& p = object.particle->position;
  const volatile float x = static_cast<float>(p.x), y = static_cast<float>(p.y), z = static_cast<float>(p.z);
  return {x, y, z};
}

trVector InstancePosition(trShadingInterface& si) {
  const trShadingObject& object = si.Object();
  if (!object.scene) return si.P();
  const trVector position = object.scene->GetTransform().forward.Translation();
  const trParticleInflator* inflator = InflatorOf(object);
  return inflator ? inflator->InstanceTransform(*object.particle).Point(position) : position;
}

trVector InstanceCentre(trShadingInterface& si) {
  const trShadingObject& object = si.Object();
  if (const trParticleInflator* inflator = InflatorOf(object))
    return inflator->InstanceBoundingBox(*object.particle).Centre();
  return object.scene ? object.scene->BoundingBoxT().Centre() : si.P();
}

/// The state's point in a texture space; an unknown space leaves the texture point as it is.
trVector PointInSpace(trShadingInterface& si, long space) {
  switch (space) {
    case kTexOriginalUndisplaced:
      return si.Ptg();
    case kTexObject:
      return si.P_inObjectSpace();
    case kTexObjectUndisplaced:
      return si.Pg_inObjectSpace();
    case kTexObjectSticky:
      return si.Ph_inObjectSpace();
    case kTexWorld:
      return si.P();
    case kTexWorldUndisplaced:
      return si.Pg();
    case kTexWorldSticky:
      return si.Ph();
    case kTexInstanceAnchor:
      return InstanceAnchor(si.Object());
    case kTexInstancePosition:
      return InstancePosition(si);
    case kTexInstanceCentre:
      return InstanceCentre(si);
    default:
      return si.Pt();
  }
}

/// Turns by the negative angles, in degrees, about Y, then X, then Z: the inverse of the planet's rotation.
trVector RotateBack(const trVector& p, const trVector& degrees) {
  const double a = degrees.y * -kDegreesToRadians, b = degrees.x * -kDegreesToRadians,
               c = degrees.z * -kDegreesToRadians;
  const double x1 = p.x * std::cos(a) + p.z * std::sin(a), z1 = p.z * std::cos(a) - p.x * std::sin(a);
  const double y1 = z1 * std::sin(b) + p.y * std::cos(b), z2 = z1 * std::cos(b) - p.y * std::sin(b);
  const double x2 = y1 * std::sin(c) + x1 * std::cos(c), y2 = y1 * std::cos(c) - x1 * std::sin(c);
  return {x2, y2, z2};
}

/// Puts back what a transform changed.
class SavedTexture {
 public:
  explicit SavedTexture(trShadingInterface& si) : si_(si), pt_(si.Pt()), smoothSize_(si.SmoothSize()) {}
  ~SavedTexture() {
    si_.Pt() = pt_;
    si_.SmoothSize() = smoothSize_;
  }

 private:
  trShadingInterface& si_;
  const trVector pt_;
  const double smoothSize_;
};

}  // namespace

TransformShaderBase::TransformShaderBase(bool isMergeForm) {
  if (!isMergeForm) SetAbout(this, "input_node", "Network that is moved, turned or scaled.");
  if (isMergeForm)
    Param(shader_, "shader", "").About("Network that is moved, turned or scaled. The input stays as it is.");
  DeclareSpaces();
  DeclareTransform(isMergeForm);
  UpdateDerived();
}

void TransformShaderBase::DeclareSpaces() {
  SetMenu(spaceHint_, this,
          {{"Original texture coord, undisplaced", kTexOriginalUndisplaced},
           {"Object space, context-dependent", kTexObject},
           {"Object space, undisplaced", kTexObjectUndisplaced},
           {"Object space, sticky", kTexObjectSticky},
           {"World space, context-dependent", kTexWorld},
           {"World space, undisplaced", kTexWorldUndisplaced},
           {"World space, sticky", kTexWorldSticky},
           {"Instance anchor point", kTexInstanceAnchor},
           {"Instance/object position", kTexInstancePosition},
           {"Instance/object centre of b-box", kTexInstanceCentre}});
  Gui(trGuiRadioOpen);
  Param(useCurrentTextureSpace_, "use_current_texture_space", 1)
      .NotSaved()
      .About("Starts from the texture point that comes from the nodes downstream.");
  Param(useResetSpace_, "use_reset_space", 0)
      .Display("Reset space")
      .NotSaved()
      .About("Starts from the space chosen below in place of the current texture point.");
  Gui(trGuiRadioClose);
  Param(resetSpace_, "reset_space", kTexWorld, &spaceHint_)
      .NotSaved()
      .About(
          "Where texture points are taken from: world or object, before or after displacement, or an "
          "instance's place.");
  Gui(trGuiHiddenOpen);
  for (const LegacySwitch& legacy : legacy_)
    Param(*legacy.member, legacy.name, 0)
        .NotSaved()
        .About(
            "Older way to say the space, kept in step with it: projects of earlier versions are read and "
            "written so.");
  Gui(trGuiHiddenClose);
}

void TransformShaderBase::DeclareTransform(bool isMergeForm) {
  Param(translate_, isMergeForm ? "translate_shader" : "translate", 0).About("Moves the texture.");
  Param(translateBy_, "translate_by", trVector())
      .About("How far the texture moves along x, y and z, metres.");
  Param(rotate_, isMergeForm ? "rotate_shader" : "rotate", 0).About("Turns the texture.");
  Param(rotateBy_, "rotate_by", trVector()).About("Angles about x, y and z, degrees.");
  Param(scale_, isMergeForm ? "scale_shader" : "scale", 0).About("Makes the texture larger or smaller.");
  Param(scaleBy_, "scale_by", trVector(1, 1, 1)).About("Size along x, y and z; 2 is twice as large.");
}

void TransformShaderBase::UpdateDerived() {
  trSurfaceShader::UpdateDerived();
  SetParamGuiEnabled("reset_space", useResetSpace_ != 0);
  SetParamGuiEnabled("translate_by", translate_ != 0);
  SetParamGuiEnabled("rotate_by", rotate_ != 0);
  SetParamGuiEnabled("scale_by", scale_ != 0);
}

void TransformShaderBase::OnParamChanged(long index, trBase* who) {
  trSurfaceShader::OnParamChanged(index, who);
  if (IsParam(index, &useCurrentTextureSpace_)) SetIfDifferent("use_reset_space", !useCurrentTextureSpace_);
  if (IsParam(index, &useResetSpace_) || IsParam(index, &resetSpace_)) {
    SetIfDifferent("use_current_texture_space", !useResetSpace_);
    if (useResetSpace_ && !IsSupported(resetSpace_)) MendSpace();
    KeepLegacyInStep();
    UpdateSaved();
  }
  for (const LegacySwitch& legacy : legacy_)
    if (IsParam(index, legacy.member)) OnLegacyChanged(legacy, index, who);
}

void TransformShaderBase::SetIfDifferent(const char* name, long value) {
  long now = 0;
  if (GetParam(name, now) && now != value) SetParam(name, value, this);
}

void TransformShaderBase::MendSpace() {
  const trString name = "reset_space";
  const trScopedErrorsWarningsContext context(this, &name);
  long mended = 0;
  for (const OldSpace& old : kOldSpaces)
    if (resetSpace_ == old.was) mended = old.is;
  if (resetSpace_ >= 300 && resetSpace_ <= 399) mended = resetSpace_ % 100 + 900;

  const long hundred = resetSpace_ / 100 * 100;
  if (mended) {
    SetParam("reset_space", mended, this);
    trWarning(
        "Automatically changed the texture space in Transform Shader. Please re-save this file to work in "
        "future versions.");
  } else if (IsSupported(hundred)) {
    SetParam("reset_space", hundred, this);
    trWarning(
        "Unsupported texture space in Transform Shader; the parameter has been changed to a related option "
        "that is supported.");
  } else {
    trWarning("Unknown choice of texture space in Transform Shader; some things might not render correctly.");
  }
}

void TransformShaderBase::KeepLegacyInStep() {
  const bool wasCoupling = isCoupling_;
  isCoupling_ = true;
  for (const LegacySwitch& legacy : legacy_)
    SetIfDifferent(legacy.name, resetSpace_ == legacy.space ? useResetSpace_ : 0);
  isCoupling_ = wasCoupling;
}

void TransformShaderBase::UpdateSaved() {
  // The spaces that the legacy switches can tell are stored through them, so that older readers understand.
  const bool saved = useResetSpace_ && (resetSpace_ < kTexWorld || resetSpace_ > kTexWorldSticky);
  SetParamShouldBeSaved("use_reset_space", saved);
  SetParamShouldBeSaved("reset_space", saved);
}

void TransformShaderBase::OnLegacyChanged(const LegacySwitch& legacy, long index, trBase* who) {
  const bool isOn = *legacy.member != 0;
  SetParamShouldBeSaved(index, isOn);
  if (isCoupling_) return;
  isCoupling_ = true;
  if (isOn) {
    SetParam("reset_space", legacy.space, this);
    SetParam("use_reset_space", 1, this);
  } else if (trIsUser(who)) {
    SetParam("use_reset_space", 0, this);
    SetParam("reset_space", 0, this);
  }
  isCoupling_ = false;
}

void TransformShaderBase::ApplyTransform(trShadingInterface& si) const {
  trVector& pt = si.Pt();
  if (useResetSpace_) pt = PointInSpace(si, resetSpace_);
  if (translate_) pt -= translateBy_;
  if (rotate_) pt = RotateBack(pt, rotateBy_);
  if (!scale_) return;
  for (int i = 0; i < 3; ++i) pt[i] = GuardedDivide(pt[i], scaleBy_[i]);
  if (si.SmoothSize() > kNoFootprint) {
    const double smallest =
        std::fmin(std::fabs(scaleBy_.x), std::fmin(std::fabs(scaleBy_.y), std::fabs(scaleBy_.z)));
    si.SmoothSize() *= 1.0 / GuardedDenominator(smallest);
  }
}

long TransformInputShader::Displace(trShadingInterface& si) {
  trShader* const input = InputShader();
  if (!input) return 1;
  if (!IsEnabled()) return input->DisplaceTS(si), 1;
  const SavedTexture saved(si);
  ApplyTransform(si);
  input->DisplaceTS(si);
  return 1;
}

long TransformInputShader::Shade(trShadingInterface& si) {
  trShader* const input = InputShader();
  if (!input) return 1;
  if (!IsEnabled()) return input->ShadeTS(si), 1;
  const SavedTexture saved(si);
  ApplyTransform(si);
  input->ShadeTS(si);
  return 1;
}

unsigned char TransformInputShader::HasDisplacement() {
  trShader* const input = InputShader();
  return input && input->HasDisplacementTS();
}
unsigned char TransformInputShader::HasShade() {
  trShader* const input = InputShader();
  return input && input->HasShadeTS();
}

long TransformMergeShader::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  trShader* const shader = IsEnabled() ? MergedShader() : nullptr;
  if (!shader) return 1;
  const SavedTexture saved(si);
  ApplyTransform(si);
  shader->DisplaceTS(si);
  return 1;
}

long TransformMergeShader::Shade(trShadingInterface& si) {
  ShadeInput(si);
  trShader* const shader = IsEnabled() ? MergedShader() : nullptr;
  if (!shader) return 1;
  const SavedTexture saved(si);
  ApplyTransform(si);
  shader->ShadeTS(si);
  return 1;
}

unsigned char TransformMergeShader::HasDisplacement() {
  trShader* const shader = MergedShader();
  return shader && shader->HasDisplacementTS();
}
unsigned char TransformMergeShader::HasShade() {
  trShader* const shader = MergedShader();
  return shader && shader->HasShadeTS();
}
