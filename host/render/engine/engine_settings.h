// What a render node asks of the engines.
#pragma once

#include <memory>

#include "host/project/render_node.h"
#include "host/render/engine/indirect_light.h"
#include "host/render/engine/path_settings.h"
#include "host/render/engine/traced_light.h"

namespace ovhost {

struct EngineSettings {
  double edgePixels = 0;              ///< longest edge of a micropolygon
  std::uint64_t pictureVertices = 0;  ///< that a surface may have for the picture's size; 0: no limit
  bool compensatesEnergy = false;     ///< of rough surfaces
  trCloudSteps cloudSteps = trCloudSteps::kAsLayersTell;
  PathSettings path;
  IndirectSettings indirect;
  TraceSettings trace;

  bool operator==(const EngineSettings&) const = default;
};

/// The settings of a node, held to what the engines can do, for a picture of so many pixels. Thread-safe.
OV_API EngineSettings SettingsOf(const trRenderNode& node, double pixels);

/// A cache of indirect light for a picture of so many pixels, in a share of `memory` bytes. Thread-safe.
OV_API std::unique_ptr<LightCache> MakeLightCache(double pixels, std::uint64_t memory);

}  // namespace ovhost
