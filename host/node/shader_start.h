// StartRender and FinishRender with an account of who is started: a sampling outside of renders leaves alone
// what a render has started. One thread at a time.
#pragma once

#include "core/shader.h"

namespace ovhost {

/// StartRender, and its result.
OV_API long StartShader(trShader& shader, trRenderingInterface& rendering);
/// FinishRender, once for every StartShader.
OV_API void FinishShader(trShader& shader, trRenderingInterface& rendering);
bool IsStarted(const trShader& shader);

}  // namespace ovhost
