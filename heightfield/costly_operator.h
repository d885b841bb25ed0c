// Operators that take long and are computed when a button is pressed, or on their own while a switch allows
// it.
#pragma once

#include "core/heightfield.h"

/// A costly operator. Its class declares the switch with `Param(autoFlag_, ...)` and the button.
class CostlyOperator : public trHeightfield {
 public:
  /// Computes only while the switch is on; otherwise the raster stays what the last press left. 0 without an
  /// input.
  long HfOperate() override;
  /// A press of the button labelled `label`: computes whatever the switch says. Main thread only.
  long Press(const trString& label);

 protected:
  CostlyOperator() { HfSetParamsMayAffectPreviews(false); }

  /// Makes the raster; 0 is failure, as after a cancel.
  virtual long Compute() = 0;
  /// What the button does before it computes.
  virtual void OnPress() {}
  /// Brings up to date what the computation takes. With `mayLack` a missing input is none to complain of.
  virtual bool PrepareInput(bool mayLack);
  /// The raster is out of date, is computed and is in use again, a cancelled one with its right range.
  virtual long ComputeNow();

  unsigned char autoFlag_;

  /// True, with an error, while the computation is under way: a shader asks for the raster that it is making.
  bool FeedsItself() const;
  /// Marks the computation under way.
  class Guard {
   public:
    explicit Guard(CostlyOperator& node) : node_(node), isNested_(node.isComputing_) {
      node.isComputing_ = true;
    }
    ~Guard() { node_.isComputing_ = isNested_; }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

   private:
    CostlyOperator& node_;
    const bool isNested_;
  };

 private:
  bool isComputing_ = false;
};

/// A button that computes. Each class has one of its own.
class CostlyOperatorButton : public trGuiPushButton {
 public:
  CostlyOperatorButton(CostlyOperator* node, const char* label) : trGuiPushButton(node, label), node_(node) {}
  long OnPressed() override { return node_->Press(label); }

 private:
  CostlyOperator* node_;
};
