// The life of a costly operator: switch, button, and the step that computes.
#include "heightfield/costly_operator.h"

#include <exception>

bool CostlyOperator::Guard::IsNested() const {
  if (!isNested_) return false;
  const trScopedErrorsWarningsContext context(&node_);
  trError("The heightfield feeds itself.");
  return true;
}

bool CostlyOperator::PrepareInput(bool mayLack) {
  trHeightfield* const input = HfInput();
  return input ? (input->HfOperateTS() & 1) != 0 : mayLack;
}

long CostlyOperator::HfOperate() {
  if (HfIsValid()) return 1;
  if (!PrepareInput(false)) return 0;
  return autoFlag_ ? ComputeNow() : 1;
}

long CostlyOperator::ComputeNow() {
  const Guard guard(*this);
  if (guard.IsNested()) return 0;
  HfInvalidate();
  const long result = Compute() ? 1 : 0;
  if (!result) HfFindZRange();
  HfValidate();
  return result;
}

long CostlyOperator::Press(const trString& label) {
  const trHeightfieldTurn turn;
  const trScopedErrorsWarningsContext context(this);
  if (Parent()) Parent()->PreChildStateChange(this, "OnClick " + label);
  long result = 0;
  try {
    OnPress();
    if (PrepareInput(true)) result = ComputeNow();
  } catch (const std::exception& problem) {
    trError(trString("The heightfield couldn't be made: ") + problem.what());
  }
  HfFindZRange();
  HfValidate();
  return result;
}
