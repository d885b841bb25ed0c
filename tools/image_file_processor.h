// image_file_processor: picture files made from picture files, at the press of a button.
#pragma once

#include "core/image_process.h"
#include "core/node.h"

class ImageFileProcessor;

class ImageFileProcessor_ProcessButton : public trGuiPushButton {
 public:
  explicit ImageFileProcessor_ProcessButton(ImageFileProcessor* node);
  long OnPressed() override;

 private:
  ImageFileProcessor* node_;
};

/// Reads a picture, or the frames of a sequence, and writes them resized, cropped, recoded or in another
/// format. '#' in both names stand for the frame's number.
class ImageFileProcessor : public trBase {
 public:
  ImageFileProcessor();
  /// All frames; 0 where one failed or the user stopped it. What is written stays. Main thread only.
  long Process();

 private:
  trImageChange Change() const;

  trFile inputFile_, outputFile_;
  unsigned char sequence_;
  long startFrame_, endFrame_;
  unsigned char crop_;
  tr2Vector bottomLeft_, topRight_;
  unsigned char resize_;
  tr2Vector sizeInPixels_;
  long inputColour_;
  double exposure_;
  unsigned char fullFloat_;
  trLinkHint inputHint_, outputHint_;
  trIntHint colourHint_;
  trDoubleHint exposureHint_;
  ImageFileProcessor_ProcessButton processButton_{this};
};
