// Visibility of what the host library exports to modules.
#pragma once

#define OV_API __attribute__((visibility("default")))
