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
  Param(camera_, "camera", "").About("Camera whose view is rendered. Left empty, it is the project's first.");
  Param(imageWidth_, "image_width", 960, &sizeHint_).About("Width of the picture, pixels.");
  Param(imageHeight_, "image_height", 540, &sizeHint_).About("Height of the picture, pixels.");
  GuiTab("Quality", "quality_tab");
  Param(engine_, "engine", kPath, &engineHint_)
      .About(
          "Path tracer follows light all the way; Standard reuses indirect light of neighbours and has a "
          "clean picture sooner.");
  Param(samples_, "samples", 16, &samplesHint_)
      .Display("Samples per pixel")
      .About(
          "Rays through a pixel, at most. Four times as many take four times as long and halve the noise.");
  Param(noiseTarget_, "noise_target", 0.0, &noiseHint_)
      .Display("Noise to stop at")
      .About(
          "A tile whose noise is below this share of its brightness takes no more samples; 0.02 is 2 %. 0 is "
          "never.");
  Param(leastSamples_, "least_samples", 16, &samplesHint_)
      .Display("Samples before that")
      .About("Samples that every pixel gets before a tile may stop at its noise.");
  Param(detail_, "detail", 1.0, &detailHint_)
      .About(
          "Fineness of surfaces: 1 dices them to edges of about a pixel, 2 to half of that. Lower it for "
          "quick looks.");
  // Rough displacement could be cut for ever.
  Param(dicingLimit_, "dicing_limit", 16.0, &dicingLimitHint_)
      .Display("Micropolygons per pixel at most")
      .About(
          "Vertices that a surface may be diced to for each pixel at detail 1, against rough displacement. 0 "
          "is no limit.");
  GuiTab("Light", "light_tab");
  Param(maxBounces_, "max_bounces", 1, &bouncesHint_)
      .Display("Diffuse bounces")
      .About(
          "How often light goes on from one matt surface to the next. 0 leaves sunlight alone; more "
          "brightens hollows.");
  Param(maxSpecularBounces_, "max_specular_bounces", 8, &deepBouncesHint_)
      .Display("Reflections and refractions")
      .About(
          "Reflections and refractions in a row that are followed. Raise it where glass or water goes "
          "black.");
  Param(clampIndirect_, "clamp_indirect", 1.5, &brightnessHint_)
      .Display("Clamp indirect light")
      .About(
          "Most that one path may add to a sample after its first surface, as luminance; cuts bright specks. "
          "0 is no limit.");
  Param(roulette_, "russian_roulette", 1)
      .Display("Russian roulette")
      .About("Ends weak paths by chance and makes up for them by the others: faster, and right on average.");
  Param(rouletteStart_, "roulette_start", 1, &bouncesHint_)
      .Display("Bounces before roulette")
      .About("Bounces that each path has before chance may end it.");
  Param(leastSurvival_, "roulette_least_chance", 0.25, &chanceHint_)
      .Display("Least chance to go on")
      .About(
          "Lowest probability, 0 to 1, with which a weak path goes on. 1 ends none; low is faster and "
          "noisier.");
  // What single scattering between the facets of rough surfaces loses; older projects look as they did.
  Param(energyCompensation_, "energy_compensation", 0)
      .Display("Rough surfaces lose no light")
      .About(
          "Keeps the light that rough reflections lose between their facets. Off, older projects look as "
          "they did.");
  GuiTab("Clouds", "clouds_tab");
  // Steps of a march crowd towards where it begins. All alike, they don't converge to the integral of what
  // changes along the ray; older projects look as they did.
  Param(cloudSteps_, "cloud_steps", static_cast<long>(trCloudSteps::kAsLayersTell), &cloudStepsHint_)
      .Display("Steps through clouds")
      .About(
          "How long a step through a cloud counts. True lengths converge as samples rise; the other keeps "
          "old pictures.");
  Param(exactClouds_, "exact_clouds", 0)
      .Display("Follow light through clouds")
      .About(
          "The path tracer follows light inside clouds, scattering by scattering: exact, slow, and noisy at "
          "few samples.");
  GuiTab("Standard engine", "standard_tab");
  Param(indirectSamples_, "indirect_samples", 32, &indirectHint_)
      .Display("Samples of indirect light")
      .About(
          "Standard engine: directions in which each point of cached light looks around. More makes shade "
          "smoother.");
  Param(indirectSpacing_, "indirect_spacing", 4.0, &spacingHint_)
      .Display("Pixels between them")
      .About(
          "Standard engine: distance of the points of cached light. Less keeps finer shade and takes "
          "longer.");
  Param(leastImportance_, "least_importance", 0.05, &importanceHint_)
      .Display("Least importance of rays")
      .About(
          "Standard engine: reflections that count less than this share of a pixel are traced by chance. 0 "
          "traces all.");
  GuiTab("Film", "film_tab");
  Param(filter_, "pixel_filter", 1, &filterHint_)
      .About(
          "How samples count by their distance from the pixel's middle: from Box, all alike, to the smooth "
          "Blackman-Harris.");
  Param(filterWidth_, "filter_width", 2.0, &filterWidthHint_)
      .Display("Filter width in pixels")
      .About(
          "Reach of the filter over neighbouring pixels. Wider is softer; narrower is crisper and shows "
          "steps.");
  Param(exposure_, "exposure", 0.0, &exposureHint_)
      .Display("Exposure in stops")
      .About(
          "Brightness of pictures for the eye: each stop doubles it. Linear files keep the scene's own "
          "values.");
  Param(softClip_, "soft_clip", 1)
      .Display("Roll off highlights")
      .About("Bends bright parts gently up to white. Off, all that is above white is cut.");
  Param(denoise_, "denoise", 0)
      .Display("Smooth what noise is left")
      .About(
          "Smooths noise in the written picture along the features of the scene. For previews and few "
          "samples.");
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
