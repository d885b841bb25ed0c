// The rights that the reader of foreign files gives up.
#pragma once

#include "core/api.h"

namespace ovhost {

/// From now on the calling process can't open files for writing, start programs or processes, reach the
/// network or other processes, load code, or leave a core file. False where the kernel knows no filter of
/// system calls: then all else holds. Every thread of the process is bound by it, for good.
OV_API bool EnterReaderSandbox();

/// Ends the process when the other end of the socket is closed. A signal for the death of the parent would
/// come with the end of the thread that started the process, which is one of many.
OV_API void EndWithSocket(int socket);

}  // namespace ovhost
