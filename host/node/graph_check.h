// Finding what is wrong with the links between nodes before anything runs along them.
#pragma once

#include "core/api.h"
#include "core/string.h"

class trBase;

namespace ovhost {

/// Reports, with the node as context, every link below `root` that has a text and leads to no node or to one
/// of the wrong kind. `report` is trError or trWarning. Returns how many there are. Main thread only.
OV_API long ReportBrokenLinks(trBase* root, void (*report)(const trString&));

/// Reports as an error every ring of shaders that feed themselves through links of any kind and length, once
/// a ring, naming its nodes. Where there is none, reports by trError or trWarning a network deeper than an
/// evaluation goes. Returns the number of rings. Main thread only.
OV_API long ReportShaderRings(trBase* root, void (*reportDepth)(const trString&));

/// Thread-safe while the graph stays as it is.
OV_API bool HasShaderRing(trBase* root);

}  // namespace ovhost
