// trShader and its kinds: default operations, the guard against graphs that feed themselves, value forms.
#include "core/shader.h"

#include <set>

#include "core/idioms.h"
#include "core/render_state.h"
#include "host/base/session_context.h"
#include "host/node/graph_check.h"
#include "host/node/node_data.h"

namespace {

/// HasDisplacementTS and HasShadeTS have no state to carry a guard; chains deeper than evaluations answer
/// yes.
thread_local int queryDepth = 0;

struct QueryDepth {
  QueryDepth() { ++queryDepth; }
  ~QueryDepth() { --queryDepth; }
};

/// Runs the shader for its colour only, from black, and puts the state back.
trFCol ColourOnly(trShader& shader, trShadingInterface& si) {
  const trShadingGuard guard(si);
  si.SetWants(trShadingInterface::kCd);
  si.Cutil() = trFCol();
  shader.Shade(si);
  return si.Cutil();
}

}  // namespace

void trShadingInterface::TripDepthGuard(trShadingInterface& si, const void* shader) {
  si.depthTripped_ = true;
  const auto* node = static_cast<const trShader*>(shader);
  // One error a node is enough: a picture has millions of samples.
  ovhost::SessionContext& session = ovhost::SessionContext::Current();
  if (session.lastTripped.exchange(shader) == shader || session.trips.fetch_add(1) >= 8) return;
  const trScopedErrorsWarningsContext context(node);
  if (ovhost::HasShaderRing(node->Root()))
    trError("The shader network feeds itself.");
  else
    trError("The shader network is more than " + std::to_string(trShadingInterface::kMaxShaderDepth) +
            " shaders deep.");
}

trShader::trShader() {
  DeclareTrue("is_shader");
  Param(inputNode_, "input_node", "")
      .About("Shader that works before this one, which goes on from its result.");
  Param(enable_, "enable", 1).About("Off, the node hands on its input as it is.");
}

long trShader::OnUserDestroy() { return trBase::OnUserDestroy(); }
void trShader::OnParamChanged(long index, trBase* who) { trBase::OnParamChanged(index, who); }

long trShader::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  return 1;
}
long trShader::Shade(trShadingInterface& si) {
  ShadeInput(si);
  return 1;
}
long trShader::Spawn(trShadingInterface&) { return 1; }
unsigned char trShader::HasDisplacement() { return 1; }
unsigned char trShader::HasShade() { return 1; }
float trShader::FloatValue(trShadingInterface& si) { return Luminance(FColValue(si)); }
trFCol trShader::FColValue(trShadingInterface& si) { return ColourOnly(*this, si); }
trVector trShader::VectorValue(trShadingInterface& si) {
  const trFCol c = FColValue(si);
  return {c.r, c.g, c.b};
}
unsigned char trShader::IsAtmosShader() const { return 0; }
unsigned char trShader::IsFunction() const { return 0; }
long trShader::StartRender(trRenderingInterface&) { return 1; }
long trShader::FinishRender(trRenderingInterface&) { return 1; }

bool trShader::HasDisplacementTS() {
  const QueryDepth depth;
  if (queryDepth > trShadingInterface::kMaxShaderDepth) return true;
  if (HasDisplacement()) return true;
  trShader* input = InputShader();
  return input && input->HasDisplacementTS();
}

bool trShader::HasShadeTS() {
  const QueryDepth depth;
  if (queryDepth > trShadingInterface::kMaxShaderDepth) return true;
  if (HasShade()) return true;
  trShader* input = InputShader();
  return input && input->HasShadeTS();
}

trBase* trShader::FindOutputNodeByClass(const trString& className, bool throughAll) const {
  std::set<const trBase*> seen{this};
  std::vector<const trBase*> front{this};
  while (!front.empty()) {
    std::vector<const trBase*> next;
    for (const trBase* at : front)
      for (const trFile* link : trLinkIndex::LinksTo(at)) {
        if (!seen.insert(link->Owner()).second) continue;
        if (link->Owner()->ClassName() == className) return link->Owner();
        next.push_back(link->Owner());
      }
    if (!throughAll) break;
    front = std::move(next);
  }
  return nullptr;
}

trFunction::trFunction() {
  SetAbout(this, "input_node", "Of no use to this function, which has inputs of its own or none.");
  SetAbout(this, "enable", "Of no use to this function: it always gives its value.");
}
trAtmosShader::trAtmosShader() {
  SetAbout(this, "input_node",
           "The next volume of the planet's atmosphere, as one link after the other names them.");
  SetAbout(this, "enable", "Whether there is this volume. Off, those that it links to stay.");
}

long trColourShader::Displace(trShadingInterface&) { return 1; }
long trGeometryShader::Shade(trShadingInterface&) { return 1; }
long trAtmosShader::Displace(trShadingInterface&) { return 1; }
long trAtmosShader::Shade(trShadingInterface&) { return 1; }
long trAtmosShader::PrepareAtmosphere(trRenderingInterface&) { return 1; }
long trAtmosShader::AddRaySamples(trRenderState&, trAtomicIntegrator&, void*&) { return 1; }
long trAtmosShader::EvaluateRaySample(trRenderState&, trAtmosSample&) { return 1; }
void trAtmosShader::FreeIntegrationData(trAtomicIntegrator&, void*) {}
trVolumeShape trAtmosShader::Shape() const { return {}; }
double trAtmosShader::LightLeft(trRenderState&, const trVector&) { return 1; }
long trFunction::Displace(trShadingInterface&) { return 1; }
long trFunction::Shade(trShadingInterface&) { return 1; }
