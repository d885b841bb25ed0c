// Foreign bytes as the catalogue beside a module.
#include <algorithm>
#include <string>

#include "host/node/class_pool.h"
#include "tests/fuzz/fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = InputText(data, size);
  const auto rows = ovhost::ParseCatalogue(text);
  Check(static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1 >= rows.size());
  // Rows are trimmed, and read back as they are.
  std::string again;
  for (const ovhost::PlannedRow& row : rows) {
    Check(row.category.find_first_of("|\n") == std::string::npos);
    Check(row.className.find_first_of("|\n") == std::string::npos);
    again += " " + row.category + "|" + row.className + " |" + row.implementation + "\n";
  }
  const auto reread = ovhost::ParseCatalogue(again);
  Check(reread.size() == rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i)
    Check(reread[i].category == rows[i].category && reread[i].className == rows[i].className &&
          reread[i].implementation == rows[i].implementation);
  return 0;
}
