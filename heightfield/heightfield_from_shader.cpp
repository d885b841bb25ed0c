// heightfield_from_shader.
#include "heightfield/heightfield_from_shader.h"

#include <cstring>

#include "heightfield/operator.h"

HeightfieldFromShader::HeightfieldFromShader() {
  Param(shader_, "shader", "")
      .About("Shader whose displacement becomes the heights, looked up at each point of the input.");
  Param(autoFlag_, "auto_generate", 0)
      .About(
          "Looks the shader up whenever something changes, and when the project is loaded. Off, only the "
          "button does.");
  Gui(trGuiRadioOpen);
  position_.Declare(this);
  Gui(trGuiRadioClose);
  Gui(trGuiButtonRowOpen);
  Gui(trGuiRowOpen);
  PushButton(generateButton_, "generate_button");
  Gui(trGuiButtonRowClose);
}

void HeightfieldFromShader::OnParamChanged(long index, trBase* who) {
  if (IsParam(index, &position_.center) && position_.center) SetParam("position_lower_left", 0, this);
  if (IsParam(index, &position_.lowerLeft) && position_.lowerLeft) SetParam("position_center", 0, this);

  bool isOutOfDate = autoFlag_ != 0;
  for (const char* name : {"name", "gui_use_node_pos", "gui_node_pos", "auto_generate"})
    if (std::strcmp(ParamName(index), name) == 0) isOutOfDate = false;
  if (isOutOfDate) Cleanup();
  trHeightfield::OnParamChanged(index, who, isOutOfDate);
}

long HeightfieldFromShader::Compute() {
  trShader* const shader = NamedShader(*this, shader_);
  if (!shader) return 1;
  const trHeightfield* const input = HfInput();
  HfSetScaleEnabled(0);
  if (!HasPoints(input)) return MakeFlat(*this);

  const trString text = "HeightfieldFromShader: Generating";
  unsigned long token = 0;
  ReportProgress(token, text, 0.0f, -1.0f);
  if (!Init(0, 0, input->width, input->height)) return 0;
  Fill(0);
  ShaderSampling sampling(*this, input->HfXScale(), input->HfYScale(), input->HfZScale(),
                          position_.Origin(*this));
  if (!sampling.InOrder(*shader, text)) return 0;
  ReportProgress(token, text, 1.0f, -1.0f);
  HfFindZRange();
  return 1;
}
