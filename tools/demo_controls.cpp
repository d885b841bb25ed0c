// demo_controls.
#include "tools/demo_controls.h"

DemoControls::DemoControls() {
  Control* control = controls_.data();
  const struct {
    const char *label, *tab;
    Kind kind;
    int count;
  } groups[] = {{"Numbers", "numbers_tab", kNumber, kNumbers},
                {"Colours", "colours_tab", kColour, kColours},
                {"Switches", "switches_tab", kSwitch, kSwitches}};
  for (const auto& group : groups) {
    Gui(trGuiRule);
    GuiTab(group.label, group.tab);
    for (int i = 1; i <= group.count; ++i) Declare(*control++, group.kind, i);
  }
}

void DemoControls::Declare(Control& control, Kind kind, int number) {
  static const char* const kParams[] = {"number_", "colour_", "switch_"};
  static const char* const kNames[] = {"Number ", "Colour ", "Switch "};
  const trString count = std::to_string(number), value = kParams[kind] + count;
  control.kind = kind;
  Param(control.name, (value + "_name").c_str(), kNames[kind] + count)
      .About("Name of the control, and of the value node below the panel that functions link to.");
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  if (kind == kNumber)
    Param(control.number, value.c_str(), 0.0)
        .About("A number that whatever links to the control of this name reads.");
  if (kind == kColour)
    Param(control.colour, value.c_str(), trRgbLinear709(1.0f))
        .About("A colour that whatever links to the control of this name reads.");
  if (kind == kSwitch)
    Param(control.isOn, value.c_str(), 0)
        .About(
            "A switch: whatever links to the control of this name reads 1 while it is on, and 0 otherwise.");
}

long DemoControls::OnCreate() {
  isCreated_ = true;
  for (Control& control : controls_) {
    MakeNode(control);
    Push(control);
  }
  return trBase::OnCreate();
}

trBase* DemoControls::NodeOf(const Control& control) const {
  if (control.nodeName.empty()) return nullptr;
  for (long i = 0; i < NumChildren(); ++i)
    if (Child(i)->Name() == control.nodeName) return Child(i);
  return nullptr;
}

/// A project brings the nodes along; a panel made new has none yet.
void DemoControls::MakeNode(Control& control) {
  control.nodeName = control.name;
  if (NodeOf(control)) return;
  trBase* const node = CreateChild(control.kind == kColour ? "constant_colour" : "constant_scalar");
  if (!node) return;
  node->SetName(control.name);
  control.nodeName = node->Name();
}

void DemoControls::Push(Control& control) {
  trBase* const node = NodeOf(control);
  if (!node) return;
  if (!control.name.empty() && node->Name() != control.name) {
    node->SetName(control.name);
    control.nodeName = node->Name();
  }
  if (control.kind == kColour)
    node->SetParam("colour", control.colour, this);
  else
    node->SetParam("value", control.kind == kSwitch ? static_cast<double>(control.isOn) : control.number,
                   this);
}

void DemoControls::OnParamChanged(long index, trBase* who) {
  trBase::OnParamChanged(index, who);
  if (!isCreated_) return;
  for (Control& control : controls_)
    if (IsParam(index, &control.name) || IsParam(index, &control.number) || IsParam(index, &control.colour) ||
        IsParam(index, &control.isOn))
      Push(control);
}
