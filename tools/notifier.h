// notifier: beeps, warns, prints and logs where its trigger isn't zero.
#pragma once

#include "tools/diagnostic.h"

class Notifier : public Diagnostic {
 public:
  Notifier();
  long StartRender(trRenderingInterface& rendering) override;

 protected:
  void Report(const WatchedValues& values) override;

 private:
  void WriteToFile(const trString& line);

  trHeading outputHeading_;
  unsigned char beep_, showWarning_, writeToConsole_, writeToFile_;
  trString warningMessage_, consoleMessage_, fileMessage_;
  trFile file_;
  trLinkHint fileHint_;
  std::atomic<bool> hasToldOfFile_{false};  ///< that the file can't be written, in this render
};
