// Foreign text as an amount with a unit and as a tile on the command line.
#include <cmath>
#include <string>

#include "app/app.h"
#include "app/units.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

/// What a text is read as; a refusal has words and is a matter of usage.
template <typename Parse, typename Test>
void Read(const Parse& parse, const Test& test) {
  try {
    test(parse());
  } catch (const ovapp::Failure& failure) {
    Check(failure.code == ovapp::kBadUsage && !failure.text.empty());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = InputText(data, size);
  Read([&] { return ovapp::ParseBytes(text); }, [](unsigned long long bytes) { Check(bytes > 0); });
  Read([&] { return ovapp::ParseSeconds(text); },
       [](double seconds) {
         Check(seconds > 0 && std::isfinite(seconds));
         Check(!ovapp::DurationText(seconds).empty());
       });
  Read([&] { return ovapp::ParseTile(text); },
       [](const ovapp::Tile& tile) { Check(tile.number >= 1 && tile.number <= tile.count); });
  return 0;
}
