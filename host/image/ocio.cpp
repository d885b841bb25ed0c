// Colour configurations, of which each session has one.
#include "core/ocio.h"

#include <cmath>

#include "core/messages.h"
#include "host/base/plain_file.h"
#include "host/base/session_context.h"
#include "host/image/codec/colour_processor.h"
#include "host/image/codec_library.h"

struct trOcio::Processor {
  std::unique_ptr<ovhost::ColourProcessor> conversion;
};

trOcio trOcio::gProjectSettings;

trOcio::trOcio() = default;
trOcio::~trOcio() = default;

const trOcio& trOcio::Used() const {
  return this == &gProjectSettings ? ovhost::SessionContext::Current().colours : *this;
}

int trOcio::Set(const trString& configPath, const trString& inputSpace) {
  if (this == &gProjectSettings) return ovhost::SessionContext::Current().colours.Set(configPath, inputSpace);
  processor_.reset();
  if (configPath.empty()) return 1;
  std::string problem;
  auto* const make = ovhost::IsPlainFile(configPath, problem)
                         ? reinterpret_cast<ovhost::ColourProcessorMaker*>(
                               ovhost::CodecFunction("ovMakeColourProcessor", problem))
                         : nullptr;
  std::unique_ptr<ovhost::ColourProcessor> conversion(
      make ? make(configPath.c_str(), inputSpace.c_str(), problem) : nullptr);
  if (!conversion) {
    trWarning(configPath + ": the colour configuration can't be used: " + problem);
    return 0;
  }
  processor_ = std::make_unique<Processor>(Processor{std::move(conversion)});
  return 1;
}

void trOcio::Apply(trFCol& colour) const {
  const Processor* const processor = Used().processor_.get();
  if (!processor) return;
  float rgb[3] = {colour.r, colour.g, colour.b};
  processor->conversion->Apply(rgb);
  for (int i = 0; i < 3; ++i)
    if (std::isfinite(rgb[i])) colour[i] = rgb[i];
}
