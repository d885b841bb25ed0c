// Bases of objects made by code or read from files.
#include <unordered_map>

#include "core/scene_maker.h"

long juObjectGeneratorOrReader::Make(trScene& scene, Context context) {
  if (context == kNothing) return 1;
  ApplyVisibilityParams(scene);
  return GenerateOrRead(scene, context);
}

void juObjectGeneratorOrReader::DeclareObjectTabs() {
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

trScene* juObjectGeneratorOrReader::BeginMesh(trScene& scene) {
  trTransform<double> transform;
  SetTransformFromParams(transform, &scene, nullptr, translate_, rotate_, scale_);
  const long group = scene.BeginGroup(Name());
  return group ? scene.GetPGroup(group)->Subscene().get() : nullptr;
}

void juObjectGeneratorOrReader::EndMesh(trScene& scene) {
  scene.EndGroup();
  if (AllowsSubdivision()) scene.SetAllowsTriSubdivision(true);
}

trMaterial juObjectGeneratorOrReader::SurfaceMaterial() const {
  trMaterial material(nullptr, LinkedShader(surfaceShader_), nullptr, 1.0f);
  material.isDoubleSided = doubleSided_ != 0;
  material.useNormals = useSmoothNormals_ != 0;
  material.smoothsTerminator = smoothsTerminator_ != 0;
  return material;
}

long juObjectGenerator::GenerateOrRead(trScene& scene, Context context) {
  if (IsLeftToPopulator(context)) return 1;
  trScene* const mesh = BeginMesh(scene);
  if (!mesh) return 0;
  const long materialIndex = mesh->AddMaterial(SurfaceMaterial());
  const long made = materialIndex ? GenerateMesh(*mesh, materialIndex) : 0;
  EndMesh(scene);
  return made;
}

void juObjectReader::DeclareObjectReaderTabbedParams() {
  GuiTab("Object", "object_tab");
  Param(sourceFile_, "filename", "", &filenameHint_).Display("Object file");
  Param(reverse_, "reverse_triangles", reverse_).Display("Turn triangles round");
  DeclareObjectTabs();
}

void juObjectReader::BindShadersByName(trScene& mesh) const {
  std::unordered_map<trString, trShader*> shaders;
  for (long child = 0; child < NumChildren(); ++child)
    if (auto* const shader = dynamic_cast<trShader*>(Child(child))) shaders.emplace(shader->Name(), shader);
  for (long i = 1; i <= mesh.NumMaterials(); ++i) {
    trMaterial& material = *mesh.GetPMaterial(i);
    if (const auto found = shaders.find(material.name); found != shaders.end())
      material.surfaceShader = found->second;
  }
}

long juObjectReader::GenerateOrRead(trScene& scene, Context context) {
  const trString path = sourceFile_.FullPath();
  if (path.empty() || IsLeftToPopulator(context)) return 1;
  trScene* const mesh = BeginMesh(scene);
  if (!mesh) return 0;
  const long isRead = ReadObjectFile(*mesh, path.c_str(), SurfaceMaterial(), reverse_ != 0);
  BindShadersByName(*mesh);
  if (auto* const shader = LinkedShader(meshDisplacer_); shader && isRead)
    MovePointsWithMeshDisplacer(*mesh, true, *shader);
  EndMesh(scene);
  return isRead || context == kRender;
}

long juObjectReader::LoadNow() {
  trScene scene;
  return scene.Init()
             ? ReadObjectFile(scene, sourceFile_.FullPath().c_str(), SurfaceMaterial(), reverse_ != 0)
             : 0;
}
