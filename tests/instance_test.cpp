// Particles: copies that share their scene, copies of copies, elements that inflators make, rays against a
// scene's triangles.
#include "tests/mesh_fixture.h"

namespace {

using ovhost::CameraSample;

/// Places one scene of two objects at every particle, turned and scaled by its number.
class Scatterer : public trParticleInflator {
 public:
  trBoundingBox InstanceBoundingBox(const trParticle& particle) const override {
    return trBoundingBox::FromCentre(particle.position, {9, 9, 9});
  }
  long InflateInstanceElement(trRenderState& state, const trParticle& particle, long& cursor) override {
    trScene& scene = *scenes[InstanceSceneIndex(particle)];
    const trTransform<double> place = InstanceTransform(particle);
    const trSortedElement* element = scene.GetSortedElementInfoReversed(scene.NumSortedElements() - cursor);
    if (!element) return 0;
    const trTri& tri = *element->scene->GetPTri(element->index);
    trRenderTri made;
    made.material = element->scene->GetPMaterial(tri.material);
    element->scene->GetPointVecs(tri.point, made.point, 3);
    for (trVector& p : made.point) p = place.Point(element->scene->GetTransform().Point(p));
    for (int i = 0; i < 3; ++i) {
      made.texture[i] = made.point[i];
      made.normal[i] = Cross(made.point[2] - made.point[0], made.point[1] - made.point[0]);
    }
    ++cursor;
    return state.PushRenderTri(made);
  }
  bool IntersectInstance(trRenderState& state, const trParticle& particle, const trVector& origin,
                         const trVector& direction, double& distance) override {
    trVector from = origin, along = direction;
    InstanceTransform(particle).Inverse().Ray(from, along);
    trTriHit hit;
    hit.distance = distance;
    const trScene& scene = *scenes[InstanceSceneIndex(particle)];
    for (long i = 1; i <= scene.NumGroups(); ++i)
      state.IntersectRayTriAccelerator(*scene.GetPGroup(i)->Subscene(), from, along, hit);
    if (hit.distance == distance) return false;
    distance = hit.distance;
    return true;
  }
  trFCol ParticleLuminosityTint(const trParticle& particle) const override {
    return {1, static_cast<float>(0.5 + 0.1 * (particle.index % 5)), 1};
  }
  bool IsBasicInstancer() const override { return isBasic; }
  long NumInstanceScenes() const override { return static_cast<long>(scenes.size()); }
  long InstanceSceneIndex(const trParticle& particle) const override {
    return particle.index % scenes.size();
  }
  std::shared_ptr<trScene> InstanceScene(long index) const override { return scenes[index]; }
  trTransform<double> InstanceTransform(const trParticle& particle) const override {
    const double i = static_cast<double>(particle.index);
    return trTranslate(particle.position) * trRotateY(i) * trRotateX(0.3 * i) *
           trScale(0.5 + 0.1 * (particle.index % 4), 0.7, 0.6);
  }

  std::vector<std::shared_ptr<trScene>> scenes;
  bool isBasic = true;
};

/// A tent of two triangles in a group, at a place and scale of its own.
std::shared_ptr<trScene> MakeTent(trShader& shader, double width) {
  auto scene = std::make_shared<trScene>();
  scene->Init();
  scene->SetTransform(trTranslate({0.2, 0.1, 0}) * trScale(width, 1, 1));
  scene->BeginGroup("tent");
  const long material = scene->AddMaterial(trMaterial(nullptr, &shader, nullptr, 1));
  AddTriangle(*scene, {-1, -1, 0}, {0, -1, 0.5}, {0, 1, 0.5}, material);
  AddTriangle(*scene, {0, -1, 0.5}, {1, -1, 0}, {0, 1, 0.5}, material);
  scene->EndGroup();
  scene->PrepForRender();
  scene->SortElements({0, 1, 0}, true);
  return scene;
}

/// Particles on a plane, in a group of their own.
void AddParticles(trScene& scene, Scatterer& scatterer, int count, const trVector& offset) {
  scene.BeginGroup("particles");
  scene.AssignParticleInflator(&scatterer);
  for (int i = 0; i < count; ++i)
    scene.AddParticle({offset + trVector(i % 5 * 2 - 4, i / 5 * 2 - 4, -0.3 * (i % 3)), i});
  scene.EndGroup();
}

/// Emits a colour by where the point is in its object, by its normal, and by its particle's tint.
void ShowObject(FunctionShader& shader) {
  shader.onShade = [](trShadingInterface& si) {
    const trVector p = si.P_inObjectSpace() * 0.2 + trVector(0.5, 0.5, 0.5);
    trFCol emission(static_cast<float>(p.x), static_cast<float>(p.y),
                    static_cast<float>(0.5 + 0.5 * si.N().z));
    si.RenderState().ApplyTintToSurfEmit(emission);
    si.SetShadingToLambert(trFCol(0.3f));
    si.Bsdf().Emission() = emission;
  };
}

/// A stage with a scattering of tents. As copies, inflated, or (`asMeshes`) as groups of their own.
struct TentStage : MeshStage {
  enum Form { kCopies, kInflated, kMeshes };
  TentStage(Form form, const trVector& offset) {
    AddSun();
    auto& shader = AddShader("Tent");
    ShowObject(shader);
    for (const double width : {1.0, 0.6}) scatterer.scenes.push_back(MakeTent(shader, width));
    scatterer.isBasic = form == kCopies;
    LookFrom(offset + trVector(0, 0, 6));
    AddMaker("Tents", [this, form, offset](trScene& scene) {
      if (form != kMeshes) {
        AddParticles(scene, scatterer, 25, offset);
        return 1;
      }
      AddParticles(scene, scatterer, 25, offset);
      trScene& particles = *scene.GetPGroup(1)->Subscene();
      for (long i = 1; i <= particles.NumParticles(); ++i) {
        const trParticle& particle = *particles.GetPParticle(i);
        const trScene& tent =
            *scatterer.scenes[scatterer.InstanceSceneIndex(particle)]->GetPGroup(1)->Subscene();
        scene.BeginGroup("copy");
        trScene& copy = *scene.GetPGroup(scene.NumGroups())->Subscene();
        copy.SetTransform(scatterer.InstanceTransform(particle) * tent.GetTransform());
        for (long k = 1; k <= tent.NumPts(); ++k) copy.AddPoint(*tent.GetPPoint(k));
        copy.AddMaterial(*tent.GetPMaterial(1));
        for (long k = 1; k <= tent.NumTris(); ++k) copy.AddTri(*tent.GetPTri(k));
        scene.EndGroup();
      }
      particles.AssignParticleInflator(nullptr);
      return 1;
    });
  }
  Scatterer scatterer;
};

TEST(Instances, LookLikeTheMeshesThatTheyCopy) {
  for (const trVector& offset : {trVector(), trVector(6.4e6, -6.4e6, 3e6)}) {
    TentStage copies(TentStage::kCopies, offset), meshes(TentStage::kMeshes, offset);
    // Tints belong to particles, which the meshes are not.
    ShowObject(dynamic_cast<FunctionShader&>(*copies.project.NodeByPath("Tent")));
    auto a = copies.Picture(64, 2), b = meshes.Picture(64, 2);
    double lit = 0;
    for (size_t i = 0; i < a.size(); ++i) {
      lit += a[i].alpha;
      a[i].beauty.g = b[i].beauty.g = 0;
    }
    EXPECT_GT(lit / static_cast<double>(a.size()), 0.05);
    // An edge or two may fall on the other side of a ray.
    size_t differing = 0;
    for (size_t i = 0; i < a.size(); ++i) differing += LargestDifference({a[i]}, {b[i]}) > 1e-4f;
    EXPECT_LE(differing, a.size() / 2000) << offset.x;
  }
}

TEST(Instances, AreTintedByTheirParticles) {
  for (const auto form : {TentStage::kCopies, TentStage::kInflated}) {
    TentStage stage(form, {});
    dynamic_cast<FunctionShader&>(*stage.project.NodeByPath("Tent")).onShade = [&](trShadingInterface& si) {
      if (!IsForCamera(si)) return;
      ASSERT_NE(si.Object().particle, nullptr);
      const trParticle& particle = *si.Object().particle;
      EXPECT_LT((si.P() - particle.position).Length(), 3);
      trFCol emission(1.0f);
      si.RenderState().ApplyTintToSurfEmit(emission);
      EXPECT_FLOAT_EQ(emission.g, 0.5f + 0.1f * (particle.index % 5));
      si.SetShadingToConstant(emission);
    };
    stage.Picture(32);
  }
}

TEST(Instances, InflatedElementsStandWhereCopiesDo) {
  TentStage copies(TentStage::kCopies, {}), inflated(TentStage::kInflated, {});
  const auto a = copies.Picture(64), b = inflated.Picture(64);
  size_t differing = 0;
  for (size_t i = 0; i < a.size(); ++i) differing += std::fabs(a[i].depth - b[i].depth) > 1e-4f;
  EXPECT_LE(differing, 2u);
}

TEST(Instances, CopiesOfCopies) {
  // Rows of tents, copied again, against one long list.
  struct Rows : Scatterer {
    trTransform<double> InstanceTransform(const trParticle& particle) const override {
      return trTranslate(particle.position) * trScale(0.5, 0.5, 0.5);
    }
  };
  std::vector<CameraSample> pictures[2];
  for (const bool nested : {false, true}) {
    MeshStage stage;
    auto& shader = stage.AddShader("Tent");
    Rows inner, outer;
    inner.scenes.push_back(MakeTent(shader, 1));
    shader.onShade = [](trShadingInterface& si) {
      EXPECT_EQ(si.Object().particle != nullptr, IsForCamera(si));
      const trVector p = si.P_inObjectSpace();
      si.SetShadingToConstant({static_cast<float>(p.x * 0.3 + 0.5), static_cast<float>(p.y * 0.3 + 0.5), 1});
    };
    auto row = std::make_shared<trScene>();
    row->Init();
    for (int i = 0; i < 4; ++i) row->AddParticle({{i * 2.0, 0, 0}, i});
    row->AssignParticleInflator(&inner);
    row->PrepForRender();
    outer.scenes.push_back(row);
    struct List : Rows {
      trTransform<double> InstanceTransform(const trParticle& particle) const override {
        return trTranslate(particle.position) * trScale(0.25, 0.25, 0.25);
      }
    } list;
    list.scenes = inner.scenes;
    stage.AddMaker("Rows", [&](trScene& scene) {
      for (int j = 0; j < 3; ++j) {
        const trVector at(-2, j * 1.0 - 1, 0);
        if (nested) scene.AddParticle({at, j});
        for (int i = 0; i < 4 && !nested; ++i) scene.AddParticle({at + trVector(i, 0, 0), i});
      }
      scene.AssignParticleInflator(nested ? static_cast<trParticleInflator*>(&outer) : &list);
      return 1;
    });
    stage.LookFrom({0, 0, 2});
    pictures[nested] = stage.Picture(48);
  }
  EXPECT_LT(LargestDifference(pictures[0], pictures[1]), 1e-4f);
}

/// Pulls its object's mesh onto a ball about the object's place.
class BallGeometry : public trGeometryShader {
 public:
  long Displace(trShadingInterface& si) override {
    const trVector local = Normalised(Inverse().Point(si.P()));
    si.P() = si.Pg() = si.Pt() = si.Ptg() = Forward().Point(local);
    si.N() = si.Ng() = si.Nt() = si.Ni() = Normalised(Inverse().TransposedDirection(local));
    return 1;
  }
};

TEST(Instances, CopiesOfDicedSurfacesAreRoundAndKnowTheirPlace) {
  MeshStage stage;
  auto& geometry = stage.Add<BallGeometry>("Ball geometry");
  auto& shader = stage.AddShader("Ball");
  auto ball = std::make_shared<trScene>();
  ball->Init();
  const trTransform<double> place = trTranslate({50, 0, 0}) * trScale(2, 2, 2);
  ball->SetTransform(place);
  geometry.SetObjectTransform(place);
  ball->AddPolySphere({0, 0, 0}, {1, 1, 1}, 8, 4,
                      ball->AddMaterial(trMaterial(&geometry, &shader, nullptr, 1)));
  ball->PrepForRender();
  struct Two : Scatterer {
    trTransform<double> InstanceTransform(const trParticle& particle) const override {
      return trTranslate(particle.position) * trScale(0.5, 0.5, 0.5) * trTranslate({-50, 0, 0});
    }
  } two;
  two.scenes = {ball};
  const trVector places[2] = {{6.4e6 - 2, 0, 0}, {6.4e6 + 2, 0, -1}};
  stage.AddMaker("Balls", [&](trScene& scene) {
    for (const trVector& p : places) scene.AddParticle({p, 0});
    scene.AssignParticleInflator(&two);
    return 1;
  });
  int seen = 0;
  shader.onShade = [&](trShadingInterface& si) {
    if (!IsForCamera(si)) return;
    ++seen;
    const trVector& centre = si.Object().particle->position;
    EXPECT_NEAR((si.P() - centre).Length(), 1, 2e-3);
    const trVector outward = Normalised(si.P() - centre);
    ExpectNear(si.N(), outward, 0.02);
    ExpectNear(si.Ng(), outward, 1e-3);
    ExpectNear(si.Pt(), si.P(), 2e-3);
    ExpectNear(si.Pg(), centre + outward, 3e-3);
    EXPECT_NEAR(si.P_inObjectSpace().Length(), 1, 2e-3);
    si.SetShadingToConstant(trFCol(1.0f));
  };
  stage.LookFrom({6.4e6, 0, 4});
  stage.Picture(64);
  EXPECT_GT(seen, 200);
}

TEST(Instances, FlagsOfTheGroupAndOfItsScenesBothCount) {
  for (int flags = 0; flags < 4; ++flags) {
    TentStage stage(TentStage::kCopies, {});
    const bool group = flags & 1, tents = flags & 2;
    for (const auto& tent : stage.scatterer.scenes) tent->SetCastsShadows(tents);
    auto& maker = dynamic_cast<MeshMaker&>(*stage.project.NodeByPath("Tents"));
    maker.fill = [&stage, group](trScene& scene) {
      scene.SetCastsShadows(group);
      AddParticles(scene, stage.scatterer, 25, {});
      return 1;
    };
    ovhost::World world(stage.project, stage.settings, stage.stop);
    ASSERT_TRUE(world.Build());
    ovhost::SurfaceHit hit;
    const trVector towards = Normalised(trVector(-4, -4, -6));
    EXPECT_TRUE(world.Rays().Intersect({}, towards, 0, 1e9, hit));
    EXPECT_EQ(hit.levels, 1);
    EXPECT_EQ(world.Rays().Occluded({}, towards, 0, 1e9), group && tents) << flags;
  }
}

TEST(Instances, RaysMeetASceneSTrianglesAndInstances) {
  TentStage stage(TentStage::kCopies, {6.4e6, 0, 0});
  ovhost::World world(stage.project, stage.settings, stage.stop);
  ASSERT_TRUE(world.Build());
  trShadingInterface si;
  trRenderState state(world, si);
  // In the space that the tent's transform leads to, from in front: the ridge is at x = 0.2, z = 0.5.
  const trScene& tent = *stage.scatterer.scenes[0]->GetPGroup(1)->Subscene();
  trTriHit hit;
  ASSERT_TRUE(state.IntersectRayTriAccelerator(tent, {0.45, -0.4, 10}, {0, 0, -2}, hit));
  EXPECT_EQ(hit.tri, 2);
  EXPECT_NEAR(hit.distance, (10 - 0.375) / 2, 1e-6);
  ExpectNear(hit.normal, Normalised(Cross({1, 0, -0.5}, {0, 2, 0})), 1e-6);
  hit = {};
  hit.distance = 4;
  EXPECT_FALSE(state.IntersectRayTriAccelerator(tent, {0.45, -0.4, 10}, {0, 0, -2}, hit)) << "too far";
  EXPECT_EQ(hit.distance, 4);
  EXPECT_FALSE(
      state.IntersectRayTriAccelerator(*stage.scatterer.scenes[0], {0.45, -0.4, 10}, {0, 0, -2}, hit))
      << "the groups have the triangles";

  // Every particle's own test against the renderer's.
  trScene particles;
  AddParticles(particles, stage.scatterer, 25, {6.4e6, 0, 0});
  const trScene& group = *particles.GetPGroup(1)->Subscene();
  int met = 0;
  for (int i = 0; i < 300; ++i) {
    const trVector along(-1 + i % 20 * 0.1, -1 + i / 20 * 0.13, -1);
    double nearest = 1e300;
    for (long k = 1; k <= group.NumParticles(); ++k)
      stage.scatterer.IntersectInstance(state, *group.GetPParticle(k), stage.settings.view.eye, along,
                                        nearest);
    ovhost::SurfaceHit found;
    const bool isHit = world.Rays().Intersect({}, Normalised(along), 0, 1e9, found);
    EXPECT_EQ(isHit, nearest < 1e300);
    if (!isHit) continue;
    EXPECT_NEAR(found.distance, nearest * along.Length(), 1e-4);
    ++met;
  }
  EXPECT_GT(met, 20);
}

TEST(Instances, SamePictureForAnyNumberOfThreads) {
  TentStage stage(TentStage::kCopies, {100, 0, 0});
  const auto one = stage.Picture(48, 3, 1);
  for (const int threads : {2, 7})
    EXPECT_EQ(LargestDifference(one, stage.Picture(48, 3, threads)), 0) << threads;
}

TEST(Instances, PlacesThatNoCopyCanStandAtAreLeftOut) {
  struct Wild : Scatterer {
    trTransform<double> InstanceTransform(const trParticle& particle) const override {
      const double wild[] = {1, 0, std::nan(""), 1e300, HUGE_VAL};
      return trTranslate(particle.position) * trScale(wild[particle.index], 1, 1);
    }
    long InstanceSceneIndex(const trParticle& particle) const override { return particle.index == 5 ? 9 : 0; }
  } wild;
  MeshStage stage;
  auto& shader = stage.AddShader("Tent");
  wild.scenes = {MakeTent(shader, 1), nullptr};
  stage.AddMaker("Wild", [&](trScene& scene) {
    for (int i = 0; i < 6; ++i) scene.AddParticle({{0, 0, 0}, i});
    scene.AssignParticleInflator(&wild);
    return 1;
  });
  ovhost::World world(stage.project, stage.settings, stage.stop);
  ASSERT_TRUE(world.Build());
  ASSERT_EQ(world.Parts().populations.size(), 1u);
  EXPECT_EQ(world.Parts().populations[0]->instances.size(), 1u);
}

}  // namespace
