// What nodes tell a user at once, while they work.
#pragma once

#include "core/api.h"
#include "core/string.h"

// All of these are thread-safe.
/// A line on the console; a text of several lines is as many.
OV_API void trOutMsg(const trString& text);
/// A beep. Many at once are heard as one.
OV_API void trBeep();
