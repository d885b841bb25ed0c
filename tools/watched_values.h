// What a diagnostic node finds at a point, and the texts that tell it.
#pragma once

#include <optional>

#include "core/colour.h"
#include "core/string.h"
#include "core/vector.h"

/// Values of the inputs that are linked.
struct WatchedValues {
  std::optional<trFCol> colour;
  std::optional<double> scalar;
  std::optional<trVector> vector;
};

/// A number as a stream writes it by default: six digits.
trString NumberText(double value);

/// A message with its tokens replaced: $NAME by `name`, the others by values, and $NEWL by a new line. Of
/// what isn't there a token leaves nothing; what a token has brought in is not looked at again.
trString WithValues(const trString& message, const trString& name, const WatchedValues& values);
