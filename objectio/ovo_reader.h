// `ovo_reader`: objects of the system's own format.
#pragma once

#include "core/scene_maker.h"
#include "objectio/ovo_file.h"

class OVOReader : public juObjectReader {
 public:
  OVOReader();
  /// Asks for a file where none is set; a new node takes over the shaders that its file brings along.
  long OnFirstCreate() override;
  long ReadObjectFile(trScene& scene, const char* path, const trMaterial& material, bool reverse) override;

 private:
  /// Opens the file and hands its chunks to the visitor; 0 with an error where it can't.
  static long Walk(const trString& path, OvoVisitor& visitor);
};
