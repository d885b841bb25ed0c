// Reading: an event parser over the whole text, so that what isn't understood can be kept to the byte.
#include "host/project/project_reader.h"

#include <expat.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <map>

#include "core/xml.h"
#include "host/base/log.h"
#include "host/base/nearest_word.h"
#include "host/base/plain_file.h"
#include "host/base/session_context.h"
#include "host/node/class_pool.h"
#include "host/node/node_data.h"
#include "host/project/host_classes.h"

namespace ovhost {
namespace {

constexpr int kMaxDepth = 256;
constexpr int kMaxAttributes = 65536;
constexpr std::int64_t kMaxFileBytes = 512ll << 20;
constexpr const char* kProjectElement = "ombrivex_project";
constexpr const char* kClipElement = "ombrivex_clip";

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

/// A value as messages show it.
std::string Shortened(const std::string& text) {
  return text.size() > 80 ? text.substr(0, 80) + "..." : text;
}

/// Reads a finite number and the blanks after it.
bool ReadNumber(const char*& at, const char* end, double& out) {
  const auto [to, error] = std::from_chars(at, end, out);
  if (error != std::errc() || !std::isfinite(out) || (to < end && !IsBlank(*to))) return false;
  for (at = to; at < end && IsBlank(*at);) ++at;
  return true;
}

/// Reads one document into a tree.
class Reader {
 public:
  Reader(const std::string& text, const std::string& source) : text_(text), source_(source) {}

  /// The document's root element must be `rootElement`; its children go below `root`, and a project's
  /// attributes to `root` itself.
  bool Read(trBase* root, const std::string& rootElement) {
    root_ = root;
    rootElement_ = rootElement;
    isClip_ = rootElement == kClipElement;
    const QuietDependents quiet;
    Parse();
    if (failed_) return false;
    if (isClip_) FollowRenamedNodes();
    FinishNodes();
    return !failed_;
  }
  const std::vector<trBase*>& TopNodes() const { return topNodes_; }

 private:
  struct Element {
    enum Kind { kNode, kClip, kAnimation, kCurve, kCustom, kCustomInner, kUnknown, kUnknownInner } kind;
    trBase* node;
    size_t start;  ///< byte of the opening tag
  };
  /// A value for a node.
  struct Attribute {
    std::string name, value;
    long line;
  };
  /// Those whose parameter a node doesn't have yet.
  struct Pending {
    trBase* node;
    std::vector<Attribute> values;
  };
  struct PendingCurve {
    trBase* node;
    std::string param, verbatim;
    long component;
    trAnimationCurve curve;
    long line;
  };

  void Parse() {
    if (text_.size() > static_cast<size_t>(kMaxFileBytes))
      return Fail("is larger than " + std::to_string(kMaxFileBytes >> 20) + " MiB");
    // The parser would take UTF-16 for what it is, and what is kept verbatim would be in two encodings.
    if (text_.substr(0, 4).find('\0') != std::string::npos) return Fail("the document is not UTF-8 text");
    XML_Parser parser = XML_ParserCreate("UTF-8");
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
    if (status == XML_STATUS_ERROR && !stopped_) Fail(XML_ErrorString(XML_GetErrorCode(parser)));
    XML_ParserFree(parser);
    parser_ = nullptr;
  }

  long Line() const { return parser_ ? static_cast<long>(XML_GetCurrentLineNumber(parser_)) : 1; }
  std::string Place(long line) const { return source_ + ":" + std::to_string(line) + ": "; }

  /// Lines of an opening tag's attributes, asked for in their order: writers give each its own.
  class AttributeLines {
   public:
    AttributeLines(const std::string& text, size_t tag, long line) : text_(text), at_(tag), line_(line) {}
    long Of(int index) {
      for (; at_ < text_.size() && seen_ <= index; ++at_) {
        const char c = text_[at_];
        if (c == '\n') ++line_;
        if (quote_) {
          if (c == quote_) quote_ = 0;
        } else if (c == '"' || c == '\'') {
          quote_ = c;
        } else if (c == '=') {
          ++seen_;
        }
      }
      return line_;
    }

   private:
    const std::string& text_;
    size_t at_;
    long line_;
    int seen_ = 0;
    char quote_ = 0;
  };

  /// Ends the reading: the document is not to be understood.
  void Fail(const std::string& why) {
    if (stopped_) return;
    failed_ = stopped_ = true;
    trError(Place(Line()) + why);
    if (parser_) XML_StopParser(parser_, XML_FALSE);
  }
  /// Whether who reads has been asked to end.
  bool EndsAsAsked() {
    if (StopScope::IsAsked()) Fail("the reading was stopped");
    return stopped_;
  }
  /// The document is refused, but read on, so that all that is wrong is told at once.
  void Refuse(long line, trBase* node, const std::string& param, const std::string& why) {
    failed_ = true;
    const trScopedErrorsWarningsContext context(node, &param);
    trError(Place(line) + why);
  }

  void Open(const char* name, const char** attributes) {
    if (stopped_ || EndsAsAsked()) return;
    if (static_cast<int>(stack_.size()) >= kMaxDepth)
      return Fail("elements are nested more than " + std::to_string(kMaxDepth) + " deep");
    int count = 0;
    while (attributes[2 * count]) ++count;
    if (count > kMaxAttributes)
      return Fail("an element has more than " + std::to_string(kMaxAttributes) + " attributes");
    const auto at = static_cast<size_t>(XML_GetCurrentByteIndex(parser_));
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
        ReadCurve(above.node, name, attributes, at);
        return;
      case Element::kCurve:
        return Fail("a curve has no elements");
      case Element::kClip:
        return OpenNode(name, attributes, above.node, at);
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

  void OpenRoot(const std::string& name, const char** attributes, size_t at) {
    if (name != rootElement_)
      return Fail("the document is a '" + Shortened(name) + "', not a '" + rootElement_ + "'");
    stack_.push_back({isClip_ ? Element::kClip : Element::kNode, root_, at});
    if (isClip_) return;
    nodes_.push_back(root_);
    root_->Data().name = NameAttribute(attributes);
    SetAttributes(root_, attributes, at);
  }

  static std::string NameAttribute(const char** attributes) {
    for (int i = 0; attributes[i]; i += 2)
      if (std::strcmp(attributes[i], "name") == 0) return attributes[i + 1];
    return {};
  }

  void OpenNode(const std::string& className, const char** attributes, trBase* parent, size_t at) {
    const std::string name = NameAttribute(attributes);
    const bool isProject = className == kProjectElement;
    trBase* node = isProject ? nullptr : CreateNode(className, parent, name);
    if (!node) {
      const trScopedErrorsWarningsContext context(parent);
      trWarning(Place(Line()) + "the class '" + Shortened(className) +
                (isProject ? "' can't be inside another node" : "' is unknown") +
                "; its node is kept as it is" + (isProject ? "" : DidYouMean(className, AllClassNames())));
      stack_.push_back({Element::kUnknown, parent, at});
      return;
    }
    if (isClip_ && parent == root_) {
      topNodes_.push_back(node);
      if (!name.empty()) renamed_.emplace(name, node);
    } else if (!name.empty() && node->Name() != name) {
      trWarning(Place(Line()) + "the name '" + Shortened(name) + "' can't be had; the node is called '" +
                Shortened(node->Name()) + "'");
    }
    stack_.push_back({Element::kNode, node, at});
    nodes_.push_back(node);
    SetAttributes(node, attributes, at);
  }

  void SetAttributes(trBase* node, const char** attributes, size_t tag) {
    AttributeLines lines(text_, tag, Line());
    std::vector<Attribute> values;
    for (int i = 0; attributes[i]; i += 2)
      if (std::strcmp(attributes[i], "name") != 0)
        values.push_back({attributes[i], attributes[i + 1], lines.Of(i / 2)});
    SetTogether(*node, [&] {
      SetMissingSeed(node, values);
      values = SetValues(node, std::move(values));
    });
    if (!values.empty()) pending_.push_back({node, std::move(values)});
  }

  /// Sets values in the order in which the node declares them, so that couplings of parameters come out the
  /// same whatever order they are written in. Returns those for which the node has no parameter.
  std::vector<Attribute> SetValues(trBase* node, std::vector<Attribute> values) {
    std::vector<std::pair<long, const Attribute*>> order;
    for (const Attribute& value : values) order.emplace_back(AttributeRank(*node, value.name), &value);
    std::stable_sort(order.begin(), order.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<Attribute> unknown;
    for (const auto& [rank, value] : order)
      if (!TrySet(node, *value)) unknown.push_back(*value);
    return unknown;
  }

  /// False where the node has no such parameter. A value that is refused is told of, by the node or here.
  bool TrySet(trBase* node, const Attribute& value) {
    const ToldErrors told;
    {
      const ScopedPlace place(source_, value.line);
      if (node->SetParamFromString(value.name.c_str(), value.value, trWhoSystem)) return true;
    }
    if (!told.Any() && FindParamByAnyName(*node, value.name) < 0) return false;
    failed_ = true;
    if (!told.Any())
      Refuse(value.line, node, value.name, "the value '" + Shortened(value.value) + "' was refused");
    return true;
  }

  /// A seed that the document doesn't tell comes from the node's path: the same at every load. Of the
  /// parameters from `first` on.
  static void SetMissingSeed(trBase* node, const std::vector<Attribute>& values, size_t first = 0) {
    const auto& params = node->Data().params;
    for (size_t i = first; i < params.size(); ++i) {
      const trParamInfo& param = params[i];
      const auto isIt = [&](const Attribute& value) { return value.name == param.name; };
      if (param.isSeed && std::none_of(values.begin(), values.end(), isIt))
        node->SetParam(param.name.c_str(), SeedOfPath(node->NameAndPath()), trWhoSystem);
    }
  }

  /// 16 bits, of the FNV-1a hash (Fowler, Noll and Vo 1991).
  static long SeedOfPath(const std::string& path) {
    std::uint32_t hash = 0x811c9dc5u;
    for (const char c : path) hash = (hash ^ static_cast<unsigned char>(c)) * 0x01000193u;
    return static_cast<long>((hash ^ hash >> 16) & 0xffffu);
  }

  void ReadCurve(trBase* node, const std::string& element, const char** attributes, size_t at) {
    // The attributes.
    if (element != "curve") return Fail("an animation holds curves only");
    std::string component = "0", mode = "smooth", keys;
    PendingCurve read{node, "", "", 0, {}, Line()};
    const std::pair<const char*, std::string*> known[] = {
        {"param", &read.param}, {"component", &component}, {"mode", &mode}, {"keys", &keys}};
    for (int i = 0; attributes[i]; i += 2) {
      std::string* target = nullptr;
      for (const auto& [name, text] : known)
        if (std::strcmp(attributes[i], name) == 0) target = text;
      if (!target)
        return Refuse(Line(), node, read.param,
                      "a curve has no attribute '" + Shortened(attributes[i]) + "'");
      *target = attributes[i + 1];
    }
    const auto wrong = [&](const std::string& why) { Refuse(Line(), node, read.param, why); };

    // What of the parameter it moves, and how.
    const char* const componentEnd = component.data() + component.size();
    const auto [parsed, error] = std::from_chars(component.data(), componentEnd, read.component);
    if (error != std::errc() || parsed != componentEnd || read.component < 0 || read.component > 2)
      return wrong("'" + Shortened(component) + "' is no component of a curve");
    if (mode == "linear")
      read.curve.mode = trAnimationInterpolationMode::kLinear;
    else if (mode == "stepped")
      read.curve.mode = trAnimationInterpolationMode::kStepped;
    else if (mode != "smooth")
      return wrong("'" + Shortened(mode) + "' is no interpolation mode");

    // The keys.
    const char* key = keys.data();
    const char* const end = key + keys.size();
    while (key < end && IsBlank(*key)) ++key;
    while (key < end) {
      trAnimationKey next;
      if (!ReadNumber(key, end, next.frame) || !ReadNumber(key, end, next.value))
        return wrong("the keys of a curve are not pairs of numbers");
      if (!read.curve.keys.empty() && next.frame <= read.curve.keys.back().frame)
        return wrong("the keys of a curve are not in rising order of frames");
      read.curve.keys.push_back(next);
    }

    // Its text, in case the parameter isn't known.
    size_t stop = at;
    for (char quote = 0; stop < text_.size(); ++stop) {
      const char c = text_[stop];
      if (quote ? c == quote : c == '"' || c == '\'') quote = quote ? 0 : c;
      if (!quote && c == '>') break;
    }
    read.verbatim = text_.substr(at, stop - at);
    if (!read.verbatim.empty() && read.verbatim.back() == '/') read.verbatim.pop_back();
    read.verbatim = "<animation>" + read.verbatim + "/></animation>";
    curves_.push_back(std::move(read));
  }

  /// Gives the parameter its curve; a curve of an unknown parameter is kept as it is.
  void PlaceCurve(PendingCurve& read) {
    const long index = FindParamByAnyName(*read.node, read.param);
    if (index < 0) {
      const trScopedErrorsWarningsContext context(read.node);
      trWarning(Place(read.line) + "the animated parameter '" + Shortened(read.param) +
                "' is unknown; its curve is kept as it is");
      read.node->Data().unknownBlocks.push_back({"", read.verbatim, read.node->NumChildren()});
      return;
    }
    trParamInfo& info = read.node->Data().params[index];
    const int components = NumComponents(info.type);
    if (read.component >= components)
      return Refuse(read.line, read.node, read.param,
                    "there is no component " + std::to_string(read.component) + " to animate");
    if (info.curves.empty()) info.curves.resize(components);
    info.curves[read.component] = std::move(read.curve);
  }

  void Close(const char* name) {
    if (stopped_ || stack_.empty()) return;
    const Element element = stack_.back();
    stack_.pop_back();
    if (element.kind == Element::kCustom) element.node->ExitedXMLCustomData();
    if (element.kind == Element::kCustomInner) element.node->HandleXMLCustomElementClosed(name);
    if (element.kind == Element::kUnknown) {
      const auto end =
          static_cast<size_t>(XML_GetCurrentByteIndex(parser_) + XML_GetCurrentByteCount(parser_));
      element.node->Data().unknownBlocks.push_back(
          {name, text_.substr(element.start, end - element.start), element.node->NumChildren()});
    }
  }

  void Characters(const char* data, int length) {
    if (stopped_ || stack_.empty()) return;
    const Element& element = stack_.back();
    if (element.kind == Element::kCustomInner || element.kind == Element::kCustom) {
      element.node->HandleXMLCustomCharacterData(trString(data, static_cast<size_t>(length)));
    } else if (element.kind == Element::kNode && !toldOfText_ && !std::all_of(data, data + length, IsBlank)) {
      toldOfText_ = true;
      trWarning(Place(Line()) + "text between elements means nothing here and is not kept");
    }
  }

  /// Links among the nodes of a clip lead to the clip's own nodes, whatever those are called now.
  void FollowRenamedNodes() {
    const std::string path = root_->NameAndPath();
    const std::string above = path == "/" ? path : path + "/";
    for (trBase* node : nodes_)
      for (const trParamInfo& param : node->Data().params) {
        if (param.type < trParamType::kNodeLink) continue;
        auto* link = static_cast<trFile*>(param.member);
        const std::string& text = link->FileStringR();
        const size_t begin = text.rfind(above, 0) == 0 ? above.size() : 0;
        const size_t end = std::min(text.find('/', begin), text.size());
        const auto found = renamed_.find(text.substr(begin, end - begin));
        if (found == renamed_.end() || found->second->Name() == found->first) continue;
        link->SetText(text.substr(0, begin) + found->second->Name() + text.substr(end));
      }
  }

  /// OnCreate for every node, parents first, then the values that only now have a parameter.
  void FinishNodes() {
    size_t next = 0;
    for (trBase* node : nodes_) {
      if (EndsAsAsked()) return;
      const size_t declared = node->Data().params.size();
      if (node != root_) node->OnCreate();
      const bool hasMore = next < pending_.size() && pending_[next].node == node;
      SetMissingSeed(node, hasMore ? pending_[next].values : std::vector<Attribute>(), declared);
      if (hasMore) PlaceValues(pending_[next++]);
    }
    for (PendingCurve& curve : curves_) PlaceCurve(curve);
  }

  void PlaceValues(Pending& pending) {
    trBase* const node = pending.node;
    std::vector<Attribute> unknown;
    SetTogether(*node, [&] { unknown = SetValues(node, std::move(pending.values)); });
    if (unknown.empty()) return;
    const trScopedErrorsWarningsContext context(node);
    std::vector<std::string> names;
    for (const trParamInfo& param : node->Data().params) names.push_back(param.name);
    for (const Attribute& value : unknown) {
      trWarning(Place(value.line) + "the attribute '" + Shortened(value.name) +
                "' is unknown and is kept as it is" + DidYouMean(value.name, names));
      node->Data().unknownAttributes.push_back({value.name, value.value});
    }
  }

  const std::string& text_;
  const std::string& source_;
  XML_Parser parser_ = nullptr;
  trBase* root_ = nullptr;
  std::string rootElement_;
  std::vector<Element> stack_;
  std::vector<trBase*> nodes_, topNodes_;
  std::map<std::string, trBase*> renamed_;  ///< a clip's top nodes by the name they had in it
  std::vector<Pending> pending_;
  std::vector<PendingCurve> curves_;
  bool isClip_ = false;
  bool failed_ = false;   ///< something is wrong with the document
  bool stopped_ = false;  ///< and it isn't read on
  bool toldOfText_ = false;
};

}  // namespace

std::unique_ptr<juProject> ProjectFromText(const std::string& text, const std::string& source,
                                           const std::string& folder) {
  RegisterHostClasses();
  auto project = std::make_unique<juProject>();
  project->SetFolder(folder);
  Reader reader(text, source);
  if (!reader.Read(project.get(), kProjectElement)) return nullptr;
  return project;
}

std::unique_ptr<juProject> LoadProject(const std::string& path) {
  std::string text, problem;
  if (!ReadPlainFile(path, kMaxFileBytes, text, problem)) {
    trError(path + ": " + problem);
    return nullptr;
  }
  const size_t slash = path.find_last_of('/');
  return ProjectFromText(text, path, slash == std::string::npos ? "." : path.substr(0, slash));
}

}  // namespace ovhost

long trBaseXML::ReadBuffer(trBase* parent, const trString& text) {
  if (!parent) return 0;
  static const std::string source = "clip";
  PreNodePaste(parent);
  ovhost::Reader reader(text, source);
  const bool isRead = reader.Read(parent, ovhost::kClipElement);
  if (!isRead)
    for (trBase* node : reader.TopNodes()) ovhost::DestroyNode(node);
  PostNodePaste(parent);
  return isRead;
}
