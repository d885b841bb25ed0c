// The render node's parameters.
#include "host/project/render_node.h"

#include "core/idioms.h"

trRenderNode::trRenderNode() {
  DeclareTrue("is_render");
  SetRange(sizeHint_, this, {.min = 1, .max = 16384});
  SetRange(samplesHint_, this, {.min = 1, .max = 4096});
  SetRange(bouncesHint_, this, {.min = 0, .max = 16});
  SetRange(detailHint_, this, {.min = 0.05, .max = 4});
  SetRange(exposureHint_, this, {.min = -10, .max = 10});
  SetMenu(engineHint_, this, {{"Path tracer", 1}});
  Param(camera_, "camera", "");
  Param(imageWidth_, "image_width", 960, &sizeHint_);
  Param(imageHeight_, "image_height", 540, &sizeHint_);
  GuiTab("Quality", "quality_tab");
  Param(engine_, "engine", 1, &engineHint_);
  Param(samples_, "samples", 16, &samplesHint_).Display("Samples per pixel");
  Param(detail_, "detail", 1.0, &detailHint_);
  Param(maxBounces_, "max_bounces", 1, &bouncesHint_);
  Param(clampIndirect_, "clamp_indirect", 1.5);
  GuiTab("Film", "film_tab");
  Param(exposure_, "exposure", 0.0, &exposureHint_).Display("Exposure in stops");
  Param(softClip_, "soft_clip", 1).Display("Roll off highlights");
}
