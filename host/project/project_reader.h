// Project files to nodes.
#pragma once

#include <memory>
#include <string>

#include "core/project.h"

namespace ovhost {

/// Reads a project. Null where the file can't be read, isn't a project, or holds a value of the wrong type,
/// or where a StopScope asks to end; every problem is reported with file and line, or node. Unknown classes
/// and attributes are kept, with a warning each. Main thread only.
OV_API std::unique_ptr<juProject> LoadProject(const std::string& path);
/// The same from text; `source` is what messages call it, `folder` where its files lie.
OV_API std::unique_ptr<juProject> ProjectFromText(const std::string& text, const std::string& source,
                                                  const std::string& folder = {});

}  // namespace ovhost
