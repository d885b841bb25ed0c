// `ov export` of what stands on the land: a node's object, or a frame's diced surface.
#pragma once

#include <optional>
#include <string>

#include "app/app.h"
#include "app/project_options.h"

namespace ovapp {

struct ObjectExport {
  std::string output;
  bool ascii = false;                ///< FBX as text
  double mostTriangles = 0;          ///< of a population; 0 takes what memory holds
  std::string camera, renderNode;    ///< of a diced surface
  std::optional<int> width, height;  ///< of the picture that it would be diced for
  bool json = false;
};

/// Whether files like this hold objects.
bool IsObjectFile(const std::string& path);
int ExportObject(trBase& node, const ObjectExport& options);
int ExportDiced(Program& program, Session& session, const ObjectExport& options);

}  // namespace ovapp
