// OVO files: against bytes laid out by hand, there and back, and cut or bent at every place.
#include <gtest/gtest.h>
#include <zlib.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>

#include "core/object_writer.h"
#include "core/project.h"
#include "core/scene_maker.h"
#include "host/base/log.h"
#include "host/node/class_pool.h"
#include "objectio/ovo_file.h"
#include "tests/shading_fixture.h"
#include "tests/temp_file.h"

namespace {

struct Told {
  Told() { ovhost::SetLogSink(&Take, this); }
  ~Told() { ovhost::SetLogSink(nullptr, nullptr); }
  static void Take(void* self, const ovhost::LogRecord& record) {
    auto& told = *static_cast<Told*>(self);
    if (record.level == ovhost::LogLevel::kError) told.errors.push_back(record.text);
    if (record.level == ovhost::LogLevel::kWarning) told.warnings.push_back(record.text);
  }
  std::vector<std::string> errors, warnings;
};

// --- Bytes by hand

std::string Word(std::uint32_t word) {
  std::string bytes;
  for (int i = 0; i < 4; ++i) bytes += static_cast<char>(word >> (8 * i) & 0xff);
  return bytes;
}
std::string Words(std::initializer_list<std::uint32_t> words) {
  std::string bytes;
  for (const std::uint32_t word : words) bytes += Word(word);
  return bytes;
}
std::string Floats(std::initializer_list<float> numbers) {
  std::string bytes;
  for (const float number : numbers) bytes += Word(std::bit_cast<std::uint32_t>(number));
  return bytes;
}
std::string Chunk(const std::string& id, const std::string& payload) {
  return id + Word(static_cast<std::uint32_t>(payload.size())) + payload +
         std::string((4 - payload.size() % 4) % 4, '\n');
}
std::string File(const std::string& chunks) {
  return "OMBRIVEXGEOMETRYDATA" + Word(28) + std::string("A\0\0\0", 4) + chunks;
}
std::string Descriptor(std::string pairs) {
  pairs.resize(32);
  return pairs;
}
std::string Material(std::uint32_t id, const std::string& name) {
  std::string record = Words({static_cast<std::uint32_t>(name.size() + 5), id}) + name + '\0';
  while (record.size() % 4) record += '\n';
  return record;
}
const std::string kPoints = Chunk("PNTS", Floats({1, 3, 2, 4, 6, 5, 7, 9, 8}));  // (1, 2, 3) and so on
const std::string kOneTriangle = Chunk("TRIS", Word(1) + Descriptor("P\x0c") + Words({1, 2, 3}));

// --- What a reader makes of them

struct ReadBack {
  explicit ReadBack(const std::string& bytes, bool reverse = false) {
    EXPECT_TRUE(scene.Init());
    trMaterial pattern;
    pattern.id = 77;
    pattern.name = "pattern";
    OvoGeometry geometry(scene, pattern, reverse);
    problem = WalkOvo({reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()}, "x.ovo", geometry,
                      isCut);
    isStrange = geometry.HadStrangeNumbers() || geometry.LacksTriangles();
  }
  std::vector<std::int32_t> Tri(long index) const {
    const trTri& t = *scene.GetPTri(index);
    std::vector<std::int32_t> all(t.point, t.point + 3);
    all.insert(all.end(), t.texVert, t.texVert + 3);
    all.insert(all.end(), t.normal, t.normal + 3);
    all.push_back(t.material);
    return all;
  }
  trScene scene;
  std::string problem;
  bool isCut = false, isStrange = false;
};
using Indices = std::vector<std::int32_t>;

TEST(OvoReading, AGroupLaidOutByHand) {
  const std::string group =
      Chunk("MATS", Material(5, "bark") + Material(9, "leaf")) + kPoints +
      Chunk("TUVS", Floats({0.25f, 0.5f})) + Chunk("TXVS", Floats({1, 2, 3})) +
      Chunk("NRMS", Floats({0, 0, 1})) +
      Chunk("TRIS", Word(2) + Descriptor("P\x0cU\x0cN\x0cM\x04") + Words({1, 2, 3, 1, 2, 0, 1, 1, 0, 9}) +
                        Words({3, 2, 1, 0, 0, 0, 0, 0, 0, 1234}));
  const ReadBack read(File(Chunk("GGRP", group)));
  EXPECT_EQ(read.problem, "");
  EXPECT_FALSE(read.isCut || read.isStrange);
  ASSERT_EQ(read.scene.NumPts(), 3);
  ExpectNear(read.scene.GetPPoint(1)->position, {1, 2, 3}, 0);
  ExpectNear(read.scene.GetPPoint(3)->position, {7, 8, 9}, 0);
  ASSERT_EQ(read.scene.NumTexVerts(), 2);
  ExpectNear(read.scene.GetPTexVert(1)->uvw, {0.25, 0.5, 0}, 0);
  ExpectNear(read.scene.GetPTexVert(2)->uvw, {1, 3, 2}, 0);
  ExpectNear(read.scene.GetPNormal(1)->direction, {0, 1, 0}, 0);
  ASSERT_EQ(read.scene.NumMaterials(), 2);
  EXPECT_EQ(read.scene.GetPMaterial(2)->name, "leaf");
  EXPECT_EQ(read.scene.GetPMaterial(2)->id, 9);
  EXPECT_EQ(read.Tri(1), (Indices{1, 2, 3, 1, 2, 0, 1, 1, 0, 2}));
  EXPECT_EQ(read.Tri(2), (Indices{3, 2, 1, 0, 0, 0, 0, 0, 0, 1})) << "an unknown id gives the first";
  EXPECT_EQ(ReadBack(File(Chunk("GGRP", group)), true).Tri(1), (Indices{3, 2, 1, 0, 2, 1, 0, 1, 1, 2}));
}

TEST(OvoReading, HeadersOffsetsAndUnknownChunks) {
  const std::string group = Chunk("GGRP", kPoints + kOneTriangle);
  const struct {
    const char* what;
    std::string bytes;
    long points;
  } rows[] = {
      {"an offset of 24 leaves no tag", "OMBRIVEXGEOMETRYDATA" + Word(24) + group, 3},
      {"what lies before the offset is skipped",
       "OMBRIVEXGEOMETRYDATA" + Word(33) + std::string("C---", 4) + "trash" + group, 3},
      {"an unknown chunk of 5 takes 8", File(Chunk("WHAT", "12345") + group), 3},
      {"groups in groups are unknown", File(Chunk("GGRP", group + kPoints)), 3},
      {"geometry at the top isn't read", File(kPoints + group), 3},
      {"an offset past the end", "OMBRIVEXGEOMETRYDATA" + Word(5000) + std::string("A\0\0\0", 4) + group, 0},
      {"an offset into the header", "OMBRIVEXGEOMETRYDATA" + Word(0) + group, 0},
  };
  for (const auto& row : rows) {
    const ReadBack read(row.bytes);
    EXPECT_EQ(read.problem, "") << row.what;
    EXPECT_EQ(read.scene.NumPts(), row.points) << row.what;
  }
  EXPECT_NE(ReadBack("OMBRIVEXGEOMETRX").problem.find("not a valid Ombrivex Object (OVO) file"),
            std::string::npos);
  EXPECT_EQ(ReadBack("OMBRIVEXGEOMETRYDATO").problem,
            "OVOReader: Could not find DATA marker in object file x.ovo");
  EXPECT_EQ(ReadBack("OMBRIVEXGEOMETRYDATA" + Word(28) + "B   ").problem,
            "OVOReader: The file uses an encoding that cannot be read by this version of Ombrivex.");
}

TEST(OvoReading, MaterialsAndTriangleFields) {
  const ReadBack early(File(Chunk("GGRP", kPoints + kOneTriangle + Chunk("MATS", Material(3, "abc")))));
  ASSERT_EQ(early.scene.NumMaterials(), 2) << "the given one is there before the file's";
  EXPECT_EQ(early.scene.GetPMaterial(1)->id, 77);
  EXPECT_EQ(early.scene.GetPMaterial(2)->name, "abc");
  EXPECT_EQ(early.Tri(1), (Indices{1, 2, 3, 0, 0, 0, 0, 0, 0, 1}));

  const ReadBack wide(
      File(Chunk("GGRP", kPoints + Chunk("TRIS", Word(2) + Descriptor("P\x0cZ\x08") +
                                                     Words({1, 2, 3, 99, 99}) + Words({2, 3, 1, 99, 99})))));
  ASSERT_EQ(wide.scene.NumTris(), 2) << "eight unknown bytes a triangle";
  EXPECT_EQ(wide.Tri(2)[0], 2);

  const ReadBack none(
      File(Chunk("GGRP", kPoints + Chunk("TRIS", Word(9) + Descriptor("") + Words({1, 2, 3})))));
  EXPECT_EQ(none.scene.NumTris(), 0) << "a stride of 0";

  // Two groups in one scene: the second's indices count from its own tables.
  const std::string two = Chunk("GGRP", Chunk("MATS", Material(1, "a")) + kPoints + kOneTriangle);
  const ReadBack both(File(two + two));
  ASSERT_EQ(both.scene.NumTris(), 2);
  EXPECT_EQ(both.Tri(2), (Indices{4, 5, 6, 0, 0, 0, 0, 0, 0, 2}));

  for (const std::uint32_t wrong : {0u, 4u, 0x80000000u, 0xffffffffu}) {
    const ReadBack read(File(Chunk(
        "GGRP", kPoints + Chunk("TRIS", Word(2) + Descriptor("P\x0c") + Words({1, wrong, 3, 1, 2, 3})))));
    EXPECT_EQ(read.scene.NumTris(), 0) << wrong;
    EXPECT_TRUE(read.isStrange);
  }
  const ReadBack nan(File(Chunk("GGRP", Chunk("PNTS", Floats({NAN, INFINITY, 1})))));
  EXPECT_TRUE(nan.isStrange);
  ExpectNear(nan.scene.GetPPoint(1)->position, {0, 1, 0}, 0);
}

std::string Packed(const std::string& chunks, std::uint32_t claimed) {
  uLongf size = compressBound(static_cast<uLong>(chunks.size()));
  std::string bytes(size, '\0');
  EXPECT_EQ(compress2(reinterpret_cast<Bytef*>(bytes.data()), &size,
                      reinterpret_cast<const Bytef*>(chunks.data()), static_cast<uLong>(chunks.size()), 9),
            Z_OK);
  bytes.resize(size);
  return Chunk("COMP", Words({1, claimed, 0}) + bytes);
}

TEST(OvoReading, PackedChunks) {
  const std::string group = Chunk("GGRP", kPoints + kOneTriangle);
  const auto size = static_cast<std::uint32_t>(group.size());
  const struct {
    const char* what;
    std::string chunks;
    long points;
  } rows[] = {
      {"as they stand", Chunk("COMP", Word(0) + group), 3},
      {"zlib", Packed(group, size), 3},
      {"less than it claims", Packed(group, size + 1) + group, 3},
      {"more than it claims", Packed(group, size - 1), 0},
      {"no zlib", Chunk("COMP", Words({1, size, 0}) + "nonsense") + group, 3},
      {"an unknown mode", Chunk("COMP", Word(2) + group) + group, 3},
      {"packed in packed",
       Packed(Chunk("COMP", Word(0) + group) + group, static_cast<std::uint32_t>(12 + 2 * group.size())), 3},
      {"empty", Chunk("COMP", "") + Chunk("COMP", Word(1)) + group, 3},
  };
  for (const auto& row : rows) {
    const ReadBack read(File(row.chunks));
    EXPECT_EQ(read.problem, "") << row.what;
    EXPECT_EQ(read.scene.NumPts(), row.points) << row.what;
  }
  // 100 MB of nothing in 100 KB; and 4 GB that nobody packed.
  const Told told;
  EXPECT_EQ(ReadBack(File(Packed(std::string(100 << 20, '\0'), 100 << 20) + group)).scene.NumPts(), 3);
  ASSERT_EQ(told.errors.size(), 1u);
  EXPECT_NE(told.errors[0].find("are said to hold 104857600"), std::string::npos) << told.errors[0];
  EXPECT_EQ(ReadBack(File(Packed("x", 0xffffffffu) + group)).scene.NumPts(), 3);
}

// --- Nodes

trBase& Node(Graph& graph, const char* className, const trString& name) {
  trBase* const node = graph.project.CreateChild(className);
  if (!node) throw std::runtime_error(className);
  node->SetName(name);
  return *node;
}

/// Two materials, all kinds of corners, and a group inside of the group.
void FillScene(trScene& scene) {
  ASSERT_TRUE(scene.Init());
  scene.BeginGroup("mesh");
  for (int i = 0; i < 5; ++i) scene.AddPoint({trVector(i, 10 + i * i, 0.5 * i)});
  scene.AddTexVert({{0.5, 0.25, 9}});
  scene.AddNormal({{0.6, 0.8, 0}});
  for (const char* name : {"abc", "with 11 let"}) {
    trMaterial material;
    material.id = static_cast<std::int32_t>(10 * scene.NumMaterials() + 4);
    material.name = name;
    scene.AddMaterial(material);
  }
  for (int i = 1; i <= 3; ++i) {
    trTri tri;
    for (int corner = 0; corner < 3; ++corner) tri.point[corner] = i + corner;
    tri.texVert[1] = tri.normal[2] = 1;
    tri.material = i % 2 + 1;
    ASSERT_TRUE(scene.AddTri(tri));
  }
  scene.BeginGroup("inner");
  scene.AddPoint({{1, 1, 1}});
  scene.EndGroup();
  scene.EndGroup();
}

std::string Bytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

TEST(OvoWriting, TheBytesOfASceneWithShaders) {
  Graph graph;
  trBase& reader = Node(graph, "ovo_reader", "Thing");
  reader.CreateChild("default_shader")->SetName("abc");
  ASSERT_TRUE(reader.SetParam("surface_shader", "abc", trWhoUser));
  trScene scene;
  FillScene(scene);
  const std::string path = TempFile("shaded.ovo");
  trBase* const writer = ovhost::CreateNode("object_writer_ovo", nullptr, "", false);
  ASSERT_TRUE(dynamic_cast<trObjectWriter&>(*writer).WriteObject(scene, &reader, path));
  ovhost::DestroyNode(writer);
  const std::string bytes = Bytes(path);
  ASSERT_EQ(bytes.substr(0, 28), File(""));
  ASSERT_EQ(bytes.substr(28, 12), Chunk("SHAD", "abc"));
  ASSERT_EQ(bytes.substr(40, 4), "NODE");
  const std::uint32_t clip = OvoWord(reinterpret_cast<const unsigned char*>(bytes.data()) + 44);
  EXPECT_EQ(bytes.substr(48, 17), "\n<ombrivex_clip>\n");
  EXPECT_EQ(bytes.substr(48 + clip - 18, 18), "</ombrivex_clip>\n\n");
  const std::string group =
      Chunk("MATS", Material(4, "abc") + Material(14, "with 11 let")) +
      Chunk("PNTS", Floats({0, 0, 10, 1, 0.5f, 11, 2, 1, 14, 3, 1.5f, 19, 4, 2, 26})) +
      Chunk("TUVS", Floats({0.5f, 0.25f})) + Chunk("NRMS", Floats({0.6f, 0, 0.8f})) +
      Chunk("TRIS", Word(3) + Descriptor("P\x0cU\x0cN\x0cM\x04") + Words({1, 2, 3, 0, 1, 0, 0, 0, 1, 14}) +
                        Words({2, 3, 4, 0, 1, 0, 0, 0, 1, 4}) + Words({3, 4, 5, 0, 1, 0, 0, 0, 1, 14})) +
      Chunk("GGRP", Chunk("PNTS", Floats({1, 1, 1})));
  EXPECT_EQ(bytes.substr((48 + clip + 3) / 4 * 4), Chunk("GGRP", group));
}

TEST(OvoWriting, WhatIsWrittenIsRead) {
  Graph graph;
  trScene scene;
  FillScene(scene);
  const std::string path = TempFile("round.ovo");
  ASSERT_TRUE(scene.WriteObjectFile(nullptr, path.c_str(), nullptr));
  const ReadBack read(Bytes(path));
  const trScene& mesh = *scene.GetPGroup(1)->Subscene();
  ASSERT_EQ(read.scene.NumPts(), mesh.NumPts());
  for (long i = 1; i <= mesh.NumPts(); ++i)
    ExpectNear(read.scene.GetPPoint(i)->position, mesh.GetPPoint(i)->position, 0);
  ASSERT_EQ(read.scene.NumTris(), mesh.NumTris());
  for (long i = 1; i <= mesh.NumTris(); ++i)
    EXPECT_EQ(0, std::memcmp(read.scene.GetPTri(i), mesh.GetPTri(i), sizeof(trTri))) << i;
  EXPECT_EQ(read.scene.GetPMaterial(2)->name, "with 11 let");
}

TEST(OvoWriting, FilesThatCantBeWrittenLeaveWhatWasThere) {
  Graph graph;
  trScene scene;
  FillScene(scene);
  for (const char* extension : {"ovo", "obj", "fbx", "lwo"}) {
    const Told told;
    EXPECT_EQ(scene.WriteObjectFile(nullptr, (TempFile("no folder/a.") + extension).c_str(), nullptr), 0);
    EXPECT_EQ(told.errors.size(), 1u) << extension;
  }
  const Told told;
  EXPECT_EQ(scene.WriteObjectFile(nullptr, TempFile("a.err").c_str(), nullptr), 0);
  ASSERT_EQ(told.errors.size(), 1u);
  EXPECT_EQ(told.errors[0], "ObjectWriterErr class returning a dummy error, as designed.");
}

std::string chosenFile;

TEST(OvoReader, ANewNodeTakesOverFileAndShaders) {
  Graph graph;
  trBase& from = Node(graph, "ovo_reader", "Thing");
  trBase* const shader = from.CreateChild("default_shader");
  shader->SetName("abc");
  shader->SetParam("diffuse_colour", trManRgb(0.125f, 0.25f, 0.5f), trWhoUser);
  from.SetParam("surface_shader", "abc", trWhoUser);
  trScene scene;
  FillScene(scene);
  chosenFile = TempFile("bush.ovo");
  trBase* const writer = ovhost::CreateNode("object_writer_ovo", nullptr, "", false);
  ASSERT_TRUE(dynamic_cast<trObjectWriter&>(*writer).WriteObject(scene, &from, chosenFile));
  ovhost::DestroyNode(writer);

  juSetFileChooser(
      [](const std::vector<juFileFilterItem>&, trString& path) { return path = chosenFile, true; });
  auto& reader = dynamic_cast<juObjectReader&>(*graph.project.CreateChild("ovo_reader"));
  juSetFileChooser(nullptr);
  EXPECT_EQ(reader.Name(), "bush.ovo");
  ASSERT_EQ(reader.NumChildren(), 1);
  trManRgb colour;
  ASSERT_TRUE(reader.Child(0)->GetParam("diffuse_colour", colour));
  EXPECT_EQ(colour, trManRgb(0.125f, 0.25f, 0.5f));
  trString link;
  reader.GetParam("surface_shader", link);
  EXPECT_EQ(link, "abc");
  reader.SetParam("translate", trVector(100, 0, 0), trWhoUser);
  reader.Child(0)->SetName("with 11 let");
  trScene made;
  ASSERT_TRUE(reader.Make(made, trSceneMaker::kRender));
  const trScene& mesh = *made.GetPGroup(1)->Subscene();
  EXPECT_EQ(mesh.NumTris(), 3);
  EXPECT_FALSE(mesh.AllowsTriSubdivision());
  EXPECT_EQ(mesh.GetPMaterial(1)->surfaceShader, reader.Child(0))
      << "by surface_shader, which followed the name";
  EXPECT_EQ(mesh.GetPMaterial(2)->surfaceShader, reader.Child(0)) << "by its own name";
  ExpectNear(mesh.GetTransform().Point({1, 2, 3}), {101, 2, 3}, 1e-12);
}

TEST(OvoReader, FilesThatCantBeReadAreOneError) {
  Graph graph;
  auto& reader = dynamic_cast<juObjectReader&>(Node(graph, "ovo_reader", "Thing"));
  trScene scene;
  EXPECT_TRUE(reader.Make(scene, trSceneMaker::kRender)) << "no file, no object, no word";
  std::ofstream(TempFile("not.ovo")) << "OMBRIVEX";
  for (const char* name : {"not.ovo", "missing.ovo"}) {
    const Told told;
    reader.SetParam("filename", TempFile(name), trWhoUser);
    EXPECT_TRUE(reader.Make(scene, trSceneMaker::kRender)) << "a render goes on";
    EXPECT_EQ(told.errors.size(), 1u);
    EXPECT_FALSE(reader.Make(scene, trSceneMaker::kInstance));
  }
}

TEST(OvoReader, EveryTruncationAndEveryBentByteIsSurvived) {
  Graph graph;
  trScene scene;
  FillScene(scene);
  const std::string path = TempFile("whole.ovo");
  ASSERT_TRUE(scene.WriteObjectFile(nullptr, path.c_str(), nullptr));
  const std::string whole =
      Bytes(path) + Packed(Chunk("GGRP", kPoints + kOneTriangle),
                           static_cast<std::uint32_t>(kPoints.size() + kOneTriangle.size() + 8));
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const ReadBack read(whole.substr(0, size));
    if (size < 25) {
      EXPECT_NE(read.problem, "") << size;
    }
    EXPECT_LE(read.scene.NumTris(), 3);
  }
  for (std::size_t at = 0; at < whole.size(); ++at)
    for (const int flip : {1, 0x80, 0xff}) {
      std::string bent = whole;
      bent[at] = static_cast<char>(bent[at] ^ flip);
      const ReadBack read(bent);
      EXPECT_LE(read.scene.NumPts(), 300);
    }
}

}  // namespace
