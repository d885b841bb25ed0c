// Foreign bytes as the motion file of a planet.
#include <string>

#include "host/node/node_data.h"
#include "host/project/project_file.h"
#include "host/session/session.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

/// How often the button was of use.
long Press(trBase& node) {
  long pressed = 0;
  for (const trSheetItem& item : node.Data().sheet)
    if (item.kind == trSheetItem::kButton && item.name == "import_motion")
      pressed += item.button->OnPressed();
  return pressed;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  SilenceLog();
  Check(ovhost::LoadModules() == 0);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string path = FuzzFile("motion.txt");
  PutFile(path, InputText(data, size));
  ovhost::Session session(
      ovhost::ProjectFromText("<ombrivex_project><planet name=\"P\"/></ombrivex_project>", "fuzz.ovd"));
  trBase& planet = session.Find("P");
  Check(planet.SetParam("motion_file", path, trWhoSystem));
  const std::uint64_t before = session.Hash();
  const ovhost::ErrorWatch errors;
  const long pressed = Press(planet);
  // Whole, or not at all and with a reason.
  if (!pressed) {
    Check(errors.HasErrors());
    Check(session.Hash() == before);
    return 0;
  }
  long position;
  Check(planet.FindParam(position, "centre"));
  Check(planet.IsParamAnimated(position));
  for (const double frame : {-1e300, 0.0, 1.5, 1e300}) ovhost::UpdateAnimation(&session.Project(), frame);
  const std::string text = ovhost::ProjectToText(session.Project());
  const auto again = ovhost::ProjectFromText(text, "again.ovd");
  Check(again != nullptr);
  CheckSame(ovhost::ProjectToText(*again), text);
  return 0;
}
