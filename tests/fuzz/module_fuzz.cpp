// Foreign bytes as a project of the module's classes, and as values set in it: what follows the project are
// lines NODE.PARAM=VALUE. Short texts are set as the value of every parameter of every class.
#include <string>
#include <vector>

#include "core/heightfield.h"
#include "core/shader.h"
#include "host/node/class_pool.h"
#include "host/node/graph_check.h"
#include "host/node/node_data.h"
#include "host/project/project_file.h"
#include "host/raster/heightfield_walk.h"
#include "host/session/evaluator.h"
#include "host/session/session.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

constexpr char kEnd[] = "</ombrivex_project>";
/// Shaders that a network may have to be evaluated. A node asks each of its inputs, so that the work grows
/// with the power of their number.
constexpr std::size_t kMostShaders = 6;

/// Every line sets a parameter; one that can't is refused with a reason.
void AssignLines(const ovhost::Session& session, const std::string& lines) {
  for (std::size_t at = 0; at < lines.size();) {
    const std::size_t end = std::min(lines.find('\n', at), lines.size());
    try {
      session.Assign(lines.substr(at, end - at));
    } catch (const ovhost::SessionError&) {
    }
    at = end + 1;
  }
}

/// What `ov check` looks for.
long CheckGraph(juProject& project) {
  ovhost::ReportBrokenLinks(&project, trError);
  return ovhost::ReportShaderRings(&project, trError) + ovhost::ReportHeightfieldRings(&project);
}

void Evaluate(juProject& project) {
  std::vector<trShader*> shaders;
  for (trBase* node : ovhost::AllNodes(&project)) {
    // Their sizes and work are what the project asks for.
    if (dynamic_cast<trHeightfield*>(node)) return;
    if (auto* shader = dynamic_cast<trShader*>(node)) shaders.push_back(shader);
  }
  if (shaders.size() > kMostShaders) return;
  for (trShader* shader : shaders) {
    ovhost::Evaluator evaluator(project, *shader, 1.0);
    evaluator.Evaluate({{{12.5, 100, -7}}, {{0, 0, 0}}});
  }
}

/// What was written is read, and then written to the same bytes for ever: once read anew, values that follow
/// others do so.
void Reread(juProject& project) {
  const auto again = ovhost::ProjectFromText(ovhost::ProjectToText(project), "again.ovd");
  Check(again != nullptr);
  const std::string text = ovhost::ProjectToText(*again);
  const auto third = ovhost::ProjectFromText(text, "third.ovd");
  Check(third != nullptr);
  CheckSame(ovhost::ProjectToText(*third), text);
}

void Open(const std::string& text) {
  const std::size_t end = text.rfind(kEnd);
  const std::size_t rest = end == std::string::npos ? text.size() : end + sizeof kEnd - 1;
  auto project = ovhost::ProjectFromText(text.substr(0, rest), "fuzz.ovd");
  if (!project) return;
  ovhost::Session session(std::move(project));
  AssignLines(session, text.substr(rest));
  Reread(session.Project());
  if (CheckGraph(session.Project()) == 0) Evaluate(session.Project());
}

/// A value that is taken reads back as the text that stands for it.
void SetEverywhere(const std::string& text) {
  juProject project;
  for (const ovhost::CatalogueEntry& entry : ovhost::Catalogue()) {
    trBase* const node = ovhost::CreateNode(entry.className, &project, "");
    Check(node != nullptr);
    for (long i = 0; i < node->NumParams(); ++i) {
      trString stored;
      if (!node->SetParamFromString(i, text, trWhoUserIndirect)) continue;
      Check(node->GetStringFromParam(i, stored, node));
      Check(node->SetParamFromString(i, stored, trWhoSystem));
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  SilenceLog();
  Check(ovhost::LoadModules() == 0);
  Check(ovhost::FindClass("planet") != nullptr);
  ovhost::SetNumThreads(1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = InputText(data, size);
  if (size <= 32)
    SetEverywhere(text);
  else
    Open(text);
  return 0;
}

/// The parser of colour configurations forgets what it had read of a damaged one.
extern "C" const char* __lsan_default_suppressions() { return "leak:libyaml-cpp\n"; }
