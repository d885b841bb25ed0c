// What an OpenEXR file's header says of its channels.
#pragma once

#include <string>

#include "host/raster/ovh_reader.h"

namespace ovhost {

/// The name of the first channel of unsigned integers; empty where there is none, or where the header can't
/// be followed: what opens the file then tells of that.
OV_API std::string UnsignedExrChannel(const ByteSource& bytes);

}  // namespace ovhost
