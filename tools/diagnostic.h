// Function nodes that stand in a chain and tell of values where a trigger shader isn't zero.
#pragma once

#include <atomic>

#include "core/idioms.h"
#include "tools/watched_values.h"

class Diagnostic;

/// "Reset": lets a node that reports once report again.
class DiagnosticResetButton : public trGuiPushButton {
 public:
  explicit DiagnosticResetButton(Diagnostic* node);
  long OnPressed() override;

 private:
  Diagnostic* diagnostic_;
};

/// Its value is its input's; on the way it reports.
class Diagnostic : public trFunction {
 public:
  float FloatValue(trShadingInterface& si) final;
  trFCol FColValue(trShadingInterface& si) final;
  trVector VectorValue(trShadingInterface& si) final;

  /// Main thread only.
  void Reset() { fired_.store(false); }

 protected:
  /// Declares when the node reports, and what it reads.
  void DeclareTrigger(const char* fullRendersOnly, const char* onlyOnce);
  /// Tells of the values at a point. Comes from many threads at once.
  virtual void Report(const WatchedValues& values) = 0;

 private:
  void ReportWhereTriggered(trShadingInterface& si);

  unsigned char fullRendersOnly_, onlyOnce_;
  trShaderLink trigger_, colour_, scalar_, vector_;
  DiagnosticResetButton resetButton_{this};
  trHeading inputsHeading_;
  std::atomic<bool> fired_{false};
};
