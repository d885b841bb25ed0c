// Paint in project files: a package of projections, each a cube map of six blobs of pixels.
#include <charconv>
#include <cstring>

#include "atmosphere/sky_paint.h"
#include "core/messages.h"
#include "core/xml.h"

namespace {

/// Elements from the outermost in.
constexpr const char* kElements[] = {"package_of_ovv_nodes", "projection", "cubemap", "vec4f_array"};
constexpr std::size_t kLevels = std::size(kElements);
constexpr int kPixelBytes = 4 * sizeof(float);
/// Of a face's side, in pixels: a quarter of a gigabyte a face.
constexpr int kMaxSide = 4096;

/// As "%.6g" in every locale.
trString Number(double value) {
  char text[40];
  return {text, std::to_chars(text, text + sizeof text, value, std::chars_format::general, 6).ptr};
}

trString Attribute(const char* name, const trString& value) {
  return trString(" ") + name + " = \"" + value + "\"";
}

trString AttributeOf(const char** attributes, const char* name) {
  for (int i = 0; attributes[i]; i += 2)
    if (std::strcmp(attributes[i], name) == 0) return attributes[i + 1];
  return {};
}

/// A finite number and the blanks around it.
bool ReadNumber(const char*& at, const char* end, double& value) {
  while (at < end && *at == ' ') ++at;
  const auto [to, error] = std::from_chars(at, end, value);
  if (error != std::errc() || !std::isfinite(value)) return false;
  for (at = to; at < end && *at == ' ';) ++at;
  return true;
}

bool ReadPosition(const trString& text, trVector& position) {
  const char* at = text.data();
  const char* const end = at + text.size();
  return ReadNumber(at, end, position.x) && ReadNumber(at, end, position.y) &&
         ReadNumber(at, end, position.z) && at == end;
}

/// Number of a viewpoint, from 0; -1 where it isn't one.
int ReadIndex(const trString& text) {
  int number = 0;
  const auto [to, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isRead = error == std::errc() && to == text.data() + text.size();
  return isRead && number >= 1 && number <= trSkyPaintStore::kViewpoints ? number - 1 : -1;
}

/// Side of a square of so many pixels, or 0.
int SideOf(std::size_t pixels) {
  const int side = static_cast<int>(std::lround(std::sqrt(static_cast<double>(pixels))));
  return static_cast<std::size_t>(side) * static_cast<std::size_t>(side) == pixels ? side : 0;
}

/// Of a face's size and pixels: FNV-1a (Fowler, Noll and Vo 1991) by words, with its high bits folded down.
std::uint64_t HashOf(const trImage& face) {
  std::uint64_t hash = 0xcbf29ce484222325ull ^ static_cast<std::uint64_t>(face.width);
  for (std::int64_t at = 0; at + 8 <= face.MemoryBytes(); at += 8) {
    std::uint64_t word;
    std::memcpy(&word, face.pixels + at, sizeof word);
    hash = (hash ^ word) * 0x100000001b3ull;
    hash ^= hash >> 29;
  }
  return hash;
}

/// Fills a face from its blob. False, and it stays empty, where that is nothing, or with an error no square
/// of pixels.
bool ReadFace(const trString& text, const trString& what, trImage& face) {
  if (text.find_first_not_of(" \t\r\n") == trString::npos) return false;
  std::vector<unsigned char> bytes;
  if (!trXML::DecodeBlobForXML(text, bytes, std::size_t{kMaxSide} * kMaxSide * kPixelBytes)) {
    trError("SkyPaint: the pixels of " + what + " can't be decoded; the face is empty");
    return false;
  }
  const int side = bytes.size() % kPixelBytes == 0 ? SideOf(bytes.size() / kPixelBytes) : 0;
  if (side == 0) {
    trError("SkyPaint: Cannot make sense of the image resolution while loading from a file or buffer");
    return false;
  }
  if (!face.Init(0, 0, side, side)) return false;
  std::memcpy(face.pixels, bytes.data(), bytes.size());
  return true;
}

}  // namespace

/// Where the reader stands in the data. Elements that make no sense where they stand are told of and left
/// out, with all that is in them.
class SkyPaint::XmlReader {
 public:
  XmlReader(trSkyPaintStore& store, EncodedFaces& encoded) : store_(store), encoded_(encoded) {}

  void Open(const trString& name, const char** attributes) {
    ++depth_;
    if (depth_ > known_ + 1) return;
    if (known_ == kLevels || name != kElements[known_])
      return Tell("the element '" + name.substr(0, 40) + "' makes no sense where it stands");
    if ((name == "projection" && !OpenProjection(attributes)) ||
        (name == "cubemap" && !OpenCubeMap(attributes)) || (name == "vec4f_array" && !OpenFace(attributes)))
      return;
    known_ = depth_;
  }

  void Close() {
    if (depth_ == known_) {
      if (known_ == kLevels) TakeFace();
      --known_;
    }
    if (depth_ > 0) --depth_;
  }

  void Characters(const trString& text) {
    if (depth_ == kLevels && known_ == kLevels) text_ += text;
  }

 private:
  trSkyPaintStore::Record& Record() { return store_.records[static_cast<std::size_t>(viewpoint_)]; }
  trString What() const {
    return trString(kSkyPaintFaceNames[face_]) + " of viewpoint " + std::to_string(viewpoint_ + 1);
  }
  void Tell(const trString& text) {
    if (++told_ <= 10) trError("SkyPaint: " + text + "; it is left out");
  }

  bool OpenProjection(const char** attributes) {
    const trString number = AttributeOf(attributes, "idxb1");
    const int index = ReadIndex(number);
    trVector position;
    if (index < 0) return Tell("there is no viewpoint '" + number.substr(0, 40) + "'"), false;
    if (!ReadPosition(AttributeOf(attributes, "position"), position))
      return Tell("the position of viewpoint " + number + " isn't three numbers"), false;
    if (store_.records[static_cast<std::size_t>(index)].isInUse)
      return Tell("viewpoint " + number + " is there already"), false;
    viewpoint_ = index;
    hasCubeMap_ = false;
    Record().isInUse = true;
    Record().position = position;
    return true;
  }

  bool OpenCubeMap(const char** attributes) {
    if (AttributeOf(attributes, "version") != "1") return Tell("the cube map is of another version"), false;
    if (hasCubeMap_) return Tell("the viewpoint has a cube map already"), false;
    hasCubeMap_ = true;
    for (bool& has : hasFace_) has = false;
    return true;
  }

  bool OpenFace(const char** attributes) {
    const trString name = AttributeOf(attributes, "name");
    for (face_ = 0; face_ < kSkyPaintFaces && name != kSkyPaintFaceNames[face_];) ++face_;
    if (face_ == kSkyPaintFaces) return Tell("there is no face '" + name.substr(0, 40) + "'"), false;
    if (hasFace_[face_]) return Tell(What() + " is there already"), false;
    hasFace_[face_] = true;
    text_.clear();
    return true;
  }

  void TakeFace() {
    trImage& face = Record().face[face_];
    if (!ReadFace(text_, What(), face)) return;
    encoded_[static_cast<std::size_t>(viewpoint_)][static_cast<std::size_t>(face_)] = {std::move(text_),
                                                                                       HashOf(face)};
    text_.clear();
  }

  trSkyPaintStore& store_;
  EncodedFaces& encoded_;
  std::size_t depth_ = 0, known_ = 0;  ///< open elements, and those of them, from the outermost, that count
  int viewpoint_ = 0, face_ = 0, told_ = 0;
  bool hasCubeMap_ = false, hasFace_[kSkyPaintFaces] = {};
  trString text_;
};

SkyPaint::SkyPaint() = default;
SkyPaint::~SkyPaint() = default;

const trString& SkyPaint::TextOf(std::size_t viewpoint, std::size_t face) {
  const trImage& image = store_.records[viewpoint].face[face];
  EncodedFace& encoded = encoded_[viewpoint][face];
  if (image.MemoryBytes() == 0) {
    encoded = {};
  } else if (const std::uint64_t hash = HashOf(image); encoded.text.empty() || encoded.hash != hash) {
    if (!trXML::EncodeBlobForXML(static_cast<std::size_t>(image.MemoryBytes()), image.pixels, encoded.text,
                                 9))
      trError("SkyPaint: there is no memory to write the paint with");
    encoded.hash = hash;
  }
  return encoded.text;
}

void SkyPaint::WriteXMLCustomData(trString indent, trString& out) {
  trString projections;
  for (std::size_t k = 0; k < store_.records.size(); ++k) {
    const trSkyPaintStore::Record& record = store_.records[k];
    if (!record.isInUse) continue;
    const trString number = std::to_string(k + 1);
    const trVector& p = record.position;
    projections += indent + "\t<projection" + Attribute("name", "viewpoint_" + number) +
                   Attribute("idxb1", number) +
                   Attribute("position", Number(p.x) + " " + Number(p.y) + " " + Number(p.z)) + ">\n";
    projections +=
        indent + "\t\t<cubemap" + Attribute("name", "cubemap_" + number) + Attribute("version", "1") + ">\n";
    for (int face = 0; face < kSkyPaintFaces; ++face) {
      projections += indent + "\t\t\t<vec4f_array" + Attribute("name", kSkyPaintFaceNames[face]) + ">" +
                     TextOf(k, static_cast<std::size_t>(face)) + "</vec4f_array>\n";
    }
    projections += indent + "\t\t</cubemap>\n" + indent + "\t</projection>\n";
  }
  if (projections.empty()) return;
  out += indent + "<package_of_ovv_nodes" + Attribute("name", "sky_paint") + ">\n" + projections + indent +
         "</package_of_ovv_nodes>\n";
}

void SkyPaint::EnteredXMLCustomData() { reader_ = std::make_unique<XmlReader>(store_, encoded_); }

void SkyPaint::HandleXMLCustomElement(const trString& name, const char** attributes) {
  const trScopedErrorsWarningsContext context(this);
  const trSkyPaintGuard::Writer writer(store_.guard);
  if (reader_) reader_->Open(name, attributes);
}

void SkyPaint::HandleXMLCustomElementClosed(const trString&) {
  const trScopedErrorsWarningsContext context(this);
  const trSkyPaintGuard::Writer writer(store_.guard);
  if (reader_) reader_->Close();
}

void SkyPaint::HandleXMLCustomCharacterData(const trString& text) {
  if (reader_) reader_->Characters(text);
}

void SkyPaint::ExitedXMLCustomData() { reader_.reset(); }
