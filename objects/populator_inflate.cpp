// populator_v3: instances on their way to the renderer.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "core/guarded.h"
#include "objects/populator.h"

namespace {

/// Instances between two reports of progress.
constexpr long kReportStep = 10000;
/// Below this share of what is worth tracing, an element and all nearer ones are left out.
constexpr double kInvisible = 1e-12;

const InstanceRecord* RecordOf(const InstanceStore& store, const trParticle& particle) {
  return store.Get(particle.index);
}

trVector PlaceOf(const InstanceRecord& record) {
  return {record.matrix[0][3], record.matrix[1][3], record.matrix[2][3]};
}

/// A sorted element as a triangle of its instance's space.
trRenderTri TriangleOf(const trSortedElement& element) {
  const trScene& scene = *element.scene;
  const trTri& tri = *scene.GetPTri(element.index);
  const trTransform<double>& placed = scene.GetTransform();
  trRenderTri made;
  made.material = scene.GetPMaterial(tri.material);
  scene.GetPointVecs(tri.point, made.point, 3);
  for (trVector& p : made.point) p = placed.Point(p);
  if (scene.GetTexVecs(tri.texVert, made.texture, 3) < 3) std::copy(made.point, made.point + 3, made.texture);
  const bool hasNormals =
      made.material && made.material->useNormals && scene.GetNormals(tri.normal, made.normal, 3) == 3;
  const trVector face = Normalised(Cross(made.point[2] - made.point[0], made.point[1] - made.point[0]));
  for (trVector& n : made.normal) n = hasNormals ? placed.Normal(n) : face;
  return made;
}

/// Grows a triangle about its middle: each corner moves by `factor` times its way from there.
void Grow(trRenderTri& tri, double factor) {
  const trVector middle = (tri.point[0] + tri.point[1] + tri.point[2]) / 3.0;
  for (trVector& p : tri.point) p += (p - middle) * factor;
}

void Place(trRenderTri& tri, const trTransform<double>& transform) {
  for (int i = 0; i < 3; ++i) {
    tri.point[i] = transform.Point(tri.point[i]);
    tri.normal[i] = transform.Normal(tri.normal[i]);
    tri.texture[i] = transform.Point(tri.texture[i]);
  }
}

}  // namespace

// --- Insertion

long Populator3::Make(trScene& scene, Context context) {
  if (context == kNothing) return 1;
  if (context != kWithoutPopulating) {
    if (!GenerateOrRead()) return 0;
    // What a render was stopped in isn't taken for the whole by the next one.
    if (wasCancelled_) isDirty_ = true;
  }
  return InsertInstances(scene);
}

void Populator3::ShowWhatVariationsShow(trScene& scene) const {
  const auto any = [this](bool (trScene::*flag)() const) {
    return std::any_of(scenes_.begin(), scenes_.end(),
                       [flag](const auto& variation) { return (*variation.*flag)(); });
  };
  scene.SetAllowsTriSubdivision(false);
  scene.SetCastsShadows(any(&trScene::CastsShadows));
  scene.SetIsVisibleInReflections(any(&trScene::IsVisibleInReflections));
  if (!any(&trScene::IsVisibleOrHoldout)) scene.SetVisibilityMode(trSceneVisibilityMode::kInvisible);
  if (!scenes_.empty()) scene.SetPrimaryRenderMethod(scenes_[0]->PrimaryRenderMethod());
}

long Populator3::InsertInstances(trScene& scene) {
  const long group = scene.BeginGroup(NameAndPath());
  if (!group) return 0;
  const trGeomGroup* const made = scene.GetPGroup(group);
  if (!made || !made->Subscene()) return 0;
  trScene& particles = *made->Subscene();
  ShowWhatVariationsShow(particles);
  particles.AssignParticleInflator(this);

  unsigned long token = 0;
  long count = 0;
  double triangles = 0;
  for (long i = 0; i < instances_.Count(); ++i) {
    if (i % kReportStep == 0 &&
        !ReportProgress(token, "Populator: Inserting Instances, " + std::to_string(i) + " so far...",
                        static_cast<float>(static_cast<double>(i) / instances_.Count()), -1.0f))
      break;
    const InstanceRecord& record = *instances_.Get(i);
    const trParticle particle{PlaceOf(record), i};
    if (!particles.AddParticle(particle)) break;
    ++count;
    triangles += static_cast<double>(
        scenes_[static_cast<std::size_t>(InstanceSceneIndex(particle))]->TotalNumTrisAtPrep());
  }
  char billions[32];
  std::snprintf(billions, sizeof billions, "%.3g", triangles * 1e-9);
  trPrintMessage(std::to_string(count) + " objects (" + billions +
                 " billion triangles) inserted by Populator \"" + Name() + "\"");
  ReportProgress(token, "Populator: Done", 1, -1.0f);
  scene.EndGroup();
  return 1;
}

// --- As an inflator

long Populator3::NumInstanceScenes() const { return std::max<long>(1, static_cast<long>(scenes_.size())); }

long Populator3::InstanceSceneIndex(const trParticle& particle) const {
  const InstanceRecord* const record = RecordOf(instances_, particle);
  return record ? std::clamp<long>(record->variation, 0, NumInstanceScenes() - 1) : 0;
}

std::shared_ptr<trScene> Populator3::InstanceScene(long index) const {
  if (scenes_.empty()) return nullptr;
  return scenes_[static_cast<std::size_t>(std::clamp<long>(index, 0, NumInstanceScenes() - 1))];
}

trTransform<double> Populator3::InstanceTransform(const trParticle& particle) const {
  const InstanceRecord* const record = RecordOf(instances_, particle);
  return record ? trTransform<double>(record->Matrix()) : trTransform<double>();
}

trBoundingBox Populator3::InstanceBoundingBox(const trParticle& particle) const {
  const InstanceRecord* const record = RecordOf(instances_, particle);
  if (!record) return {};
  const float *a = record->boxA, *b = record->boxB;
  return {trVector(a[0], a[1], a[2]), trVector(b[0], b[1], b[2])};
}

bool Populator3::IntersectInstance(trRenderState& state, const trParticle& particle, const trVector& origin,
                                   const trVector& direction, double& distance) {
  const std::shared_ptr<trScene> scene = InstanceScene(InstanceSceneIndex(particle));
  if (!scene) return false;
  trVector from = origin, along = direction;
  InstanceTransform(particle).Inverse().Ray(from, along);
  trTriHit hit;
  hit.distance = distance;
  const trRenderState::Ray& ray = state.CurrentRay();
  for (long i = 1; i <= scene->NumGroups(); ++i) {
    const trGeomGroup& group = *scene->GetPGroup(i);
    const bool isMet = !ray.wantsColour ? group.CastsShadows()
                       : ray.depth > 1  ? group.IsVisibleInReflections()
                                        : group.IsVisibleOrHoldoutInRayTracer();
    if (isMet) state.IntersectRayTriAccelerator(*group.Subscene(), from, along, hit);
  }
  if (!(hit.distance < distance)) return false;
  distance = hit.distance;
  return true;
}

long Populator3::InflateInstanceElement(trRenderState& state, const trParticle& particle, long& cursor) {
  const InstanceRecord* const record = RecordOf(instances_, particle);
  const std::shared_ptr<trScene> scene = InstanceScene(InstanceSceneIndex(particle));
  const long end = scene ? scene->NumSortedElements() : 0;
  long remaining = end - cursor;
  if (!record || remaining <= 0) {
    trOutWarning("Counter error in populator " + Name());
    return 0;
  }
  const trSortedElement& element = *scene->GetSortedElementInfoReversed(remaining);

  // How large the element looks, in shares of what is worth tracing: where it is less, it stands for others
  // that are left out.
  double ratio = 1;
  if (const trView* const view = state.Shading().PMainView()) {
    const double pixel = view->PixelAngularSize(), scale = record->scale;
    const double size = GuardedDivide(
        -element.size * scale * scale,
        (particle.position - state.Shading().Eye()).LengthSquared() * pixel * pixel * sizeFactor_);
    if (size <= kInvisible) return cursor = end, 0;
    if (size < 1) {
      ratio = 1 / size;
      const double skipped =
          std::floor(std::min(static_cast<double>(remaining), 2 * state.Random() * (ratio - 1) + 0.5));
      remaining = std::max(0L, remaining - static_cast<long>(skipped));
      if (remaining < 1) return cursor = end, 0;
    }
  }
  cursor = end - remaining + 1;
  if (element.isParticle) return 1;
  trRenderTri made = TriangleOf(element);
  if (ratio > 1) Grow(made, std::pow(ratio, enlargementFactor_ * 0.5));
  Place(made, trTransform<double>(record->Matrix()));
  return state.PushRenderTri(made);
}
