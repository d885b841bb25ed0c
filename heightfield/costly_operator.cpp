// The life of a costly operator: switch, button, and the step that computes.
#include "heightfield/costly_operator.h"

#include <exception>

bool CostlyOperator::FeedsItself() const {
  if (!isComputing_) return false;
  const trScopedErrorsWarningsContext context(this);
  trError("The heightfield feeds itself.");
  return true;
}

bool CostlyOperator::PrepareInput(bool mayLack) {
  trHeightfield* const input = HfInput();
  return input ? (input->HfOperateTS() & 1) != 0 : mayLack;
}

long CostlyOperator::HfOperate() {
  if (HfIsValid()) return 1;
  if (FeedsItself()) return 0;
  if (!PrepareInput(false)) return 0;
  return autoFlag_ ? ComputeNow() : 1;
}

long CostlyOperator::ComputeNow() {
  if (FeedsItself()) return 0;
  const Guard guard(*this);
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
