// `object_writer_err`: fails, for programs that try out how they take it.
#pragma once

#include "core/object_writer.h"

class ObjectWriterErr : public trObjectWriter {
 public:
  long WriteObject(trScene&, trBase*, const trString&) override {
    trError("ObjectWriterErr class returning a dummy error, as designed.");
    return 0;
  }
};
