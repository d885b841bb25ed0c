// Bases of objects made by code or read from files.
#include "core/scene_maker.h"
#include "core/shading_state.h"

namespace {

/// Normals of the points: those of the triangles about each, weighted by area. Unit, or zero.
std::vector<trVector> PointNormals(const trScene& scene) {
  std::vector<trVector> normals(scene.NumPts());
  for (long i = 1; i <= scene.NumTris(); ++i) {
    const trTri& tri = *scene.GetPTri(i);
    trVector p[3];
    if (scene.GetPointVecs(tri.point, p, 3) != 3) continue;
    const trVector weighted = Cross(p[1] - p[0], p[2] - p[0]);
    for (const std::int32_t point : tri.point) normals[point - 1] += weighted;
  }
  for (trVector& normal : normals) normal = Normalised(normal);
  return normals;
}

void ReplaceNormals(trScene& scene) {
  const std::vector<trVector> normals = PointNormals(scene);
  const long first = scene.NumNormals() + 1;
  for (const trVector& normal : normals)
    if (!scene.AddNormal({normal})) return;
  for (long i = 1; i <= scene.NumTris(); ++i) {
    trTri& tri = *scene.GetPTri(i);
    for (int corner = 0; corner < 3; ++corner)
      tri.normal[corner] = static_cast<std::int32_t>(first + tri.point[corner] - 1);
  }
}

}  // namespace

long juObjectGeneratorOrReader::Make(trScene& scene, Context context) {
  if (context == kNothing) return 1;
  ApplyVisibilityParams(scene);
  return GenerateOrRead(scene, context);
}

void juObjectGeneratorOrReader::MovePointsWithMeshDisplacer(trScene& scene, bool recalculateNormals,
                                                            trShader& shader) {
  trSamplingState state(shader);
  trShadingInterface& si = state.ShadingInterface();
  si.Object().objectToWorld = &scene.GetTransformForShaders();
  si.Object().scene = &scene;
  const trTransform<double>& transform = scene.GetTransform();
  const std::vector<trVector> normals = PointNormals(scene);
  for (long i = 1; i <= scene.NumPts(); ++i) {
    trVector& position = scene.GetPPoint(i)->position;
    si.SetSample(transform.Point(position), transform.Normal(normals[i - 1]));
    shader.DisplaceTS(si);
    const trVector moved = transform.inverse.Point(si.P());
    if (std::isfinite(moved.LengthSquared())) position = moved;
  }
  if (recalculateNormals) ReplaceNormals(scene);
  for (long i = 1; i <= scene.NumGroups(); ++i)
    MovePointsWithMeshDisplacer(*scene.GetPGroup(i)->Subscene(), recalculateNormals, shader);
}

void juObjectGenerator::DeclareObjectGeneratorTabbedParams() {
  GuiTab("Transform", "transform_tab");
  Param(translate_, "translate", trVector()).About("Position in the world, metres.");
  Param(rotate_, "rotate", trVector()).About("Rotation about the axes, degrees.");
  Param(scale_, "scale", scale_).About("Size along each axis; 1 is the size that the object is made with.");
  GuiTab("Surface Shaders", "shaders_tab");
  Param(surfaceShader_, "surface_shader", "").About("Network that colours and displaces the object.");
  Param(doubleSided_, "double-sided_surface", doubleSided_)
      .About("Shades both sides of the surface: for leaves and other thin sheets.");
  Param(useSmoothNormals_, "use_smooth_normals", useSmoothNormals_)
      .About("Shades by the object's own normals in place of flat triangles.");
  Param(smoothsTerminator_, "smooth_polygons_at_terminator", smoothsTerminator_)
      .About("Softens the edge of shade on coarse meshes, where triangles would show as steps.");
  long declared;
  if (!FindParam(declared, "mesh_displacer"))
    Param(meshDisplacer_, "mesh_displacer", "")
        .About("Shader that moves the object's points once, when it is made.");
  GuiTab("Visibility", "visibility_tab");
  DeclareVisibilityParams(1, 1, 1, 0);
  DeclareAdvancedVisibilityParams();
  Param(populationMode_, "population_mode", populationMode_)
      .About("Leaves the object itself out of the picture: it is there for populators to plant.");
}

long juObjectGenerator::GenerateOrRead(trScene& scene, Context context) {
  if (populationMode_ && context == kRender) return 1;
  trTransform<double> transform;
  SetTransformFromParams(transform, &scene, nullptr, translate_, rotate_, scale_);
  const long group = scene.BeginGroup(Name());
  if (!group) return 0;
  trScene& mesh = *scene.GetPGroup(group)->Subscene();
  trMaterial material(nullptr, LinkedShader(surfaceShader_), nullptr, 1.0f);
  material.isDoubleSided = doubleSided_ != 0;
  material.useNormals = useSmoothNormals_ != 0;
  material.smoothsTerminator = smoothsTerminator_ != 0;
  const long materialIndex = mesh.AddMaterial(material);
  const long made = materialIndex ? GenerateMesh(mesh, materialIndex) : 0;
  scene.EndGroup();
  if (AllowsSubdivision()) scene.SetAllowsTriSubdivision(true);
  return made;
}

long juObjectReader::GenerateOrRead(trScene& scene, Context) {
  return ReadObjectFile(scene, sourceFile_.FullPath().c_str());
}

long juObjectReader::LoadNow() {
  trScene scene;
  return scene.Init() ? ReadObjectFile(scene, sourceFile_.FullPath().c_str()) : 0;
}
