// The render node's parameters.
#include "host/project/render_node.h"

#include "core/idioms.h"

trRenderNode::trRenderNode() {
  DeclareTrue("is_render");
  SetRange(sizeHint_, this, {.min = 1, .max = 16384});
  SetRange(samplesHint_, this, {.min = 1, .max = 4096});
  SetRange(noiseHint_, this, {.min = 0, .max = 1, .focusPower = 3});
  SetRange(bouncesHint_, this, {.min = 0, .max = 16});
  SetRange(deepBouncesHint_, this, {.min = 0, .max = 64});
  SetRange(chanceHint_, this, {.min = 0, .max = 1});
  SetRange(brightnessHint_, this, {.min = 0, .max = 100, .focusPower = 2});
  SetRange(indirectHint_, this, {.min = 1, .max = 1024});
  SetRange(spacingHint_, this, {.min = 1, .max = 32});
  SetRange(importanceHint_, this, {.min = 0, .max = 1, .focusPower = 2});
  SetRange(detailHint_, this, {.min = 0.05, .max = 4});
  SetRange(dicingLimitHint_, this, {.min = 0, .max = 100, .focusPower = 2});
  SetRange(filterWidthHint_, this, {.min = 0, .max = 8});
  SetRange(exposureHint_, this, {.min = -10, .max = 10});
  SetMenu(engineHint_, this, {{"Standard", kStandard}, {"Path tracer", kPath}});
  SetMenu(cloudStepsHint_, this,
          {{"As the layers tell", static_cast<long>(trCloudSteps::kAsLayersTell)},
           {"True lengths", static_cast<long>(trCloudSteps::kTrueLengths)}});
  SetMenu(filterHint_, this, {{"Box", 0}, {"Tent", 1}, {"Gaussian", 2}, {"Blackman-Harris", 3}});
  Param(camera_, "camera", "");
  Param(imageWidth_, "image_width", 960, &sizeHint_);
  Param(imageHeight_, "image_height", 540, &sizeHint_);
  GuiTab("Quality", "quality_tab");
  Param(engine_, "engine", kPath, &engineHint_);
  Param(samples_, "samples", 16, &samplesHint_).Display("Samples per pixel");
  // Tiles whose noise is below this, as a share of their brightness, take no more samples.
  Param(noiseTarget_, "noise_target", 0.0, &noiseHint_).Display("Noise to stop at");
  Param(leastSamples_, "least_samples", 16, &samplesHint_).Display("Samples before that");
  Param(detail_, "detail", 1.0, &detailHint_);
  // Rough displacement could be cut for ever.
  Param(dicingLimit_, "dicing_limit", 16.0, &dicingLimitHint_).Display("Micropolygons per pixel at most");
  GuiTab("Light", "light_tab");
  Param(maxBounces_, "max_bounces", 1, &bouncesHint_).Display("Diffuse bounces");
  Param(maxSpecularBounces_, "max_specular_bounces", 8, &deepBouncesHint_)
      .Display("Reflections and refractions");
  Param(clampIndirect_, "clamp_indirect", 1.5, &brightnessHint_).Display("Clamp indirect light");
  Param(roulette_, "russian_roulette", 1).Display("Russian roulette");
  Param(rouletteStart_, "roulette_start", 1, &bouncesHint_).Display("Bounces before roulette");
  Param(leastSurvival_, "roulette_least_chance", 0.25, &chanceHint_).Display("Least chance to go on");
  // What single scattering between the facets of rough surfaces loses; older projects look as they did.
  Param(energyCompensation_, "energy_compensation", 0).Display("Rough surfaces lose no light");
  GuiTab("Clouds", "clouds_tab");
  // Steps of a march crowd towards where it begins. All alike, they don't converge to the integral of what
  // changes along the ray; older projects look as they did.
  Param(cloudSteps_, "cloud_steps", static_cast<long>(trCloudSteps::kAsLayersTell), &cloudStepsHint_)
      .Display("Steps through clouds");
  Param(exactClouds_, "exact_clouds", 0).Display("Follow light through clouds");
  GuiTab("Standard engine", "standard_tab");
  // Sky light and bounces are averaged over so many directions at points so many pixels apart.
  Param(indirectSamples_, "indirect_samples", 32, &indirectHint_).Display("Samples of indirect light");
  Param(indirectSpacing_, "indirect_spacing", 4.0, &spacingHint_).Display("Pixels between them");
  // Reflections and refractions that count less in a pixel are traced by chance.
  Param(leastImportance_, "least_importance", 0.05, &importanceHint_).Display("Least importance of rays");
  GuiTab("Film", "film_tab");
  Param(filter_, "pixel_filter", 1, &filterHint_);
  Param(filterWidth_, "filter_width", 2.0, &filterWidthHint_).Display("Filter width in pixels");
  Param(exposure_, "exposure", 0.0, &exposureHint_).Display("Exposure in stops");
  Param(softClip_, "soft_clip", 1).Display("Roll off highlights");
  Param(denoise_, "denoise", 0).Display("Smooth what noise is left");
  GuiTab("Surface", "surface_tab");
  Param(microExporter_, "micro_exporter", "")
      .Display("Micro exporter")
      .About("Gets the diced surface of each frame, as detailed as the camera sees it.");
}

long trRenderNode::OnFirstCreate() {
  SetParam("energy_compensation", 1, trWhoSystem);
  SetParam("cloud_steps", static_cast<long>(trCloudSteps::kTrueLengths), trWhoSystem);
  return trBase::OnFirstCreate();
}
