// The graph of nodes: links lead where looking up from scratch says, changes are told to those who link to
// the changed node, derived values are computed when they should be.
#include <gtest/gtest.h>

#include <random>

#include "core/xml.h"
#include "host/node/class_pool.h"
#include "host/node/node_data.h"
#include "host/project/project_file.h"

namespace {

/// Links to others and writes down of whose changes it is told.
class Listener : public trBase {
 public:
  Listener() {
    Param(any_, "any", "");
    Param(shader_, "shader", "");
    Param(file_, "file", "");
    Param(value_, "value", 0.0);
  }
  void OnDependencyParamChanged(trBase* changed, long, trBase*, trBase*) override {
    told.push_back(changed);
    if (onTold) onTold();
  }
  std::vector<trBase*> told;
  std::function<void()> onTold;

 private:
  trNodeLink any_;
  trShaderLink shader_;
  trFile file_;
  double value_;
};

/// Keeps a sum of its values, of which the second follows the first.
class Summing : public trBase {
 public:
  Summing() {
    Param(first_, "first", 1.0).Alias("premier");
    Param(second_, "second", 2.0);
    Param(third_, "third", 3.0).Alias("troisieme").Alias("both");
    Param(fourth_, "fourth", 4.0).Alias("both");
    Retired("gone", "0");
    UpdateDerived();
  }
  long OnCreate() override {
    sumAtCreation = sum;
    Param(late_, "late", 0.0);
    return trBase::OnCreate();
  }
  void OnParamChanged(long index, trBase* who) override {
    trBase::OnParamChanged(index, who);
    if (IsParam(index, &first_)) SetParam("second", 2 * first_, this);
  }
  void UpdateDerived() override {
    sum = first_ + second_ + third_ + fourth_ + late_;
    ++computed;
  }
  double sum = 0, sumAtCreation = 0;
  int computed = 0;

 private:
  double first_, second_, third_, fourth_, late_ = 0;
};

void RegisterClasses() {
  static const bool done = [] {
    ovhost::RegisterHostClasses();
    ovhost::RegisterHostClass("hidden", "graph_test_listener", trCreateNode<Listener>, trDestroyNode);
    ovhost::RegisterHostClass("hidden", "graph_test_summing", trCreateNode<Summing>, trDestroyNode);
    return true;
  }();
  EXPECT_TRUE(done);
}

std::unique_ptr<juProject> Parsed(const std::string& body) {
  RegisterClasses();
  auto project = ovhost::ProjectFromText("<ombrivex_project>" + body + "</ombrivex_project>", "graph.ovd");
  EXPECT_TRUE(project);
  return project;
}

double Number(const trBase& node, const char* name) {
  double value = std::nan("");
  node.GetParam(name, value);
  return value;
}

const char* const kLinks[] = {"any", "shader", "file"};

const trFile& Link(const trBase& node, const char* name) {
  long index = -1;
  EXPECT_TRUE(node.FindParam(index, name));
  return *static_cast<const trFile*>(node.ParamPtr(index));
}

/// Changes a graph at random, by everything that can lead a link elsewhere.
class Shuffler {
 public:
  explicit Shuffler(unsigned seed) : random_(seed) { RegisterClasses(); }

  void Step() {
    trBase& at = *Any();
    switch (Draw(8)) {
      case 0:
      case 1:
        if (nodes().size() < 60) ovhost::CreateNode("graph_test_listener", &at, Name());
        break;
      case 2:
        if (nodes().size() > 20 && &at != &project) ovhost::DestroyNode(&at);
        break;
      case 3:
        if (&at != &project) at.SetName(Name());
        break;
      case 4:
        if (Draw(4) == 0) at.DeclareTrue("is_shader");
        break;
      default:
        at.SetParam(kLinks[Draw(3)], Text(), trWhoUser);
    }
  }
  std::vector<trBase*> nodes() { return ovhost::AllNodes(&project); }
  long Draw(long count) { return static_cast<long>(random_() % static_cast<unsigned>(count)); }

  juProject project;

 private:
  trBase* Any() {
    const std::vector<trBase*> all = nodes();
    return all[static_cast<size_t>(Draw(static_cast<long>(all.size())))];
  }
  /// Few names, so that they hide each other.
  std::string Name() { return std::string(1, static_cast<char>('a' + Draw(5))); }
  std::string Text() {
    switch (Draw(5)) {
      case 0:
        return "";
      case 1:
        return "/" + Name() + "/" + Name();
      case 2:
        return Name() + "/" + Name();
      case 3:
        return Any()->NameAndPath();
      default:
        return Name();
    }
  }
  std::mt19937 random_;
};

TEST(Links, LeadAndTellAsIfEverythingWereVisited) {
  int links = 0, tellings = 0;
  for (unsigned seed = 1; seed <= 6; ++seed) {
    Shuffler graph(seed);
    for (int step = 0; step < 400; ++step) {
      graph.Step();
      const std::vector<trBase*> nodes = graph.nodes();
      for (trBase* node : nodes)
        for (const char* name : kLinks) {
          if (node == &graph.project) continue;
          const trFile& link = Link(*node, name);
          trBase* const target = node->NodeByPath(link.FileStringR());
          ASSERT_EQ(link.LinkedNode(false), target) << node->NameAndPath() << " " << link.FileStringR();
          const bool isRightKind = target && (name != kLinks[1] || target->IsTrue("is_shader"));
          ASSERT_EQ(link.LinkedNode(true), isRightKind ? target : nullptr);
          links += target != nullptr;
        }
      if (step % 10) continue;
      for (trBase* node : nodes)
        if (auto* const listener = dynamic_cast<Listener*>(node)) listener->told.clear();
      for (trBase* changed : nodes) {
        if (changed == &graph.project) continue;
        changed->SetParam("value", 1.0, trWhoUser);
        for (trBase* node : nodes) {
          auto* const listener = dynamic_cast<Listener*>(node);
          if (!listener) continue;
          bool isLinked = false;
          for (const char* name : kLinks)
            isLinked |= listener->NodeByPath(Link(*listener, name).FileStringR()) == changed;
          const std::vector<trBase*> expected(isLinked && listener != changed ? 1 : 0, changed);
          ASSERT_EQ(listener->told, expected) << listener->NameAndPath() << " of " << changed->NameAndPath();
          tellings += static_cast<int>(expected.size());
          listener->told.clear();
        }
      }
    }
  }
  EXPECT_GT(links, 10000);
  EXPECT_GT(tellings, 500);
}

TEST(Links, WhoIsCutOrDestroyedWhileOthersAreToldIsNotTold) {
  const auto project = Parsed(
      "<graph_test_listener name=\"T\"/><graph_test_listener name=\"A\" any=\"T\"/>"
      "<graph_test_listener name=\"B\" any=\"T\"/><graph_test_listener name=\"C\" any=\"T\"/>"
      "<graph_test_listener name=\"D\" file=\"T\" any=\"T\"/>");
  const auto listener = [&](const char* name) { return dynamic_cast<Listener*>(project->NodeByPath(name)); };
  listener("A")->onTold = [&] {
    listener("B")->SetParam("any", "", trWhoUser);
    ovhost::DestroyNode(listener("C"));
  };
  listener("T")->SetParam("value", 1.0, trWhoUser);
  EXPECT_EQ(listener("A")->told.size(), 1u);
  EXPECT_EQ(listener("B")->told.size(), 0u);
  EXPECT_EQ(listener("D")->told.size(), 1u);
}

TEST(Links, OfATreeMadeApartLeadOnceItIsAttached) {
  RegisterClasses();
  juProject project;
  trBase* const target = ovhost::CreateNode("graph_test_listener", &project, "Target");
  trBase* const apart = ovhost::CreateNode("group", nullptr, "Apart");
  trBase* const below = ovhost::CreateNode("graph_test_listener", apart, "Below");
  below->SetParam("any", "Target", trWhoUser);
  below->SetParam("file", "/Apart/Below", trWhoUser);
  EXPECT_EQ(Link(*below, "any").LinkedNode(), nullptr);
  ovhost::AttachChild(&project, apart, "Apart");
  EXPECT_EQ(Link(*below, "any").LinkedNode(), target);
  EXPECT_EQ(Link(*below, "file").LinkedNode(), below);
  target->SetName("Renamed");
  EXPECT_EQ(Link(*below, "any").FileStringR(), "Renamed");
  target->SetParam("value", 1.0, trWhoUser);
  EXPECT_EQ(dynamic_cast<Listener&>(*below).told.size(), 1u);
}

TEST(Derived, AreComputedOnceForAProjectAndOnceAChange) {
  const auto project = Parsed(
      "<graph_test_summing name=\"S\" fourth=\"40\" second=\"20\" first=\"10\" third=\"30\"/>"
      "<graph_test_summing name=\"L\" first=\"10\" late=\"5\"/>");
  auto& all = dynamic_cast<Summing&>(*project->Child(0));
  EXPECT_EQ(all.sumAtCreation, 100) << "not known when the node is created";
  EXPECT_EQ(all.computed, 2) << "the constructor's and the project's";
  auto& late = dynamic_cast<Summing&>(*project->Child(1));
  EXPECT_EQ(late.sumAtCreation, 37);
  EXPECT_EQ(late.sum, 42);
  EXPECT_EQ(late.computed, 3) << "what is declared late comes later";

  all.SetParam("third", 31.0, trWhoUser);
  EXPECT_EQ(all.computed, 3);
  EXPECT_EQ(all.sum, 101);
  all.SetParam("first", 1.0, trWhoUser);
  EXPECT_EQ(all.sum, 1 + 2 + 31 + 40);
  for (const char* name : {"first", "third", "fourth"}) {
    long index = -1;
    all.FindParam(index, name);
    all.SetParamKey(index, 0, 1, 0);
    all.SetParam(name, 7.0, trWhoUser);
    all.SetParamKey(index, 0, 3, 0);
  }
  const int before = all.computed;
  ovhost::UpdateAnimation(project.get(), 1);
  EXPECT_EQ(all.sum, 1 + 2 + 31 + 40);
  EXPECT_EQ(all.computed, before + 1) << "once a frame";
}

TEST(OldNames, SetParametersAndAreNotWritten) {
  const auto project = Parsed(
      "<graph_test_summing name=\"S\" premier=\"10\" gone=\"0\" both=\"6\">"
      "<animation><curve param=\"troisieme\" mode=\"linear\" keys=\"1 6 3 8\"/></animation>"
      "</graph_test_summing>"
      "<graph_test_summing name=\"T\" first=\"3\" premier=\"4\" gone=\"1\" fourth=\"5\" both=\"6\"/>");
  const trBase &node = *project->Child(0), &twice = *project->Child(1);
  EXPECT_EQ(Number(node, "first"), 10);
  EXPECT_EQ(Number(node, "second"), 20) << "couplings see the change";
  EXPECT_EQ(Number(node, "third"), 6);
  EXPECT_EQ(Number(node, "fourth"), 6);
  EXPECT_EQ(Number(twice, "first"), 3) << "the present name has the last word";
  EXPECT_EQ(Number(twice, "fourth"), 5);
  EXPECT_EQ(Number(twice, "third"), 6);
  ovhost::UpdateAnimation(project.get(), 2);
  EXPECT_EQ(Number(node, "third"), 7);
  const std::string text = ovhost::ProjectToText(*project);
  for (const char* name : {"premier", "troisieme", "both", "gone=\"0\""})
    EXPECT_EQ(text.find(name), std::string::npos) << name;
  EXPECT_NE(text.find("gone=\"1\""), std::string::npos) << "a value that had an effect is kept";
}

}  // namespace
