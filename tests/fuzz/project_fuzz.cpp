// Foreign bytes as a project, as a clip and as the value of every parameter of every class.
#include <string>

#include "core/xml.h"
#include "host/node/class_pool.h"
#include "host/node/node_data.h"
#include "host/project/project_file.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

/// What was read is written, and what was written is read to the same bytes.
void ReadAndWrite(const std::string& text) {
  const auto project = ovhost::ProjectFromText(text, "fuzz.ovd");
  if (!project) return;
  const std::string first = ovhost::ProjectToText(*project);
  const auto again = ovhost::ProjectFromText(first, "again.ovd");
  Check(again != nullptr);
  CheckSame(ovhost::ProjectToText(*again), first);
}

void Paste(const std::string& text) {
  juProject project;
  trBaseXML::ReadBuffer(&project, text);
}

/// A value that is taken reads back as the text that stands for it.
void SetParameters(trBase& node, const std::string& text) {
  for (long i = 0; i < node.NumParams(); ++i) {
    trString stored;
    if (!node.SetParamFromString(i, text, trWhoSystem)) continue;
    Check(node.GetStringFromParam(i, stored, &node));
    Check(node.SetParamFromString(i, stored, trWhoSystem));
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  ovhost::RegisterHostClasses();
  SilenceLog();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = InputText(data, size);
  if (text.find("ombrivex_clip") != std::string::npos) Paste(text);
  ReadAndWrite(text);
  if (size > 64) return 0;
  juProject project;
  for (const ovhost::CatalogueEntry& entry : ovhost::Catalogue())
    if (trBase* node = ovhost::CreateNode(entry.className, &project, "")) SetParameters(*node, text);
  return 0;
}

/// The parser of colour configurations forgets what it had read of a damaged one.
extern "C" const char* __lsan_default_suppressions() { return "leak:libyaml-cpp\n"; }
