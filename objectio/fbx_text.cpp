// The text form.
#include <charconv>

#include "objectio/fbx_document.h"

namespace {

/// Some readers keep a line in a buffer of their own.
constexpr std::size_t kLongLine = 2000;

class TextFbx : public FbxDocument {
 public:
  TextFbx() {
    text_ = "; FBX 7.4.0 project file\n; ----------------------------------------------------\n\n";
  }

  void Open(std::string_view name, FbxValues values) override {
    Head(name, values);
    text_ += " {\n";
    indent_ += '\t';
  }
  void Close() override {
    indent_.pop_back();
    text_ += indent_;
    text_ += "}\n";
  }
  void Leaf(std::string_view name, FbxValues values) override {
    if (values.size() == 1 && std::holds_alternative<FbxBytes>(*values.begin())) return;
    Head(name, values);
    text_ += '\n';
  }
  void Array(std::string_view name, std::span<const double> values) override { PutArray(name, values); }
  void Array(std::string_view name, std::span<const std::int32_t> values) override { PutArray(name, values); }
  const std::string& Finish() override { return text_; }

 private:
  void Head(std::string_view name, FbxValues values) {
    text_ += indent_;
    text_ += name;
    text_ += ": ";
    bool isFirst = true;
    for (const FbxValue& value : values) {
      if (!isFirst) text_ += ", ";
      isFirst = false;
      std::visit([this](const auto& v) { Put(v); }, value);
    }
  }

  void Put(bool value) { text_ += value ? 'T' : 'F'; }
  template <typename T>
  requires std::is_arithmetic_v<T>
  void Put(T value) {
    char buffer[40];
    text_.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, value).ptr);
  }
  void Put(const std::string& text) {
    text_ += '"';
    for (const char c : text)
      if (c == '"')
        text_ += "&quot;";
      else
        text_ += c;
    text_ += '"';
  }
  void Put(const FbxName& name) { Put(std::string(name.ofClass) + "::" + name.name); }
  void Put(const FbxBytes&) {}  // there is no such thing in text

  template <typename T>
  void PutArray(std::string_view name, std::span<const T> values) {
    text_ += indent_;
    text_ += name;
    text_ += ": *" + std::to_string(values.size()) + " {\n" + indent_ + "\ta: ";
    std::size_t line = text_.size();
    for (std::size_t i = 0; i < values.size(); ++i) {
      if (i > 0) text_ += ',';
      if (text_.size() - line > kLongLine) {
        text_ += '\n';
        line = text_.size();
      }
      Put(values[i]);
    }
    text_ += "\n" + indent_ + "}\n";
  }

  std::string text_, indent_;
};

}  // namespace

std::unique_ptr<FbxDocument> MakeTextFbx() { return std::make_unique<TextFbx>(); }
