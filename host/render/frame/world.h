// Everything a frame is rendered from: scenes, diced meshes, lights, volumes, tables.
#pragma once

#include <memory>
#include <vector>

#include "core/project.h"
#include "core/scene_maker.h"
#include "host/render/dice/dicer.h"
#include "host/render/dice/gather.h"
#include "host/render/shade/lit_scene.h"

namespace ovhost {

struct WorldSettings : FrameSettings {
  std::uint64_t memoryBytes = 0;
  std::uint64_t pictureVertices = 0;  ///< that a surface may have for the picture's size; 0: no limit
  trCloudSteps cloudSteps = trCloudSteps::kTrueLengths;
  int threads = 1;
};

/// Built on one thread inside the render's arena; then read by all.
class OV_API World final : public LitScene {
 public:
  World(juProject& project, const WorldSettings& settings, const std::atomic<bool>& stop);
  ~World() override;

  /// Makes the scenes, starts the shaders, dices, builds. False with errors reported, or when stopped.
  bool Build();
  /// Ends the shaders, and forgets what was worked out with them, so that nodes may change that no surface's
  /// place depends on.
  void Release();
  /// Starts them again, over the same surfaces. False as Build.
  bool Relight(trCloudSteps cloudSteps);

  const DiceStatistics& Dicing() const { return dicing_; }
  const Assembly& Parts() const { return parts_; }
  /// The object that the eye is inside of, below its displaced surface, or null.
  const trBase* ObjectAroundEye() const;
  double DiceSeconds() const { return diceSeconds_; }

 private:
  bool MakeScenes();
  void CollectLights();
  void CollectVolumes();
  bool BuildParts();
  bool DiceParts();
  void WarnOfLongEdges(const DiceSettings& dice) const;
  bool DiceAssembly(Assembly& parts, const DiceSettings& settings);
  void BuildSkies();
  void ClassifyParts();
  bool StartShaders();
  /// What shaders and volumes want done on all threads before the first pixel.
  bool RunPrepass();
  /// Lights, volumes, shaders.
  bool PrepareShading();
  void FinishShaders();

  juProject& project_;
  WorldSettings settings_;
  struct MadeScene {
    std::unique_ptr<trScene> scene;
    SceneSource source;
  };
  std::vector<MadeScene> scenes_;
  Assembly parts_;  ///< relative to the eye
  SharedParts shared_;
  std::vector<trShader*> started_;
  std::vector<std::function<bool(trRenderState&)>> prepass_;
  DiceStatistics dicing_;
  double diceSeconds_ = 0;
};

}  // namespace ovhost
