// `micro_exporter` and `lwo_micro_exporter`: the diced surface of a frame as a file.
#pragma once

#include "core/micro_handler.h"

/// Writes by the object writer for the extension of `filename`, in which a run of # stands for the frame's
/// number. Points are in world space, metres.
class MicroExporter : public trMicroHandler {
 public:
  MicroExporter() : MicroExporter("Object files", "*.obj;*.ovo;*.lwo;*.fbx;*.ply") {}
  long HandleMicroSurface(const trMicroSurface& surface) override;

 protected:
  MicroExporter(const char* label, const char* pattern);
  virtual long Write(const trMicroSurface& surface, const trString& path);

 private:
  trString Path() const;

  trLinkHint fileHint_;
  trFile filename_;
  unsigned char enable_;
};

/// Writes LWO files, whatever their extension.
class LWOMicroExporter : public MicroExporter {
 public:
  LWOMicroExporter() : MicroExporter("LWO object", "*.lwo") {}

 protected:
  long Write(const trMicroSurface& surface, const trString& path) override;
};
