// trScene: its tables, groups, flags, bounds and sorted elements.
#include "core/scene.h"

#include <algorithm>

#include "host/scene/scene_tables.h"

namespace {

constexpr size_t kMaxTableSize = std::numeric_limits<std::int32_t>::max();

template <typename T>
long Append(std::vector<T>& table, const T& value) {
  if (table.size() >= kMaxTableSize) return 0;
  table.push_back(value);
  return static_cast<long>(table.size());
}

template <typename Table>
auto Entry(Table& table, long index) -> decltype(table.data()) {
  return index >= 1 && index <= static_cast<long>(table.size()) ? &table[index - 1] : nullptr;
}

template <typename T>
long Gather(const std::vector<T>& table, trVector T::*member, const std::int32_t* indices, trVector* out,
            long count) {
  long valid = 0;
  for (long i = 0; i < count; ++i)
    if (const T* entry = Entry(table, indices[i])) {
      out[i] = entry->*member;
      ++valid;
    }
  return valid;
}

bool AreEntries(const std::int32_t* indices, size_t size, bool mayBeAbsent) {
  return std::all_of(indices, indices + 3, [&](std::int32_t i) {
    return (i >= 1 && static_cast<size_t>(i) <= size) || (mayBeAbsent && i == 0);
  });
}

}  // namespace

trBoundingBox ovhost::TransformedBox(const trTransform<double>& transform, const trBoundingBox& box) {
  trBoundingBox moved;
  if (box.IsEmpty()) return moved;
  for (int corner = 0; corner < 8; ++corner)
    moved.Union(transform.Point({corner & 1 ? box.max.x : box.min.x, corner & 2 ? box.max.y : box.min.y,
                                 corner & 4 ? box.max.z : box.min.z}));
  return moved;
}

trScene::trScene() : tables_(std::make_unique<Tables>()) {}
trScene::~trScene() = default;

long trScene::Init() {
  tables_ = std::make_unique<Tables>();
  return 1;
}

trScene::Tables& trScene::Tables::Current() {
  Tables* tables = this;
  while (tables->openGroup) tables = tables->openGroup->tables_.get();
  return *tables;
}

void trScene::PrepForRender() {
  long nextMaterial = 0;
  Tables::Settle(*this, nextMaterial);
}

void trScene::Tables::Settle(trScene& scene, long& nextMaterial) {
  Tables& t = *scene.tables_;
  t.openGroup = nullptr;
  t.firstMaterial = nextMaterial;
  nextMaterial += static_cast<long>(t.materials.size());
  t.totalTris = static_cast<long>(t.tris.size());
  for (const auto& group : t.groups) {
    Settle(*group->Subscene(), nextMaterial);
    t.totalTris += group->Subscene()->TotalNumTrisAtPrep();
  }
  t.isSettled = false;
  t.boxR = scene.BoundingBoxR();
  t.boxT = scene.BoundingBoxT();
  t.isSettled = true;
}

void trScene::Tables::CollectElements(const trScene& scene, const trVector& direction, bool includeParticles,
                                      std::vector<trSortedElement>& out) {
  const Tables& t = *scene.tables_;
  const auto depthOf = [&](const trVector& p) { return Dot(direction, t.transform.Point(p)); };
  for (long i = 1; i <= static_cast<long>(t.tris.size()); ++i) {
    trVector corners[3];
    if (Gather(t.points, &trPoint::position, t.tris[i - 1].point, corners, 3) != 3) continue;
    const trVector a = t.transform.Direction(corners[1] - corners[0]),
                   b = t.transform.Direction(corners[2] - corners[0]);
    out.push_back({&scene, i, false, depthOf((corners[0] + corners[1] + corners[2]) / 3.0),
                   -0.5 * Cross(a, b).Length()});
  }
  for (long i = 1; includeParticles && i <= static_cast<long>(t.particles.size()); ++i) {
    const trParticle& particle = t.particles[i - 1];
    const trVector s = t.inflator ? t.inflator->SizeOfInstanceAlignedBoundingBox(particle) : trVector();
    out.push_back({&scene, i, true, depthOf(particle.position), -(s.x * s.y + s.y * s.z + s.z * s.x)});
  }
  for (const auto& group : t.groups) CollectElements(*group->Subscene(), direction, includeParticles, out);
}

void trScene::SortElements(const trVector& direction, bool includeParticles) {
  Tables& t = *tables_;
  t.sorted.clear();
  Tables::CollectElements(*this, direction, includeParticles, t.sorted);
  std::stable_sort(t.sorted.begin(), t.sorted.end(),
                   [](const trSortedElement& a, const trSortedElement& b) { return a.depth < b.depth; });
  t.isSorted = true;
}

long trScene::AddPoint(const trPoint& point) { return Append(tables_->Current().points, point); }
long trScene::AddNormal(const trNormal& normal) { return Append(tables_->Current().normals, normal); }
long trScene::AddTexVert(const trTexVert& texVert) { return Append(tables_->Current().texVerts, texVert); }

long trScene::AddTri(const trTri& tri) {
  Tables& t = tables_->Current();
  if (!AreEntries(tri.point, t.points.size(), false) || !AreEntries(tri.texVert, t.texVerts.size(), true) ||
      !AreEntries(tri.normal, t.normals.size(), true))
    return 0;
  return Append(t.tris, tri);
}

long trScene::AddMaterial(const trMaterial& material) {
  return Append(tables_->Current().materials, material);
}
long trScene::AddParticle(const trParticle& particle) {
  return Append(tables_->Current().particles, particle);
}
long trScene::AddAtmosphere(trShader* shader) {
  return shader ? Append(tables_->Current().atmospheres, shader) : 0;
}

long trScene::Grow(long points, long normals, long texVerts, long tris) {
  Tables& t = tables_->Current();
  const auto fits = [](const auto& table, long more) {
    return more >= 0 && static_cast<size_t>(more) <= kMaxTableSize - table.size();
  };
  if (!fits(t.points, points) || !fits(t.normals, normals) || !fits(t.texVerts, texVerts) ||
      !fits(t.tris, tris))
    return 0;
  t.points.resize(t.points.size() + static_cast<size_t>(points));
  t.normals.resize(t.normals.size() + static_cast<size_t>(normals));
  t.texVerts.resize(t.texVerts.size() + static_cast<size_t>(texVerts));
  t.tris.resize(t.tris.size() + static_cast<size_t>(tris));
  return 1;
}

void trScene::Reserve(long points, long normals, long texVerts, long tris) {
  Tables& t = tables_->Current();
  const auto reserve = [](auto& table, long more) {
    if (more > 0) table.reserve(std::min(table.size() + static_cast<size_t>(more), kMaxTableSize));
  };
  reserve(t.points, points);
  reserve(t.normals, normals);
  reserve(t.texVerts, texVerts);
  reserve(t.tris, tris);
}

long trScene::NumPts() const { return static_cast<long>(tables_->Current().points.size()); }
long trScene::NumNormals() const { return static_cast<long>(tables_->Current().normals.size()); }
long trScene::NumTexVerts() const { return static_cast<long>(tables_->Current().texVerts.size()); }
long trScene::NumTris() const { return static_cast<long>(tables_->Current().tris.size()); }
long trScene::NumMaterials() const { return static_cast<long>(tables_->Current().materials.size()); }
long trScene::NumParticles() const { return static_cast<long>(tables_->Current().particles.size()); }
long trScene::NumAtmospheres() const { return static_cast<long>(tables_->Current().atmospheres.size()); }
long trScene::NumGroups() const { return static_cast<long>(tables_->groups.size()); }

trPoint* trScene::GetPPoint(long index) { return Entry(tables_->Current().points, index); }
const trPoint* trScene::GetPPoint(long index) const { return Entry(tables_->Current().points, index); }
trNormal* trScene::GetPNormal(long index) { return Entry(tables_->Current().normals, index); }
const trNormal* trScene::GetPNormal(long index) const { return Entry(tables_->Current().normals, index); }
trTexVert* trScene::GetPTexVert(long index) { return Entry(tables_->Current().texVerts, index); }
const trTexVert* trScene::GetPTexVert(long index) const { return Entry(tables_->Current().texVerts, index); }
trTri* trScene::GetPTri(long index) { return Entry(tables_->Current().tris, index); }
const trTri* trScene::GetPTri(long index) const { return Entry(tables_->Current().tris, index); }
trMaterial* trScene::GetPMaterial(long index) { return Entry(tables_->Current().materials, index); }
const trMaterial* trScene::GetPMaterial(long index) const {
  return Entry(tables_->Current().materials, index);
}
const trParticle* trScene::GetPParticle(long index) const {
  return Entry(tables_->Current().particles, index);
}
trShader* trScene::GetAtmosphere(long index) const {
  trShader* const* entry = Entry(tables_->Current().atmospheres, index);
  return entry ? *entry : nullptr;
}
trGeomGroup* trScene::GetPGroup(long index) const {
  const auto* entry = Entry(tables_->groups, index);
  return entry ? entry->get() : nullptr;
}

long trScene::GetPointVecs(const std::int32_t* indices, trVector* out, long count) const {
  return Gather(tables_->Current().points, &trPoint::position, indices, out, count);
}
long trScene::GetNormals(const std::int32_t* indices, trVector* out, long count) const {
  return Gather(tables_->Current().normals, &trNormal::direction, indices, out, count);
}
long trScene::GetTexVecs(const std::int32_t* indices, trVector* out, long count) const {
  return Gather(tables_->Current().texVerts, &trTexVert::uvw, indices, out, count);
}
long trScene::GetPersistentMaterialIndex(long index) const {
  return Entry(tables_->materials, index) ? tables_->firstMaterial + index : 0;
}

long trScene::BeginGroup(const trString& name) {
  Tables& t = tables_->Current();
  if (t.groups.size() >= kMaxTableSize) return 0;
  auto subscene = std::make_shared<trScene>();
  Tables& sub = *subscene->tables_;
  sub.transform = t.transform;
  sub.shaderTransform = t.shaderTransform;
  sub.allowsTriSubdivision = t.allowsTriSubdivision;
  sub.castsShadows = t.castsShadows;
  sub.isVisibleInReflections = t.isVisibleInReflections;
  sub.visibility = t.visibility;
  t.groups.push_back(std::make_unique<trGeomGroup>(name, subscene));
  t.openGroup = subscene.get();
  return static_cast<long>(t.groups.size());
}

long trScene::EndGroup() {
  Tables* t = tables_.get();
  if (!t->openGroup) return 0;
  while (t->openGroup->tables_->openGroup) t = t->openGroup->tables_.get();
  t->openGroup = nullptr;
  return 1;
}

bool trScene::AllowsTriSubdivision() const { return tables_->allowsTriSubdivision; }
void trScene::SetAllowsTriSubdivision(bool allows) {
  tables_->allowsTriSubdivision = allows;
  for (const auto& group : tables_->groups) group->Subscene()->SetAllowsTriSubdivision(allows);
}
bool trScene::CastsShadows() const { return tables_->castsShadows; }
void trScene::SetCastsShadows(bool casts) {
  tables_->castsShadows = casts;
  for (const auto& group : tables_->groups) group->Subscene()->SetCastsShadows(casts);
}
bool trScene::IsVisibleInReflections() const { return tables_->isVisibleInReflections; }
void trScene::SetIsVisibleInReflections(bool visible) {
  tables_->isVisibleInReflections = visible;
  for (const auto& group : tables_->groups) group->Subscene()->SetIsVisibleInReflections(visible);
}
bool trScene::IsVisibleOrHoldout() const { return tables_->visibility != trSceneVisibilityMode::kInvisible; }
trSceneVisibilityMode trScene::VisibilityMode() const { return tables_->visibility; }
void trScene::SetVisibilityMode(trSceneVisibilityMode mode) {
  tables_->visibility = mode;
  for (const auto& group : tables_->groups) group->Subscene()->SetVisibilityMode(mode);
}
long trScene::PrimaryRenderMethod() const { return tables_->primaryRenderMethod; }
void trScene::SetPrimaryRenderMethod(long method) { tables_->primaryRenderMethod = method; }
bool trScene::IsSorted() const { return tables_->isSorted; }

long trScene::NumSortedElements() const { return static_cast<long>(tables_->sorted.size()); }
const trSortedElement* trScene::GetSortedElementInfoReversed(long position) const {
  return Entry(tables_->sorted, NumSortedElements() + 1 - position);
}
long trScene::TotalNumTrisAtPrep() const { return tables_->totalTris; }

const trTransform<double>& trScene::GetTransform() const { return tables_->transform; }
void trScene::SetTransform(const trTransform<double>& objectToWorld) {
  tables_->transform = objectToWorld;
  tables_->isSettled = false;
  SetTransformForShaders(objectToWorld);
  for (const auto& group : tables_->groups) group->Subscene()->SetTransform(objectToWorld);
}
const trTransform<double>& trScene::GetTransformForShaders() const { return tables_->shaderTransform; }
void trScene::SetTransformForShaders(const trTransform<double>& objectToWorld) {
  tables_->shaderTransform = objectToWorld;
  for (const auto& group : tables_->groups) group->Subscene()->SetTransformForShaders(objectToWorld);
}

trBoundingBox trScene::BoundingBoxR() const {
  const Tables& t = *tables_;
  if (t.isSettled) return t.boxR;
  trBoundingBox box;
  for (const trPoint& point : t.points) box.Union(point.position);
  for (const trParticle& particle : t.particles) {
    if (!t.inflator) {
      box.Union(particle.position);
      continue;
    }
    const trBoundingBox instance = t.inflator->InstanceBoundingBox(particle);
    if (instance.IsEmpty()) continue;
    box.Union(instance.min);
    box.Union(instance.max);
  }
  for (const auto& group : t.groups) {
    const trScene& sub = *group->Subscene();
    const trBoundingBox inner =
        ovhost::TransformedBox(t.transform.Inverse() * sub.GetTransform(), sub.BoundingBoxR());
    if (inner.IsEmpty()) continue;
    box.Union(inner.min);
    box.Union(inner.max);
  }
  return box;
}

trBoundingBox trScene::BoundingBoxT() const {
  const Tables& t = *tables_;
  return t.isSettled ? t.boxT : ovhost::TransformedBox(t.transform, BoundingBoxR());
}

void trScene::AssignParticleInflator(trParticleInflator* inflator) { tables_->Current().inflator = inflator; }
trParticleInflator* trScene::GetParticleInflator() const { return tables_->Current().inflator; }
