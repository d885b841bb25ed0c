// Colour management of picture files.
#pragma once

#include <memory>

#include "core/api.h"
#include "core/colour.h"
#include "core/string.h"

/// The project's colour configuration. Set on the main thread; Apply is thread-safe during a render.
class OV_API trOcio {
 public:
  trOcio();
  ~trOcio();

  /// Takes the configuration file and the space that picture files are in; an empty path turns colour
  /// management off. Returns 0 with a warning that says why, and it is off then.
  int Set(const trString& configPath, const trString& inputSpace);
  bool IsActive() const { return Used().processor_ != nullptr; }
  /// Converts a colour of a file to linear render space.
  void Apply(trFCol& colour) const;

  /// Stands for the configuration of the project that the calling thread works on.
  static trOcio gProjectSettings;

 private:
  struct Processor;
  const trOcio& Used() const;
  std::unique_ptr<Processor> processor_;
};
