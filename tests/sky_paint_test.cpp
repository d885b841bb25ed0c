// Paint on the sky: where directions meet faces, paint in projects, what the solver makes of it, and merges.
#include <atomic>
#include <cmath>
#include <cstring>
#include <random>
#include <thread>

#include "atmosphere/sky_paint.h"
#include "atmosphere/sky_paint_calibration.h"
#include "core/xml.h"
#include "host/base/log.h"
#include "host/project/project_file.h"
#include "tests/shading_fixture.h"

namespace {

using Face = trSkyPaintFace;

struct Errors {
  Errors() { ovhost::SetLogSink(&Take, this); }
  ~Errors() { ovhost::SetLogSink(nullptr, nullptr); }
  static void Take(void* self, const ovhost::LogRecord& record) {
    if (record.level == ovhost::LogLevel::kError) static_cast<Errors*>(self)->list.push_back(record.text);
  }
  std::vector<std::string> list;
};

trSkyPaintStore& StoreOf(trBase& node) {
  return *static_cast<trSkyPaintStore*>(node.RequestMember("sky paint store"));
}

/// Puts a viewpoint in use whose faces are `side` pixels of one colour.
void Paint(trBase& node, int index, const trVector& position, const trFCol& colour, int side = 2) {
  trSkyPaintStore& store = StoreOf(node);
  const trSkyPaintGuard::Writer writer(store.guard);
  trSkyPaintStore::Record& record = store.records[static_cast<std::size_t>(index)];
  record.isInUse = true;
  record.position = position;
  for (trFImage& face : record.face) {
    ASSERT_TRUE(face.Init(0, 0, side, side));
    auto* pixel = reinterpret_cast<float*>(face.pixels);
    for (int i = 0; i < side * side; ++i, pixel += 4) {
      pixel[0] = colour.r;
      pixel[1] = colour.g;
      pixel[2] = colour.b;
      pixel[3] = 1;
    }
  }
}

trFCol ColourAt(const SkyPaintBase& paint, const trVector& point, long index) {
  trShadingInterface si;
  si.P() = point;
  trFCol colour(7.0f);
  paint.Sample(colour, si, index);
  return colour;
}

void ExpectColour(const trFCol& a, const trFCol& b) {
  EXPECT_NEAR(a.r, b.r, 1e-6);
  EXPECT_NEAR(a.g, b.g, 1e-6);
  EXPECT_NEAR(a.b, b.b, 1e-6);
}

// ---------------------------------------------------------------------------------------------------------------

TEST(SkyPaintFaces, EdgesAndCornersGoToTheFirstFaceOfTheirOrder) {
  const struct {
    trVector direction;
    Face face;
  } cases[] = {{{0, 0, 2}, Face::kNorth},     {{0, 0, -2}, Face::kSouth},  {{3, 0, 0}, Face::kEast},
               {{-3, 0, 0}, Face::kWest},     {{0, 4, 0}, Face::kUp},      {{0, -4, 0}, Face::kDown},
               {{1, 1, 1}, Face::kNorth},     {{-1, -1, 1}, Face::kNorth}, {{1, 1, -1}, Face::kSouth},
               {{-1, 1, -1}, Face::kSouth},   {{1, 1, 0.5}, Face::kEast},  {{-1, 1, 0.5}, Face::kWest},
               {{-1, -1, -0.5}, Face::kWest}, {{0.5, 1, 0.9}, Face::kUp},  {{1, -1, 0}, Face::kEast},
               {{0, 0, 0}, Face::kNone},      {{0, NAN, 1}, Face::kNone},  {{1e300, 0, 0}, Face::kNone},
               {{0, 1, -1}, Face::kSouth},    {{1e-30, 0, 0}, Face::kEast}};
  for (const auto& c : cases)
    EXPECT_EQ(trSkyPaintSpotOf(c.direction).face, c.face)
        << c.direction.x << " " << c.direction.y << " " << c.direction.z;
}

/// Axes of each face told in words: what lies at the right end of u, and at the upper end of v.
TEST(SkyPaintFaces, LieAsTheirTableSays) {
  const struct {
    Face face;
    trVector centre, right, top;
  } table[] = {
      {Face::kNorth, {0, 0, 1}, {1, 0, 0}, {0, 1, 0}}, {Face::kSouth, {0, 0, -1}, {-1, 0, 0}, {0, -1, 0}},
      {Face::kEast, {1, 0, 0}, {0, 0, -1}, {0, 1, 0}}, {Face::kWest, {-1, 0, 0}, {0, 0, 1}, {0, 1, 0}},
      {Face::kUp, {0, 1, 0}, {1, 0, 0}, {0, 0, -1}},   {Face::kDown, {0, -1, 0}, {-1, 0, 0}, {0, 0, 1}}};
  std::mt19937 random(5);
  std::uniform_real_distribution<double> slope(-0.999, 0.999), length(0.1, 1e5);
  for (const auto& row : table)
    for (int i = 0; i < 50; ++i) {
      const double a = slope(random), b = slope(random);
      const trVector direction = (row.centre + row.right * a + row.top * b) * length(random);
      const trSkyPaintSpot spot = trSkyPaintSpotOf(direction);
      ASSERT_EQ(spot.face, row.face);
      EXPECT_NEAR(spot.u, 0.5 + 0.4999 * a, 1e-6);
      EXPECT_NEAR(spot.v, 0.5 + 0.4999 * b, 1e-6);
      ExpectNear(Normalised(trSkyPaintDirection(spot)), Normalised(direction), 1e-6);
    }
}

TEST(SkyPaint, IsLookedUpFromItsViewpointsPlace) {
  SkyPaint paint;
  EXPECT_TRUE(paint.IsTrue("is_sky_paint"));
  Paint(paint, 3, {10, 20, 30}, {0.25f, 0.5f, 0.75f}, 4);
  auto* const pixel = reinterpret_cast<float*>(StoreOf(paint).records[3].face[0].pixels);
  pixel[4 * (3 * 4 + 3)] = 9;  // the northern face's upper right
  ExpectColour(ColourAt(paint, {10, 25, 30}, 3), {0.25f, 0.5f, 0.75f});
  ExpectColour(ColourAt(paint, {110, 120, 130}, 3), {9, 0.5f, 0.75f});
  ExpectColour(ColourAt(paint, {-90, 120, 130}, 3), {0.25f, 0.5f, 0.75f});
  for (const long index : {-1L, 0L, 10L}) ExpectColour(ColourAt(paint, {10, 25, 30}, index), {});
  ExpectColour(ColourAt(paint, {10, 20, 30}, 3), {});
  EXPECT_EQ(paint.Viewpoints().size(), 10u);
}

/// A writer turns all pixels from one colour to the other: who reads meanwhile sees one of them whole, or
/// black.
TEST(SkyPaint, ThreadsReadWholeFacesWhileTheyAreWritten) {
  SkyPaint paint;
  Paint(paint, 0, {}, trFCol(0.25f), 64);
  std::atomic<bool> isOver{false};
  std::atomic<long> mixed{0}, seen{0};
  std::vector<std::thread> readers;
  for (unsigned thread = 0; thread < 3; ++thread)
    readers.emplace_back([&, thread] {
      trShadingInterface si;
      si.SetThread(thread);
      for (int i = 0; !isOver; ++i) {
        si.P() = {1, std::sin(0.1 * i), std::cos(0.1 * i)};
        trFCol colour;
        paint.Sample(colour, si, 0);
        const bool isWhole = colour.r == 0 || colour.r == 0.25f || colour.r == 0.75f;
        mixed += !isWhole || colour.r != colour.g;
        ++seen;
      }
    });
  for (int i = 0; i < 300; ++i) Paint(paint, 0, {}, trFCol(i % 2 ? 0.25f : 0.75f), 64);
  while (seen < 1000) std::this_thread::yield();
  isOver = true;
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(mixed, 0);
}

// ---------------------------------------------------------------------------------------------------------------

TEST(XmlBlob, ComesBackAndRefusesWhatIsDamaged) {
  std::mt19937 random(1);
  for (const std::size_t size : {0, 1, 2, 3, 100, 70000}) {
    std::vector<unsigned char> bytes(size), back;
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random() >> 5 & 15);
    trString text;
    ASSERT_TRUE(trXML::EncodeBlobForXML(size, bytes.data(), text, 9));
    EXPECT_EQ(text.find_first_of("<>&\"' \n"), trString::npos);
    ASSERT_TRUE(trXML::DecodeBlobForXML(text, back, size)) << size;
    EXPECT_EQ(back, bytes);
    EXPECT_TRUE(trXML::DecodeBlobForXML("\n\t" + text.substr(0, 5) + " \r\n" + text.substr(5), back, size));
    EXPECT_FALSE(size > 0 && trXML::DecodeBlobForXML(text, back, size - 1));
    for (const trString& damaged :
         {text.substr(0, text.size() - 4), text + "AAAA", "!" + text, text + "=", trString()}) {
      EXPECT_FALSE(trXML::DecodeBlobForXML(damaged, back, size)) << damaged;
      EXPECT_TRUE(back.empty());
    }
  }
}

std::unique_ptr<juProject> Parsed(const std::string& text) {
  return ovhost::ProjectFromText(text, "paint.ovd");
}
std::unique_ptr<juProject> WithData(const std::string& data) {
  return Parsed("<ombrivex_project><sky_paint name=\"P\"><custom>" + data +
                "</custom></sky_paint></ombrivex_project>");
}

TEST(SkyPaintXml, ProjectsComeBackToTheByte) {
  Graph graph;
  const Errors errors;
  trBase& node = *graph.project.CreateChild("sky_paint");
  Paint(node, 1, {1234567.25, -0.5, 1e-7}, {0.1f, 1, -3}, 3);
  StoreOf(node).records[1].face[4].Cleanup();
  Paint(node, 9, {}, {}, 1);
  const std::string first = ovhost::ProjectToText(graph.project);
  for (const char* line :
       {"\n      <package_of_ovv_nodes name = \"sky_paint\">\n",
        "\n      \t<projection name = \"viewpoint_2\" idxb1 = \"2\" position = \"1.23457e+06 -0.5 1e-07\">\n",
        "\n      \t\t<cubemap name = \"cubemap_10\" version = \"1\">\n",
        "\n      \t\t\t<vec4f_array name = \"face_w\">e",
        "\n      \t\t\t<vec4f_array name = \"face_u\"></vec4f_array>\n",
        "\n      \t</projection>\n      </package_of_ovv_nodes>\n"})
    EXPECT_NE(first.find(line), std::string::npos) << line;
  const auto again = Parsed(first);
  ASSERT_TRUE(again);
  EXPECT_EQ(ovhost::ProjectToText(*again), first);
  const auto& was = StoreOf(node).records[1];
  const auto& is = StoreOf(*again->Child(0)).records[1];
  EXPECT_EQ(is.position, trVector(1234570, -0.5, 1e-7));
  ASSERT_EQ(is.face[2].width, 3);
  EXPECT_EQ(std::memcmp(is.face[2].pixels, was.face[2].pixels, 9 * 16), 0);
  EXPECT_EQ(is.face[4].width, 0);
  // What is painted after loading is what is saved.
  Paint(*again->Child(0), 9, {}, {0, 0, 0.5f}, 1);
  const auto third = Parsed(ovhost::ProjectToText(*again));
  ExpectColour(ColourAt(static_cast<SkyPaintBase&>(*third->Child(0)), {1, 0, 0}, 9), {0, 0, 0.5f});
  EXPECT_TRUE(errors.list.empty());
}

/// A cube map with one face.
std::string Projection(const std::string& blob, const std::string& face = "face_e",
                       const std::string& number = "1") {
  return "<projection idxb1=\"" + number +
         "\" position=\"0 0 0\"><cubemap version=\"1\"><vec4f_array name=\"" + face + "\">" + blob +
         "</vec4f_array></cubemap></projection>";
}
std::string Package(const std::string& inner) {
  return "<package_of_ovv_nodes name=\"a\">" + inner + "</package_of_ovv_nodes>";
}
std::string BlobOf(std::size_t bytes) {
  trString text;
  const std::vector<char> data(bytes + 1);
  trXML::EncodeBlobForXML(bytes, data.data(), text, 9);
  return text;
}

TEST(SkyPaintXml, DamagedDataCostsAMessageAndLeavesTheFaceEmpty) {
  Graph graph;
  const char* const square =
      "SkyPaint: Cannot make sense of the image resolution while loading from a file or buffer";
  const std::string good = BlobOf(4 * 16), decoded = "can't be decoded",
                    place = "makes no sense where it stands";
  const std::string twice = "<vec4f_array name=\"face_e\">" + good + "</vec4f_array>";
  const struct {
    std::string data, error;
    int side = 0;  ///< of the eastern face
  } cases[] = {
      {Package(Projection(good)), "", 2},
      {Package(Projection(BlobOf(3 * 16))), square},
      {Package(Projection(BlobOf(4 * 16 + 4))), square},
      {Package(Projection(BlobOf(0))), square},
      {Package(Projection(good.substr(0, good.size() / 2))), decoded},
      {Package(Projection("00 00 80 3f")), decoded},
      {Package(Projection("0.5 0.5 1 1")), decoded},
      {Package(Projection(good + "<vec4f_array name=\"face_n\">" + good + "</vec4f_array>")), place, 2},
      {Package(Package(Projection(good))), place},
      {Projection(good), place},
      {Package("<cubemap version=\"1\"><vec4f_array name=\"face_e\"/></cubemap>"), place},
      {Package(Projection(good) + Projection(BlobOf(16))), "viewpoint 1 is there already", 2},
      {Package(Projection(good)) + Package(Projection(BlobOf(16))), "viewpoint 1 is there already", 2},
      {Package(Projection(good + "</vec4f_array>" + twice + "<vec4f_array name=\"face_u\">")),
       "is there already", 2},
      {Package(Projection(good, "face_q")), "there is no face 'face_q'"},
      {Package(Projection(good, "face_e", "11")), "there is no viewpoint '11'"},
      {Package(Projection(good, "face_e", "0")), "there is no viewpoint '0'"},
      {Package("<projection idxb1=\"1\" position=\"0 nan 0\"/>"), "isn't three numbers"},
      {Package("<projection idxb1=\"1\" position=\"0 0 0\"><cubemap version=\"2\"/></projection>"),
       "another version"}};
  for (const auto& c : cases) {
    const Errors errors;
    const auto project = WithData(c.data);
    ASSERT_TRUE(project);
    EXPECT_EQ(errors.list.size(), c.error.empty() ? 0u : 1u) << c.data.substr(0, 300);
    const std::string told = errors.list.empty() ? "" : errors.list[0];
    EXPECT_NE(told.find(c.error), std::string::npos) << told;
    EXPECT_EQ(StoreOf(*project->Child(0)).records[0].face[1].width, c.side) << c.data.substr(0, 300);
  }
}

// ---------------------------------------------------------------------------------------------------------------

/// Paint of one colour from each viewpoint, in the upper half.
struct EvenPaint final : public SkyPaintBase {
  void Sample(trFCol& result, const trShadingInterface& si, long index) const override {
    const auto& v = list[static_cast<std::size_t>(index)];
    result = si.P().y > v.position.y ? colours[static_cast<std::size_t>(index)] : trFCol();
  }
  std::vector<trSkyPaintViewpoint> Viewpoints() override { return list; }
  std::vector<trSkyPaintViewpoint> list;
  std::vector<trFCol> colours;
};

/// Hides as much as the excess of the value over what the direction asks for.
struct RampCloud final : public SkyPaintable {
  trString PaintedName() const override { return "Ramp"; }
  static double Onset(const trVector& d) { return 1.5 + d.x; }
  float OpacityAtPaintValue(trRenderState& state, const trVector&, const trVector& d, float value) override {
    ++asked;
    draws += state.Random() < 0;
    return static_cast<float>(std::clamp((value - Onset(d)) / 4, 0.0, 1.0));
  }
  std::atomic<long> asked{0}, draws{0};
};

TEST(SkyPaintSolve, SaysNothingWithoutPaint) {
  Graph graph;
  auto& solve = graph.Add<SkyPaintSolve>("Solve");
  RampCloud cloud;
  Sample sample({0, 500, 0});
  EXPECT_TRUE(solve.Calibrate(cloud, 1, 1, nullptr));
  EXPECT_EQ(solve.FloatValueTS(sample.si), 1);
  SkyPaint paint;
  solve.Bind(&paint);
  EXPECT_TRUE(solve.Calibrate(cloud, 1, 1, nullptr));
  solve.ShadeTS(sample.si);
  ExpectColour(sample.si.Cutil(), trFCol(1.0f));
  EXPECT_EQ(cloud.asked, 0);
}

/// The cloud becomes visible (3 %) and opaque (97 %) where its ramp says; the value follows from both.
TEST(SkyPaintSolve, CombinesViewpointsByWhatTheCloudTakes) {
  Graph graph;
  EvenPaint paint;
  paint.list = {{true, {0, 100, 0}}, {false, {1, 2, 3}}, {true, {50, 0, 20}}};
  paint.colours = {{0.25f, 0.5f, 0}, {1, 1, 1}, {2, -1, 0.5f}};
  auto& solve = graph.Add<SkyPaintSolve>("Solve");
  solve.Bind(&paint);
  for (const float redOfTheLast : {2.0f, 0.125f}) {
    paint.colours[2].r = redOfTheLast;
    RampCloud cloud;
    ASSERT_TRUE(solve.Calibrate(cloud, 5, 2, nullptr));
    for (const trVector& direction :
         {trVector(0.3, 1, 0.1), trVector(-0.2, 1, -0.4), trVector(1, 0.5, 0.2)}) {
      Sample sample(trVector(0, 100, 0) + direction * 1000);
      const double onset = RampCloud::Onset(Normalised(direction));
      const double seen = onset - 1 + 0.03 * 4, opaque = onset - 1 + 0.97 * 4;
      const double red = 1 - (1 - 0.25) * (1 - std::min(1.0f, redOfTheLast)), green = 0.5;
      const double effort = 0.97 * seen + (opaque - seen) * green;
      const double expected = (1 - red) * effort + 1 - (red - green);
      EXPECT_NEAR(solve.FloatValueTS(sample.si), expected, 0.03) << redOfTheLast;
    }
    Sample below({0, -1000, 0});
    EXPECT_EQ(solve.FloatValueTS(below.si), 1);
  }
  paint.colours = {{1, 0, 0}, {}, {}};
  Sample hole({0, 1000, 0});
  EXPECT_EQ(solve.FloatValueTS(hole.si), 0);
}

TEST(SkyPaintSolve, CalibratesWhatIsNewWithAnyNumberOfThreads) {
  Graph graph;
  EvenPaint paint;
  paint.list = {{true, {}}};
  paint.colours = {{0, 0.25f, 0}};
  std::vector<float> values[2];
  for (const int threads : {1, 7}) {
    auto& solve = graph.Add<SkyPaintSolve>("Solve");
    solve.Bind(&paint);
    RampCloud cloud;
    ASSERT_TRUE(solve.Calibrate(cloud, 1, threads, nullptr));
    const long asked = cloud.asked;
    EXPECT_GT(asked, 0);
    ASSERT_TRUE(solve.Calibrate(cloud, 1, threads, nullptr));
    EXPECT_EQ(cloud.asked, asked) << "measured anew";
    for (int i = 0; i < 100; ++i) {
      Sample sample({i * 30.0 - 1500, 700, 20.0 * i});
      values[threads > 1].push_back(solve.FloatValueTS(sample.si));
    }
    ASSERT_TRUE(solve.Calibrate(cloud, 2, threads, nullptr));
    EXPECT_EQ(cloud.asked, 2 * asked) << "a changed cloud";
    paint.list[0].position = {5, 0, 0};
    ASSERT_TRUE(solve.Calibrate(cloud, 2, threads, nullptr));
    EXPECT_GT(cloud.asked, 2 * asked) << "a moved viewpoint";
    paint.list[0].position = {};
  }
  EXPECT_EQ(values[0], values[1]);
}

TEST(SkyPaintMerge, JoinsViewpointsOfOnePlaceAndKeepsOthers) {
  Graph graph;
  auto& one = graph.Add<SkyPaint>("One");
  auto& two = graph.Add<SkyPaint>("Two");
  auto& merge = graph.Add<SkyPaintMerge>("Merge");
  Paint(one, 0, {0, 2, 0}, {0.5f, 0, 0});
  Paint(two, 4, {0, 2, 0}, {0.5f, 0.25f, 0});
  Paint(two, 6, {9, 2, 0}, {0, 3, 0});
  Graph::Link(merge, "paint_1", one);
  Graph::Link(merge, "paint_2", two);
  Graph::Link(merge, "paint_3", merge);
  Graph::Link(merge, "paint_4", one);
  const auto list = merge.Viewpoints();
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[1].position, trVector(9, 2, 0));
  ExpectColour(ColourAt(merge, {5, 50, 5}, 0), {0.75f, 0.25f, 0});
  ExpectColour(ColourAt(merge, {5, 50, 5}, 1), {0, 1, 0});
  ExpectColour(ColourAt(merge, {5, 50, 5}, 2), {});
}

}  // namespace
