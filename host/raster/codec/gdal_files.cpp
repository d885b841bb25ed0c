// Headers, projections and world files.
#include "host/raster/codec/gdal_files.h"

#include <algorithm>
#include <cctype>
#include <string>
#include <system_error>

namespace ovhost {

CPLStringList FilesBeside(const std::filesystem::path& path) {
  static constexpr const char* kSideFiles[] = {".hdr", ".prj", ".wld", ".tfw", ".tifw", ".pgw", ".pngw",
                                               ".jgw", ".bpw", ".tgw", ".blw", ".bqw",  ".hgw"};
  CPLStringList names;
  names.AddString(path.filename().c_str());
  const auto addIfThere = [&](std::filesystem::path beside) {
    std::error_code error;
    if (beside != path && std::filesystem::is_regular_file(beside, error))
      names.AddString(beside.filename().c_str());
  };
  for (const std::string extension : kSideFiles) {
    std::string upper = extension;
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](unsigned char c) { return std::toupper(c); });
    for (const std::string& e : {extension, upper}) {
      addIfThere(std::filesystem::path(path).replace_extension(e));
      addIfThere(std::filesystem::path(path).concat(e));
    }
  }
  return names;
}

}  // namespace ovhost
