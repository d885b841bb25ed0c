// note.
#include "tools/note.h"

#include "core/idioms.h"

Note::Note() {
  textHint_.SetStyleFlags(trStringHint::kMultiLine);
  SetRange(sizeHint_, this, {.min = 0.0, .max = 2000.0});
  SetRange(textSizeHint_, this, {.min = 4.0, .max = 72.0});
  DeclareTrue("is_note");
  Param(text_, "text", "", &textHint_);
  Param(colour_, "colour", trManRgb(1.0f, 0.9f, 0.5f));
  Param(size_, "size", tr2Vector(240, 120), &sizeHint_);
  Param(textSize_, "text_size", 12.0, &textSizeHint_);
}
