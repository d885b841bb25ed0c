// Notifiers, value displays and timed triggers: when they report, what, and once when told so.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <thread>

#include "core/console.h"
#include "host/base/console.h"
#include "host/base/log.h"
#include "tests/shading_fixture.h"
#include "tests/temp_file.h"

namespace {

/// Catches messages and beeps while it lives.
struct Heard {
  Heard() {
    ovhost::SetLogSink(
        [](void* self, const ovhost::LogRecord& record) {
          static_cast<Heard*>(self)->records.push_back(record);
        },
        this);
    ovhost::SetBeeper([](void* self) { ++static_cast<Heard*>(self)->beeps; }, this);
  }
  ~Heard() {
    ovhost::SetLogSink(nullptr, nullptr);
    ovhost::SetBeeper(nullptr, nullptr);
  }
  std::vector<trString> Texts(ovhost::LogLevel level) const {
    std::vector<trString> texts;
    for (const auto& record : records)
      if (record.level == level) texts.push_back(record.text);
    return texts;
  }
  std::vector<ovhost::LogRecord> records;
  int beeps = 0;
};

/// A shader of one value, which remembers nothing and so serves any thread.
class Value : public trFunction {
 public:
  float FloatValue(trShadingInterface&) override { return number; }
  trFCol FColValue(trShadingInterface&) override { return {0.25f, 0.5f, 1234567.0f}; }
  trVector VectorValue(trShadingInterface&) override { return {-1.5, 1e-9, 100}; }
  float number = 3;
};

struct Rig {
  explicit Rig(const char* className)
      : heard(), node(graph.Shader(className)), value(graph.Add<Value>("Value")) {
    Graph::Link(node, "input_node", value);
  }
  void Set(const char* name, const trParamValue& to) {
    ASSERT_TRUE(node.SetParam(name, to, trWhoSystem)) << name;
  }
  void LinkAll() {
    for (const char* link : {"trigger_input", "colour_input", "scalar_input", "vector_input"})
      Graph::Link(node, link, value);
  }
  void Press() {
    for (const trSheetItem& item : node.Data().sheet)
      if (item.name == "reset_button") item.button->OnPressed();
  }
  float At(trRenderContext::Context context = trRenderContext::kFinal) {
    Sample sample({1, 2, 3});
    sample.si.SetRenderContext(context);
    return node.FloatValueTS(sample.si);
  }
  Heard heard;
  Graph graph;
  trShader& node;
  Value& value;
};

/// Evaluates a node many times on eight threads; the sum of its values.
float OnThreads(trShader& node, int times) {
  std::vector<std::thread> threads;
  std::atomic<float> sum{0};
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([&] {
      Sample sample({0, 0, 0});
      for (int k = 0; k < times; ++k) sum += node.FloatValueTS(sample.si);
    });
  for (std::thread& thread : threads) thread.join();
  return sum;
}

TEST(Diagnostics, PassTheirInputOn) {
  for (const char* className : {"notifier", "live_value_display"}) {
    Rig rig(className);
    rig.LinkAll();
    Sample sample({1, 2, 3});
    EXPECT_EQ(rig.node.FloatValueTS(sample.si), 3) << className;
    EXPECT_EQ(rig.node.FColValueTS(sample.si), trFCol(0.25f, 0.5f, 1234567.0f));
    EXPECT_EQ(rig.node.VectorValueTS(sample.si), trVector(-1.5, 1e-9, 100));
    rig.Set("input_node", "");
    EXPECT_EQ(rig.At(), 0);
  }
}

TEST(Diagnostics, MessagesHaveTheirTokensReplacedOnce) {
  const struct {
    const char *message, *linked, *alone;
  } rows[] = {
      {"plain $ text $$", "plain $ text $$", "plain $ text $$"},
      {"$NAME", "$SCAL of $COLR", "$SCAL of $COLR"},
      {"[$COL#]", "[rgb = 0.25 0.5 1.23457e+06]", "[]"},
      {"$COLR,$COLG,$COLB", "r=0.25,g=0.5,b=1.23457e+06", ",,"},
      {"a $SCAL b", "a 3 b", "a  b"},
      {"$VEC#;$VECX;$VECY;$VECZ", "xyz= -1.5 1e-09 100;x=-1.5;y=1e-09;z=100", ";;;"},
      {"$$SCAL$SCA", "$3$SCA", "$$SCA"},
      {"$scal $COLX", "$scal $COLX", "$scal $COLX"},
  };
  for (const auto& row : rows) {
    Rig rig("notifier");
    rig.node.SetName("$SCAL of $COLR");
    rig.Set("show_warning_message", 1);
    rig.Set("write_message_to_console", 1);
    rig.Set("warning_message", row.message);
    rig.Set("console_message", row.message);
    Graph::Link(rig.node, "trigger_input", rig.value);
    rig.At();
    rig.LinkAll();
    rig.At();
    const std::vector<trString> expected = {row.alone, row.linked};
    EXPECT_EQ(rig.heard.Texts(ovhost::LogLevel::kWarning), expected);
    EXPECT_EQ(rig.heard.Texts(ovhost::LogLevel::kMessage), expected);
    EXPECT_EQ(rig.heard.records[0].node, rig.node.NameAndPath()) << "a warning tells whose it is";
  }
  Rig rig("notifier");
  rig.LinkAll();
  rig.Set("write_message_to_console", 1);
  rig.Set("console_message", "one$NEWLtwo $SCAL");
  rig.At();
  EXPECT_EQ(rig.heard.Texts(ovhost::LogLevel::kMessage), (std::vector<trString>{"one", "two 3"}));
}

TEST(Diagnostics, ReportWhereTheTriggerIsNotZero) {
  for (const char* className : {"notifier", "live_value_display"}) {
    Rig rig(className);
    const trString doing = trString(className) == "notifier" ? "notify" : "display";
    rig.Set("beep", 1);
    Graph::Link(rig.node, "colour_input", rig.value);
    rig.At();
    EXPECT_EQ(rig.heard.beeps, 0) << "no trigger linked";
    rig.LinkAll();
    rig.value.number = 0;
    rig.At();
    EXPECT_EQ(rig.heard.beeps, 0) << "a trigger of 0";
    rig.value.number = -0.001f;
    rig.At();
    EXPECT_EQ(rig.heard.beeps, 1);
    rig.At(trRenderContext::kPreview);
    rig.At(trRenderContext::kProgressive);
    EXPECT_EQ(rig.heard.beeps, 1) << "full renders only";
    rig.Set(("only_" + doing + "_during_full_renders").c_str(), 0);
    rig.At(trRenderContext::kPreview);
    EXPECT_EQ(rig.heard.beeps, 2);
    rig.Set("enable", 0);
    rig.At();
    EXPECT_EQ(rig.heard.beeps, 2);
  }
}

TEST(Diagnostics, OnceIsOnceForAllThreads) {
  Rig rig("notifier");
  rig.LinkAll();
  rig.Set("beep", 1);
  rig.Set("only_notify_once", 1);
  OnThreads(rig.node, 500);
  EXPECT_EQ(rig.heard.beeps, 1);
  rig.Press();
  OnThreads(rig.node, 500);
  EXPECT_EQ(rig.heard.beeps, 2) << "the button lets it report again";
  rig.Set("only_notify_once", 0);
  OnThreads(rig.node, 20);
  EXPECT_EQ(rig.heard.beeps, 2 + 160);
}

TEST(Diagnostics, LogLinesOfManyThreadsStayWhole) {
  const trString file = TempFile("Notifier messages");
  std::ofstream(file) << "before\n";
  Rig rig("notifier"), other("notifier");
  const trString longText(300, 'x');
  for (Rig* each : {&rig, &other}) {
    each->LinkAll();
    each->Set("write_message_to_file", 1);
    each->Set("file", file);
    each->Set("message_to_write", longText + " $SCAL");
  }
  std::thread second([&] { OnThreads(other.node, 20); });
  OnThreads(rig.node, 20);
  second.join();
  std::ifstream in(file);
  trString line;
  ASSERT_TRUE(std::getline(in, line));
  EXPECT_EQ(line, "before");
  int lines = 0;
  for (; std::getline(in, line); ++lines) ASSERT_EQ(line, longText + " 3");
  EXPECT_EQ(lines, 2 * 8 * 20);
}

TEST(Diagnostics, FilesThatCannotBeWrittenAreToldOfOnce) {
  const trString target = TempFile("target.txt"), link = TempFile("link.txt"), pipe = TempFile("pipe.log"),
                 script = TempFile("run"), hidden = TempFile(".profile");
  std::ofstream(target) << "kept";
  std::ofstream(script) << "kept";
  ASSERT_EQ(chmod(script.c_str(), 0700), 0);
  ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const auto contents = [](const trString& path) {
    std::ifstream in(path);
    return trString(std::istreambuf_iterator<char>(in), {});
  };
  for (const trString& path :
       {trString("/no such folder/log.txt"), link, pipe, script, hidden, trString("/tmp")}) {
    Rig rig("notifier");
    rig.LinkAll();
    rig.Set("write_message_to_file", 1);
    rig.Set("file", path);
    EXPECT_EQ(rig.At(), 3) << path;
    rig.At();
    EXPECT_EQ(rig.heard.records.size(), 1u) << path;
  }
  EXPECT_EQ(contents(target), "kept");
  EXPECT_EQ(contents(script), "kept");
  EXPECT_EQ(contents(hidden), "");
  Rig rig("notifier");
  rig.LinkAll();
  rig.Set("write_message_to_file", 1);
  rig.Set("file", "");
  rig.At();
  EXPECT_TRUE(rig.heard.records.empty()) << "no name, no file";
}

TEST(Diagnostics, LiveValuesAreShown) {
  Rig rig("live_value_display");
  const auto shown = [&](const char* name) {
    trString text;
    EXPECT_TRUE(rig.node.GetParam(name, text)) << name;
    return text;
  };
  EXPECT_EQ(shown("colour_static"), "");
  rig.LinkAll();
  trNoRenderServices services;
  trShadingInterface si;
  trRenderState state(services, si);
  trRenderingInterface rendering(state, 1, nullptr, trRenderContext::kFinal);
  rig.node.StartRender(rendering);
  rig.At();
  EXPECT_EQ(shown("colour_static"), "r = 0.25, g = 0.5, b = 1.23457e+06");
  EXPECT_EQ(shown("scalar_static"), "3");
  EXPECT_EQ(shown("vector_static"), "x = -1.5, y = 1e-09, z = 100");
  rig.node.FinishRender(rendering);
  const auto lines = rig.heard.Texts(ovhost::LogLevel::kMessage);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find("r = 0.25"), trString::npos);
  rig.node.StartRender(rendering);
  rig.node.FinishRender(rendering);
  EXPECT_EQ(rig.heard.records.size(), 1u) << "a render that finds nothing says nothing";
}

TEST(Diagnostics, TimedTriggerTriggersOnceInADelay) {
  Rig rig("timed_trigger");
  rig.Set("delay", 1e6);
  EXPECT_EQ(OnThreads(rig.node, 500), 1) << "the first, for all threads";
  for (const double always : {0.0, -5.0, 0.0004}) {
    rig.Set("delay", always);
    EXPECT_EQ(OnThreads(rig.node, 50), 400) << always;
  }
  rig.Set("delay", 1e300);
  EXPECT_EQ(rig.At(), 0);
  rig.Set("enable", 0);
  EXPECT_EQ(rig.At(), 3) << "off, its input's value";
  rig.Set("input_node", "");
  EXPECT_EQ(rig.At(), 0);
}

}  // namespace
