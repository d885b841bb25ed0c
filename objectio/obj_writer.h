// `object_writer_obj`: Wavefront OBJ, text with the z axis turned.
#pragma once

#include "core/object_writer.h"

/// Writes the first geometry group of a scene.
class ObjectWriterOBJ : public trObjectWriter {
 public:
  long WriteObject(trScene& scene, trBase* node, const trString& path) override;
};
