// Writing: an element a node, its saved parameters in declaration order, then animation, custom data and
// children.
#include "host/project/project_writer.h"

#include <limits>
#include <set>

#include "core/xml.h"
#include "host/base/atomic_file.h"
#include "host/node/node_data.h"

namespace ovhost {
namespace {

constexpr const char* kModeNames[] = {"linear", "smooth", "stepped"};

/// Length of the UTF-8 character at `at`, or 0 where there is none.
size_t Utf8Length(const std::string& text, size_t at) {
  const auto byte = [&](size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
  const auto follows = [&](size_t i) { return (byte(i) & 0xc0u) == 0x80u; };
  const unsigned lead = byte(at);
  if (lead < 0x80) return 1;
  if (lead >= 0xc2 && lead < 0xe0) return follows(at + 1) ? 2 : 0;
  if (lead >= 0xe0 && lead < 0xf0) {
    const unsigned code = (lead & 15u) << 12 | (byte(at + 1) & 63u) << 6 | (byte(at + 2) & 63u);
    const bool valid = code >= 0x800 && (code < 0xd800 || code > 0xdfff) && code < 0xfffe;
    return follows(at + 1) && follows(at + 2) && valid ? 3 : 0;
  }
  if (lead >= 0xf0 && lead < 0xf5) {
    const unsigned code = (lead & 7u) << 18 | (byte(at + 1) & 63u) << 12;
    return follows(at + 1) && follows(at + 2) && follows(at + 3) && code >= 0x10000 && code < 0x110000 ? 4
                                                                                                       : 0;
  }
  return 0;
}

void AppendAttribute(std::string& out, const std::string& name, const std::string& value,
                     const std::string& indent) {
  out += "\n" + indent + "  " + name + "=\"" + EscapedAttribute(value) + "\"";
}

void AppendAnimation(std::string& out, trBase* node, const std::string& indent) {
  std::string curves;
  for (const trParamInfo& param : node->Data().params)
    for (size_t component = 0; component < param.curves.size(); ++component) {
      const trAnimationCurve& curve = param.curves[component];
      if (curve.keys.empty()) continue;
      curves += indent + "    <curve param=\"" + EscapedAttribute(param.name) + "\" component=\"" +
                std::to_string(component) + "\" mode=\"" + kModeNames[static_cast<int>(curve.mode)] +
                "\" keys=\"";
      for (const trAnimationKey& key : curve.keys) {
        if (&key != &curve.keys.front()) curves += "  ";
        curves += ValueToText(key.frame) + " " + ValueToText(key.value);
      }
      curves += "\"/>\n";
    }
  if (!curves.empty()) out += indent + "  <animation>\n" + curves + indent + "  </animation>\n";
}

/// Children, with what wasn't understood where it stood among them.
void AppendChildren(std::string& out, const trNodeData& data, const std::string& indent) {
  auto block = data.unknownBlocks.begin();
  const auto appendBlocks = [&](long before) {
    for (; block != data.unknownBlocks.end() && block->place <= before; ++block)
      out += indent + block->xml + "\n";
  };
  long place = 0;
  for (trBase* child : data.children) {
    appendBlocks(place++);
    AppendNode(out, child, child->ClassName(), indent);
  }
  appendBlocks(std::numeric_limits<long>::max());
}

}  // namespace

std::string EscapedAttribute(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size();) {
    const size_t length = Utf8Length(text, i);
    const char c = text[i];
    if (length == 0) {
      out += '?';
      ++i;
      continue;
    }
    if (c == '&')
      out += "&amp;";
    else if (c == '<')
      out += "&lt;";
    else if (c == '>')
      out += "&gt;";
    else if (c == '"')
      out += "&quot;";
    else if (c == '\n')
      out += "&#10;";
    else if (c == '\t')
      out += "&#9;";
    else if (c == '\r')
      out += "&#13;";
    else if (length == 1 && static_cast<unsigned char>(c) < 0x20)
      out += '?';
    else
      out += text.substr(i, length);
    i += length;
  }
  return out;
}

void AppendNode(std::string& out, trBase* node, const std::string& element, const std::string& indent) {
  trNodeData& data = node->Data();
  out += indent + "<" + element;
  if (!data.name.empty()) AppendAttribute(out, "name", data.name, indent);
  std::set<std::string> written{"name"};
  for (long i = 0; i < node->NumParams(); ++i) {
    if (!node->ParamShouldBeSaved(i) || !written.insert(node->ParamName(i)).second) continue;
    trString value;
    node->GetStringFromParam(i, value, node);
    AppendAttribute(out, node->ParamName(i), value, indent);
  }
  for (const trUnknownAttribute& unknown : data.unknownAttributes)
    if (written.insert(unknown.name).second) AppendAttribute(out, unknown.name, unknown.value, indent);

  std::string body;
  AppendAnimation(body, node, indent);
  trString custom;
  node->WriteXMLCustomData(indent + "    ", custom);
  if (!custom.empty()) body += indent + "  <custom>\n" + custom + indent + "  </custom>\n";
  AppendChildren(body, data, indent + "  ");
  out += body.empty() ? "/>\n" : ">\n" + body + indent + "</" + element + ">\n";
}

std::string ProjectToText(juProject& project) {
  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  AppendNode(text, &project, project.ClassName(), "");
  return text;
}

std::string SaveProject(juProject& project, const std::string& path) {
  const std::string text = ProjectToText(project);
  return WriteFileAtomically(path, text.data(), text.size());
}

}  // namespace ovhost

trString trBaseXML::GetElement(trBase* node, const trString& indent) {
  std::string out;
  if (node) ovhost::AppendNode(out, node, node->ClassName(), indent);
  return out;
}

trString trBaseXML::GetClip(const std::vector<trBase*>& nodes) {
  std::string out = "<ombrivex_clip>\n";
  for (trBase* node : nodes) out += GetElement(node, "  ");
  return out + "</ombrivex_clip>\n";
}
