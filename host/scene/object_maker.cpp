// Bases of objects made by code or read from files.
#include "core/scene_maker.h"

long juObjectGeneratorOrReader::Make(trScene& scene, Context context) {
  if (context == kNothing) return 1;
  ApplyVisibilityParams(scene);
  return GenerateOrRead(scene, context);
}

void juObjectGenerator::DeclareObjectGeneratorTabbedParams() {
  GuiTab("Transform", "transform_tab");
  Param(translate_, "translate", trVector());
  Param(rotate_, "rotate", trVector());
  Param(scale_, "scale", scale_);
  GuiTab("Surface Shaders", "shaders_tab");
  Param(surfaceShader_, "surface_shader", "");
  Param(doubleSided_, "double-sided_surface", doubleSided_);
  Param(useSmoothNormals_, "use_smooth_normals", useSmoothNormals_);
  Param(smoothsTerminator_, "smooth_polygons_at_terminator", smoothsTerminator_);
  long declared;
  if (!FindParam(declared, "mesh_displacer")) Param(meshDisplacer_, "mesh_displacer", "");
  GuiTab("Visibility", "visibility_tab");
  DeclareVisibilityParams(1, 1, 1, 0);
  DeclareAdvancedVisibilityParams();
  Param(populationMode_, "population_mode", populationMode_);
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
