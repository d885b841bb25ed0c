// Declaring: parameters, buttons, tabs, sheet codes, facts.
#include "host/node/node_data.h"

namespace {

trParamType TypeOfLink(const trFile& link) {
  if (!link.IsLinkType()) return trParamType::kFile;
  if (dynamic_cast<const trShaderLink*>(&link)) return trParamType::kShaderLink;
  if (dynamic_cast<const trObjectLink*>(&link)) return trParamType::kObjectLink;
  if (dynamic_cast<const trPlanetLink*>(&link)) return trParamType::kPlanetLink;
  if (dynamic_cast<const trCameraLink*>(&link)) return trParamType::kCameraLink;
  if (dynamic_cast<const trSkyPaintLink*>(&link)) return trParamType::kSkyPaintLink;
  if (dynamic_cast<const trHeightfieldLink*>(&link)) return trParamType::kHeightfieldLink;
  return trParamType::kNodeLink;
}

trParamDecl Declare(trBase* node, const char* name, trParamType type, void* member, trHint* hint,
                    trParamValue defaultValue) {
  trNodeData& data = node->Data();
  trParamInfo info;
  info.name = name;
  info.type = type;
  info.member = member;
  info.hint = hint;
  info.defaultValue = std::move(defaultValue);
  info.tabLabel = data.currentTab;
  info.hidden = data.hiddenDepth > 0;
  const long index = static_cast<long>(data.params.size());
  data.params.push_back(std::move(info));
  trSheetItem item;
  item.kind = trSheetItem::kParam;
  item.param = index;
  data.sheet.push_back(item);
  return {node, index};
}

template <typename T>
trParamDecl DeclareValue(trBase* node, T& member, const char* name, trParamType type, const T& dflt,
                         trHint* hint) {
  member = dflt;
  return Declare(node, name, type, &member, hint, dflt);
}

}  // namespace

trParamDecl& trParamDecl::Display(const char* label) {
  node_->SetParamDisplayName(index_, label);
  return *this;
}

trParamDecl& trParamDecl::NotSaved() {
  node_->SetParamShouldBeSaved(index_, false);
  return *this;
}

trParamDecl& trParamDecl::Alias(const char* oldName) {
  node_->Data().oldNames.push_back({oldName, index_, {}});
  return *this;
}

trParamDecl& trParamDecl::About(const char* text) {
  node_->Data().params[static_cast<size_t>(index_)].about = text;
  return *this;
}

trParamDecl& trParamDecl::ColourOnly() {
  node_->Data().params[static_cast<size_t>(index_)].isColourOnly = true;
  return *this;
}

trParamDecl trBase::Seed(long& member) {
  const trParamDecl declared = Param(member, "seed", trNewSeed());
  data_->params[static_cast<size_t>(declared.Index())].isSeed = true;
  return declared;
}

void trBase::Retired(const char* oldName, const char* neutralValue) {
  data_->oldNames.push_back({oldName, -1, {}});
  if (neutralValue) data_->oldNames.back().neutralValue = neutralValue;
}

trParamDecl trBase::Param(long& member, const char* name, long dflt, trIntHint* hint) {
  return DeclareValue(this, member, name, trParamType::kInt, dflt, hint);
}
trParamDecl trBase::Param(double& member, const char* name, const double& dflt, trDoubleHint* hint) {
  return DeclareValue(this, member, name, trParamType::kDouble, dflt, hint);
}
trParamDecl trBase::Param(float& member, const char* name, const float& dflt, trDoubleHint* hint) {
  return DeclareValue(this, member, name, trParamType::kFloat, dflt, hint);
}
trParamDecl trBase::Param(unsigned char& member, const char* name, unsigned char dflt, trBoolHint* hint) {
  return DeclareValue(this, member, name, trParamType::kBool, dflt, hint);
}
trParamDecl trBase::Param(trVector& member, const char* name, const trVector& dflt, trVectorHint* hint) {
  return DeclareValue(this, member, name, trParamType::kVector, dflt, hint);
}
trParamDecl trBase::Param(tr2Vector& member, const char* name, const tr2Vector& dflt, tr2VectorHint* hint) {
  return DeclareValue(this, member, name, trParamType::kVector2, dflt, hint);
}
trParamDecl trBase::Param(trManRgb& member, const char* name, const trManRgb& dflt, trFColHint* hint) {
  return DeclareValue(this, member, name, trParamType::kColour, dflt, hint);
}
trParamDecl trBase::Param(trString& member, const char* name, const trString& dflt, trStringHint* hint) {
  return DeclareValue(this, member, name, trParamType::kString, dflt, hint);
}
trParamDecl trBase::Param(trFile& member, const char* name, const trString& dflt, trLinkHint* hint) {
  member.SetOwner(this);
  member.SetText(dflt);
  return Declare(this, name, TypeOfLink(member), &member, hint, dflt);
}

void trBase::PushButton(trGuiPushButton& button, const char* name) {
  trSheetItem item;
  item.kind = trSheetItem::kButton;
  item.name = name;
  item.button = &button;
  data_->sheet.push_back(std::move(item));
}

void trBase::GuiTab(const char* label, const char* name) {
  trSheetItem item;
  item.kind = trSheetItem::kTab;
  item.label = label;
  item.name = name;
  data_->currentTab = label;
  data_->sheet.push_back(std::move(item));
}

void trBase::Gui(trGuiHint code) { Gui(code, 0); }

void trBase::Gui(trGuiHint code, int argument) {
  if (code == trGuiHiddenOpen) ++data_->hiddenDepth;
  if (code == trGuiHiddenClose && data_->hiddenDepth > 0) --data_->hiddenDepth;
  trSheetItem item;
  item.kind = trSheetItem::kCode;
  item.code = code;
  item.argument = argument;
  data_->sheet.push_back(std::move(item));
}

void trBase::SetParamDisplayName(long index, const trString& label) {
  if (index >= 0 && index < NumParams()) data_->params[index].displayName = label;
}

void trBase::SetParamShouldBeSaved(long index, bool saved) {
  if (index >= 0 && index < NumParams()) data_->params[index].saved = saved;
}

void trBase::SetParamShouldBeSaved(const char* name, bool saved) {
  SetParamShouldBeSaved(IndexOf(name), saved);
}

bool trBase::ParamShouldBeSaved(long index) const {
  return index >= 0 && index < NumParams() && data_->params[index].saved;
}

void trBase::AddGuiAction(const std::vector<trString>& triggers, const std::vector<trString>& targets,
                          const trGuiActionPreset& preset) {
  data_->guiActions.push_back({triggers, targets, preset});
}

void trBase::DeclareTrue(const trString& fact) {
  data_->facts.insert(fact);
  if (data_->parent) trLinkIndex::Forget(data_->parent, data_->name);
  ovhost::BumpGraphGeneration();
}
bool trBase::IsTrue(const trString& fact) const { return data_->facts.count(fact) != 0; }
