// Two sessions in one process: each has its own messages, progress, colours and threads, and renders what it
// renders alone.
#include <algorithm>
#include <barrier>
#include <fstream>
#include <sstream>
#include <thread>

#include "core/ocio.h"
#include "host/base/parallel.h"
#include "host/base/session_context.h"
#include "host/node/node_data.h"
#include "host/project/project_file.h"
#include "host/session/render_frame.h"
#include "host/session/session.h"
#include "tests/shading_fixture.h"
#include "tests/temp_file.h"

namespace {

/// What a session is given.
struct Work {
  std::string project, output;
  ovhost::Engine engine;
  int threads;
  bool hasColours;
};

/// What it gave back.
struct Result {
  std::vector<std::string> messages;  ///< sorted: threads may come in any order
  std::string picture;
  long errors = 0, strangers = 0, reports = 0;
  bool hasColours = false;
  int threads = 0;
};

/// Warns once, by its name, from whichever thread comes first.
class Complainer : public trSurfaceShader {
 public:
  long Shade(trShadingInterface& si) override {
    if (!hasTold.exchange(true)) {
      const trScopedErrorsWarningsContext context(this);
      trWarning("So this is the light of day.");
    }
    return trSurfaceShader::Shade(si);
  }
  std::atomic<bool> hasTold{false};
};

/// A project whose render also complains of a link that leads nowhere, and of a camera that stands at its
/// target.
std::string ProjectText(const char* link, bool isAtTarget) {
  ovhost::LoadModules();
  trFixGlobalSeed(5);
  const auto project = ovhost::NewDefaultProject();
  trBase& camera = *project->NodeByPath("Camera");
  trVector position;
  camera.GetParam("position", position);
  camera.SetParam("use_target", isAtTarget, trWhoSystem);
  if (isAtTarget) camera.SetParam("target", position, trWhoSystem);
  project->NodeByPath("Sun")->SetParam("elevation", isAtTarget ? 60.0 : 30.0, trWhoSystem);
  project->NodeByPath("Planet 01/Compute terrain 01")->SetParam("input_node", link, trWhoSystem);
  project->NodeByPath("Render")->SetParam("detail", 0.25, trWhoSystem);
  return ovhost::ProjectToText(*project);
}

/// Writes a colour configuration in which colours of files count double.
std::string ColourConfig() {
  std::string path = TempFile("two_sessions.ocio");
  std::ofstream(path)
      << "ocio_profile_version: 2\nroles: {default: raw, scene_linear: lin_rec709}\n"
         "file_rules: [!<Rule> {name: Default, colorspace: default}]\n"
         "displays: {screen: [!<View> {name: plain, colorspace: raw}]}\n"
         "colorspaces:\n  - !<ColorSpace> {name: raw}\n  - !<ColorSpace> {name: lin_rec709}\n"
         "  - !<ColorSpace>\n    name: doubled\n    to_scene_reference: !<MatrixTransform> {matrix: "
         "[2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 1]}\n";
  return path;
}

template <typename Wait>
Result RunSession(const Work& work, const Wait& waitForOther) {
  Result result;
  ovhost::SessionContext context;
  const ovhost::SessionScope scope(context);
  ovhost::SetLogSink(
      [](void* to, const ovhost::LogRecord& record) {
        static_cast<Result*>(to)->messages.push_back(record.node + ": " + record.text);
      },
      &result);
  ovhost::SetNumThreads(work.threads);
  ovhost::Session session(ovhost::ProjectFromText(work.project, "test.ovd"));
  trBase& planet = session.Find("Planet 01");
  auto* complainer = new Complainer;
  ovhost::AttachChild(&planet, complainer, work.hasColours ? "Lark" : "Owl");
  Graph::Link(*complainer, "input_node", session.Find("Compute terrain 01"));
  Graph::Link(planet, "surface_shader", *complainer);
  struct Progress {
    Result& result;
    const juProject& project;
  } progress{result, session.Project()};
  ovhost::SetProgressSink(
      [](void* to, const trBase* node, const trString&, float, float, bool) {
        auto& [into, project] = *static_cast<Progress*>(to);
        ++into.reports;
        into.strangers += node->Root() != &project;
        return true;
      },
      &progress);
  if (work.hasColours) trOcio::gProjectSettings.Set(ColourConfig(), "doubled");
  waitForOther();
  ovhost::WithThreads(work.threads, [&] {
    std::atomic<long> strange{0};
    ovhost::ParallelFor(1000, [&](size_t) {
      strange += trNumCoresToUse() != work.threads || &ovhost::SessionContext::Current() != &context ||
                 trOcio::gProjectSettings.IsActive() != work.hasColours;
    });
    result.strangers += strange;
  });
  ovhost::RenderSettings settings;
  settings.output = work.output;
  settings.engine = work.engine;
  settings.width = 48;
  settings.height = 32;
  settings.samples = 3;
  ovhost::RenderControl control;
  EXPECT_EQ(ovhost::RenderFrame(session.Project(), settings, control), ovhost::RenderOutcome::kDone);
  std::stringstream bytes;
  bytes << std::ifstream(work.output, std::ios::binary).rdbuf();
  result.picture = bytes.str();
  result.errors = ovhost::NumErrors();
  std::sort(result.messages.begin(), result.messages.end());
  return result;
}

TEST(TwoSessions, ThreadsOfEachKeepToIt) {
  const Work works[] = {
      {ProjectText("Nowhere", false), TempFile("one.png"), ovhost::Engine::kPath, 1, true},
      {ProjectText("Nobody", true), TempFile("other.png"), ovhost::Engine::kStandard, 3, false}};
  Result alone[2], beside[2];
  for (int i = 0; i < 2; ++i) alone[i] = RunSession(works[i], [] {});
  EXPECT_NE(alone[0].picture, alone[1].picture);
  for (int i = 0; i < 2; ++i) {
    EXPECT_GE(alone[i].messages.size(), 2u + i);
    EXPECT_GT(alone[i].reports, 0);
    EXPECT_EQ(alone[i].strangers, 0);
  }
  const long errorsOfProcess = ovhost::NumErrors();
  for (int round = 0; round < 3; ++round) {
    std::barrier both(2);
    std::thread other([&] { beside[0] = RunSession(works[0], [&] { both.arrive_and_wait(); }); });
    beside[1] = RunSession(works[1], [&] { both.arrive_and_wait(); });
    other.join();
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(beside[i].messages, alone[i].messages);
      EXPECT_EQ(beside[i].errors, alone[i].errors);
      EXPECT_EQ(beside[i].strangers, 0);
      EXPECT_TRUE(beside[i].picture == alone[i].picture) << i;
    }
  }
  EXPECT_EQ(ovhost::NumErrors(), errorsOfProcess);
}

}  // namespace
