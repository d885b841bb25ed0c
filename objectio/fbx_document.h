// FBX 7.4 files as trees of named nodes, in the binary and in the text form.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// The name of an object and its class, which the two forms put together differently.
struct FbxName {
  std::string name;
  std::string_view ofClass;
};
using FbxBytes = std::vector<unsigned char>;
/// A property of a node: a switch, whole numbers of 32 and 64 bits, a number, a text, a name, raw bytes
/// (which the text form leaves out).
using FbxValue = std::variant<bool, std::int32_t, std::int64_t, double, std::string, FbxName, FbxBytes>;
using FbxValues = std::initializer_list<FbxValue>;

/// A file that grows node by node. Throws std::bad_alloc.
class FbxDocument {
 public:
  virtual ~FbxDocument() = default;
  /// A node that has others inside, until Close.
  virtual void Open(std::string_view name, FbxValues values = {}) = 0;
  virtual void Close() = 0;
  virtual void Leaf(std::string_view name, FbxValues values) = 0;
  virtual void Array(std::string_view name, std::span<const double> values) = 0;
  virtual void Array(std::string_view name, std::span<const std::int32_t> values) = 0;
  /// The whole file.
  virtual const std::string& Finish() = 0;
};

std::unique_ptr<FbxDocument> MakeBinaryFbx();
std::unique_ptr<FbxDocument> MakeTextFbx();
