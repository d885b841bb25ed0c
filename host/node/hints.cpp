// Hints: limits as parameters of their own, and menus.
#include "host/node/node_data.h"

void trHint::DeclareRange() {
  Param(minValue_, "min_value", 0.0);
  Param(maxValue_, "max_value", 1.0);
  Param(focusValue_, "focus_value", 0.0);
  Param(focusPower_, "focus_power", 1.0);
  Param(doRange_, "do_range", 0);
}

void trHint::OnParamChanged(long index, trBase* who) {
  trBase::OnParamChanged(index, who);
  setMask_ |= 1u << index;
}

bool trHint::Has(const char* name) const {
  long index;
  return FindParam(index, name) && (setMask_ & (1u << index)) != 0;
}

double trHint::Value(const char* name) const {
  double value = 0;
  GetParam(name, value);
  return value;
}

trIntHint::trIntHint() {
  DeclareRange();
  Param(doMenu_, "do_menu", 0);
}

void trIntHint::SetMenuItemTextAndValue(int item, const trString& text, long value) {
  if (item < 0 || item > 4096) return;
  if (static_cast<size_t>(item) >= menu_.size()) menu_.resize(item + 1, {"", 0});
  menu_[item] = {text, value};
}
