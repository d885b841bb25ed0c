// Rendered triangles: materials, normals, texture points, groups, visibility, holdouts, bumps.
#include "tests/mesh_fixture.h"

namespace {

using ovhost::CameraSample;

/// Share of a picture's samples with a colour at all.
double Coverage(const std::vector<CameraSample>& picture) {
  double lit = 0;
  for (const CameraSample& sample : picture) lit += !sample.beauty.IsBlack();
  return lit / static_cast<double>(picture.size());
}

TEST(MeshRender, PartsHaveTheirOwnShaders) {
  MeshStage stage;
  auto& red = stage.AddShader("Red", {1, 0, 0});
  auto& blue = stage.AddShader("Blue", {0, 0, 1});
  stage.AddMaker("Two", [&](trScene& scene) {
    scene.AddMaterial(trMaterial(nullptr, &red, nullptr, 1));
    const long second = scene.AddMaterial(trMaterial(nullptr, &blue, nullptr, 1));
    AddTriangle(scene, {-30, -30, 0}, {0, -30, 0}, {0, 30, 0}, 99);  // no such material: the first
    AddTriangle(scene, {-30, -30, 0}, {0, 30, 0}, {-30, 30, 0}, 1);
    AddTriangle(scene, {0, -30, 0}, {30, -30, 0}, {0, 60, 0}, second);
    return 1;
  });
  const auto picture = stage.Picture(8);
  for (int i = 0; i < 64; ++i) {
    if (i % 8 == 3 || i % 8 == 4) continue;  // samples stray a pixel's width
    const bool isLeft = i % 8 >= 4;          // of the x axis: the view is from the north
    EXPECT_EQ(picture[i].beauty.r, isLeft ? 1 : 0) << i;
    EXPECT_EQ(picture[i].beauty.b, isLeft ? 0 : 1) << i;
    EXPECT_EQ(picture[i].alpha, 1);
    EXPECT_EQ(picture[i].nodeId, 1);
  }
}

TEST(MeshRender, StatesCarryNormalsTexturePointsAndTheObject) {
  MeshStage stage;
  auto& probe = stage.AddShader("Probe");
  const trScene* made = nullptr;
  int seen = 0;
  trTransform<double> transform = trTranslate({6.4e6, -3e6, 2}) * trRotateX(0.3) * trScale(2, 3, 1);
  const trVector corners[3] = {{-40, -40, 0}, {40, -40, 0}, {0, 50, 0}};
  bool isMapped = false, isSmooth = false;
  stage.AddMaker("Object", [&](trScene& scene) {
    made = &scene;
    scene.SetTransform(transform);
    trMaterial material(nullptr, &probe, nullptr, 1);
    material.useNormals = isSmooth;
    trTri tri;
    tri.material = static_cast<std::int32_t>(scene.AddMaterial(material));
    for (int i = 0; i < 3; ++i) {
      const int k = (3 - i) % 3;  // the front is towards +z
      tri.point[i] = static_cast<std::int32_t>(scene.AddPoint({corners[k]}));
      tri.normal[i] = static_cast<std::int32_t>(scene.AddNormal({{0.1 * k, 0.2, 1}}));
      if (isMapped) tri.texVert[i] = static_cast<std::int32_t>(scene.AddTexVert({{k * 0.5, k * k * 1.0, 7}}));
    }
    scene.AddTri(tri);
    return 1;
  });
  probe.onShade = [&](trShadingInterface& si) {
    if (si.LightDepth() != 1) return;  // asked before the camera looks
    ++seen;
    const trVector local = transform.inverse.Point(si.P());
    EXPECT_NEAR(local.z, 0, 1e-8);
    // Barycentric coordinates in the plane of the triangle.
    const double v = (local.y + 40) / 90, u = (local.x + 40 - 40 * v) / 80;
    const trVector flat = transform.Normal({0, 0, 1});
    const trVector smooth = transform.Normal(trVector(0, 0.2, 1) * (1 - u - v) + trVector(0.1, 0.2, 1) * u +
                                             trVector(0.2, 0.2, 1) * v);
    const trVector uvw(0.5 * u + v, u + 4 * v, 7);
    ExpectNear(si.N(), isSmooth ? smooth : flat, 1e-9);
    ExpectNear(si.Ng(), si.N(), 0);
    ExpectNear(si.Pt(), isMapped ? uvw : si.P(), isMapped ? 1e-9 : 0);
    ExpectNear(si.Ptg(), si.Pt(), 0);
    ExpectNear(si.Pg(), si.P(), 0);
    ExpectNear(si.Eye(), stage.settings.view.eye, 0);
    ExpectNear(si.P_inObjectSpace(), local, 1e-9);
    EXPECT_EQ(si.Object().scene, made);
    EXPECT_EQ(si.Object().particle, nullptr);
    const double distance = (si.P() - si.Eye()).Length();
    EXPECT_NEAR(si.SmoothSize(), 0.5 * stage.settings.view.PixelAngularSize() * distance,
                1e-3 * si.SmoothSize());
    EXPECT_EQ(si.RenderState().CurrentRay().groupCastsShadows, true);
  };
  stage.LookFrom(transform.Point({0, 0, 0}) + trVector(0, 0, 12));
  for (const bool mapped : {false, true})
    for (const bool smooth : {false, true}) {
      isMapped = mapped;
      isSmooth = smooth;
      seen = 0;
      stage.Picture(6);
      EXPECT_EQ(seen, 36);
    }
}

/// A few leaning triangles, for pictures to be compared: `place` says where. Baked, its mirror turns round
/// the triangles as well.
long FillLeaves(trScene& scene, FunctionShader& shader, const trTransform<double>& place, bool isBaked) {
  const long material = scene.AddMaterial(trMaterial(nullptr, &shader, nullptr, 1));
  const auto at = [&](const trVector& p) { return isBaked ? place.Point(p) : p; };
  if (!isBaked) scene.SetTransform(place);
  for (int i = 0; i < 5; ++i) {
    const trVector o(i * 1.5 - 3, -1 + 0.3 * i, -0.5 * i);
    const trVector a = at(o), b = at(o + trVector(1, 0, 0.2)), c = at(o + trVector(0, 1, 0)),
                   d = at(o + trVector(-0.3, 0.2, 1));
    AddTriangle(scene, a, isBaked ? c : b, isBaked ? b : c, material);
    AddTriangle(scene, a, isBaked ? d : c, isBaked ? c : d, material);
  }
  return 1;
}

void ShadeAsLambert(FunctionShader& shader) {
  shader.onShade = [](trShadingInterface& si) {
    si.SetShadingToLambert(trFCol(0.5f, 0.6f, 0.7f));
    const trVector glow = si.N() * 0.25 + trVector(0.25, 0.25, 0.25);
    si.Bsdf().Emission() = {static_cast<float>(glow.x), static_cast<float>(glow.y),
                            static_cast<float>(glow.z)};
  };
}

TEST(MeshRender, ATransformedGroupIsThePreTransformedMesh) {
  for (const trVector& far : {trVector(), trVector(6.4e6, -6.4e6, 6.4e6)}) {
    const trTransform<double> place =
        trTranslate(far + trVector(0.2, 0, 1)) * trRotateY(0.7) * trRotateZ(-0.4) * trScale(1.2, 0.8, -1);
    std::vector<CameraSample> pictures[2];
    for (const bool baked : {false, true}) {
      MeshStage stage;
      stage.AddSun();
      auto& shader = stage.AddShader("Grey");
      ShadeAsLambert(shader);
      stage.LookFrom(far + trVector(0, 1, 6));
      stage.AddMaker("Leaves", [&](trScene& scene) {
        if (baked) return FillLeaves(scene, shader, place, true);
        // Two groups deep, placed from within.
        scene.BeginGroup("outer");
        scene.BeginGroup("inner");
        trScene& inner = *scene.GetPGroup(1)->Subscene()->GetPGroup(1)->Subscene();
        FillLeaves(inner, shader, place, false);
        scene.EndGroup();
        return scene.EndGroup();
      });
      pictures[baked] = stage.Picture(48);
    }
    EXPECT_GT(Coverage(pictures[0]), 0.01);
    EXPECT_LT(LargestDifference(pictures[0], pictures[1]), 1e-5f) << far.x;
  }
}

TEST(MeshRender, LooksTheSameWhereverItStands) {
  std::vector<CameraSample> pictures[2];
  for (const bool isFar : {false, true}) {
    const trVector o = isFar ? trVector(-6.4e6, 6.4e6, 6.4e6) : trVector();
    MeshStage stage;
    stage.AddSun();
    auto& shader = stage.AddShader("Grey");
    ShadeAsLambert(shader);
    stage.LookFrom(o + trVector(0, 1, 6));
    stage.AddMaker("Leaves",
                   [&](trScene& scene) { return FillLeaves(scene, shader, trTranslate(o), false); });
    pictures[isFar] = stage.Picture(64);
  }
  EXPECT_GT(Coverage(pictures[0]), 0.01);
  // Doubles at 6.4e6 m are a nanometre apart.
  EXPECT_LT(LargestDifference(pictures[0], pictures[1]), 1e-5f);
}

TEST(MeshRender, FlagsSayWhichRaysMeetAnObject) {
  for (int flags = 0; flags < 8; ++flags) {
    const bool visible = flags & 1, casts = flags & 2, reflected = flags & 4;
    MeshStage stage;
    stage.AddMaker("Object", [&](trScene& scene) {
      scene.BeginGroup("part");
      scene.SetVisibilityMode(visible ? trSceneVisibilityMode::kVisible : trSceneVisibilityMode::kInvisible);
      scene.SetCastsShadows(casts);
      scene.SetIsVisibleInReflections(reflected);
      const long material = scene.AddMaterial(trMaterial());
      AddTriangle(scene, {-9, -9, 0}, {9, -9, 0}, {0, 9, 0}, material);
      scene.EndGroup();
      return 1;
    });
    ovhost::World world(stage.project, stage.settings, stage.stop);
    ASSERT_TRUE(world.Build());
    ovhost::SurfaceHit hit;
    const auto meets = [&](ovhost::RayKind kind) {
      return world.Rays().Intersect({}, {0, 0, -1}, 0, 1e9, hit, kind);
    };
    EXPECT_EQ(meets(ovhost::kCameraRays), visible) << flags;
    EXPECT_EQ(meets(ovhost::kIndirectRays), reflected) << flags;
    EXPECT_EQ(world.Rays().Occluded({}, {0, 0, -1}, 0, 1e9), casts) << flags;
    EXPECT_EQ(world.Rays().Occluded({}, {0, 0, -1}, 0, 9.9), false) << flags;
  }
}

TEST(MeshRender, HoldoutsHideAndLeaveThePictureEmpty) {
  MeshStage stage;
  auto& shader = stage.AddShader("Grey");
  const auto quad = [&](trScene& scene, double size, double z) {
    const long material = scene.AddMaterial(trMaterial(nullptr, &shader, nullptr, 1));
    return scene.AddPolyPlane({-size, -size, z}, {2 * size, 0, 0}, {0, 2 * size, 0}, false, material);
  };
  stage.AddMaker("Behind", [&](trScene& scene) { return quad(scene, 100, -5); });
  stage.AddMaker("Before", [&](trScene& scene) {
    scene.SetVisibilityMode(trSceneVisibilityMode::kHoldout);
    return quad(scene, 5, 0);
  });
  const auto picture = stage.Picture(8);
  for (int i = 0; i < 64; ++i) {
    const bool isInner = i % 8 >= 3 && i % 8 <= 4 && i / 8 >= 3 && i / 8 <= 4;
    const bool isOuter = i % 8 < 1 || i % 8 > 6 || i / 8 < 1 || i / 8 > 6;
    if (!isInner && !isOuter) continue;
    EXPECT_EQ(picture[i].alpha, isInner ? 0 : 1) << i;
    EXPECT_EQ(picture[i].beauty.g, isInner ? 0 : shader.colour.g) << i;
  }
}

TEST(MeshRender, WholeTrianglesShowDisplacementAsBumps) {
  // Waves over a plane that may not be divided, by position and by texture point.
  for (const bool mapped : {false, true}) {
    MeshStage stage;
    auto& waves = stage.AddShader("Waves");
    int seen = 0;
    const double scale = mapped ? 0.1 : 1;  // texture units a metre
    waves.onDisplace = [&](trShadingInterface& si) {
      si.P() += si.N() * (0.3 * std::sin(2 * si.Pt().x / scale));
    };
    waves.onShade = [&](trShadingInterface& si) {
      if (si.LightDepth() != 1) return;
      ++seen;
      const trVector expected = Normalised({-0.6 * std::cos(2 * si.P().x), 0, 1});
      ExpectNear(si.N(), expected, 0.025);
      ExpectNear(si.Ng(), {0, 0, 1}, 1e-12);
      ExpectNear(si.P(), si.Pg(), 0, "stays in place");
      EXPECT_NEAR(si.P().z, 0, 1e-9);
    };
    stage.AddMaker("Plane", [&](trScene& scene) {
      scene.SetAllowsTriSubdivision(false);
      const long material = scene.AddMaterial(trMaterial(nullptr, &waves, nullptr, 1));
      trTri tri;
      const trVector corners[3] = {{-50, -50, 0}, {0, 60, 0}, {50, -50, 0}};
      for (int i = 0; i < 3; ++i) {
        tri.point[i] = static_cast<std::int32_t>(scene.AddPoint({corners[i]}));
        if (mapped) tri.texVert[i] = static_cast<std::int32_t>(scene.AddTexVert({corners[i] * scale}));
      }
      tri.material = static_cast<std::int32_t>(material);
      return scene.AddTri(tri);
    });
    stage.Picture(128);
    EXPECT_EQ(seen, 128 * 128);
  }
}

TEST(MeshRender, SingleSidedSurfacesAreBlackFromBehind) {
  for (const bool isDoubleSided : {true, false})
    for (const bool isBehind : {true, false}) {
      MeshStage stage;
      // From the north, where the eye is.
      auto& sun = stage.AddSun();
      sun.SetParam("elevation", 0.0, trWhoSystem);
      sun.SetParam("heading", 0.0, trWhoSystem);
      auto& shader = stage.AddShader("Leaf");
      shader.onShade = [](trShadingInterface& si) { si.SetShadingToLambert(trFCol(0.5f)); };
      stage.AddMaker("Leaf", [&](trScene& scene) {
        trMaterial material(nullptr, &shader, nullptr, 1);
        material.isDoubleSided = isDoubleSided;
        AddTriangle(scene, {-40, -40, 0}, {isBehind ? 0.0 : 40.0, isBehind ? 40.0 : -40.0, 0},
                    {isBehind ? 40.0 : 0.0, isBehind ? -40.0 : 40.0, 0}, scene.AddMaterial(material));
        return 1;
      });
      const float light = stage.Picture(3)[4].beauty.g;
      EXPECT_NEAR(light, isBehind && !isDoubleSided ? 0 : 0.5, 1e-3) << isDoubleSided << isBehind;
    }
}

TEST(MeshRender, RoundMeshesHaveARoundShadowLine) {
  // A coarse ball with a ball's normals, in light from the side.
  for (const bool isSmoothed : {false, true}) {
    MeshStage stage;
    auto& sun = stage.AddSun();
    sun.SetParam("elevation", 0.0, trWhoSystem);
    sun.SetParam("heading", 90.0, trWhoSystem);
    auto& shader = stage.AddShader("Ball");
    shader.onShade = [](trShadingInterface& si) { si.SetShadingToLambert(trFCol(1.0f)); };
    stage.AddMaker("Ball", [&](trScene& scene) {
      trMaterial material(nullptr, &shader, nullptr, 1);
      material.smoothsTerminator = isSmoothed;
      return scene.AddPolySphere({0, 0, 0}, {6, 6, 6}, 6, 3, scene.AddMaterial(material));
    });
    int lit = 0, wrong = 0;
    for (const CameraSample& sample : stage.Picture(64)) {
      const double cosine = sample.normal.x;
      if (sample.alpha == 0 || std::fabs(cosine) < 0.05) continue;
      if (cosine < 0) {
        EXPECT_EQ(sample.beauty.g, 0);
      }
      if (cosine > 0) ++lit, wrong += sample.beauty.g == 0;
    }
    EXPECT_GT(lit, 300);
    EXPECT_EQ(wrong > 0, !isSmoothed) << wrong;
  }
}

TEST(MeshRender, AllKindsTogetherAreTheSameForAnyNumberOfThreads) {
  MeshStage stage;
  stage.AddSun();
  auto& plain = stage.AddShader("Plain");
  ShadeAsLambert(plain);
  auto& waves = stage.AddShader("Waves");
  ShadeAsLambert(waves);
  waves.onDisplace = [](trShadingInterface& si) { si.P() += si.N() * (0.1 * std::sin(5 * si.Pg().x)); };
  const auto ball = [](trScene& scene, const trVector& centre, trShader& shader, bool isDivided) {
    scene.BeginGroup("ball");
    trScene& group = *scene.GetPGroup(scene.NumGroups())->Subscene();
    group.SetTransform(trTranslate(centre));
    group.SetAllowsTriSubdivision(isDivided);
    const long material = group.AddMaterial(trMaterial(nullptr, &shader, nullptr, 1));
    group.AddPolySphere({0, 0, 0}, {2, 2, 2}, 8, 4, material);
    return scene.EndGroup();
  };
  stage.AddMaker("Balls", [&](trScene& scene) {
    return ball(scene, {-5, 0, 0}, plain, false) && ball(scene, {0, 0, 0}, waves, true) &&
           ball(scene, {5, 0, 0}, waves, false);
  });
  stage.AddMaker("Holdout", [&](trScene& scene) {
    scene.SetVisibilityMode(trSceneVisibilityMode::kHoldout);
    return ball(scene, {2, 2, 2}, plain, false);
  });
  const auto one = stage.Picture(40, 3, 1);
  EXPECT_GT(Coverage(one), 0.05);
  for (const int threads : {2, 7}) EXPECT_EQ(LargestDifference(one, stage.Picture(40, 3, threads)), 0);
}

}  // namespace
