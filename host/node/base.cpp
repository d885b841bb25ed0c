// trBase: life, the default callbacks, progress, and the who-tokens.
#include "host/base/session_context.h"
#include "host/node/node_data.h"

namespace {

class WhoToken : public trBase {};
WhoToken user, userIndirect, systemToken;

}  // namespace

trBase* const trWhoUser = &user;
trBase* const trWhoUserIndirect = &userIndirect;
trBase* const trWhoSystem = &systemToken;

trDestructionNotifier::~trDestructionNotifier() {
  for (const auto& callback : callbacks_) callback();
}

trBase::trBase() : data_(std::make_unique<trNodeData>()) {}

trBase::~trBase() {
  while (!data_->children.empty()) ovhost::DestroyNode(data_->children.back());
  // What trCreateObject made belongs to its owner's code, which destroys it; it must not reach up to a dead
  // parent.
  for (trBase* owned : data_->owned) {
    owned->Data().parent = nullptr;
    trLinkIndex::Adopt(owned);
  }
  ovhost::Detach(this);
  trLinkIndex::ForgetTarget(this);
  ovhost::BumpGraphGeneration();
}

void trBase::PreDestroy() {}

long trBase::Init(trBase* parent, unsigned char) {
  data_->parent = parent;
  if (parent) trLinkIndex::Adopt(this);
  return 1;
}

long trBase::OnCreate() { return 1; }
long trBase::OnFirstCreate() { return 1; }
long trBase::OnUserCreate() { return 1; }
long trBase::OnUserDestroy() { return 1; }
unsigned char trBase::CanUserDestroy() { return 1; }
void trBase::PreChildParamChange(trBase*, long, trBase*) {}
void trBase::PreChildStateChange(trBase*, const trString&) {}

unsigned char trBase::OnChildProgress(trBase* child, unsigned long& state, const trString& text,
                                      float fraction, float remaining, unsigned char canAbort) {
  if (data_->parent) return data_->parent->OnChildProgress(child, state, text, fraction, remaining, canAbort);
  const ovhost::SessionContext& session = ovhost::SessionContext::Current();
  const bool goesOn = !session.progressSink || session.progressSink(session.progressContext, child, text,
                                                                    fraction, remaining, canAbort != 0);
  return goesOn && !ovhost::StopScope::IsAsked();
}

void trBase::OnParamChanged(long, trBase*) {}
void trBase::OnGuiParamChanged(long, trBase*) {}
void trBase::OnDependencyParamChanged(trBase*, long, trBase*, trBase*) {}
void trBase::OnChildParamChanged(trBase*, long, trBase*) {}
void trBase::OnChildGuiParamChanged(trBase*, long, trBase*) {}
void trBase::OnChildStateChanged(trBase*, const trString&) {}
trPreviewHandler* trBase::PreviewHandler() { return nullptr; }
long trBase::Request_double_from_vector(double&, const trVector&, long) { return 0; }
void* trBase::RequestMember(const char*) { return nullptr; }
void trBase::WriteXMLCustomData(trString, trString&) {}
void trBase::EnteredXMLCustomData() {}
void trBase::HandleXMLCustomElement(const trString&, const char**) {}
void trBase::HandleXMLCustomElementClosed(const trString&) {}
void trBase::HandleXMLCustomCharacterData(const trString&) {}
void trBase::ExitedXMLCustomData() {}
void trBase::UpdateDerived() {}

long trBase::ReportProgress(unsigned long& state, const trString& text, float fraction, float remaining) {
  ++state;
  return OnChildProgress(this, state, text, fraction, remaining, 1);
}

void trBase::ReportProgressNoAbort(unsigned long& state, const trString& text, float fraction,
                                   float remaining) {
  ++state;
  OnChildProgress(this, state, text, fraction, remaining, 0);
}
