#include "atmosphere/cloud_layer_v2.h"
trFCol CloudLayerV2::ShadowMapOpacity(const trVector&) const { return {}; }
