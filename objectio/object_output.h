// The last step of every object writer.
#pragma once

#include <cstddef>

#include "core/object_writer.h"

class trScene;

/// Writes the whole file and enters it in the session's list of objects. 0 where it can't: `notOpened` is the
/// error then, or that `writer` couldn't write it; what was there before stays.
long PutObjectFile(const char* writer, const trString& notOpened, const trString& path, const void* data,
                   std::size_t size);

/// The scene of the first geometry group, which is all that foreign formats take; null with an error of
/// `writer` where there is none.
const trScene* FirstGroup(const trScene& scene, const char* writer);
