// note.
#include "tools/note.h"

#include "core/idioms.h"

Note::Note() {
  textHint_.SetStyleFlags(trStringHint::kMultiLine);
  SetRange(sizeHint_, this, {.min = 0.0, .max = 2000.0});
  SetRange(textSizeHint_, this, {.min = 4.0, .max = 72.0});
  DeclareTrue("is_note");
  Param(text_, "text", "", &textHint_)
      .About("The words of the note. Nothing but people reads them; ov info prints them.");
  Param(colour_, "colour", trManRgb(1.0f, 0.9f, 0.5f))
      .About("Colour of the note's paper on the network view.");
  Param(size_, "size", tr2Vector(240, 120), &sizeHint_)
      .About("Width and height of the note on the network view.");
  Param(textSize_, "text_size", 12.0, &textSizeHint_)
      .About("Height of the letters on the network view, in points.");
}
