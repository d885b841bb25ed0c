// live_value_display: shows the values found where its trigger isn't zero.
#pragma once

#include <mutex>

#include "tools/diagnostic.h"

class LiveValueDisplay : public Diagnostic {
 public:
  LiveValueDisplay();
  /// Takes turns with threads that report: who shows the fields during a render reads them by this.
  long GetStringFromParam(long index, trString& value, trBase* who) override;
  long StartRender(trRenderingInterface& rendering) override;
  /// Says on the console what the fields show, where this render has found anything.
  long FinishRender(trRenderingInterface& rendering) override;

 protected:
  void Report(const WatchedValues& values) override;

 private:
  unsigned char beep_;
  trString colour_, scalar_, vector_;
  bool hasReported_ = false;  ///< in this render
  std::mutex fields_;         ///< guards the three texts and the flag
};
