// Project files: what is read is written, what isn't understood is kept, what is wrong is told, and clips.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <set>

#include "core/random.h"
#include "core/xml.h"
#include "host/base/log.h"
#include "host/base/session_context.h"
#include "host/node/class_pool.h"
#include "host/node/node_data.h"
#include "host/project/camera.h"
#include "host/project/project_file.h"

namespace {

/// Gathers messages as "path|parameter|text".
struct Messages {
  Messages() { ovhost::SetLogSink(&Take, this); }
  ~Messages() { ovhost::SetLogSink(nullptr, nullptr); }
  static void Take(void* self, const ovhost::LogRecord& record) {
    auto& list = record.level == ovhost::LogLevel::kError ? static_cast<Messages*>(self)->errors
                                                          : static_cast<Messages*>(self)->warnings;
    list.push_back(record.node + "|" + record.parameter + "|" + record.text);
  }
  std::vector<std::string> errors, warnings;
};

/// Declares a parameter only when it is created, another twice, and keeps a custom block.
class LateNode : public trBase {
 public:
  LateNode() {
    Param(twice_, "twice", 1.0);
    Param(twice_, "twice", 1.0);
  }
  long OnCreate() override {
    atCreation_ = twice_;
    Param(late_, "late", {1, 2, 3});
    return trBase::OnCreate();
  }
  long OnFirstCreate() override { return SetParam("twice", 99.0, this); }
  void WriteXMLCustomData(trString indent, trString& out) override {
    if (!note_.empty()) out += indent + "<note by=\"" + by_ + "\">" + note_ + "</note>\n";
  }
  void EnteredXMLCustomData() override { note_.clear(); }
  void HandleXMLCustomElement(const trString&, const char** attributes) override {
    isInside_ = true;
    if (attributes[0]) by_ = attributes[1];
  }
  void HandleXMLCustomElementClosed(const trString&) override { isInside_ = false; }
  void HandleXMLCustomCharacterData(const trString& text) override {
    if (isInside_) note_ += text;
  }

  double twice_ = 0, atCreation_ = 0;
  trVector late_;
  std::string note_, by_;
  bool isInside_ = false;
};

void RegisterClasses() {
  static const bool done = [] {
    ovhost::RegisterHostClasses();
    ovhost::RegisterHostClass("hidden", "project_test_late", trCreateNode<LateNode>, trDestroyNode);
    return true;
  }();
  EXPECT_TRUE(done);
}

std::unique_ptr<juProject> Parsed(const std::string& body) {
  RegisterClasses();
  return ovhost::ProjectFromText("<ombrivex_project>\n" + body + "</ombrivex_project>\n", "test.ovd");
}

std::string Folder() {
  const auto folder =
      std::filesystem::temp_directory_path() / ("ov_project_test_" + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  return folder.string();
}

TEST(ProjectFile, WhatIsNotUnderstoodComesBackWithAWarningEach) {
  Messages messages;
  const std::string block = "<from_elsewhere name=\"F\" a='1'>\n  <!-- kept -->&lt;<deep/></from_elsewhere>";
  const auto project = Parsed(
      "<group name=\"G\" who_knows=\"a &lt; &quot;b&quot;&#10;\">" + block +
      "<gone/></group><between/>\n<sunlight name=\"S\"><animation><curve param=\"nothing\" keys=\"1 2\"/>"
      "</animation></sunlight>\n");
  ASSERT_TRUE(project);
  EXPECT_EQ(messages.errors.size(), 0u);
  ASSERT_EQ(messages.warnings.size(), 5u);
  for (const char* expected :
       {"test.ovd:2: the attribute 'who_knows'", "test.ovd:2: the class 'from_elsewhere'",
        "test.ovd:3: the class 'gone'", "test.ovd:4: the animated parameter 'nothing'"}) {
    int found = 0;
    for (const std::string& warning : messages.warnings) found += warning.find(expected) != std::string::npos;
    EXPECT_EQ(found, 1) << expected;
  }
  const std::string once = ovhost::ProjectToText(*project);
  EXPECT_NE(once.find(block), std::string::npos);
  EXPECT_LT(once.find("<between/>"), once.find("name=\"S\"")) << "moved among its siblings";
  EXPECT_NE(once.find("who_knows=\"a &lt; &quot;b&quot;&#10;\""), std::string::npos);
  EXPECT_NE(once.find("<curve param=\"nothing\" keys=\"1 2\"/>"), std::string::npos);
  const auto again = ovhost::ProjectFromText(once, "again.ovd");
  ASSERT_TRUE(again);
  EXPECT_EQ(ovhost::ProjectToText(*again), once);
}

TEST(ProjectFile, LoadedNodesAreCreatedButNotFirstCreated) {
  Messages messages;
  const auto project = Parsed(
      "<project_test_late name=\"L\" late=\"4 5 6\" twice=\"7\">\n"
      "<custom><note by=\"me\">a note</note></custom>\n"
      "<animation><curve param=\"late\" component=\"2\" mode=\"linear\" keys=\"1 0 3 8\"/></animation>\n"
      "</project_test_late>\n");
  ASSERT_TRUE(project);
  auto& node = dynamic_cast<LateNode&>(*project->Child(0));
  EXPECT_EQ(node.atCreation_, 7);
  EXPECT_EQ(node.twice_, 7);
  EXPECT_EQ(node.late_, trVector(4, 5, 6));
  EXPECT_EQ(node.note_, "a note");
  EXPECT_TRUE(messages.errors.empty() && messages.warnings.empty());
  const std::string text = ovhost::ProjectToText(*project);
  EXPECT_EQ(text.find("twice="), text.rfind("twice="));
  ovhost::UpdateAnimation(project.get(), 2);
  EXPECT_EQ(node.late_, trVector(4, 5, 4));
  const auto again = ovhost::ProjectFromText(text, "again.ovd");
  ASSERT_TRUE(again);
  EXPECT_EQ(ovhost::ProjectToText(*again), text);
}

TEST(ProjectFile, BadDocumentsCostOneMessageWithFileAndLine) {
  RegisterClasses();
  std::string deep = "<ombrivex_project>", many = "<ombrivex_project>\n<group", wide;
  for (int i = 0; i < 10000; ++i) deep += "<group>";
  for (int i = 0; i < 70000; ++i) many += " a" + std::to_string(i) + "=\"\"";
  for (const char c : std::string("<ombrivex_project/>")) wide += {c, '\0'};
  const std::pair<std::string, std::string> cases[] = {
      {"", "t.ovd:1: "},
      {"hello", "t.ovd:1: "},
      {std::string(64, '\0'), "t.ovd:1: "},
      {wide, "t.ovd:1: "},
      {"<ombrivex_project>\n<group>", "t.ovd:2: "},
      {"<ombrivex_project>\n<group name=\"a\" name=\"b\"/></ombrivex_project>", "t.ovd:2: "},
      {"<ombrivex_project>\n<group name=\"\xff\"/></ombrivex_project>", "t.ovd:2: "},
      {"<scene/>", "t.ovd:1: the document is a 'scene'"},
      {"<!DOCTYPE a [<!ENTITY b \"c\">]>\n<ombrivex_project name=\"&b;\"/>",
       "t.ovd:1: document type declarations are not allowed"},
      {deep, "t.ovd:1: elements are nested more than 256 deep"},
      {many + "/></ombrivex_project>", "t.ovd:2: an element has more than 65536 attributes"},
      {"<ombrivex_project>\n<camera><animation><curve param=\"position\" "
       "component=\"3\"/></animation></camera>"
       "</ombrivex_project>",
       "t.ovd:2: '3' is no component"},
      {"<ombrivex_project>\n<camera><animation><curve param=\"position\" keys=\"2 0 1 "
       "0\"/></animation></camera>"
       "</ombrivex_project>",
       "t.ovd:2: the keys of a curve are not in rising order"},
  };
  for (const auto& [text, expected] : cases) {
    Messages messages;
    EXPECT_FALSE(ovhost::ProjectFromText(text, "t.ovd"));
    ASSERT_EQ(messages.errors.size(), 1u) << expected;
    EXPECT_NE(messages.errors[0].find(expected), std::string::npos) << messages.errors[0];
  }
}

TEST(ProjectFile, EveryBadValueIsToldWithItsPlace) {
  Messages messages;
  EXPECT_FALSE(
      Parsed("<camera name=\"C\"\n position=\"1 nan 3\"\n field_of_view=\"inf\"\n lens_mode=\"1.5\"\n"
             " near_clip=\"1e999\" use_target=\"\"/>\n<sunlight name=\"S\" colour=\"1 2\"/>\n"));
  const char* const expected[] = {
      "/C|position|test.ovd:3: '1 nan 3' is not a value of type vector",
      "/C|field_of_view|test.ovd:4: 'inf' is not a value of type double",
      "/C|lens_mode|test.ovd:5: '1.5' is not a value of type int; there are 0 Field of view, 1 Focal length",
      "/C|near_clip|test.ovd:6: '1e999' is not a value of type double",
      "/C|use_target|test.ovd:6: '' is not a value of type bool",
      "/S|colour|test.ovd:7: '1 2' is not a value of type colour",
  };
  ASSERT_EQ(messages.errors.size(), std::size(expected));
  // In the order in which nodes declare their parameters.
  for (const char* line : expected)
    EXPECT_EQ(std::count(messages.errors.begin(), messages.errors.end(), line), 1);
}

TEST(ProjectFile, NamesOfOlderVersionsSetTheParametersOfToday) {
  RegisterClasses();
  if (!ovhost::FindClass("planet")) ovhost::LoadPlugins();
  const struct {
    const char *className, *value;
    std::vector<std::pair<const char*, const char*>> names;  ///< old and present
  } rows[] = {
      {"planet", "1 2 3", {{"center", "centre"}, {"rotate", "rotation"}}},
      {"planet_atmosphere",
       "0.25 0.5 0.75",
       {{"haze_horizon_color", "haze_horizon_colour"},
        {"bluesky_horizon_color", "bluesky_horizon_colour"},
        {"bluesky_density_color", "bluesky_density_colour"},
        {"center", "centre"}}},
      {"planet_atmosphere", "900", {{"exp_height", "haze_exp_height"}, {"exp_height", "bluesky_exp_height"}}},
      {"planet_surface_shader",
       "0.25 0.5 0.75",
       {{"lowland_color", "lowland_colour"},
        {"rocky_lowland_color", "rocky_lowland_colour"},
        {"highland_color", "highland_colour"},
        {"rocky_highland_color", "rocky_highland_colour"},
        {"snow_color", "snow_colour"},
        {"ambient_light_color", "ambient_light_colour"},
        {"ocean_decay_color", "ocean_decay_colour"}}},
      {"power_fractal_shader_v3",
       "0.25 0.5 0.75",
       {{"high_color", "high_colour"}, {"low_color", "low_colour"}}},
      {"power_fractal_shader_v3",
       "0",
       {{"apply_high_color", "apply_high_colour"},
        {"apply_low_color", "apply_low_colour"},
        {"clamp_high_color", "clamp_high_colour"},
        {"clamp_low_color", "clamp_low_colour"}}},
      {"power_fractal_shader_v3",
       "0.375",
       {{"color_contrast", "colour_contrast"},
        {"color_offset", "colour_offset"},
        {"color_roughness", "colour_roughness"}}},
      {"lambert_shader", "0.25 0.5 0.75", {{"diffuse_color", "diffuse_colour"}}},
      {"lambert_shader", "1", {{"use_existing_color", "use_existing_colour"}}},
      {"surface_layer", "2.5", {{"displacement", "displacement_offset"}}},
      {"surface_layer", "/X", {{"surface_layers", "child_layers"}}},
      {"distribution_shader_v3", "/X", {{"surface_layers", "child_layers"}}},
      {"distribution_shader_v4", "/X", {{"surface_layers", "child_layers"}}},
      {"distribution_shader_v3", "0.25 0.5 0.75", {{"diffuse_color", "colour"}}},
      {"distribution_shader_v4", "0.25 0.5 0.75", {{"diffuse_color", "colour"}}},
  };
  for (const auto& row : rows)
    for (const auto& [old, present] : row.names) {
      Messages messages;
      const auto project =
          Parsed("<" + std::string(row.className) + " name=\"N\" " + old + "=\"" + row.value + "\"/>");
      ASSERT_TRUE(project) << old;
      EXPECT_TRUE(messages.errors.empty()) << row.className << " " << old;
      for (const std::string& warning : messages.warnings)
        EXPECT_EQ(warning.find("is unknown"), std::string::npos) << warning;
      long index = -1;
      trString value;
      ASSERT_TRUE(project->Child(0)->FindParam(index, present)) << present;
      project->Child(0)->GetStringFromParam(index, value, nullptr);
      EXPECT_EQ(value, row.value) << row.className << " " << old;
      EXPECT_EQ(ovhost::ProjectToText(*project).find(" " + std::string(old) + "="), std::string::npos) << old;
    }
  // Names that mean nothing any more are dropped where they meant nothing.
  for (const char* gone :
       {"sample_jitter=\"1\"", "pre-apply_atmosphere=\"0\"", "post-apply_atmosphere_name=\"\""}) {
    Messages messages;
    const auto project = Parsed("<planet_atmosphere name=\"N\" " + std::string(gone) + "/>");
    EXPECT_TRUE(project && messages.warnings.empty()) << gone;
    EXPECT_EQ(ovhost::ProjectToText(*project).find("_jitter"), std::string::npos);
  }
  Messages messages;
  const auto kept = Parsed("<planet_atmosphere name=\"N\" sample_jitter=\"2\"/>");
  EXPECT_EQ(messages.warnings.size(), 1u);
  EXPECT_NE(ovhost::ProjectToText(*kept).find("sample_jitter=\"2\""), std::string::npos);
}

/// Values other than the defaults, as far as text can make them of any type.
std::vector<std::string> OtherValues(trBase& node) {
  std::vector<std::string> attributes;
  std::set<std::string> names;
  for (long i = 0; i < node.NumParams(); ++i) {
    if (!names.insert(node.ParamName(i)).second) continue;
    trString text;
    const trParamType type = node.ParamType(i);
    double number = 0;
    if (node.GetParam(i, number)) {
      if (type == trParamType::kBool) text = number != 0 ? "0" : "1";
      if (type == trParamType::kInt) text = ovhost::ValueToText(std::floor(number) + 1);
      if (text.empty()) text = ovhost::ValueToText(number * 1.5 + 0.25);
    } else {
      if (type >= trParamType::kString) continue;
      node.GetStringFromParam(i, text, nullptr);
      if (type == trParamType::kColour) text = "0.5 0.25 0.125";
    }
    attributes.push_back(" " + trString(node.ParamName(i)) + "=\"" + text + "\"");
  }
  return attributes;
}

TEST(ProjectFile, TheOrderOfAttributesDoesNotMatter) {
  RegisterClasses();
  if (!ovhost::FindClass("planet")) ovhost::LoadPlugins();
  Messages messages;
  std::set<std::string> seen;
  std::mt19937 random(1);
  for (const ovhost::CatalogueEntry& entry : ovhost::Catalogue()) {
    if (entry.className == "ombrivex_project" || !seen.insert(entry.className).second) continue;
    juProject project;
    std::vector<std::string> attributes = OtherValues(*ovhost::CreateNode(entry.className, &project, ""));
    const auto loaded = [&] {
      std::string text = "<" + entry.className + " name=\"N\"";
      for (const std::string& attribute : attributes) text += attribute;
      const auto parsed = Parsed(text + "/>");
      EXPECT_TRUE(parsed) << entry.className;
      return parsed ? ovhost::ProjectToText(*parsed) : std::string();
    };
    const std::string inOrder = loaded();
    std::reverse(attributes.begin(), attributes.end());
    EXPECT_EQ(loaded(), inOrder) << entry.className;
    for (int i = 0; i < 3; ++i) {
      std::shuffle(attributes.begin(), attributes.end(), random);
      EXPECT_EQ(loaded(), inOrder) << entry.className;
    }
  }
  EXPECT_GT(seen.size(), 60u);
  EXPECT_TRUE(messages.errors.empty()) << messages.errors[0];
}

TEST(ProjectFile, OctavesFollowTheLeadInWhereverItIsWritten) {
  if (!ovhost::FindClass("planet")) ovhost::LoadPlugins();
  for (const char* order : {"lead-in_scale=\"8000\" smallest_scale=\"0.5\" noise_octaves=\"20\"",
                            "noise_octaves=\"20\" smallest_scale=\"0.5\" lead-in_scale=\"8000\""}) {
    const auto project = Parsed(std::string("<power_fractal_shader_v3 name=\"F\" ") + order + "/>");
    long octaves = 0;
    ASSERT_TRUE(project->Child(0)->GetParam("noise_octaves", octaves));
    EXPECT_EQ(octaves, 20) << order;
  }
}

TEST(ProjectFile, AMissingSeedIsThePathsAtEveryLoad) {
  RegisterClasses();
  if (!ovhost::FindClass("planet")) ovhost::LoadPlugins();
  const auto seeds = [](const std::string& body) {
    const auto project = Parsed(body);
    std::vector<long> found;
    const trBase& group = *project->Child(0);
    for (long i = 0; i < group.NumChildren(); ++i) {
      found.push_back(-1);
      group.Child(i)->GetParam("seed", found.back());
    }
    return found;
  };
  const char* const classes[] = {"power_fractal_shader_v3", "heightfield_generate", "water_shader",
                                 "planet_surface_shader"};
  std::string bare = "<group name=\"G\">", given = bare;
  for (const char* name : classes) {
    bare += "<" + std::string(name) + " name=\"" + name + "\"/><" + name + " name=\"" + name + " 2\"/>";
    given += "<" + std::string(name) + " name=\"" + name + "\" seed=\"77\"/>";
  }
  const std::vector<long> first = seeds(bare + "</group>");
  trNewSeed();
  EXPECT_EQ(seeds(bare + "</group>"), first) << "another load, other seeds";
  const std::set<long> different(first.begin(), first.end());
  EXPECT_EQ(different.size(), first.size()) << "nodes of different paths have the same seed";
  for (const long seed : first) EXPECT_TRUE(seed >= 0 && seed <= 0xffff) << seed;
  EXPECT_EQ(seeds(given + "</group>"), std::vector<long>(std::size(classes), 77));
}

TEST(ProjectFile, SiblingsOfOneNameAreToldApart) {
  Messages messages;
  const auto project = Parsed("<group name=\"G\"/><group name=\"G\"/><camera name=\"a/b\"/>\n");
  ASSERT_TRUE(project);
  EXPECT_EQ(messages.warnings.size(), 2u);
  EXPECT_EQ(project->Child(0)->Name(), "G");
  EXPECT_NE(project->Child(1)->Name(), "G");
}

TEST(Tree, NamesCountOnToTheFirstFreeNumber) {
  RegisterClasses();
  juProject project;
  const auto named = [&project](const char* wanted) {
    return ovhost::CreateNode("group", &project, wanted)->Name();
  };
  for (const char* expected : {"Rock", "Rock 02", "Rock 03", "Rock 04"}) EXPECT_EQ(named("Rock"), expected);
  project.DestroyChild("Rock 03", false);
  EXPECT_EQ(project.NodeByPath("Rock 03"), nullptr);
  EXPECT_EQ(named("Rock 02"), "Rock 03");
  EXPECT_EQ(named("Rock"), "Rock 05");

  trBase* const last = project.NodeByPath("Rock 05");
  last->SetName("Rock 02");  // its own name is free to it
  EXPECT_EQ(last->Name(), "Rock 05");
  project.NodeByPath("Rock")->SetName("Stone");
  EXPECT_EQ(project.NodeByPath("Rock"), nullptr);
  EXPECT_EQ(project.NodeByPath("Stone"), project.Child(0));
  last->SetName("Rock");
  EXPECT_EQ(project.NodeByPath("Rock"), last);
  EXPECT_EQ(named("Rock"), "Rock 05");
}

TEST(ProjectFile, EveryClassComesBackAsItWasSaved) {
  RegisterClasses();
  if (!ovhost::FindClass("planet")) ovhost::LoadPlugins();
  Messages messages;
  const double awkward[] = {0.1, -1.0 / 3.0, 6.02214076e23, 4.9e-324, std::numeric_limits<double>::max()};
  juProject project;
  for (const ovhost::CatalogueEntry& entry : ovhost::Catalogue()) {
    if (entry.className == "ombrivex_project") continue;
    trBase* node = ovhost::CreateNode(entry.className, &project, "");
    ASSERT_TRUE(node) << entry.className;
    node->OnCreate();
    if (!entry.module.empty()) {  // couplings change what is set, so these are saved as they are made new
      node->OnFirstCreate();
      continue;
    }
    for (long i = 0; i < node->NumParams(); ++i) {
      const double x = awkward[i % 5];
      const float f = static_cast<float>(awkward[i % 3]);
      const trParamType type = node->ParamType(i);
      if (type == trParamType::kDouble) node->SetParam(i, x, trWhoSystem);
      if (type == trParamType::kVector) node->SetParam(i, trVector(x, -x, 1), trWhoSystem);
      if (type == trParamType::kColour) node->SetParam(i, trManRgb(f, -f, 0.1f), trWhoSystem);
      if (type >= trParamType::kString) node->SetParam(i, "<\"&\n\t'é", trWhoSystem);
    }
  }
  const std::string folder = Folder(), path = folder + "/all.ovd";
  ASSERT_EQ(ovhost::SaveProject(project, path), "");
  const auto loaded = ovhost::LoadProject(path);
  ASSERT_TRUE(loaded);
  EXPECT_TRUE(messages.errors.empty());
  for (const std::string& warning : messages.warnings)  // old classes say that they are
    EXPECT_TRUE(warning.find("deprecated class") != std::string::npos ||
                warning.find("Use a Heightfield shader instead.") != std::string::npos)
        << warning;
  ASSERT_EQ(loaded->NumChildren(), project.NumChildren());
  for (long c = 0; c < project.NumChildren(); ++c)
    for (long i = 0; i < project.Child(c)->NumParams(); ++i) {
      trString before, after;
      project.Child(c)->GetStringFromParam(i, before, nullptr);
      loaded->Child(c)->GetStringFromParam(i, after, nullptr);
      EXPECT_EQ(before, after) << project.Child(c)->ClassName() << " " << project.Child(c)->ParamName(i);
    }
  EXPECT_EQ(loaded->Folder(), folder);
  EXPECT_EQ(ovhost::ProjectToText(*loaded), ovhost::ProjectToText(project));
  std::filesystem::remove_all(folder);
}

TEST(ProjectFile, AFailedSaveLeavesTheOldFileWhole) {
  const auto project = Parsed("<group name=\"G\"/>\n");
  const std::string folder = Folder(), target = folder + "/taken.ovd";
  std::filesystem::create_directories(target + "/inside");
  EXPECT_NE(ovhost::SaveProject(*project, target), "");
  EXPECT_NE(ovhost::SaveProject(*project, "/dev/full/x.ovd"), "");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 1) << "a temporary file is left";
  std::filesystem::remove_all(folder);
}

TEST(Clips, PastedNodesAreRenamedAndStillLinkedToEachOther) {
  Messages messages;
  const auto project =
      Parsed("<add name=\"A\" constant_a=\"1\"/><mix name=\"M\" input_a=\"A\" input_b=\"/A\"/>\n");
  ASSERT_TRUE(project);
  const trString clip = trBaseXML::GetClip({project->Child(0), project->Child(1)});
  ASSERT_TRUE(trBaseXML::ReadBuffer(project.get(), clip));
  ASSERT_EQ(project->NumChildren(), 4);
  for (long original : {1L, 3L})
    for (const char* param : {"input_a", "input_b"}) {
      trString link;
      project->Child(original)->GetParam(param, link);
      EXPECT_EQ(project->NodeByPath(link), project->Child(original - 1)) << original << " " << param;
    }
  EXPECT_TRUE(messages.errors.empty() && messages.warnings.empty());

  // A clip that breaks off leaves nothing behind, and its own element sets nothing on the parent.
  EXPECT_FALSE(trBaseXML::ReadBuffer(project.get(), clip.substr(0, clip.size() - 20)));
  EXPECT_EQ(project->NumChildren(), 4);
  EXPECT_TRUE(trBaseXML::ReadBuffer(project.get(), "<ombrivex_clip start_frame=\"50\"/>"));
  EXPECT_EQ(project->GetStartFrame(), 1);
}

TEST(HostNodes, ANewProjectTellsOfAMissingModuleOrLoadsBack) {
  RegisterClasses();
  Messages messages;
  const auto project = ovhost::NewDefaultProject();
  if (!ovhost::FindClass("planet")) {
    EXPECT_FALSE(project);
    ASSERT_EQ(messages.errors.size(), 1u);
    EXPECT_NE(messages.errors[0].find("'planet'"), std::string::npos);
    return;
  }
  ASSERT_TRUE(project);
  const std::string text = ovhost::ProjectToText(*project);
  const auto again = ovhost::ProjectFromText(text, "new.ovd");
  ASSERT_TRUE(again);
  EXPECT_EQ(ovhost::ProjectToText(*again), text);
  ASSERT_TRUE(again->PActiveShadableObject());
  EXPECT_TRUE(again->PActiveShadableObject()->IsTrue("is_planet"));
  EXPECT_TRUE(again->PActiveCameraNode());
}

TEST(HostNodes, CamerasSeeAProperFrameEverywhere) {
  for (const trVector target :
       {trVector(3, 4, 5), trVector(0, 9, 0), trVector(0, -9, 0), trVector(), trVector(0, 0, 7)})
    for (const double roll : {0.0, 30.0}) {
      trCameraNode camera;
      camera.SetParam("position", trVector(), trWhoSystem);
      camera.SetParam("use_target", 1, trWhoSystem);
      camera.SetParam("target", target, trWhoSystem);
      camera.SetParam("rotation", trVector(0, 0, roll), trWhoSystem);
      const trView view = camera.View(200, 100);
      EXPECT_NEAR(Dot(Cross(view.right, view.up), view.forward), 1, 1e-12);
      EXPECT_NEAR(view.right.Length(), 1, 1e-12);
      EXPECT_NEAR(Dot(view.forward, target), target.Length(), 1e-12);
      EXPECT_NEAR(view.tanHalfHorizontal, std::tan(M_PI / 6), 1e-12);
      EXPECT_NEAR(view.tanHalfVertical * 2, view.tanHalfHorizontal, 1e-12);
    }
}

TEST(ProjectFiles, ReadingEndsWhenItIsStopped) {
  ovhost::RegisterHostClasses();
  const std::string camera = "<camera name=\"C\"/>";
  std::atomic<bool> stop{true};
  const ovhost::StopScope scope(stop);
  const Messages messages;
  EXPECT_FALSE(ovhost::ProjectFromText("<ombrivex_project>" + camera + "</ombrivex_project>", "a.ovd"));
  juProject project;
  EXPECT_FALSE(trBaseXML::ReadBuffer(&project, "<ombrivex_clip>" + camera + "</ombrivex_clip>"));
  EXPECT_EQ(project.NumChildren(), 0);
  EXPECT_EQ(messages.errors.size(), 2u);
  stop = false;
  EXPECT_TRUE(trBaseXML::ReadBuffer(&project, "<ombrivex_clip>" + camera + "</ombrivex_clip>"));
  EXPECT_EQ(project.NumChildren(), 1);
}

}  // namespace
