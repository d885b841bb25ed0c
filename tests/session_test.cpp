// Sessions: finding and changing nodes as a user names them, lists of frames, points to evaluate at.
#include <filesystem>
#include <fstream>
#include <sstream>

#include "host/node/node_data.h"
#include "host/project/project_file.h"
#include "host/session/evaluator.h"
#include "host/session/frames.h"
#include "host/session/session.h"
#include "tests/shading_fixture.h"
#include "tests/temp_file.h"

namespace {

using ovhost::SessionError;

/// What a call throws, or -1.
template <typename Call>
int ErrorOf(const Call& call) {
  try {
    call();
  } catch (const SessionError& error) {
    return error.Cause();
  }
  return -1;
}

std::unique_ptr<ovhost::Session> NewSession() {
  ovhost::LoadModules();
  return std::make_unique<ovhost::Session>(ovhost::NewDefaultProject());
}

TEST(Session, FindsByPathAndByLoneName) {
  const auto session = NewSession();
  trBase* planet = session->Project().NodeByPath("Planet 01");
  trBase* first = planet->CreateChild("power_fractal_shader_v3");
  EXPECT_EQ(&session->Find(first->NameAndPath()), first);
  EXPECT_EQ(&session->Find(first->Name()), first);
  trBase* second = session->Project().NodeByPath("Camera")->CreateChild("power_fractal_shader_v3");
  second->SetName(first->Name());
  EXPECT_EQ(ErrorOf([&] { session->Find(first->Name()); }), SessionError::kFailed);
  EXPECT_EQ(&session->Find(second->NameAndPath()), second);
  EXPECT_EQ(ErrorOf([&] { session->Find("Nobody"); }), SessionError::kFailed);
}

TEST(Session, AssignsFromTextAndJson) {
  const auto session = NewSession();
  trBase& camera = session->Find("Camera");
  const std::uint64_t before = session->Hash();
  session->Assign("Camera.field_of_view=41.5");
  session->AssignJson(R"({"Camera.position": [1, 2.5, -3], "Render": {"samples": 7, "denoise": true}})",
                      "test");
  trVector position;
  double view = 0;
  long samples = 0;
  camera.GetParam("position", position);
  camera.GetParam("field_of_view", view);
  session->Find("Render").GetParam("samples", samples);
  EXPECT_EQ(position, trVector(1, 2.5, -3));
  EXPECT_EQ(view, 41.5);
  EXPECT_EQ(samples, 7);
  EXPECT_NE(session->Hash(), before);

  const std::uint64_t after = session->Hash();
  std::string deep = "{\"Camera.position\": ";
  for (int i = 0; i < 200000; ++i) deep += '[';
  const struct {
    std::string json;
    int error;
  } rows[] = {{"[1, 2]", SessionError::kInvalidProject},
              {"{\"Camera.position\": [1, 2", SessionError::kInvalidProject},
              {deep, SessionError::kInvalidProject},
              {R"({"Camera.position": [[1, 2], 3]})", SessionError::kBadRequest},
              {R"({"Camera": {"position": {"x": [1]}}})", SessionError::kBadRequest},
              {R"({"Camera.position": null})", SessionError::kBadRequest},
              {R"({"Camera": 5})", SessionError::kBadRequest},
              {R"({"Camera.no_such": 5})", SessionError::kFailed},
              {R"({"Camera.field_of_view": "wide"})", SessionError::kFailed}};
  for (const auto& row : rows)
    EXPECT_EQ(ErrorOf([&] { session->AssignJson(row.json, "test"); }), row.error) << row.json.substr(0, 60);
  for (const char* text : {"Camera.field_of_view", "field_of_view=3", ".x=3", "Camera.=3"})
    EXPECT_EQ(ErrorOf([&] { session->Assign(std::string(text)); }), SessionError::kBadRequest) << text;
  EXPECT_EQ(session->Hash(), after);
}

TEST(Session, KnowsWhenAFileChanges) {
  const auto session = NewSession();
  const std::string path = TempFile("texture.bin");
  std::ofstream(path) << "one";
  trBase& planet = session->Find("Planet 01");
  planet.CreateChild("image_map_shader")->SetParam("image_filename", path, trWhoSystem, false);
  const std::uint64_t key = session->SceneKey(), hash = session->Hash();
  EXPECT_EQ(session->SceneKey(), key);
  const auto time = std::filesystem::last_write_time(path);
  std::ofstream(path) << "two";
  std::filesystem::last_write_time(path, time);
  EXPECT_NE(session->SceneKey(), key);
  EXPECT_EQ(session->Hash(), hash);
  std::ofstream(path) << "one";
  EXPECT_EQ(session->SceneKey(), key);
  std::filesystem::remove(path);
  EXPECT_NE(session->SceneKey(), key);
}

TEST(Session, ListsFrames) {
  EXPECT_EQ(ovhost::ParseFrames("1-4,20-40x10,3,7-5"), (std::vector<long>{1, 2, 3, 4, 20, 30, 40, 7, 6, 5}));
  EXPECT_EQ(ovhost::ParseFrames("-2-1"), (std::vector<long>{-2, -1, 0, 1}));
  for (const char* text : {"", "1-", "1-5x0", "1,,2", "a", "1-2000000", "1-5x-1", "99999999999999999999"})
    EXPECT_EQ(ErrorOf([&] { ovhost::ParseFrames(text); }), SessionError::kBadRequest) << text;
  EXPECT_EQ(ovhost::FramePath("a#b/out_####.%03d.png", 12), "a#b/out_0012.012.png");
  EXPECT_FALSE(ovhost::HasFramePlace("a#b/out.png"));
}

TEST(Session, EvaluatesPointsAlikeOnAnyNumberOfThreads) {
  const auto session = NewSession();
  trBase& node = *session->Find("Planet 01").CreateChild("power_fractal_shader_v3");
  auto& shader = dynamic_cast<trShader&>(node);
  std::stringstream text("x,y,z\n# comment\n");
  text << "x,y,z\n";
  for (int i = 0; i < 3000; ++i) text << i * 37 << ", 0 ; " << i * -11 << "\n";
  const ovhost::PointList list = ovhost::ReadPoints(text, "test");
  ASSERT_EQ(list.points.size(), 3000u);
  std::vector<ovhost::EvalResult> results[2];
  for (const int threads : {1, 4}) {
    ovhost::SetNumThreads(threads);
    results[threads / 4] = ovhost::Evaluator(session->Project(), shader, 0).Evaluate(list.points);
  }
  ovhost::SetNumThreads(0);
  int different = 0;
  for (size_t i = 0; i < list.points.size(); ++i)
    different += results[0][i].displacement != results[1][i].displacement ||
                 results[0][i].scalar != results[1][i].scalar;
  EXPECT_EQ(different, 0);
  EXPECT_NE(results[0][0].displacement, results[0][1].displacement);
}

}  // namespace
