// The module's catalogue: what trPluginStartup registers.
#pragma once

#include "core/plugin.h"

/// Registers every built class, in the catalogue's order, and the class name redirect.
void RegisterCatalogue(trPluginToken& token);
