// When a diagnostic node reports.
#include "tools/diagnostic.h"

DiagnosticResetButton::DiagnosticResetButton(Diagnostic* node)
    : trGuiPushButton(node, "Reset"), diagnostic_(node) {}

long DiagnosticResetButton::OnPressed() {
  diagnostic_->Reset();
  return 1;
}

void Diagnostic::DeclareTrigger(const char* fullRendersOnly, const char* onlyOnce) {
  Param(fullRendersOnly_, fullRendersOnly, 1)
      .About("Keeps quiet in previews, which evaluate shaders as well.");
  Param(onlyOnce_, onlyOnce, 0)
      .About("Reports once, at the first point that triggers, until the reset button is pressed.");
  Gui(trGuiButtonRowOpen);
  Gui(trGuiRowOpen);
  PushButton(resetButton_, "reset_button");
  Gui(trGuiButtonRowClose);
  inputsHeading_.Declare(this, "inputs_separator", "Inputs");
  Param(trigger_, "trigger_input", "")
      .About("The node reports wherever the value of this shader isn't 0. Without one it never does.");
  Param(colour_, "colour_input", "").About("A shader whose colour is reported.");
  Param(scalar_, "scalar_input", "").About("A shader whose value is reported as a number.");
  Param(vector_, "vector_input", "").About("A shader whose value is reported as a vector.");
}

void Diagnostic::ReportWhereTriggered(trShadingInterface& si) {
  if (!IsEnabled()) return;
  if (fullRendersOnly_ && si.RenderContext() != trRenderContext::kFinal) return;
  trShader* const trigger = LinkedShader(trigger_);
  if (!trigger || trigger->FloatValueTS(si) == 0) return;
  // Of threads that come here at once, one finds that nobody has reported yet.
  if (fired_.exchange(true) && onlyOnce_) return;

  WatchedValues values;
  if (trShader* const shader = LinkedShader(colour_)) values.colour = shader->FColValueTS(si);
  if (trShader* const shader = LinkedShader(scalar_)) values.scalar = shader->FloatValueTS(si);
  if (trShader* const shader = LinkedShader(vector_)) values.vector = shader->VectorValueTS(si);
  Report(values);
}

float Diagnostic::FloatValue(trShadingInterface& si) {
  ReportWhereTriggered(si);
  trShader* const input = InputShader();
  return input ? input->FloatValueTS(si) : 0.0f;
}

trFCol Diagnostic::FColValue(trShadingInterface& si) {
  ReportWhereTriggered(si);
  trShader* const input = InputShader();
  return input ? input->FColValueTS(si) : trFCol();
}

trVector Diagnostic::VectorValue(trShadingInterface& si) {
  ReportWhereTriggered(si);
  trShader* const input = InputShader();
  return input ? input->VectorValueTS(si) : trVector();
}
