// The account of started shaders.
#include "host/node/shader_start.h"

#include "host/node/node_data.h"

namespace ovhost {

long StartShader(trShader& shader, trRenderingInterface& rendering) {
  ++shader.Data().starts;
  return shader.StartRender(rendering);
}

void FinishShader(trShader& shader, trRenderingInterface& rendering) {
  --shader.Data().starts;
  shader.FinishRender(rendering);
}

bool IsStarted(const trShader& shader) { return shader.Data().starts > 0; }

}  // namespace ovhost
