// Reading and writing parameters, and who is told of a change.
#include "host/node/params.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <unordered_set>

#include "host/base/nearest_word.h"
#include "host/node/node_data.h"

namespace {

/// Coupled parameters call each other a few levels deep; more is a loop between nodes.
constexpr int kMaxNotificationDepth = 64;
thread_local int notificationDepth = 0;

bool IsFinite(const trParamValue& value) {
  struct Visitor {
    bool operator()(long) const { return true; }
    bool operator()(double v) const { return std::isfinite(v); }
    bool operator()(const trVector& v) const {
      return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
    }
    bool operator()(const tr2Vector& v) const { return std::isfinite(v.x) && std::isfinite(v.y); }
    bool operator()(const trManRgb& v) const {
      return std::isfinite(v.r) && std::isfinite(v.g) && std::isfinite(v.b);
    }
    bool operator()(const trString&) const { return true; }
  };
  return std::visit(Visitor{}, value.value);
}

/// A number of either kind; false for anything else.
bool AsDouble(const trParamValue& value, double& out) {
  if (const long* i = std::get_if<long>(&value.value)) return out = static_cast<double>(*i), true;
  if (const double* d = std::get_if<double>(&value.value)) return out = *d, true;
  return false;
}

bool AsLong(const trParamValue& value, long& out) {
  if (const long* i = std::get_if<long>(&value.value)) return out = *i, true;
  if (const double* d = std::get_if<double>(&value.value)) {
    if (std::fabs(*d) > 9.0e18) return false;
    return out = static_cast<long>(*d), true;
  }
  return false;
}

/// Stores into the member; false where the value doesn't fit the type.
bool Store(trParamInfo& param, const trParamValue& value) {
  double number;
  long whole;
  switch (param.type) {
    case trParamType::kInt:
      if (!AsLong(value, whole)) return false;
      *static_cast<long*>(param.member) = whole;
      return true;
    case trParamType::kBool:
      if (!AsDouble(value, number)) return false;
      *static_cast<unsigned char*>(param.member) = number != 0;
      return true;
    case trParamType::kDouble:
      if (!AsDouble(value, number)) return false;
      *static_cast<double*>(param.member) = number;
      return true;
    case trParamType::kFloat:
      if (!AsDouble(value, number) || !std::isfinite(static_cast<float>(number))) return false;
      *static_cast<float*>(param.member) = static_cast<float>(number);
      return true;
    case trParamType::kVector:
      if (const trVector* v = std::get_if<trVector>(&value.value)) {
        *static_cast<trVector*>(param.member) = *v;
        return true;
      }
      return false;
    case trParamType::kVector2:
      if (const tr2Vector* v = std::get_if<tr2Vector>(&value.value)) {
        *static_cast<tr2Vector*>(param.member) = *v;
        return true;
      }
      return false;
    case trParamType::kColour:
      if (const trManRgb* v = std::get_if<trManRgb>(&value.value)) {
        trManRgb& member = *static_cast<trManRgb*>(param.member);
        member = trManRgb(v->r, v->g, v->b, member.isForceData);
        return true;
      }
      return false;
    case trParamType::kString:
      if (const trString* v = std::get_if<trString>(&value.value)) {
        *static_cast<trString*>(param.member) = *v;
        return true;
      }
      return false;
    default:
      if (const trString* v = std::get_if<trString>(&value.value)) {
        static_cast<trFile*>(param.member)->SetText(*v);
        return true;
      }
      return false;
  }
}

/// The action of radio buttons: the trigger that the user turns on turns the targets off.
constexpr trGuiActionPreset kExclusive = 1;

void TurnOthersOff(trBase* node, long index, trBase* who) {
  if (!trIsUser(who)) return;
  for (const trGuiActionInfo& action : node->Data().guiActions) {
    const trString name = node->ParamName(index);
    double on = 0;
    if (action.preset != kExclusive || !node->GetParam(index, on) || !on) continue;
    if (std::find(action.triggers.begin(), action.triggers.end(), name) == action.triggers.end()) continue;
    for (const trString& target : action.targets)
      if (target != name && node->GetParam(target.c_str(), on) && on) node->SetParam(target.c_str(), 0, node);
  }
}

thread_local int quietDependents = 0;

/// Tells every node that links to the changed one, once.
void NotifyDependents(trBase* changed, long index, trBase* who) {
  if (quietDependents > 0) return;
  // A copy: those who are told may change the graph.
  const std::vector<trFile*> links = trLinkIndex::LinksTo(changed);
  const std::vector<trFile*>& now = changed->Data().linksHere;
  const std::uint32_t generation = ovhost::GraphGeneration();
  std::unordered_set<const trBase*> told{changed};
  for (trFile* link : links) {
    if (ovhost::GraphGeneration() != generation && std::find(now.begin(), now.end(), link) == now.end())
      continue;
    trBase* const dependent = link->Owner();
    if (told.insert(dependent).second) dependent->OnDependencyParamChanged(changed, index, changed, who);
  }
}

}  // namespace

ovhost::QuietDependents::QuietDependents() { ++quietDependents; }
ovhost::QuietDependents::~QuietDependents() { --quietDependents; }

long ovhost::FindParamByAnyName(const trBase& node, const std::string& name) {
  long index = -1;
  if (node.FindParam(index, name.c_str())) return index;
  for (const trOldName& old : node.Data().oldNames)
    if (old.name == name && old.param >= 0) return old.param;
  return -1;
}

long ovhost::AttributeRank(const trBase& node, const std::string& name) {
  const long index = FindParamByAnyName(node, name);
  if (index < 0) return std::numeric_limits<long>::max();
  return 2 * index + (node.ParamName(index) == name);
}

void ovhost::SetTogether(trBase& node, const std::function<void()>& set) {
  struct Open {
    explicit Open(int& count) : count(++count) {}
    ~Open() { --count; }
    int& count;
  };
  {
    const Open open(node.Data().setsTogether);
    set();
  }
  if (node.Data().setsTogether == 0) node.UpdateDerived();
}

long trBase::SetParam(const char* name, const trParamValue& value, trBase* who, bool notify) {
  return SetParam(IndexOf(name), value, who, notify);
}

long trBase::SetParam(long index, const trParamValue& value, trBase* who, bool notify) {
  if (index < 0 || index >= NumParams() || !IsFinite(value)) return 0;
  if (notify && data_->parent) data_->parent->PreChildParamChange(this, index, who);
  if (!Store(data_->params[index], value)) return 0;
  if (!notify) return 1;
  if (notificationDepth >= kMaxNotificationDepth) {
    const trScopedErrorsWarningsContext context(this);
    trError("Parameters change each other without end at '" + data_->params[index].name + "'.");
    return 0;
  }
  ++notificationDepth;
  OnParamChanged(index, who);
  if (data_->setsTogether == 0) UpdateDerived();
  TurnOthersOff(this, index, who);
  if (data_->parent) {
    data_->parent->OnChildParamChanged(this, index, who);
    NotifyDependents(this, index, who);
  }
  --notificationDepth;
  return 1;
}

long trBase::ReadParam(long index, trParamValue& value) const {
  if (index < 0 || index >= NumParams()) return 0;
  const trParamInfo& param = data_->params[index];
  switch (param.type) {
    case trParamType::kInt:
      value = *static_cast<const long*>(param.member);
      break;
    case trParamType::kBool:
      value = static_cast<long>(*static_cast<const unsigned char*>(param.member));
      break;
    case trParamType::kDouble:
      value = *static_cast<const double*>(param.member);
      break;
    case trParamType::kFloat:
      value = static_cast<double>(*static_cast<const float*>(param.member));
      break;
    case trParamType::kVector:
      value = *static_cast<const trVector*>(param.member);
      break;
    case trParamType::kVector2:
      value = *static_cast<const tr2Vector*>(param.member);
      break;
    case trParamType::kColour:
      value = *static_cast<const trManRgb*>(param.member);
      break;
    case trParamType::kString:
      value = *static_cast<const trString*>(param.member);
      break;
    default:
      value = static_cast<const trFile*>(param.member)->FileStringR();
      break;
  }
  return 1;
}

long trBase::SetParamFromString(const char* name, const trString& value, trBase* who) {
  const long index = IndexOf(name);
  if (index >= 0) return SetParamFromString(index, value, who);
  bool isKnown = false;
  for (const trOldName& old : data_->oldNames) {
    if (old.name != name) continue;
    if (old.param < 0) {
      isKnown |= !old.neutralValue || value == *old.neutralValue;
      continue;
    }
    // By the present name, so that a class which treats that one in its own way sees it.
    if (!SetParamFromString(ParamName(old.param), value, who)) return 0;
    isKnown = true;
  }
  return isKnown;
}

long trBase::SetParamFromString(long index, const trString& value, trBase* who) {
  if (index < 0 || index >= NumParams()) return 0;
  const trParamInfo& param = data_->params[index];
  trParamValue parsed(0L);
  if (ovhost::TextToValue(value, param, parsed)) return SetParam(index, parsed, who);
  const trScopedErrorsWarningsContext context(this, &param.name);
  const std::string shown = value.size() > 80 ? value.substr(0, 80) + "..." : value;
  std::string text = "'" + shown + "' is not a value of type " + ovhost::TypeName(param.type);
  if (const auto* const menu = ovhost::MenuOf(param)) {
    std::vector<std::string> entries;
    text += "; there are";
    for (const trIntHint::MenuItem& item : *menu) {
      text += (entries.empty() ? " " : ", ") + std::to_string(item.value) + " " + item.text;
      entries.push_back(item.text);
    }
    text += ovhost::DidYouMean(value, entries);
  }
  trError(text);
  return 0;
}

long trBase::GetStringFromParam(long index, trString& value, trBase*) {
  trParamValue stored(0L);
  if (!ReadParam(index, stored)) return 0;
  value = ovhost::ValueToText(stored);
  if (ParamType(index) == trParamType::kFloat)
    value = ovhost::ValueToText(trParamValue(trManRgb(*static_cast<const float*>(ParamPtr(index)), 0, 0)));
  if (ParamType(index) == trParamType::kFloat) value.resize(value.find(' '));
  return 1;
}

long trBase::FindParam(long& index, const char* name) const {
  const long found = IndexOf(name);
  if (found < 0) return 0;
  index = found;
  return 1;
}

long trBase::IndexOf(const char* name) const {
  for (size_t i = 0; i < data_->params.size(); ++i)
    if (data_->params[i].name == name) return static_cast<long>(i);
  return -1;
}

long trBase::NumParams() const { return static_cast<long>(data_->params.size()); }

const char* trBase::ParamName(long index) const {
  return index >= 0 && index < NumParams() ? data_->params[index].name.c_str() : "";
}

trParamType trBase::ParamType(long index) const {
  return index >= 0 && index < NumParams() ? data_->params[index].type : trParamType::kString;
}

const void* trBase::ParamPtr(long index) const {
  return index >= 0 && index < NumParams() ? data_->params[index].member : nullptr;
}

void trBase::SetParamGuiEnabled(const char* name, bool enabled) {
  SetParamGuiEnabled(IndexOf(name), enabled);
}

void trBase::SetParamGuiEnabled(long index, bool enabled) {
  if (index < 0 || index >= NumParams() || data_->params[index].guiEnabled == enabled) return;
  data_->params[index].guiEnabled = enabled;
  OnGuiParamChanged(index, this);
  if (data_->parent) data_->parent->OnChildGuiParamChanged(this, index, this);
}

bool trBase::IsParamGuiEnabled(long index) const {
  if (index < 0 || index >= NumParams() || !data_->params[index].guiEnabled) return false;
  for (const trGuiActionInfo& action : data_->guiActions) {
    if (action.preset == kExclusive) continue;
    bool isTarget = false;
    for (const trString& target : action.targets) isTarget |= target == data_->params[index].name;
    if (!isTarget) continue;
    for (const trString& trigger : action.triggers) {
      long on = 1;
      GetParam(trigger.c_str(), on);
      if (!on) return false;
    }
  }
  return true;
}
