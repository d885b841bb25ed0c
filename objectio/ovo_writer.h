// `object_writer_ovo`: scenes with their shaders in the system's own format.
#pragma once

#include "core/object_writer.h"

class ObjectWriterOVO : public trObjectWriter {
 public:
  long WriteObject(trScene& scene, trBase* node, const trString& path) override;
};
