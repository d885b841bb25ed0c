// The node contract: what every class of the catalogue is, declares and may call.
//
// A node declares its parameters in its constructor; the order is the project file's. Operations return 1 for
// success and 0 for failure. Unless said otherwise everything here is main thread only; during a render the
// host changes nothing.
#pragma once

#include <functional>
#include <limits>
#include <memory>
#include <type_traits>
#include <variant>
#include <vector>

#include "core/api.h"
#include "core/colour.h"
#include "core/kelpie.h"
#include "core/links.h"
#include "core/messages.h"
#include "core/random.h"
#include "core/string.h"
#include "core/vector.h"

class trBase;
class trGuiPushButton;
class trPreviewHandler;
struct trNodeData;

/// What a parameter holds; links are told apart by the node they accept.
enum class trParamType {
  kInt,
  kDouble,
  kFloat,
  kBool,
  kVector,
  kVector2,
  kColour,
  kString,
  kFile,
  kNodeLink,
  kShaderLink,
  kObjectLink,
  kPlanetLink,
  kCameraLink,
  kSkyPaintLink,
  kHeightfieldLink
};

/// A value on its way into a parameter. Numbers convert to the parameter's own type; links take text.
class trParamValue {
 public:
  using Storage = std::variant<long, double, trVector, tr2Vector, trManRgb, trString>;

  template <typename T, std::enable_if_t<std::is_integral_v<T>, int> = 0>
  trParamValue(T v) : value(static_cast<long>(v)) {}
  template <typename T, std::enable_if_t<std::is_floating_point_v<T>, int> = 0>
  trParamValue(T v) : value(static_cast<double>(v)) {}
  trParamValue(const trVector& v) : value(v) {}
  trParamValue(const tr2Vector& v) : value(v) {}
  trParamValue(const trManRgb& v) : value(v) {}
  trParamValue(const trFCol& v) : value(trManRgb(v)) {}
  trParamValue(const trString& v) : value(v) {}
  trParamValue(const char* v) : value(trString(v)) {}

  Storage value;
};

/// Codes that order a node's sheet. The named ones have a known use; the host keeps all of them as data.
enum trGuiHint : int {
  trGuiIndentOpen = 0,
  trGuiIndentClose = 1,
  trGuiRowOpen = 4,
  trGuiGapSmall = 5,
  trGuiGap = 6,
  trGuiGapLarge = 7,
  trGuiButtonRowClose = 8,
  trGuiButtonRowOpen = 12,
  trGuiRowClose = 13,
  trGuiHiddenOpen = 14,
  trGuiHiddenClose = 15,
  trGuiRule = 16,
  trGuiRareGap = 18,
  trGuiRadioOpen = 23,
  trGuiRadioClose = 24,
  trGuiBlockOpen = 27,
  trGuiBlockClose = 28
};

/// How triggers drive targets: 1 is radio buttons, where the trigger that the user turns on turns its targets
/// off; 2 enables the targets while every trigger is on; 3 does that for one link or control on the
/// trigger's row.
using trGuiActionPreset = int;

enum class trAnimationInterpolationMode { kLinear = 0, kSmooth = 1, kStepped = 2 };

/// Tells its watchers when it is destroyed.
class OV_API trDestructionNotifier {
 public:
  trDestructionNotifier() = default;
  trDestructionNotifier(const trDestructionNotifier&) = delete;
  trDestructionNotifier& operator=(const trDestructionNotifier&) = delete;
  virtual ~trDestructionNotifier();
  void NotifyOnDestruction(std::function<void()> callback) { callbacks_.push_back(std::move(callback)); }

 private:
  std::vector<std::function<void()>> callbacks_;
};

// --- Declarations of parameters

class trIntHint;
class trDoubleHint;
class trBoolHint;
class trVectorHint;
class tr2VectorHint;
class trFColHint;
class trStringHint;
class trLinkHint;

/// Returned by the declaring calls, to say more about the parameter just declared.
class OV_API trParamDecl {
 public:
  trParamDecl(trBase* node, long index) : node_(node), index_(index) {}
  /// The label of the sheet, where it isn't the name with its underscores opened.
  trParamDecl& Display(const char* label);
  trParamDecl& NotSaved();
  /// Another name by which projects may set it: that of an older version, or the American spelling. It is
  /// never written. Parameters that share one are all set by it.
  trParamDecl& Alias(const char* oldName);
  /// Of a shader that displaces: neither Displace nor anything that it asks reads the parameter, nor what the
  /// node sets along with it. A link says that of all that it leads to. Its changes leave surfaces where they
  /// are.
  trParamDecl& ColourOnly();
  /// What it does, in what unit, and when to change it: a sentence or two for sheets and the node reference.
  /// The text isn't copied: a literal.
  trParamDecl& About(const char* text);
  long Index() const { return index_; }

 private:
  trBase* node_;
  long index_;
};

/// The node base.
class OV_API trBase : public trDestructionNotifier, public Kelpie::KPMessenger {
 public:
  trBase();
  ~trBase() override;

  // --- Virtual operations, in slot order
  virtual void PreDestroy();
  /// The node enters the graph below `parent`; null for a root.
  virtual long Init(trBase* parent, unsigned char isVisibleChild);
  virtual long OnCreate();
  virtual long OnFirstCreate();
  virtual long OnUserCreate();
  virtual long OnUserDestroy();
  virtual unsigned char CanUserDestroy();
  virtual void PreChildParamChange(trBase* child, long index, trBase* who);
  virtual void PreChildStateChange(trBase* child, const trString& state);
  virtual unsigned char OnChildProgress(trBase* child, unsigned long& state, const trString& text,
                                        float fraction, float remaining, unsigned char canAbort);
  virtual void OnParamChanged(long index, trBase* who);
  virtual void OnGuiParamChanged(long index, trBase* who);
  /// A parameter `index` of `changed`, which `link`'s node depends on, was changed by `who`.
  virtual void OnDependencyParamChanged(trBase* changed, long index, trBase* link, trBase* who);
  virtual void OnChildParamChanged(trBase* child, long index, trBase* who);
  virtual void OnChildGuiParamChanged(trBase* child, long index, trBase* who);
  virtual void OnChildStateChanged(trBase* child, const trString& state);
  virtual trPreviewHandler* PreviewHandler();
  /// Sets from text, in the project file's spelling. Text that isn't a finite value of the parameter's type
  /// changes nothing, reports an error and returns 0. By name, old names are taken as well; a name that the
  /// node doesn't know returns 0 without a word.
  virtual long SetParamFromString(long index, const trString& value, trBase* who);
  virtual long SetParamFromString(const char* name, const trString& value, trBase* who);
  virtual long GetStringFromParam(long index, trString& value, trBase* who);
  virtual long Request_double_from_vector(double& value, const trVector& from, long what);
  virtual void* RequestMember(const char* name);
  virtual void WriteXMLCustomData(trString indent, trString& out);
  virtual void EnteredXMLCustomData();
  virtual void HandleXMLCustomElement(const trString& name, const char** attributes);
  virtual void HandleXMLCustomElementClosed(const trString& name);
  virtual void HandleXMLCustomCharacterData(const trString& text);
  virtual void ExitedXMLCustomData();
  /// Computes what derives from the parameters. The host calls it after OnParamChanged, but only once for all
  /// values that a project or a frame sets; a constructor calls it last.
  virtual void UpdateDerived();

  // --- Declaring (constructor only)
  trParamDecl Param(long& member, const char* name, long dflt, trIntHint* hint = nullptr);
  trParamDecl Param(double& member, const char* name, const double& dflt, trDoubleHint* hint = nullptr);
  trParamDecl Param(float& member, const char* name, const float& dflt, trDoubleHint* hint = nullptr);
  trParamDecl Param(unsigned char& member, const char* name, unsigned char dflt, trBoolHint* hint = nullptr);
  trParamDecl Param(trVector& member, const char* name, const trVector& dflt, trVectorHint* hint = nullptr);
  trParamDecl Param(tr2Vector& member, const char* name, const tr2Vector& dflt,
                    tr2VectorHint* hint = nullptr);
  trParamDecl Param(trManRgb& member, const char* name, const trManRgb& dflt, trFColHint* hint = nullptr);
  trParamDecl Param(trString& member, const char* name, const trString& dflt, trStringHint* hint = nullptr);
  trParamDecl Param(trFile& member, const char* name, const trString& dflt, trLinkHint* hint = nullptr);
  /// Declares `seed`. A node made new draws it; one whose project lacks it has the same at every load, made
  /// from its path.
  trParamDecl Seed(long& member);
  /// A name of older projects that has no meaning left: taken, and dropped, with the value at which it had no
  /// effect, or with any where none is given.
  void Retired(const char* oldName, const char* neutralValue = nullptr);
  void PushButton(trGuiPushButton& button, const char* name);
  void GuiTab(const char* label, const char* name);
  void Gui(trGuiHint code);
  void Gui(trGuiHint code, int argument);
  void Gui(int code) { Gui(static_cast<trGuiHint>(code)); }
  void SetParamDisplayName(long index, const trString& label);
  void SetParamShouldBeSaved(long index, bool saved);
  void SetParamShouldBeSaved(const char* name, bool saved);
  bool ParamShouldBeSaved(long index) const;
  void AddGuiAction(const std::vector<trString>& triggers, const std::vector<trString>& targets,
                    const trGuiActionPreset& preset);

  // --- Reading and writing parameters
  /// Sets a parameter; with `notify` the node, its parent and the nodes that link to it are told, even when
  /// the value is the one it had. A value that isn't finite changes nothing and returns 0, as does a name
  /// that doesn't exist.
  long SetParam(const char* name, const trParamValue& value, trBase* who, bool notify = true);
  long SetParam(long index, const trParamValue& value, trBase* who, bool notify = true);
  /// Reads a parameter into a value of its own type (numbers convert); 0 where it can't.
  template <typename Key, typename T>
  long GetParam(const Key& key, T& value, const trBase* who = nullptr) const;
  long FindParam(long& index, const char* name) const;
  long NumParams() const;
  const char* ParamName(long index) const;
  trParamType ParamType(long index) const;
  const void* ParamPtr(long index) const;
  /// Whether parameter `index` is the one held in `member`.
  bool IsParam(long index, const void* member) const { return ParamPtr(index) == member; }
  void SetParamGuiEnabled(const char* name, bool enabled);
  void SetParamGuiEnabled(long index, bool enabled);
  bool IsParamGuiEnabled(long index) const;

  // --- Animation
  bool IsParamAnimated(long index) const;
  /// Gives the parameter its value at `frame`, as a change by trWhoSystem.
  long UpdateParamFromAnim(long index, const double& frame);
  double GetCurrentFrame() const;
  double GetStartFrame() const;
  double GetEndFrame() const;
  /// Keys component `component` (0 for scalars) of the parameter at `frame` with its present value; the last
  /// argument is the interpolation mode's number, or -1 to keep the component's.
  long SetParamKey(long index, int component, const double& frame, int mode);
  long SetParamComponentInterpolationMode(long index, int component, trAnimationInterpolationMode mode);

  // --- Tree
  /// Makes a new node by registered name below this one (its OnCreate and OnFirstCreate run); null if there
  /// is none.
  trBase* CreateChild(const trString& className);
  trBase* Child(long index) const;
  long NumChildren() const;
  void DestroyChild(long index, bool byUser);
  void DestroyChild(const trString& name, bool byUser);
  /// Finds a node by path ("/Planet 01/Fractal 01") or by a name or path looked up from here outwards.
  trBase* NodeByPath(const trString& path) const;
  trBase* Parent() const;
  trBase* Root() const;
  const trString& Name() const;
  trString NameAndPath() const;
  /// Renames; a '/' becomes '_', a name taken by a sibling gets a number. Links that led here, or to nodes
  /// below, are rewritten and lead here still.
  void SetName(const trString& name);
  /// Ties the node to another: it is moved, copied and destroyed with it.
  void SetBundledWith(trBase* node);
  std::vector<trBase*> GetBundledNodeList() const;
  /// The registered name this node was created under.
  const trString& ClassName() const;

  // --- Facts
  void DeclareTrue(const trString& fact);
  bool IsTrue(const trString& fact) const;

  // --- Progress
  /// Tells the user how far a long job is (`fraction` 0 to 1; `state` starts at 0 and is the host's). 0 means
  /// stop.
  long ReportProgress(unsigned long& state, const trString& text, float fraction, float remaining);
  void ReportProgressNoAbort(unsigned long& state, const trString& text, float fraction, float remaining);

  /// Host side.
  trNodeData& Data() const { return *data_; }

 private:
  long ReadParam(long index, trParamValue& value) const;
  long IndexOf(const char* name) const;
  long IndexOf(long index) const { return index; }

  std::unique_ptr<trNodeData> data_;
};

/// Originators of changes that aren't nodes.
extern OV_API trBase* const trWhoUser;
extern OV_API trBase* const trWhoUserIndirect;
extern OV_API trBase* const trWhoSystem;
/// Whether a change comes from the user, by hand or through a tool.
inline bool trIsUser(const trBase* who) { return who == trWhoUser || who == trWhoUserIndirect; }

/// The number as T; what T can't hold becomes its nearest end, NaN 0.
template <typename T>
T trNumberAs(double number) {
  if constexpr (std::is_integral_v<T>) {
    if (!(number > static_cast<double>(std::numeric_limits<T>::min())))
      return number < 0 ? std::numeric_limits<T>::min() : T{0};
    if (number >= static_cast<double>(std::numeric_limits<T>::max())) return std::numeric_limits<T>::max();
  }
  return static_cast<T>(number);
}

template <typename Key, typename T>
long trBase::GetParam(const Key& key, T& value, const trBase*) const {
  trParamValue stored(0L);
  if (!ReadParam(IndexOf(key), stored)) return 0;
  if constexpr (std::is_arithmetic_v<T>) {
    if (const long* number = std::get_if<long>(&stored.value)) return value = static_cast<T>(*number), 1;
    if (const double* number = std::get_if<double>(&stored.value)) return value = trNumberAs<T>(*number), 1;
  } else if (const T* same = std::get_if<T>(&stored.value)) {
    return value = *same, 1;
  }
  return 0;
}

// --- Hints

/// Base of the hints: small nodes whose own parameters are the limits. A limit never set is absent from the
/// sheet.
class OV_API trHint : public trBase {
 public:
  void OnParamChanged(long index, trBase* who) override;
  /// Whether a limit was set, by its parameter's name.
  bool Has(const char* name) const;
  double Value(const char* name) const;

 protected:
  void DeclareRange();

 private:
  double minValue_, maxValue_, focusValue_, focusPower_;
  unsigned char doRange_;
  unsigned setMask_ = 0;
};

class OV_API trIntHint : public trHint {
 public:
  struct MenuItem {
    trString text;
    long value;
  };
  trIntHint();
  /// Item numbers start at 0; a number past the end adds the items between as empty ones.
  void SetMenuItemTextAndValue(int item, const trString& text, long value);
  const std::vector<MenuItem>& Menu() const { return menu_; }

 private:
  std::vector<MenuItem> menu_;
  unsigned char doMenu_;
};

class OV_API trDoubleHint : public trHint {
 public:
  trDoubleHint() { DeclareRange(); }
};
class OV_API trVectorHint : public trHint {
 public:
  trVectorHint() { DeclareRange(); }
};
class OV_API tr2VectorHint : public trHint {
 public:
  tr2VectorHint() { DeclareRange(); }
};
class OV_API trBoolHint : public trHint {};
class OV_API trFColHint : public trHint {};

class OV_API trStringHint : public trHint {
 public:
  /// 4 is a text box of several lines.
  enum StyleFlags : int { kSingleLine = 0, kMultiLine = 4 };
  void SetStyleFlags(StyleFlags flags) { flags_ = flags; }
  StyleFlags Flags() const { return flags_; }

 private:
  StyleFlags flags_ = kSingleLine;
};

class OV_API trLinkHint : public trHint {
 public:
  void AddFileFilter(const trString& label, const trString& pattern) { filters_.push_back({label, pattern}); }
  void SetIsImageFile(bool is) { isImageFile_ = is; }
  void SetIsHeightfieldFile(bool is) { isHeightfieldFile_ = is; }
  bool IsImageFile() const { return isImageFile_; }
  bool IsHeightfieldFile() const { return isHeightfieldFile_; }
  const std::vector<std::pair<trString, trString>>& Filters() const { return filters_; }

 private:
  std::vector<std::pair<trString, trString>> filters_;
  bool isImageFile_ = false, isHeightfieldFile_ = false;
};

// --- Buttons

/// A button of a node's sheet.
class OV_API trGuiPushButton {
 public:
  trGuiPushButton(trBase* node, const char* text) : label(text), node_(node) {}
  virtual ~trGuiPushButton() = default;
  trGuiPushButton(const trGuiPushButton&) = delete;
  trGuiPushButton& operator=(const trGuiPushButton&) = delete;

  /// The press; 0 tells that it did nothing.
  virtual long OnPressed() = 0;
  void Enable() { enabled_ = true; }
  void Disable() { enabled_ = false; }
  bool IsEnabled() const { return enabled_; }
  trBase* Node() const { return node_; }

  trString label;

 private:
  trBase* node_;
  bool enabled_ = true;
};

/// "Random Seed": sets the node's "seed" to a fresh random number.
class OV_API trRandomSeedGuiPushButton : public trGuiPushButton {
 public:
  explicit trRandomSeedGuiPushButton(trBase* node) : trGuiPushButton(node, "Random Seed") {}
  /// A fresh 16-bit seed.
  long RandomInt() { return trNewSeed(); }
  long OnPressed() override { return Node()->SetParam("seed", RandomInt(), trWhoUserIndirect); }
};

/// Creates a node by registered class name that `owner` keeps outside its list of children, or null. `flags`
/// is 0.
OV_API trBase* trCreateObject(const trString& className, trBase* owner, long flags);
/// Destroys what trCreateObject or CreateChild made; null is allowed.
OV_API void trDestroyObject(trBase* node);
