// live_value_display.
#include "tools/live_value_display.h"

#include "core/console.h"

LiveValueDisplay::LiveValueDisplay() {
  DeclareTrigger("only_display_during_full_renders", "only_display_once");
  Param(beep_, "beep", 0).About("Rings the terminal's bell at each report. Many at once are heard as one.");
  const struct {
    trString& text;
    const char *name, *label, *about;
  } fields[] = {
      {colour_, "colour_static", "Colour :", "The colour where the node reported last. Shown only."},
      {scalar_, "scalar_static", "Scalar :", "The number where the node reported last. Shown only."},
      {vector_, "vector_static", "Vector :", "The vector where the node reported last. Shown only."}};
  for (const auto& field : fields) {
    Param(field.text, field.name, "").Display(field.label).NotSaved().About(field.about);
    SetParamGuiEnabled(field.name, false);
  }
}

long LiveValueDisplay::GetStringFromParam(long index, trString& value, trBase* who) {
  const std::lock_guard lock(fields_);
  return Diagnostic::GetStringFromParam(index, value, who);
}

long LiveValueDisplay::StartRender(trRenderingInterface& rendering) {
  hasReported_ = false;
  return Diagnostic::StartRender(rendering);
}

long LiveValueDisplay::FinishRender(trRenderingInterface& rendering) {
  if (hasReported_) {
    trString line = NameAndPath();
    if (!colour_.empty()) line += "  Colour : " + colour_;
    if (!scalar_.empty()) line += "  Scalar : " + scalar_;
    if (!vector_.empty()) line += "  Vector : " + vector_;
    trOutMsg(line);
    hasReported_ = false;
  }
  return Diagnostic::FinishRender(rendering);
}

void LiveValueDisplay::Report(const WatchedValues& values) {
  trString colour, scalar, vector;
  if (const auto& c = values.colour)
    colour = "r = " + NumberText(c->r) + ", g = " + NumberText(c->g) + ", b = " + NumberText(c->b);
  if (values.scalar) scalar = NumberText(*values.scalar);
  if (const auto& v = values.vector)
    vector = "x = " + NumberText(v->x) + ", y = " + NumberText(v->y) + ", z = " + NumberText(v->z);
  {
    const std::lock_guard lock(fields_);
    colour_ = std::move(colour);
    scalar_ = std::move(scalar);
    vector_ = std::move(vector);
    hasReported_ = true;
  }
  if (beep_) trBeep();
}
