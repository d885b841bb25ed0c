// Colour conversions by OpenColorIO.
#include "host/image/codec/colour_processor.h"

#include <OpenColorIO/OpenColorIO.h>

#include <exception>

namespace ocio = OCIO_NAMESPACE;

namespace {

/// Names under which configurations have the render space, linear light of the Rec. 709 primaries.
constexpr const char* kRenderSpaces[] = {"lin_rec709",  "Linear Rec.709 (sRGB)",   "lin_rec709_srgb",
                                         "lin_srgb",    "Utility - Linear - sRGB", "Linear sRGB",
                                         "linear_srgb", "Linear Rec.709",          "rendering"};

class OcioProcessor final : public ovhost::ColourProcessor {
 public:
  explicit OcioProcessor(ocio::ConstCPUProcessorRcPtr processor) : processor_(std::move(processor)) {}
  void Apply(float* rgb) const override { processor_->applyRGB(rgb); }

 private:
  ocio::ConstCPUProcessorRcPtr processor_;
};

std::string RenderSpace(const ocio::ConstConfigRcPtr& config) {
  for (const char* name : kRenderSpaces)
    if (config->getColorSpace(name)) return name;
  if (config->getColorSpace(ocio::ROLE_SCENE_LINEAR)) return ocio::ROLE_SCENE_LINEAR;
  return {};
}

}  // namespace

extern "C" __attribute__((visibility("default"))) ovhost::ColourProcessor* ovMakeColourProcessor(
    const char* configPath, const char* inputSpace, std::string& problem) {
  try {
    ocio::SetLoggingLevel(ocio::LOGGING_LEVEL_NONE);
    const ocio::ConstConfigRcPtr config = ocio::Config::CreateFromFile(configPath);
    config->validate();
    const std::string target = RenderSpace(config);
    if (target.empty()) throw ocio::Exception("it has no linear space to render in");
    if (!config->getColorSpace(inputSpace))
      throw ocio::Exception((std::string("it has no colour space \"") + inputSpace + "\"").c_str());
    return new OcioProcessor(config->getProcessor(inputSpace, target.c_str())->getDefaultCPUProcessor());
  } catch (const std::exception& exception) {
    problem = exception.what();
    return nullptr;
  }
}
