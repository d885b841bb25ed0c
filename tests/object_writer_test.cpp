// OBJ, FBX and micro exporters, told from their bytes.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>

#include "core/micro_handler.h"
#include "core/object_writer.h"
#include "host/base/parallel.h"
#include "host/node/class_pool.h"
#include "host/scene/object_files.h"
#include "tests/shading_fixture.h"
#include "tests/temp_file.h"

namespace {

std::string Bytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

trTri Triangle(std::initializer_list<int> points, std::initializer_list<int> texVerts,
               std::initializer_list<int> normals) {
  trTri tri;
  std::copy(points.begin(), points.end(), tri.point);
  std::copy(texVerts.begin(), texVerts.end(), tri.texVert);
  std::copy(normals.begin(), normals.end(), tri.normal);
  tri.material = 1;
  return tri;
}

/// A triangle of each form of corners.
void FillScene(trScene& scene) {
  ASSERT_TRUE(scene.Init());
  scene.BeginGroup("Stone");
  for (const trVector& p : {trVector(1, 2, 3), trVector(0.1, -1e-7, 1234567), trVector(0, 0, 0)})
    scene.AddPoint({p});
  scene.AddTexVert({{0.5, 0.25, 0}});
  scene.AddNormal({{0, 1, 0}});
  trMaterial material;
  material.name = "bark";
  scene.AddMaterial(material);
  for (const trTri& tri :
       {Triangle({1, 2, 3}, {1, 1, 1}, {1, 1, 1}), Triangle({1, 2, 3}, {1, 1, 1}, {0, 0, 0}),
        Triangle({3, 2, 1}, {0, 0, 0}, {1, 1, 1}), Triangle({1, 2, 3}, {0, 1, 0}, {0, 0, 1})})
    ASSERT_TRUE(scene.AddTri(tri));
  scene.EndGroup();
}

TEST(ObjWriter, EveryFormOfCorners) {
  const Graph graph;
  trScene scene;
  const std::string path = TempFile("corners.obj");
  ASSERT_TRUE(scene.Init());
  EXPECT_FALSE(scene.WriteObjectFile(nullptr, path.c_str(), nullptr)) << "no group";
  FillScene(scene);
  ASSERT_TRUE(scene.WriteObjectFile(nullptr, path.c_str(), nullptr));
  const std::string text = Bytes(path);
  EXPECT_EQ(text.substr(0, text.find("# http")),
            "#\n# Wavefront OBJ file\n# Written by ObjectWriterOBJ for Ombrivex\n");
  EXPECT_EQ(text.substr(text.find("\n#\n") + 3),
            "g group1\n"
            "v 1 2 -3\nv 0.1 -1e-07 -1.23457e+06\nv 0 0 -0\n"
            "vt 0.5 0.25 0\n"
            "vn 0 1 -0\n"
            "f 1/1/1 2/1/1 3/1/1\nf 1/1 2/1 3/1\nf 3//1 2//1 1//1\nf 1 2/1 3//1\n");
}

TEST(ObjWriter, BlocksOfThreadsStandInOrder) {
  const Graph graph;
  trScene scene;
  ASSERT_TRUE(scene.Init());
  scene.BeginGroup("many");
  std::string wanted;
  for (int i = 0; i < 20000; ++i) {
    scene.AddPoint({trVector(i, 0, 1)});
    wanted += "v " + std::to_string(i) + " 0 -1\n";
  }
  for (int i = 1; i <= 19998; ++i) {
    scene.AddTri(Triangle({i, i + 1, i + 2}, {}, {}));
    wanted += "f " + std::to_string(i) + " " + std::to_string(i + 1) + " " + std::to_string(i + 2) + "\n";
  }
  scene.EndGroup();
  const std::string path = TempFile("many.obj");
  for (const int threads : {1, 5})
    ovhost::WithThreads(threads, [&] {
      ASSERT_TRUE(scene.WriteObjectFile(nullptr, path.c_str(), nullptr));
      const std::string text = Bytes(path);
      EXPECT_TRUE(text.substr(text.find("group1\n") + 7) == wanted) << threads;
    });
}

/// The bytes of a binary array's values.
template <typename T>
std::vector<T> FbxArray(const std::string& file, const std::string& name) {
  // Name, code, count, encoding, bytes, values.
  const std::string head = static_cast<char>(name.size()) + name;
  const std::size_t at = file.find(head) + head.size();
  std::uint32_t count, encoding;
  std::memcpy(&count, &file[at + 1], 4);
  std::memcpy(&encoding, &file[at + 5], 4);
  EXPECT_EQ(encoding, 0u);
  std::vector<T> values(count);
  std::memcpy(values.data(), &file[at + 13], count * sizeof(T));
  return values;
}

TEST(FbxWriter, TheArraysOfBothForms) {
  const Graph graph;
  trScene scene;
  FillScene(scene);
  const std::string binary = TempFile("stone.fbx"), text = TempFile("stone-text.fbx");
  ASSERT_TRUE(ovhost::WriteSceneFile(scene, nullptr, binary, {}));
  ASSERT_TRUE(ovhost::WriteSceneFile(scene, nullptr, text, {{"ascii", "1"}}));
  const std::string bytes = Bytes(binary);
  EXPECT_EQ(bytes.substr(0, 20), "Kaydara FBX Binary  ");
  EXPECT_EQ(FbxArray<double>(bytes, "Vertices"),
            (std::vector<double>{1, 2, -3, 0.1, -1e-7, -1234567, 0, 0, 0}));
  EXPECT_EQ(FbxArray<std::int32_t>(bytes, "PolygonVertexIndex"),
            (std::vector<std::int32_t>{0, 1, -3, 0, 1, -3, 2, 1, -1, 0, 1, -3}));
  // The second and the fourth triangle have normals of their own made, for corners that lack them.
  EXPECT_EQ(FbxArray<std::int32_t>(bytes, "NormalsIndex"),
            (std::vector<std::int32_t>{0, 0, 0, 1, 1, 1, 0, 0, 0, 2, 2, 0}));
  EXPECT_EQ(FbxArray<std::int32_t>(bytes, "UVIndex"),
            (std::vector<std::int32_t>{0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 0, 1}));
  EXPECT_EQ(FbxArray<double>(bytes, "UV"), (std::vector<double>{0.5, 0.25, 0, 0}));
  for (const char* name : {"Stone mesh 1", "Stone mesh node 1", "DiffuseUV", "UnitScaleFactor", "bark"})
    EXPECT_NE(bytes.find(name), std::string::npos) << name;
  const std::string written = Bytes(text);
  EXPECT_NE(written.find("a: 1,2,-3,0.1,-1e-07,-1234567,0,0,-0\n"), std::string::npos);
  EXPECT_NE(written.find("Model: 3000000, \"Model::Stone mesh node 1\", \"Mesh\""), std::string::npos);
}

TEST(Flattening, CopiesAndGroupsInOneMesh) {
  struct Copies : trParticleInflator {
    Copies() : stone(std::make_shared<trScene>()) { FillScene(*stone); }
    trBoundingBox InstanceBoundingBox(const trParticle&) const override { return {}; }
    long InflateInstanceElement(trRenderState&, const trParticle&, long&) override { return 0; }
    bool IntersectInstance(trRenderState&, const trParticle&, const trVector&, const trVector&,
                           double&) override {
      return false;
    }
    std::shared_ptr<trScene> InstanceScene(long) const override { return stone; }
    trTransform<double> InstanceTransform(const trParticle& p) const override {
      return trTranslate(p.position) * trScale(2.0, 2.0, 2.0);
    }
    std::shared_ptr<trScene> stone;
  } copies;
  trScene scene, flat;
  ASSERT_TRUE(scene.Init() && flat.Init());
  scene.AssignParticleInflator(&copies);
  for (int i = 0; i < 3; ++i) scene.AddParticle({trVector(100 * i, 0, 0), 0});
  const ovhost::SceneSize size = ovhost::MeasureScene(scene);
  EXPECT_EQ(size.copies, 3);
  EXPECT_EQ(size.triangles, 12);
  ovhost::FlattenScene(scene, "all", flat);
  const trScene& mesh = *flat.GetPGroup(1)->Subscene();
  ASSERT_EQ(mesh.NumTris(), 12);
  EXPECT_EQ(mesh.NumMaterials(), 1) << "copies share theirs";
  trVector corners[3];
  ASSERT_EQ(mesh.GetPointVecs(mesh.GetPTri(9)->point, corners, 3), 3);
  ExpectNear(corners[0], {202, 4, 6}, 1e-9);
  ExpectNear(mesh.GetPNormal(3)->direction, {0, 1, 0}, 1e-12);
}

TEST(MicroExporter, WritesByExtensionWithTheFramesNumber) {
  Graph graph;
  trMicroSurface surface;
  surface.origin = {10, 0, 0};
  surface.points = {{0, 0, 0}, {0, 0, 1}, {1, 0, 0}};
  surface.normals.assign(3, {0, 1, 0});
  surface.triangles = {{0, 1, 2}};
  graph.project.SetParam("current_frame", 7.0, trWhoUser);
  for (const char* className : {"micro_exporter", "lwo_micro_exporter"}) {
    trBase* const node = graph.project.CreateChild(className);
    auto& handler = dynamic_cast<trMicroHandler&>(*node);
    EXPECT_TRUE(handler.HandleMicroSurface(surface)) << "without a name there is nothing to do";
    const std::string kind = std::string(className) == "micro_exporter" ? "obj" : "lwo";
    node->SetParam("filename", TempFile("micro_###." + kind), trWhoUser);
    ASSERT_TRUE(handler.HandleMicroSurface(surface));
    const std::string bytes = Bytes(TempFile("micro_007." + kind));
    if (kind == "obj")
      EXPECT_NE(bytes.find("v 10 0 -0\nv 10 0 -1\nv 11 0 -0\nvn 0 1 -0"), std::string::npos) << bytes;
    else
      EXPECT_EQ(bytes.substr(8, 4), "LWO2");
  }
}

}  // namespace
