// image_file_processor.
#include "tools/image_file_processor.h"

#include <algorithm>
#include <cmath>

#include "core/idioms.h"

ImageFileProcessor_ProcessButton::ImageFileProcessor_ProcessButton(ImageFileProcessor* node)
    : trGuiPushButton(node, "Process Files"), node_(node) {}

long ImageFileProcessor_ProcessButton::OnPressed() {
  if (trBase* parent = node_->Parent()) parent->PreChildStateChange(node_, "OnClick " + label);
  return node_->Process();
}

ImageFileProcessor::ImageFileProcessor() {
  inputHint_.SetIsImageFile(true);
  outputHint_.SetIsImageFile(true);
  SetMenu(colourHint_, this, {{"sRGB in whole numbers, linear in floats", 0}, {"Linear", 1}, {"sRGB", 2}});
  SetRange(exposureHint_, this, {.min = -10.0, .max = 10.0});

  GuiTab("Files", "files_tab");
  Param(inputFile_, "input_file", "", &inputHint_)
      .About("Picture to read. In a sequence, '#' signs stand for the number of the frame.");
  Param(outputFile_, "output_file", "", &outputHint_)
      .About("Picture to write: exr, png, tif, tiff, jpg or jpeg. In a sequence it needs '#' signs too.");
  Param(sequence_, "image_sequence", 0).About("Processes a range of frames rather than one picture.");
  Gui(trGuiIndentOpen);
  Param(startFrame_, "start_frame", 1).About("First frame of the sequence that is read and written.");
  Param(endFrame_, "end_frame", 100).About("Last frame of the sequence that is read and written.");
  Gui(trGuiIndentClose);
  AddGuiAction({"image_sequence"}, {"start_frame", "end_frame"}, 2);
  Gui(trGuiRule);
  GuiTab("Size", "size_tab");
  Param(crop_, "crop", 0).About("Cuts a part out, before anything else is done.");
  Gui(trGuiIndentOpen);
  Param(bottomLeft_, "bottom_left", tr2Vector(0, 0))
      .About("First column and row of the part, pixels from the bottom left.");
  Param(topRight_, "top_right", tr2Vector(99, 99))
      .About("Last column and row of the part, pixels; they belong to it.");
  Gui(trGuiIndentClose);
  Param(resize_, "resize", 0).About("Makes the picture larger or smaller, after what was cut out.");
  Gui(trGuiIndentOpen);
  Param(sizeInPixels_, "size_in_pixels", tr2Vector(1000, 0))
      .Display("Size in pixels, 0 for in proportion")
      .About("New width and height. 0 for one of them keeps the proportions.");
  Gui(trGuiIndentClose);
  AddGuiAction({"crop"}, {"bottom_left", "top_right"}, 2);
  AddGuiAction({"resize"}, {"size_in_pixels"}, 2);
  Gui(trGuiRule);
  GuiTab("Colour", "colour_tab");
  Param(inputColour_, "input_colour", 0, &colourHint_)
      .Alias("input_color")
      .Display("Colours of the input")
      .About(
          "How light is coded in the input. Change it where a file of whole numbers is linear, or one of "
          "floats isn't.");
  Param(exposure_, "exposure", 0.0, &exposureHint_)
      .Display("Exposure in stops")
      .About("Stops by which the picture is made brighter; negative ones darken it.");
  Param(fullFloat_, "full_float", 0)
      .Display("32 bits in EXR")
      .About("Writes EXR with 32 bits a channel rather than 16.");
  Gui(trGuiGap);
  Gui(trGuiButtonRowOpen);
  Gui(trGuiRowOpen);
  PushButton(processButton_, "process_button");
  Gui(trGuiButtonRowClose);
}

trImageChange ImageFileProcessor::Change() const {
  const auto pixel = [](double x) { return static_cast<long>(std::clamp(std::floor(x + 0.5), -1e9, 1e9)); };
  trImageChange change;
  change.crops = crop_ != 0;
  change.left = pixel(std::min(bottomLeft_.x, topRight_.x));
  change.bottom = pixel(std::min(bottomLeft_.y, topRight_.y));
  change.right = pixel(std::max(bottomLeft_.x, topRight_.x));
  change.top = pixel(std::max(bottomLeft_.y, topRight_.y));
  change.resizes = resize_ != 0;
  change.width = pixel(sizeInPixels_.x);
  change.height = pixel(sizeInPixels_.y);
  change.coding = static_cast<trLightCoding>(std::clamp(inputColour_, 0L, 2L));
  change.exposureStops = exposure_;
  change.fullFloat = fullFloat_ != 0;
  return change;
}

long ImageFileProcessor::Process() {
  const trScopedErrorsWarningsContext context(this);
  const trString from = inputFile_.FullPath(), to = outputFile_.FullPath();
  if (from.empty() || to.empty()) {
    trError("There are no names of files to read and to write.");
    return 0;
  }
  const long first = sequence_ ? std::min(startFrame_, endFrame_) : 1,
             last = sequence_ ? std::max(startFrame_, endFrame_) : 1;
  if (last > first && trFrameName(to, first) == trFrameName(to, last)) {
    trError("The frames would all have one name: output_file lacks a '#' for their number.");
    return 0;
  }
  const trImageChange change = Change();
  const double count = static_cast<double>(last) - static_cast<double>(first) + 1;
  unsigned long token = 0;
  long result = 1;
  for (long frame = first; frame <= last; ++frame) {
    const trString source = sequence_ ? trFrameName(from, frame) : from,
                   target = sequence_ ? trFrameName(to, frame) : to;
    const auto done = static_cast<float>((static_cast<double>(frame) - static_cast<double>(first)) / count);
    if (!ReportProgress(token, "Processing " + source, done, -1.0f)) return 0;
    const trString problem = trProcessImageFile(source, target, change);
    if (problem.empty()) {
      trPrintMessage(target + ": written");
      continue;
    }
    trError(problem);
    result = 0;
    // What can't be written once can't be written a hundred times.
    if (!trIsPicturePath(target)) return 0;
  }
  ReportProgress(token, "Processing " + from, 1.0f, -1.0f);
  return result;
}
