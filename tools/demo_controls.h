// demo_controls: a panel of values for a scene that is handed to others.
#pragma once

#include <array>

#include "core/shader.h"

/// Eight numbers, four colours and four switches, each with a name of its own. Each is a value node below the
/// panel, by that name, which functions elsewhere link to: a number, a colour, or 0 or 1. Renaming a control
/// keeps the links that lead to it.
class DemoControls : public trBase {
 public:
  DemoControls();
  long OnCreate() override;
  void OnParamChanged(long index, trBase* who) override;

 private:
  enum Kind { kNumber, kColour, kSwitch };
  struct Control {
    Kind kind;
    trString name;      ///< the parameter
    trString nodeName;  ///< that the control's node has by now; empty while there is none
    double number = 0;
    trManRgb colour;
    unsigned char isOn = 0;
  };
  static constexpr int kNumbers = 8, kColours = 4, kSwitches = 4;

  void Declare(Control& control, Kind kind, int number);
  void MakeNode(Control& control);
  trBase* NodeOf(const Control& control) const;
  /// Carries name and value over to the control's node.
  void Push(Control& control);

  std::array<Control, kNumbers + kColours + kSwitches> controls_;
  bool isCreated_ = false;
};
