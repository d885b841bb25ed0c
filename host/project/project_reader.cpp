// Reading: an event parser over the whole text, so that what isn't understood can be kept to the byte.
#include <expat.h>
#include <sys/stat.h>

#include <charconv>
#include <cstring>
#include <fstream>

#include "core/xml.h"
#include "host/base/log.h"
#include "host/node/class_pool.h"
#include "host/node/node_data.h"
#include "host/project/project_file.h"

namespace ovhost {
namespace {

constexpr int kMaxDepth = 256;
constexpr int kMaxAttributes = 65536;
constexpr std::int64_t kMaxFileBytes = 512ll << 20;

/// Reads one document into a tree.
class Reader {
 public:
  Reader(const std::string& text, const std::string& source) : text_(text), source_(source) {}

  /// The document's root element must be `rootElement`; its attributes and children go to `root`.
  bool Read(trBase* root, const std::string& rootElement) {
    root_ = root;
    rootElement_ = rootElement;
    const QuietDependents quiet;
    const long errorsBefore = NumErrors();
    Parse();
    if (!failed_) FinishNodes();
    return !failed_ && NumErrors() == errorsBefore;
  }
  const std::vector<trBase*>& TopNodes() const { return topNodes_; }

 private:
  struct Element {
    enum Kind { kNode, kAnimation, kCurve, kCustom, kCustomInner, kUnknown, kUnknownInner } kind;
    trBase* node;
    long start;  ///< byte of the opening tag
  };
  struct Pending {
    trBase* node;
    std::string name, value;
    long line;
  };

  void Parse() {
    XML_Parser parser = XML_ParserCreate(nullptr);
    if (!parser) return Fail("there is no memory to read it");
    parser_ = parser;
    XML_SetUserData(parser, this);
    XML_SetElementHandler(
        parser,
        [](void* self, const char* name, const char** attributes) {
          static_cast<Reader*>(self)->Open(name, attributes);
        },
        [](void* self, const char* name) { static_cast<Reader*>(self)->Close(name); });
    XML_SetCharacterDataHandler(parser, [](void* self, const char* data, int length) {
      static_cast<Reader*>(self)->Characters(data, length);
    });
    XML_SetStartDoctypeDeclHandler(parser, [](void* self, const char*, const char*, const char*, int) {
      static_cast<Reader*>(self)->Fail("document type declarations are not allowed");
    });
    const auto status = XML_Parse(parser, text_.data(), static_cast<int>(text_.size()), 1);
    if (status == XML_STATUS_ERROR && !failed_) Fail(XML_ErrorString(XML_GetErrorCode(parser)));
    XML_ParserFree(parser);
    parser_ = nullptr;
  }

  long Line() const { return parser_ ? static_cast<long>(XML_GetCurrentLineNumber(parser_)) : 0; }
  std::string Place(long line) const { return source_ + ":" + std::to_string(line) + ": "; }

  void Fail(const std::string& why) {
    if (failed_) return;
    failed_ = true;
    trError(Place(Line()) + why);
    if (parser_) XML_StopParser(parser_, XML_FALSE);
  }

  void Open(const char* name, const char** attributes) {
    if (failed_) return;
    if (static_cast<int>(stack_.size()) >= kMaxDepth)
      return Fail("elements are nested more than " + std::to_string(kMaxDepth) + " deep");
    int count = 0;
    while (attributes[2 * count]) ++count;
    if (count > kMaxAttributes)
      return Fail("an element has more than " + std::to_string(kMaxAttributes) + " attributes");
    const long at = static_cast<long>(XML_GetCurrentByteIndex(parser_));
    if (stack_.empty()) return OpenRoot(name, attributes, at);

    const Element above = stack_.back();
    switch (above.kind) {
      case Element::kUnknown:
      case Element::kUnknownInner:
        stack_.push_back({Element::kUnknownInner, above.node, at});
        return;
      case Element::kCustom:
      case Element::kCustomInner:
        stack_.push_back({Element::kCustomInner, above.node, at});
        above.node->HandleXMLCustomElement(name, attributes);
        return;
      case Element::kAnimation:
        stack_.push_back({Element::kCurve, above.node, at});
        ReadCurve(above.node, name, attributes);
        return;
      case Element::kCurve:
        return Fail("a curve has no elements");
      case Element::kNode:
        break;
    }
    if (std::strcmp(name, "animation") == 0) {
      stack_.push_back({Element::kAnimation, above.node, at});
    } else if (std::strcmp(name, "custom") == 0) {
      stack_.push_back({Element::kCustom, above.node, at});
      above.node->EnteredXMLCustomData();
    } else {
      OpenNode(name, attributes, above.node, at);
    }
  }

  void OpenRoot(const std::string& name, const char** attributes, long at) {
    if (name != rootElement_) return Fail("the document is a '" + name + "', not a '" + rootElement_ + "'");
    stack_.push_back({Element::kNode, root_, at});
    nodes_.push_back(root_);
    SetAttributes(root_, attributes);
  }

  void OpenNode(const std::string& className, const char** attributes, trBase* parent, long at) {
    std::string name;
    for (int i = 0; attributes[i]; i += 2)
      if (std::strcmp(attributes[i], "name") == 0) name = attributes[i + 1];
    const CatalogueEntry* entry = FindClass(className);
    trBase* node = entry && entry->className != rootElement_ ? CreateNode(className, parent, name) : nullptr;
    if (!node) {
      trWarning(Place(Line()) + "the class '" + className + "' is unknown; its node is kept as it is");
      stack_.push_back({Element::kUnknown, parent, at});
      return;
    }
    if (!name.empty() && node->Name() != name)
      trWarning(Place(Line()) + "the name '" + name + "' can't be had; the node is called '" + node->Name() +
                "'");
    stack_.push_back({Element::kNode, node, at});
    nodes_.push_back(node);
    if (parent == root_) topNodes_.push_back(node);
    SetAttributes(node, attributes);
  }

  void SetAttributes(trBase* node, const char** attributes) {
    for (int i = 0; attributes[i]; i += 2) {
      if (std::strcmp(attributes[i], "name") == 0) continue;
      if (!TrySet(node, attributes[i], attributes[i + 1]))
        pending_.push_back({node, attributes[i], attributes[i + 1], Line()});
    }
  }

  /// False where the node has no such parameter; a bad value is reported by the node.
  bool TrySet(trBase* node, const std::string& name, const std::string& value) {
    const long errorsBefore = NumErrors();
    return node->SetParamFromString(name.c_str(), value, trWhoSystem) || NumErrors() != errorsBefore;
  }

  void ReadCurve(trBase* node, const std::string& element, const char** attributes) {
    if (element != "curve") return Fail("an animation holds curves only");
    std::string param, component = "0", mode = "smooth", keys;
    for (int i = 0; attributes[i]; i += 2) {
      const std::string name = attributes[i];
      (name == "param"       ? param
       : name == "component" ? component
       : name == "mode"      ? mode
                             : keys) = attributes[i + 1];
    }
    long index = -1;
    int number = -1;
    std::from_chars(component.data(), component.data() + component.size(), number);
    if (!node->FindParam(index, param.c_str()) || number < 0 ||
        number >= NumComponents(node->ParamType(index)))
      return Fail("there is no parameter '" + param + "' component " + component + " to animate");
    trParamInfo& info = node->Data().params[index];
    if (info.curves.empty()) info.curves.resize(NumComponents(info.type));
    trAnimationCurve& curve = info.curves[number];
    if (mode != "linear" && mode != "smooth" && mode != "stepped")
      return Fail("'" + mode + "' is no interpolation mode");
    curve.mode = mode == "linear"   ? trAnimationInterpolationMode::kLinear
                 : mode == "smooth" ? trAnimationInterpolationMode::kSmooth
                                    : trAnimationInterpolationMode::kStepped;
    curve.keys.clear();
    const char* at = keys.data();
    const char* const end = at + keys.size();
    const auto next = [&](double& out) {
      while (at < end && (*at == ' ' || *at == '\n' || *at == '\t')) ++at;
      const auto [to, error] = std::from_chars(at, end, out);
      const bool fine = error == std::errc() && out - out == 0;
      at = to;
      return fine;
    };
    while (at < end) {
      trAnimationKey key;
      if (!next(key.frame) || !next(key.value))
        return Fail("the keys of '" + param + "' are not pairs of numbers");
      if (!curve.keys.empty() && key.frame <= curve.keys.back().frame)
        return Fail("the keys of '" + param + "' are not in rising order");
      curve.keys.push_back(key);
      while (at < end && (*at == ' ' || *at == '\n' || *at == '\t')) ++at;
    }
  }

  void Close(const char* name) {
    if (failed_ || stack_.empty()) return;
    const Element element = stack_.back();
    stack_.pop_back();
    if (element.kind == Element::kCustom) element.node->ExitedXMLCustomData();
    if (element.kind == Element::kCustomInner) element.node->HandleXMLCustomElementClosed(name);
    if (element.kind == Element::kUnknown) {
      const long end = static_cast<long>(XML_GetCurrentByteIndex(parser_)) + XML_GetCurrentByteCount(parser_);
      // An empty element's closing event has no bytes of its own on some paths; take it up to its bracket.
      long stop = std::max(end, element.start);
      while (stop < static_cast<long>(text_.size()) && text_[stop - 1] != '>') ++stop;
      element.node->Data().unknownBlocks.push_back(text_.substr(element.start, stop - element.start));
    }
  }

  void Characters(const char* data, int length) {
    if (failed_ || stack_.empty()) return;
    const Element& element = stack_.back();
    if (element.kind == Element::kCustomInner || element.kind == Element::kCustom)
      element.node->HandleXMLCustomCharacterData(trString(data, static_cast<size_t>(length)));
  }

  /// OnCreate for every node, parents first, then the values that only now have a parameter.
  void FinishNodes() {
    size_t next = 0;
    for (trBase* node : nodes_) {
      if (node != root_) node->OnCreate();
      for (; next < pending_.size() && pending_[next].node == node; ++next) Place(pending_[next]);
    }
    for (; next < pending_.size(); ++next) Place(pending_[next]);
  }

  void Place(const Pending& value) {
    if (TrySet(value.node, value.name, value.value)) return;
    const trScopedErrorsWarningsContext context(value.node);
    trWarning(Place(value.line) + "the attribute '" + value.name + "' is unknown and is kept as it is");
    value.node->Data().unknownAttributes.push_back({value.name, value.value});
  }

  const std::string& text_;
  const std::string& source_;
  XML_Parser parser_ = nullptr;
  trBase* root_ = nullptr;
  std::string rootElement_;
  std::vector<Element> stack_;
  std::vector<trBase*> nodes_, topNodes_;
  std::vector<Pending> pending_;
  bool failed_ = false;
};

}  // namespace

std::unique_ptr<juProject> ProjectFromText(const std::string& text, const std::string& source) {
  auto project = std::make_unique<juProject>();
  if (text.size() > static_cast<size_t>(kMaxFileBytes)) {
    trError(source + ": is too large for a project");
    return nullptr;
  }
  Reader reader(text, source);
  if (!reader.Read(project.get(), project->ClassName())) return nullptr;
  return project;
}

std::unique_ptr<juProject> LoadProject(const std::string& path) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
    trError(path + ": " + (errno == ENOENT ? "there is no such file" : "is not a file that can be read"));
    return nullptr;
  }
  std::ifstream in(path, std::ios::binary);
  std::string text(static_cast<size_t>(std::min<std::int64_t>(info.st_size, kMaxFileBytes + 1)), '\0');
  if (!in.read(text.data(), static_cast<std::streamsize>(text.size()))) {
    trError(path + ": can't be read");
    return nullptr;
  }
  std::unique_ptr<juProject> project = ProjectFromText(text, path);
  const size_t slash = path.find_last_of('/');
  if (project) project->SetFolder(slash == std::string::npos ? "." : path.substr(0, slash));
  return project;
}

}  // namespace ovhost

long trBaseXML::ReadBuffer(trBase* parent, const trString& text) {
  if (!parent) return 0;
  static const std::string source = "clip";
  PreNodePaste(parent);
  ovhost::Reader reader(text, source);
  const bool isRead = reader.Read(parent, "ombrivex_clip");
  if (!isRead)
    for (trBase* node : reader.TopNodes()) ovhost::DestroyNode(node);
  PostNodePaste(parent);
  return isRead;
}
