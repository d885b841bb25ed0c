// The library of picture formats and colour management, loaded when first needed: what it stands on takes
// longer to load than most commands run.
#pragma once

#include <string>

namespace ovhost {

/// An exported function of libovimage.so, or null with the reason in `problem`. Thread-safe.
void* CodecFunction(const char* name, std::string& problem);

}  // namespace ovhost
