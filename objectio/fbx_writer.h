// `object_writer_fbx`: FBX 7.4, in metres, y up, the z axis turned as in OBJ.
#pragma once

#include "core/object_writer.h"

/// Writes the first geometry group of a scene, with normals, texture coordinates and materials: of what
/// shades them, the base colour and its image where that is a `default_shader`.
class ObjectWriterFBX : public trObjectWriter {
 public:
  ObjectWriterFBX() {
    Param(ascii_, "ascii", 0)
        .About("Writes the text form, larger and slower, for programs that don't read binary.");
  }
  long WriteObject(trScene& scene, trBase* node, const trString& path) override;

 private:
  unsigned char ascii_;
};
