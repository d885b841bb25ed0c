// cube and octahedron.
#include "objects/primitive_objects.h"

PrimitiveObject::PrimitiveObject(const char* geometryClass)
    : juSubSceneMaker("", "rotate", "centre"), geometryClass_(geometryClass) {}

PrimitiveObject::~PrimitiveObject() { trDestroyObject(geometry_); }

void PrimitiveObject::DeclareHead() {
  Param(showBox_, "show_b-box_in_preview", 1)
      .About("Shows the object's box in the preview, with its handles.");
  DeclareVisibilityParams(1, 1, 1, 0);
  DeclareAdvancedVisibilityParams();
  GuiTab("Transform", "transform_tab");
  Param(centre_, "centre", trVector())
      .Alias("center")
      .About("Middle of the object in the world, in metres; (0, 0, 0) is the world's origin.");
}

void PrimitiveObject::DeclareTail() {
  GuiTab("Angular Position", "angular_position_tab");
  DeclareAngularPositionParams();
  GuiTab("Surface Shaders", "shaders_tab");
  Param(surfaceShader_, "surface_shader", "Surface1").About("Shader that colours and displaces the surface.");
  Param(displacementTolerance_, "displacement_tolerance", 1.0)
      .About(
          "How much the surface shader is expected to move the surface. Raise it where high relief is cut "
          "off.");
}

long PrimitiveObject::OnCreate() {
  geometry_ = trCreateObject(geometryClass_, this, 0);
  return juSubSceneMaker::OnCreate();
}

long PrimitiveObject::OnFirstCreate() {
  juSubSceneMaker::OnFirstCreate();
  SetParam("centre", RecommendedStartPosition(HalfSize().Length()), this);
  if (const trBase* const surface = CreateChild("default_shader"))
    SetParam("surface_shader", surface->Name(), this);
  return 1;
}

long PrimitiveObject::MakePlanetSurface(trScene& scene) {
  ApplyVisibilityParams(scene);
  trTransform<double> transform;
  SetTransformFromParams(transform, &scene, nullptr, centre_, rotate_, scale_);
  const long material = scene.AddMaterial(trMaterial());
  return material && AddFaces(scene, material) ? 1 : 0;
}

void PrimitiveObject::BindPlanetMaterials(trScene& scene) {
  const trMaterial bound(dynamic_cast<trGeometryShader*>(geometry_), LinkedShader(surfaceShader_), nullptr,
                         static_cast<float>(displacementTolerance_));
  for (long i = 1; i <= scene.NumMaterials(); ++i) *scene.GetPMaterial(i) = bound;
}

void PrimitiveObject::PushPlanetParamsToChildren() {
  auto* const geometry = dynamic_cast<trGeometryShader*>(geometry_);
  if (!geometry) return;
  geometry->SetObjectTransform(Transform());
  PushShape(*geometry);
}

trTransform<double> PrimitiveObject::Transform() {
  trTransform<double> transform;
  SetTransformFromParams(transform, nullptr, nullptr, centre_, rotate_, scale_);
  return transform;
}

trBoundingBox PrimitiveObject::BoundingBoxL() { return {-HalfSize(), HalfSize()}; }

void PrimitiveObject::MoveHandlePositionT(const trVector& delta) {
  SetParam("centre", centre_ + delta, trWhoUserIndirect);
}

void PrimitiveObject::MoveHandleRotationT(const trVector& deltaDegrees) {
  SetParam("rotate", rotate_ + deltaDegrees, trWhoUserIndirect);
}

void PrimitiveObject::MoveHandleScaleT(const trVector& factor) {
  SetParam("scale", scale_ * factor, trWhoUserIndirect);
}

Cube::Cube() : PrimitiveObject("cube_geometry_shader") {
  DeclareHead();
  Param(rotate_, "rotate", trVector())
      .About("Rotation in degrees about x, then y, then z, round the middle.");
  Param(size_, "size", trVector(1, 1, 1)).About("Lengths of the cube's edges in metres, before the scale.");
  Param(roundRadius_, "round_radius", 0.1)
      .About(
          "Radius of the rounded edges in metres; 0 is sharp. At half of the shortest side nothing is left "
          "flat across it.");
  Param(scale_, "scale", trVector(1, 1, 1))
      .About("Factors along the object's own axes, before the rotation.");
  DeclareTail();
}

trVector Cube::HalfSize() const {
  return trVector(std::fabs(size_.x), std::fabs(size_.y), std::fabs(size_.z)) * 0.5;
}

bool Cube::AddFaces(trScene& scene, long material) const {
  const trVector high = HalfSize(), low = -high;
  for (int axis = 0; axis < 3; ++axis) {
    trVector a, b;
    const int next = (axis + 1) % 3, last = (axis + 2) % 3;
    a[next] = 2 * high[next];
    b[last] = 2 * high[last];
    if (!scene.AddPolyPlane(low, b, a, false, material)) return false;
    if (!scene.AddPolyPlane(high, -a, -b, false, material)) return false;
  }
  return true;
}

void Cube::PushShape(trBase& geometry) {
  geometry.SetParam("round_radius", trVector(roundRadius_, roundRadius_, roundRadius_), this);
  geometry.SetParam("size", size_, this);
}

Octahedron::Octahedron() : PrimitiveObject("octahedron_geometry_shader") {
  DeclareHead();
  Param(rotate_, "rotate", trVector())
      .About("Rotation in degrees about x, then y, then z, round the middle.");
  Param(scale_, "scale", trVector(1, 1, 1))
      .About("Factors along the object's own axes, before the rotation.");
  Param(roundness_, "roundness", 0.2)
      .About("How far edges and corners are rounded, from 0, sharp, to 1, a ball that touches the faces.");
  DeclareTail();
  GuiTab("Import", "import_tab");
  DeclareImportMotionFileParams(true);
}

bool Octahedron::AddFaces(trScene& scene, long material) const {
  // Each face as three quads about its middle, so that none has a side of no length.
  const auto addQuad = [&](const trVector* corners) {
    std::int32_t points[4];
    for (int i = 0; i < 4; ++i) points[i] = static_cast<std::int32_t>(scene.AddPoint({corners[i]}));
    for (int half = 1; half <= 2; ++half) {
      trTri tri;
      tri.point[0] = points[0];
      tri.point[1] = points[half];
      tri.point[2] = points[half + 1];
      tri.material = static_cast<std::int32_t>(material);
      if (!scene.AddTri(tri)) return false;
    }
    return true;
  };
  for (int octant = 0; octant < 8; ++octant) {
    trVector corners[3];
    for (int axis = 0; axis < 3; ++axis) corners[axis][axis] = octant >> axis & 1 ? -1 : 1;
    // From outside, x to y to z is the other way round than fronts run where an even number of axes is
    // turned.
    const bool isTurned = ((octant ^ octant >> 1 ^ octant >> 2) & 1) != 0;
    if (!isTurned) std::swap(corners[1], corners[2]);
    const trVector middle = (corners[0] + corners[1] + corners[2]) / 3.0;
    for (int i = 0; i < 3; ++i) {
      const trVector &here = corners[i], &next = corners[(i + 1) % 3], &before = corners[(i + 2) % 3];
      const trVector quad[4] = {here, (here + next) * 0.5, middle, (before + here) * 0.5};
      if (!addQuad(quad)) return false;
    }
  }
  return true;
}

void Octahedron::PushShape(trBase& geometry) { geometry.SetParam("roundness", roundness_, this); }
