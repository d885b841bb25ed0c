// Reads the sheet of a class off a node of it.
#include "host/session/class_sheet.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <typeinfo>

#include "core/project.h"
#include "core/shader.h"
#include "host/node/class_pool.h"
#include "host/node/node_data.h"

namespace ovhost {
namespace {

/// The class's own name, without the namespaces around it.
std::string Demangled(const trBase& node) {
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> name(
      abi::__cxa_demangle(typeid(node).name(), nullptr, nullptr, &status), std::free);
  const std::string full = name ? name.get() : typeid(node).name();
  const size_t scope = full.rfind("::");
  return scope == std::string::npos ? full : full.substr(scope + 2);
}

std::string Implementation(const std::string& className, const trBase& node) {
  for (const PlannedRow& row : PlannedRows())
    if (row.className == className) return row.implementation;
  return Demangled(node);
}

std::optional<double> Limit(const trHint& hint, const char* name) {
  if (!hint.Has(name)) return std::nullopt;
  return hint.Value(name);
}

SheetHint Limits(const trHint& hint) {
  return {Limit(hint, "min_value"), Limit(hint, "max_value"), Limit(hint, "focus_value"),
          Limit(hint, "focus_power"), Limit(hint, "do_range")};
}

SheetParam Described(const trBase& node, long index) {
  const trParamInfo& info = node.Data().params[static_cast<size_t>(index)];
  SheetParam param;
  param.name = info.name;
  param.type = TypeName(info.type);
  param.label = DisplayName(info);
  param.tab = info.tabLabel;
  param.about = info.about;
  param.defaultText = DefaultText(info);
  const_cast<trBase&>(node).GetStringFromParam(index, param.value, trWhoSystem);
  param.saved = info.saved;
  param.hidden = info.hidden;
  if (info.hint) param.hint = Limits(*info.hint);
  if (const auto* text = dynamic_cast<const trStringHint*>(info.hint)) param.hint.styleFlags = text->Flags();
  if (const auto* menu = dynamic_cast<const trIntHint*>(info.hint))
    for (const trIntHint::MenuItem& item : menu->Menu()) param.menu.push_back({item.text, item.value});
  return param;
}

/// A project to hold the described node, so that one which makes children or looks around finds a graph.
struct Setting {
  juProject project;

  ~Setting() {
    while (project.NumChildren() > 0) DestroyNode(project.Child(0));
  }
  trBase* Node(const std::string& className, bool asNew) {
    return asNew ? project.CreateChild(className) : CreateNode(className, &project, "");
  }
};

}  // namespace

std::optional<ClassSheet> DescribeClass(const std::string& className, bool asNew) {
  const CatalogueEntry* entry = FindClass(className);
  if (!entry) return std::nullopt;
  Setting setting, other;
  trBase* node = setting.Node(className, asNew);
  trBase* second = other.Node(className, asNew);
  if (!node || !second) return std::nullopt;

  ClassSheet sheet;
  sheet.className = entry->className;
  sheet.implementation = Implementation(entry->className, *node);
  sheet.isShader = dynamic_cast<trShader*>(node) != nullptr;
  for (const CatalogueEntry& row : Catalogue())
    if (row.className == entry->className) sheet.categories.push_back(row.category);

  // Values are those before OnCreate, which may declare more parameters: these come with the values it gave
  // them.
  for (long i = 0; i < node->NumParams(); ++i) sheet.params.push_back(Described(*node, i));
  if (!asNew) {
    node->OnCreate();
    second->OnCreate();
    for (long i = static_cast<long>(sheet.params.size()); i < node->NumParams(); ++i)
      sheet.params.push_back(Described(*node, i));
  }
  const auto& twins = second->Data().params;
  for (size_t i = 0; i < sheet.params.size() && i < twins.size(); ++i)
    sheet.params[i].isRandom = sheet.params[i].defaultText != DefaultText(twins[i]);

  const trNodeData& data = node->Data();
  sheet.facts.assign(data.facts.begin(), data.facts.end());
  for (const trSheetItem& item : data.sheet)
    if (item.kind == trSheetItem::kButton)
      sheet.buttons.push_back({item.name, item.button ? item.button->label : ""});
  return sheet;
}

}  // namespace ovhost
