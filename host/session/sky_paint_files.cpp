// Reading and writing pictures of skies and paint.
#include "host/session/sky_paint_files.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "core/messages.h"
#include "host/image/image_reader.h"

namespace ovhost {
namespace {

constexpr const char* kSuffixes[kSkyPaintFaces] = {"_n", "_e", "_s", "_w", "_u", "_d"};
/// As large as faces in projects may be.
constexpr int kMaxSide = 4096;

std::string ExtensionOf(const std::string& path) {
  std::string extension = std::filesystem::path(path).extension().string();
  for (char& c : extension) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  return extension;
}

float LinearFromSrgb(float v) { return v <= 0.04045f ? v / 12.92f : std::pow((v + 0.055f) / 1.055f, 2.4f); }

/// The paths that files stand for.
std::vector<std::string> PathsOf(const SkyFiles& files) {
  if (!files.isFaces) return {files.path};
  std::vector<std::string> paths;
  for (int f = 0; f < kSkyPaintFaces; ++f)
    paths.push_back(FacePath(files.path, static_cast<trSkyPaintFace>(f)));
  return paths;
}

int SideOf(const SkyFaces& faces) {
  int side = 0;
  for (const Picture& face : faces) side = std::max(side, face.width);
  return side;
}

std::vector<Picture> PicturesOf(const SkyFiles& files, const SkyFaces& faces, int width) {
  if (!files.isFaces) return {PanoramaOf(faces, width)};
  return {faces.begin(), faces.end()};
}

void Write(const SkyFiles& files, const std::vector<Picture>& pictures, const ViewTransform& transform) {
  const std::vector<std::string> paths = PathsOf(files);
  for (std::size_t i = 0; i < paths.size(); ++i) {
    const std::string problem = WritePicture(paths[i], pictures[i], transform);
    if (!problem.empty()) throw SessionError(SessionError::kOutputFailed, problem);
  }
}

/// A picture file as four floats a pixel: values as they lie in the file, colours times alpha.
Picture ReadLayer(const std::string& path) {
  std::string problem;
  const DecodedImage image = ReadImageFile(path, problem);
  if (!image.pixels)
    throw SessionError(SessionError::kInvalidProject, path + ": the picture can't be read: " + problem);
  trImage pixels;
  if (!pixels.ReadFile(path, nullptr)) throw SessionError(SessionError::kInvalidProject, "");
  // In EXR files colours are multiplied by alpha already.
  const bool isMultiplied = ExtensionOf(path) == ".exr";
  Picture picture = BlankPicture(pixels.width, pixels.height, 4);
  float* to = picture.pixels.data();
  for (int y = pixels.height - 1; y >= 0; --y)
    for (int x = 0; x < pixels.width; ++x, to += 4) {
      const trF4Col c = pixels.F4ColFromPixel(pixels.PixelAt(x, y));
      const float share = isMultiplied ? 1 : c.a;
      to[0] = c.r * share;
      to[1] = c.g * share;
      to[2] = c.b * share;
      to[3] = c.a;
    }
  return picture;
}

std::vector<Picture> ReadAll(const SkyFiles& files) {
  std::vector<Picture> pictures;
  for (const std::string& path : PathsOf(files)) {
    pictures.push_back(ReadLayer(path));
    const Picture& read = pictures.back();
    const bool fits = files.isFaces ? read.width == read.height && read.width == pictures[0].width
                                    : read.width == 2 * read.height;
    if (!fits)
      throw SessionError(SessionError::kFailed,
                         path + ": has " + std::to_string(read.width) + " x " + std::to_string(read.height) +
                             " pixels; " +
                             (files.isFaces ? "faces are squares of one size"
                                            : "a panorama of all directions is twice as wide as high"));
  }
  return pictures;
}

/// Strokes of `pictures` over what they were painted on.
void KeepStrokes(const PaintImport& import, std::vector<Picture>& pictures) {
  const SkyFiles skyFiles{import.sky, import.pictures.isFaces};
  const std::vector<Picture> skies = ReadAll(skyFiles);
  double mostOdd = 0;
  for (std::size_t i = 0; i < pictures.size(); ++i) {
    if (skies[i].width != pictures[i].width || skies[i].height != pictures[i].height)
      throw SessionError(SessionError::kFailed,
                         PathsOf(skyFiles)[i] + ": isn't of the size of " + PathsOf(import.pictures)[i]);
    double odd = 0;
    pictures[i] = StrokesOn(skies[i], pictures[i], odd);
    mostOdd = std::max(mostOdd, odd);
  }
  if (mostOdd > 0.1)
    trWarning(import.pictures.path + ": " + std::to_string(std::lround(100 * mostOdd)) +
              " % of the painted pixels are neither red nor green; what comes nearest is taken");
}

SkyFaces ToFaces(const std::vector<Picture>& pictures, bool isFaces, int side) {
  if (!isFaces) return FacesOf(pictures[0], side);
  SkyFaces faces;
  std::copy(pictures.begin(), pictures.end(), faces.begin());
  return side == faces[0].width ? faces : Resampled(faces, side);
}

/// Numbers of pixels of faces that hold all that pictures have.
int SideFor(const std::vector<Picture>& pictures, bool isFaces) {
  // A face's middle has pi pixels of its side to a panorama's width.
  return isFaces ? pictures[0].width : static_cast<int>(std::lround(pictures[0].width / 3.14159265 / 8)) * 8;
}

}  // namespace

std::string FacePath(const std::string& path, trSkyPaintFace face) {
  const std::filesystem::path whole(path);
  return (whole.parent_path() /
          (whole.stem().string() + kSuffixes[static_cast<int>(face)] + whole.extension().string()))
      .string();
}

bool IsSkyPath(const std::string& path) {
  const std::string extension = ExtensionOf(path);
  return extension == ".png" || extension == ".tif" || extension == ".tiff" || extension == ".exr";
}

void WriteSky(const SkyFiles& files, const SkyView& sky, int width) {
  Write(files, PicturesOf(files, sky.faces, width), sky.transform);
}

void WritePaint(const SkyFiles& files, const SkyFaces& paint, int width) {
  // Faces that aren't there are black squares like the others.
  const int side = SideOf(paint) > 0 ? SideOf(paint) : 256;
  const bool isEven =
      std::all_of(paint.begin(), paint.end(), [&](const Picture& face) { return face.width == side; });
  std::vector<Picture> pictures = PicturesOf(files, isEven ? paint : Resampled(paint, side), width);
  // What the curve of displayed pictures makes of these is the paint's own value.
  const bool isDisplayed = ExtensionOf(files.path) != ".exr";
  for (Picture& picture : pictures)
    for (float& value : picture.pixels) {
      value = std::clamp(value, 0.0f, 1.0f);
      if (isDisplayed) value = LinearFromSrgb(value);
    }
  Write(files, pictures, {.exposureStops = 0, .softClip = false});
}

void ImportPaint(SkyPaintEdit& paint, int number, const PaintImport& import) {
  const bool isFaces = import.pictures.isFaces;
  const SkyFaces old = paint.Faces(number);
  std::vector<Picture> pictures = ReadAll(import.pictures);
  if (!import.sky.empty()) KeepStrokes(import, pictures);
  int side = import.side > 0 ? import.side : SideOf(old);
  if (side == 0) side = SideFor(pictures, isFaces);
  side = std::clamp(side, 2, kMaxSide);
  SkyFaces faces = ToFaces(pictures, isFaces, side);
  if (!import.sky.empty()) {
    const SkyFaces before = Resampled(old, side);
    for (std::size_t f = 0; f < faces.size(); ++f) faces[f] = StrokesOver(before[f], faces[f]);
  }
  for (Picture& face : faces)
    for (float& value : face.pixels) value = std::clamp(value, 0.0f, 1.0f);
  paint.SetFaces(number, faces);
}

}  // namespace ovhost
