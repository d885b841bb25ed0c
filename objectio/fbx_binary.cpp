// The binary form: records with the offset of their end, little-endian. The layout has been found out by many
// and is told best by the notes of the Blender Foundation (2013).
#include <bit>
#include <cstring>

#include "objectio/fbx_document.h"

namespace {

static_assert(std::endian::native == std::endian::little, "arrays are copied as they are");

constexpr std::uint32_t kVersion = 7400;
constexpr std::size_t kSentinel = 13;  // the empty record that ends a list of nodes
constexpr unsigned char kFooterId[] = {0xfa, 0xbc, 0xab, 0x09, 0xd0, 0xc8, 0xd4, 0x66,
                                       0xb1, 0x76, 0xfb, 0x83, 0x1c, 0xf7, 0x26, 0x7e};
constexpr unsigned char kFileEnd[] = {0xf8, 0x5a, 0x8c, 0x6a, 0xde, 0xf5, 0xd9, 0x7e,
                                      0xec, 0xe9, 0x0c, 0xe3, 0x75, 0x8f, 0x29, 0x0b};

class BinaryFbx : public FbxDocument {
 public:
  BinaryFbx() {
    bytes_.append("Kaydara FBX Binary  \0\x1a\0", 23);
    Raw(kVersion);
  }

  void Open(std::string_view name, FbxValues values) override {
    // What has no properties ends with a sentinel even where nothing is inside.
    if (!open_.empty()) open_.back().hasInside = true;
    open_.push_back({Begin(name), values.size() == 0});
    for (const FbxValue& value : values) std::visit([this](const auto& v) { Put(v); }, value);
    EndValues(open_.back().at, values.size());
  }
  void Close() override {
    const Record record = open_.back();
    open_.pop_back();
    if (record.hasInside) bytes_.append(kSentinel, '\0');
    EndRecord(record.at);
  }
  void Leaf(std::string_view name, FbxValues values) override {
    Open(name, values);
    Close();
  }
  void Array(std::string_view name, std::span<const double> values) override { PutArray(name, 'd', values); }
  void Array(std::string_view name, std::span<const std::int32_t> values) override {
    PutArray(name, 'i', values);
  }
  const std::string& Finish() override {
    bytes_.append(kSentinel, '\0');
    bytes_.append(reinterpret_cast<const char*>(kFooterId), sizeof kFooterId);
    bytes_.append(4, '\0');
    bytes_.append(16 - bytes_.size() % 16, '\0');
    Raw(kVersion);
    bytes_.append(120, '\0');
    bytes_.append(reinterpret_cast<const char*>(kFileEnd), sizeof kFileEnd);
    return bytes_;
  }

 private:
  struct Record {
    std::size_t at;
    bool hasInside;
  };

  template <typename T>
  void Raw(T value) {
    bytes_.append(reinterpret_cast<const char*>(&value), sizeof value);
  }
  void Patch(std::size_t at, std::size_t value) {
    const auto word = static_cast<std::uint32_t>(value);
    std::memcpy(bytes_.data() + at, &word, sizeof word);
  }
  /// End offset, number and length of the properties, name.
  std::size_t Begin(std::string_view name) {
    const std::size_t at = bytes_.size();
    bytes_.append(12, '\0');
    bytes_.push_back(static_cast<char>(name.size()));
    bytes_.append(name);
    valuesAt_ = bytes_.size();
    return at;
  }
  void EndValues(std::size_t record, std::size_t count) {
    Patch(record + 4, count);
    Patch(record + 8, bytes_.size() - valuesAt_);
  }
  void EndRecord(std::size_t record) { Patch(record, bytes_.size()); }

  void Put(bool value) {
    bytes_.push_back('C');
    Raw<unsigned char>(value ? 'T' : 'F');
  }
  void Put(std::int32_t value) {
    bytes_.push_back('I');
    Raw(value);
  }
  void Put(std::int64_t value) {
    bytes_.push_back('L');
    Raw(value);
  }
  void Put(double value) {
    bytes_.push_back('D');
    Raw(value);
  }
  void PutSized(char code, const void* data, std::size_t size) {
    bytes_.push_back(code);
    Raw(static_cast<std::uint32_t>(size));
    bytes_.append(static_cast<const char*>(data), size);
  }
  void Put(const std::string& text) { PutSized('S', text.data(), text.size()); }
  void Put(const FbxName& name) {
    std::string text = name.name;
    text.append("\0\1", 2);
    text += name.ofClass;
    Put(text);
  }
  void Put(const FbxBytes& raw) { PutSized('R', raw.data(), raw.size()); }

  template <typename T>
  void PutArray(std::string_view name, char code, std::span<const T> values) {
    if (!open_.empty()) open_.back().hasInside = true;
    const std::size_t record = Begin(name);
    const auto bytes = static_cast<std::uint32_t>(values.size_bytes());
    bytes_.push_back(code);
    Raw(static_cast<std::uint32_t>(values.size()));
    Raw(std::uint32_t{0});  // as they are, not packed
    Raw(bytes);
    bytes_.append(reinterpret_cast<const char*>(values.data()), values.size_bytes());
    EndValues(record, 1);
    EndRecord(record);
  }

  std::string bytes_;
  std::vector<Record> open_;
  std::size_t valuesAt_ = 0;
};

}  // namespace

std::unique_ptr<FbxDocument> MakeBinaryFbx() { return std::make_unique<BinaryFbx>(); }
