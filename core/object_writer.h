// Writers of scenes to the files of other programs.
#pragma once

#include "core/node.h"

class trScene;

/// Base of all object writers: stateless nodes. The host takes the writer registered as `object_writer_` and
/// the path's extension.
class OV_API trObjectWriter : public trBase {
 public:
  /// Writes `scene`; `node` is the maker of the scene, or null. Non-zero is success; failures are told as
  /// errors.
  virtual long WriteObject(trScene& scene, trBase* node, const trString& path) = 0;
};

/// Enters a file that was written in the session's list of objects, at its end, once. Thread-safe.
OV_API void trLibraryAddObject(const trString& path, long kind);
/// The files entered so far. Thread-safe.
OV_API std::vector<trString> trLibraryObjects();
