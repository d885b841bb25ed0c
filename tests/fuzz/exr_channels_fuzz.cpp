// Foreign bytes as the header of an OpenEXR picture.
#include <string>

#include "host/raster/exr_channels.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/memory_source.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Check(ovhost::UnsignedExrChannel(MemorySource(InputText(data, size))).size() <= size);
  return 0;
}
