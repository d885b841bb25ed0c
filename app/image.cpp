// `ov image`: picture files made from picture files.
#include "app/app.h"
#include "app/progress.h"
#include "app/signals.h"
#include "core/image_process.h"
#include "core/messages.h"
#include "host/session/frames.h"
#include "host/session/session_error.h"

namespace ovapp {
namespace {

struct Options {
  std::string input, output, frames, colour = "type";
  std::vector<long> crop, size;
  double exposure = 0;
  bool fullFloat = false;
};

trImageChange ChangeOf(const Options& options) {
  trImageChange change;
  if (!options.crop.empty()) {
    change.crops = true;
    change.left = options.crop[0];
    change.bottom = options.crop[1];
    change.right = options.crop[2];
    change.top = options.crop[3];
  }
  if (!options.size.empty()) {
    change.resizes = true;
    change.width = options.size[0];
    change.height = options.size[1];
  }
  change.coding = options.colour == "linear" ? trLightCoding::kLinear
                  : options.colour == "srgb" ? trLightCoding::kSrgb
                                             : trLightCoding::kByType;
  change.exposureStops = options.exposure;
  change.fullFloat = options.fullFloat;
  return change;
}

int Run(Program& program, const Options& options) {
  if (!trIsPicturePath(options.output))
    throw Failure{kBadUsage, options.output + ": pictures are written as exr, png, tif, tiff, jpg or jpeg"};
  const bool isSequence = !options.frames.empty();
  const std::vector<long> frames = isSequence ? ovhost::ParseFrames(options.frames) : std::vector<long>{1};
  if (frames.size() > 1 && !ovhost::HasFramePlace(options.output))
    throw Failure{kBadUsage, options.output + ": has no place for the number of the frame, such as ####"};
  const trImageChange change = ChangeOf(options);
  int failures = 0;
  ovhost::RenderControl control;
  const RenderSignals signals(control);
  for (const long frame : frames) {
    if (control.stop) return 128 + StopSignal();
    const std::string from = isSequence ? ovhost::FramePath(options.input, frame) : options.input,
                      to = isSequence ? ovhost::FramePath(options.output, frame) : options.output;
    const trString problem = trProcessImageFile(from, to, change);
    if (problem.empty()) {
      trPrintMessage(to + ": written");
    } else {
      trError(problem);
      ++failures;
    }
  }
  return failures > 0 ? kFailed : kDone;
}

}  // namespace

void AddImage(Program& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      program.Add("image", "Resize, crop, recode pictures, or write them in another format",
                  "ov image shot.####.exr -o small.####.png --frames 1-20 --size 960 0", options, Run);
  command->add_option("input", options->input, "Picture to read; #### stands for the frame")->required();
  command->add_option("-o,--output", options->output, "Picture to write: exr, png, tif, tiff, jpg, jpeg")
      ->required();
  command->add_option("--frames", options->frames, "Frames of a sequence, such as 1-10,20-40x5");
  command
      ->add_option("--crop", options->crop,
                   "First what is cut out: left, bottom, right and top pixel, from the bottom left")
      ->expected(4);
  command->add_option("--size", options->size, "Width and height in pixels; 0 for one keeps proportions")
      ->expected(2);
  command->add_option("--colours", options->colour, "Colours of the input: linear, srgb, or by its type")
      ->check(CLI::IsMember({"type", "linear", "srgb"}));
  command->add_option("--exposure", options->exposure, "Stops by which the picture is made brighter");
  command->add_flag("--float", options->fullFloat, "32 bits in EXR rather than 16");
}

}  // namespace ovapp
