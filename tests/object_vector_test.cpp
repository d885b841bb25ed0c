// Small tools: vectors of objects and copies, the turning of vectors, panels of values, notes.
#include <cmath>

#include "core/scene_maker.h"
#include "fractal/vortex_warp_shader.h"
#include "host/project/project_file.h"
#include "tests/shading_fixture.h"
#include "tools/demo_controls.h"
#include "tools/get_object_vector.h"
#include "tools/note.h"

namespace {

/// Puts a copy at each particle, turned by its index and twice as large.
class Copies : public trParticleInflator {
 public:
  trBoundingBox InstanceBoundingBox(const trParticle& particle) const override {
    return trBoundingBox::FromCentre(particle.position, {2, 4, 6.0 + static_cast<double>(particle.index)});
  }
  long InflateInstanceElement(trRenderState&, const trParticle&, long&) override { return 0; }
  bool IntersectInstance(trRenderState&, const trParticle&, const trVector&, const trVector&,
                         double&) override {
    return 0;
  }
  trTransform<double> InstanceTransform(const trParticle& particle) const override {
    return trTranslate(particle.position) *
           trRotation{{10, 20.0 + static_cast<double>(particle.index), 30}}.GetTransform() * trScale(2, 2, 2);
  }
};

trVector VectorOf(GetInstanceVector& node, long what, trShadingInterface& si) {
  node.SetParam("vector", what, trWhoUser);
  return node.VectorValueTS(si);
}

TEST(GetObjectVector, EachCopyHasValuesOfItsOwn) {
  GetInstanceVector node;
  Copies copies;
  trScene rock, populator;
  rock.SetTransform(trTranslate({1, 0, 0}) * trScale(1, 3, 1));
  populator.AssignParticleInflator(&copies);
  for (const long index : {0L, 7L}) {
    const trParticle particle = {{100.0 * static_cast<double>(index), 5, 9}, index};
    Sample sample({1, 2, 3});
    sample.si.Object() = {nullptr, &rock, &particle, &populator};
    const trTransform<double> whole = copies.InstanceTransform(particle) * rock.GetTransform();
    ExpectNear(VectorOf(node, 0, sample.si), whole.Point({}), 1e-9, "position");
    ExpectNear(VectorOf(node, 1, sample.si), {10, 20.0 + static_cast<double>(index), 30}, 1e-9, "rotation");
    ExpectNear(VectorOf(node, 2, sample.si), {2, 6, 2}, 1e-9, "scale");
    ExpectNear(VectorOf(node, 3, sample.si), {2, 4, 6.0 + static_cast<double>(index)}, 1e-9, "size");
  }
  // Turned straight up, turns about X and Z are the same.
  rock.SetTransform(trRotation{{25, 90, 0}}.GetTransform());
  Sample sample({1, 2, 3});
  sample.si.Object() = {nullptr, &rock, nullptr, nullptr};
  const trVector degrees = VectorOf(node, 1, sample.si);
  ExpectNear(trRotation{degrees}.GetTransform().Direction({1, 2, 3}),
             rock.GetTransform().Direction({1, 2, 3}), 1e-9, "straight up");
  Sample nowhere({1, 2, 3});
  ExpectNear(VectorOf(node, 0, nowhere.si), {1, 2, 3}, 0, "no object");
}

TEST(GetObjectVector, ALinkedObjectIsReadAtTheStart) {
  Graph graph;
  trBase& planet = *graph.project.CreateChild("planet");
  planet.SetParam("radius", 500.0, trWhoUser);
  planet.SetParam("centre", trVector(7, -500, 0), trWhoUser);
  GetInstanceVector& node = graph.Add<GetInstanceVector>("Vector");
  Graph::Link(node, "object", planet);
  Sample sample({1, 2, 3});
  const auto started = [&](long what) {
    node.SetParam("vector", what, trWhoUser);
    trRenderingInterface rendering(sample.state, 1, nullptr, trRenderContext::kFinal);
    node.StartRender(rendering);
    return node.VectorValueTS(sample.si);
  };
  ExpectNear(started(0), {7, -500, 0}, 0, "position");
  ExpectNear(started(2), {1, 1, 1}, 0, "scale");
  const trVector size = started(3);
  EXPECT_NEAR(size.x, 1000, 50);
}

TEST(VortexVector, TurnsWhatTheWarpTurns) {
  Graph graph;
  auto& vector = graph.Add<VortexVector>("Vector");
  auto& warp = graph.Add<VortexWarpShader>("Warp");
  auto& probe = graph.Add<ProbeShader>("Probe");
  Graph::Link(warp, "input_node", probe);
  for (trBase* node : {static_cast<trBase*>(&vector), static_cast<trBase*>(&warp)}) {
    node->SetParam("radius", 30.0, trWhoUser);
    node->SetParam("vorticity", 0.6, trWhoUser);
    node->SetParam("centre", trVector(1, 2, 3), trWhoUser);
  }
  const trVector point(12, -4, 40);
  Sample sample(point);
  warp.ShadeTS(sample.si);
  vector.SetParam("constant", point, trWhoUser);
  EXPECT_EQ(vector.VectorValueTS(sample.si), probe.seenPt);
  const trVector centre(1, 0, 3);
  const trVector before = point - centre, after = probe.seenPt - centre;
  EXPECT_NEAR(std::hypot(before.x, before.z), std::hypot(after.x, after.z), 1e-9) << "a turn";
  EXPECT_GT((after - before).Length(), 1);
}

TEST(DemoControls, FunctionsReadNamedValuesThatProjectsKeep) {
  ovhost::RegisterHostClasses();
  Graph graph;
  trBase& panel = *graph.project.CreateChild("demo_controls");
  panel.SetName("Panel");
  panel.SetParam("number_2", 4.5, trWhoUser);
  panel.SetParam("number_2_name", "Snow line", trWhoUser);
  panel.SetParam("switch_1", 1, trWhoUser);
  panel.SetParam("colour_3", trManRgb(0.25f, 0.5f, 1), trWhoUser);
  ASSERT_EQ(panel.NumChildren(), 16);
  trShader& probe = graph.Shader("warp_input_shader");
  ASSERT_TRUE(probe.SetParam("input_node", "/Panel/Snow line", trWhoUser));
  Sample sample({});
  ASSERT_TRUE(probe.InputShader());
  EXPECT_EQ(probe.InputShader()->FloatValueTS(sample.si), 4.5f);
  // The link follows a new name.
  panel.SetParam("number_2_name", "Tree line", trWhoUser);
  panel.SetParam("number_2", -1.0, trWhoUser);
  EXPECT_EQ(probe.InputShader()->FloatValueTS(sample.si), -1.0f);
  const auto value = [&](trBase& root, const char* path) {
    auto* shader = dynamic_cast<trShader*>(root.NodeByPath(path));
    EXPECT_TRUE(shader) << path;
    return shader ? shader->FColValueTS(sample.si) : trFCol();
  };
  EXPECT_EQ(value(graph.project, "/Panel/Switch 1").r, 1.0f);
  EXPECT_EQ(value(graph.project, "/Panel/Switch 2").r, 0.0f);
  EXPECT_EQ(value(graph.project, "/Panel/Colour 3").r, 0.25f);

  const auto loaded = ovhost::ProjectFromText(ovhost::ProjectToText(graph.project), "panel");
  ASSERT_TRUE(loaded);
  trBase& again = *loaded->NodeByPath("/Panel");
  EXPECT_EQ(again.NumChildren(), 16);
  again.SetParam("number_2", 8.0, trWhoUser);
  EXPECT_EQ(value(*loaded, "/Panel/Tree line").r, 8.0f);
}

TEST(Note, KeepsItsWordsInProjects) {
  Graph graph;
  trBase& note = *graph.project.CreateChild("note");
  note.SetParam("text", "Sun from the left.\nSnow < 2000 m & \"ice\"", trWhoUser);
  note.SetParam("size", tr2Vector(300, 80), trWhoUser);
  const auto loaded = ovhost::ProjectFromText(ovhost::ProjectToText(graph.project), "note");
  ASSERT_TRUE(loaded);
  trString text;
  ASSERT_TRUE(loaded->Child(0)->GetParam("text", text));
  EXPECT_EQ(text, "Sun from the left.\nSnow < 2000 m & \"ice\"");
}

}  // namespace
