// note: words on the network view.
#pragma once

#include "core/node.h"

/// A text with a colour and a size, in units of the view. Nothing reads it but people.
class Note : public trBase {
 public:
  Note();

 private:
  trString text_;
  trManRgb colour_;
  tr2Vector size_;
  double textSize_;
  trStringHint textHint_;
  tr2VectorHint sizeHint_;
  trDoubleHint textSizeHint_;
};
