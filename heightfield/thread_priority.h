// The priority of threads that work for long.
#pragma once

/// Lowers the calling thread's priority by one step, with a warning where that can't be done. Thread-safe.
void LowerThreadPriority();
