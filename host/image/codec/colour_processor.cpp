// Colour conversions by OpenColorIO.
#include "host/image/codec/colour_processor.h"

#include <OpenColorIO/OpenColorIO.h>

#include <exception>
#include <filesystem>

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

/// Refuses tables that are no plain files: a pipe in their place would keep us waiting for ever. What can't
/// be found is left to the library, which says so where it is needed.
void CheckTables(const ocio::ConstConfigRcPtr& config, const ocio::ConstTransformRcPtr& transform) {
  if (const auto group = std::dynamic_pointer_cast<const ocio::GroupTransform>(transform)) {
    for (int i = 0; i < group->getNumTransforms(); ++i) CheckTables(config, group->getTransform(i));
  } else if (const auto table = std::dynamic_pointer_cast<const ocio::FileTransform>(transform)) {
    std::string path;
    try {
      path = config->getCurrentContext()->resolveFileLocation(table->getSrc());
    } catch (const ocio::Exception&) {
      return;
    }
    if (!std::filesystem::is_regular_file(path)) throw ocio::Exception((path + " is not a file").c_str());
  }
}

void CheckAllTables(const ocio::ConstConfigRcPtr& config) {
  const int spaces = config->getNumColorSpaces(ocio::SEARCH_REFERENCE_SPACE_ALL, ocio::COLORSPACE_ALL);
  for (int i = 0; i < spaces; ++i) {
    const auto space = config->getColorSpace(
        config->getColorSpaceNameByIndex(ocio::SEARCH_REFERENCE_SPACE_ALL, ocio::COLORSPACE_ALL, i));
    if (!space) continue;
    for (const auto direction : {ocio::COLORSPACE_DIR_TO_REFERENCE, ocio::COLORSPACE_DIR_FROM_REFERENCE})
      CheckTables(config, space->getTransform(direction));
  }
  for (int i = 0; i < config->getNumLooks(); ++i) {
    const auto look = config->getLook(config->getLookNameByIndex(i));
    if (!look) continue;
    CheckTables(config, look->getTransform());
    CheckTables(config, look->getInverseTransform());
  }
  for (int i = 0; i < config->getNumNamedTransforms(ocio::NAMEDTRANSFORM_ALL); ++i) {
    const auto named =
        config->getNamedTransform(config->getNamedTransformNameByIndex(ocio::NAMEDTRANSFORM_ALL, i));
    if (!named) continue;
    for (const auto direction : {ocio::TRANSFORM_DIR_FORWARD, ocio::TRANSFORM_DIR_INVERSE})
      CheckTables(config, named->getTransform(direction));
  }
}

}  // namespace

extern "C" __attribute__((visibility("default"))) ovhost::ColourProcessor* ovMakeColourProcessor(
    const char* configPath, const char* inputSpace, std::string& problem) {
  try {
    ocio::SetLoggingLevel(ocio::LOGGING_LEVEL_NONE);
    const ocio::ConstConfigRcPtr config = ocio::Config::CreateFromFile(configPath);
    config->validate();
    CheckAllTables(config);
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
