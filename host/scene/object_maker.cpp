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
  Param(translate_, "translate", trVector())
      .About("Where the object's origin stands in the world, in metres.");
  Param(rotate_, "rotate", trVector()).About("Turns about the x, then the y, then the z axis, in degrees.");
  Param(scale_, "scale", scale_)
      .About("Size along each of the object's own axes; 1 leaves it as it was made.");
  GuiTab("Surface Shaders", "shaders_tab");
  Param(surfaceShader_, "surface_shader", "")
      .About(
          "Colours and displaces the surface. Materials of a file that name a child shader have that one.");
  Param(doubleSided_, "double-sided_surface", doubleSided_)
      .About(
          "Shades backs like fronts. Turn it off for closed bodies of glass or water, which have an inside.");
  Param(useSmoothNormals_, "use_smooth_normals", useSmoothNormals_)
      .About("Shades triangles with the normals of their corners. Turn it off to see flat facets.");
  Param(smoothsTerminator_, "smooth_polygons_at_terminator", smoothsTerminator_)
      .About("Softens the edge of shade on coarse meshes, where it would follow the triangles' edges.");
  long declared;
  if (!FindParam(declared, "mesh_displacer"))
    Param(meshDisplacer_, "mesh_displacer", "")
        .About(
            "A shader that moves the mesh's own points once, before rendering; it adds no detail between "
            "them.");
  GuiTab("Visibility", "visibility_tab");
  DeclareVisibilityParams(1, 1, 1, 0);
  DeclareAdvancedVisibilityParams();
  Param(populationMode_, "population_mode", populationMode_)
      .About("On where a populator shows the object: it isn't made at its own place then.");
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
  Param(sourceFile_, "filename", "", &filenameHint_)
      .Display("Object file")
      .About("The file that holds the mesh; a relative name counts from the project's folder.");
  Param(reverse_, "reverse_triangles", reverse_)
      .Display("Turn triangles round")
      .About("Makes fronts of backs, for files whose triangles run the other way round.");
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
