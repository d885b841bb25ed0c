// Blocks of bytes as text of an XML element: a zlib stream in base64 (RFC 4648).
#include <zlib.h>

#include <algorithm>
#include <array>
#include <limits>

#include "core/xml.h"

namespace {

constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned char kBlank = 64, kPadding = 65, kNoDigit = 66;

constexpr std::array<unsigned char, 256> MakeValues() {
  std::array<unsigned char, 256> values{};
  values.fill(kNoDigit);
  for (unsigned char i = 0; i < 64; ++i) values[static_cast<unsigned char>(kDigits[i])] = i;
  for (const char c : {' ', '\t', '\n', '\r'}) values[static_cast<unsigned char>(c)] = kBlank;
  values[static_cast<unsigned char>('=')] = kPadding;
  return values;
}
constexpr std::array<unsigned char, 256> kValues = MakeValues();

void AppendBase64(const std::vector<unsigned char>& bytes, std::string& out) {
  out.reserve(out.size() + (bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t count = std::min<std::size_t>(3, bytes.size() - i);
    unsigned group = 0;
    for (std::size_t k = 0; k < 3; ++k) group = group << 8 | (k < count ? bytes[i + k] : 0u);
    for (std::size_t k = 0; k < 4; ++k) out += k <= count ? kDigits[group >> (18 - 6 * k) & 63u] : '=';
  }
}

/// False where the text is anything else.
bool FromBase64(const std::string& text, std::vector<unsigned char>& bytes) {
  bytes.reserve(text.size() / 4 * 3);
  unsigned group = 0;
  int digits = 0, padding = 0;
  for (const char c : text) {
    const unsigned char value = kValues[static_cast<unsigned char>(c)];
    if (value == kBlank) continue;
    if (value == kNoDigit || (padding > 0 && value != kPadding)) return false;
    if (value == kPadding) ++padding;
    group = group << 6 | (value == kPadding ? 0u : value);
    if (++digits % 4 != 0) continue;
    if (padding > 2) return false;
    for (int k = 0; k < 3 - padding; ++k) bytes.push_back(static_cast<unsigned char>(group >> (16 - 8 * k)));
    group = 0;
  }
  return digits % 4 == 0;
}

/// All of a stream, if it ends where its bytes do and holds no more than `mostBytes`.
bool Inflate(const std::vector<unsigned char>& packed, std::size_t mostBytes,
             std::vector<unsigned char>& result) {
  if (packed.size() > std::numeric_limits<uInt>::max()) return false;
  z_stream stream{};
  if (inflateInit(&stream) != Z_OK) return false;
  const struct Ender {
    z_stream& stream;
    ~Ender() { inflateEnd(&stream); }
  } ender{stream};
  stream.next_in = const_cast<Bytef*>(packed.data());
  stream.avail_in = static_cast<uInt>(packed.size());
  std::vector<unsigned char> chunk(std::size_t{1} << 18);
  for (int state = Z_OK; state != Z_STREAM_END;) {
    stream.next_out = chunk.data();
    stream.avail_out = static_cast<uInt>(chunk.size());
    state = inflate(&stream, Z_NO_FLUSH);
    const std::size_t got = chunk.size() - stream.avail_out;
    if ((state != Z_OK && state != Z_STREAM_END) || got > mostBytes - result.size()) return false;
    result.insert(result.end(), chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(got));
  }
  return stream.avail_in == 0;
}

}  // namespace

long trXML::EncodeBlobForXML(std::size_t bytes, const void* data, trString& result, int level) {
  result.clear();
  try {
    std::vector<unsigned char> packed(compressBound(bytes));
    uLongf size = packed.size();
    if (compress2(packed.data(), &size, static_cast<const Bytef*>(data), bytes, level) != Z_OK) return 0;
    packed.resize(size);
    AppendBase64(packed, result);
    return 1;
  } catch (const std::bad_alloc&) {
    result.clear();
    return 0;
  }
}

long trXML::DecodeBlobForXML(const trString& text, std::vector<unsigned char>& result,
                             std::size_t mostBytes) {
  result.clear();
  try {
    std::vector<unsigned char> packed;
    if (FromBase64(text, packed) && Inflate(packed, mostBytes, result)) return 1;
  } catch (const std::bad_alloc&) {
  }
  result = {};
  return 0;
}
