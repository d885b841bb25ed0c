// notifier.
#include "tools/notifier.h"

#include "core/console.h"
#include "core/output_file.h"

Notifier::Notifier() {
  const trString message = "Your message here";
  DeclareTrigger("only_notify_during_full_renders", "only_notify_once");
  outputHeading_.Declare(this, "output_separator", "Output");
  Param(beep_, "beep", 0).About("Rings the terminal's bell at each report. Many at once are heard as one.");
  Param(showWarning_, "show_warning_message", 0)
      .About("Adds the warning message to the warnings of the render.");
  Param(warningMessage_, "warning_message", message)
      .About(
          "Text of the warning. $NAME, $COL#, $COLR, $COLG, $COLB, $SCAL, $VEC#, $VECX, $VECY, $VECZ and "
          "$NEWL are replaced.");
  Param(writeToConsole_, "write_message_to_console", 0).About("Prints the console message at each report.");
  Param(consoleMessage_, "console_message", message)
      .About("Text of the console line; tokens such as $SCAL or $VEC# are replaced by what was found.");
  Param(writeToFile_, "write_message_to_file", 0).About("Adds a line to the file at each report.");
  fileHint_.AddFileFilter("Text file", "txt");
  fileHint_.AddFileFilter("Log", "log");
  fileHint_.AddFileFilter("Table", "csv");
  Param(file_, "file", "Notifier Log.txt", &fileHint_)
      .About(
          "File that lines are added to, from the project's folder where no other is "
          "given.");
  Param(fileMessage_, "message_to_write", message)
      .About("Text of the line in the file; tokens such as $SCAL or $VEC# are replaced by what was found.");
}

long Notifier::StartRender(trRenderingInterface& rendering) {
  hasToldOfFile_.store(false);
  return Diagnostic::StartRender(rendering);
}

void Notifier::Report(const WatchedValues& values) {
  const auto text = [&](const trString& message) { return WithValues(message, Name(), values); };
  if (beep_) trBeep();
  if (showWarning_) {
    const trScopedErrorsWarningsContext context(this);
    trWarning(text(warningMessage_));
  }
  if (writeToConsole_) trOutMsg(text(consoleMessage_));
  if (writeToFile_) WriteToFile(text(fileMessage_));
}

void Notifier::WriteToFile(const trString& line) {
  const trString path = file_.FullPath();
  if (path.empty() || trAppendLine(path, line) == trFileResult::kWritten) return;
  // Points are many; who can't write at one can't at the next.
  if (hasToldOfFile_.exchange(true)) return;
  const trString name = "file";
  const trScopedErrorsWarningsContext context(this, &name);
  trWarning("Unable to write to " + path +
            ": messages go to plain files that are neither hidden nor programs.");
}
