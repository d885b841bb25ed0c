// Viewpoints and faces of paint nodes.
#include "host/session/sky_paint_edit.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <numbers>

#include "host/node/node_data.h"

namespace ovhost {
namespace {

trSkyPaintStore& StoreOf(trBase& node) {
  auto* const store = node.IsTrue("is_sky_paint")
                          ? static_cast<trSkyPaintStore*>(node.RequestMember("sky paint store"))
                          : nullptr;
  if (!store)
    throw SessionError(SessionError::kFailed, node.NameAndPath() + ": isn't a node that can be painted on");
  return *store;
}

/// As projects have it.
double SixDigits(double value) {
  char text[40];
  const auto written = std::to_chars(text, text + sizeof text, value, std::chars_format::general, 6);
  std::from_chars(text, written.ptr, value);
  return value;
}

Picture PictureOf(const trImage& face) {
  Picture picture = BlankPicture(face.width, face.height, 3);
  for (int y = 0; y < face.height; ++y)
    for (int x = 0; x < face.width; ++x) {
      const trFCol colour = face.FColFromPixel(face.PixelAt(x, face.height - 1 - y));
      float* const pixel = &picture.pixels[(static_cast<std::size_t>(y) * face.width + x) * 3];
      pixel[0] = colour.r;
      pixel[1] = colour.g;
      pixel[2] = colour.b;
    }
  return picture;
}

/// Writes a picture into a face that has its size already; alpha is 1.
void Fill(trImage& face, const Picture& picture) {
  const std::size_t channels = picture.channels.size();
  for (int y = 0; y < face.height; ++y) {
    auto* row = static_cast<float*>(face.ScanlineRaw(face.height - 1 - y));
    for (int x = 0; x < face.width; ++x, row += 4) {
      const float* const pixel = &picture.pixels[(static_cast<std::size_t>(y) * face.width + x) * channels];
      for (int c = 0; c < 3; ++c) row[c] = std::isfinite(pixel[c]) ? pixel[c] : 0;
      row[3] = 1;
    }
  }
}

/// Means over directions: pixels near a face's corners are seen smaller than those in its middle.
void AddMeans(const trImage& face, double& red, double& green, double& weight) {
  for (int y = 0; y < face.height; ++y)
    for (int x = 0; x < face.width; ++x) {
      const double a = (x + 0.5) / face.width * 2 - 1, b = (y + 0.5) / face.height * 2 - 1;
      const double solidAngle = std::pow(1 + a * a + b * b, -1.5) / (face.width * face.height);
      const trFCol colour = face.FColFromPixel(face.PixelAt(x, y));
      red += solidAngle * std::clamp(colour.r, 0.0f, 1.0f);
      green += solidAngle * std::clamp(colour.g, 0.0f, 1.0f);
      weight += solidAngle;
    }
}

}  // namespace

SkyPaintEdit::SkyPaintEdit(trBase& node) : node_(node), store_(StoreOf(node)) {}

std::vector<PaintedViewpoint> SkyPaintEdit::Viewpoints() const {
  std::vector<PaintedViewpoint> list;
  for (std::size_t k = 0; k < store_.records.size(); ++k) {
    const trSkyPaintStore::Record& record = store_.records[k];
    if (!record.isInUse) continue;
    PaintedViewpoint viewpoint{static_cast<int>(k) + 1, record.position};
    double weight = 0;
    for (const trImage& face : record.face) {
      viewpoint.side = std::max(viewpoint.side, face.width);
      AddMeans(face, viewpoint.removed, viewpoint.added, weight);
    }
    // Faces without pixels have no paint, and count all the same: a sixth of the sphere each, in quarters of
    // a steradian as the sums have it.
    for (const trImage& face : record.face)
      if (face.width == 0) weight += std::numbers::pi / 6;
    viewpoint.removed /= weight;
    viewpoint.added /= weight;
    list.push_back(viewpoint);
  }
  return list;
}

int SkyPaintEdit::Add(const trVector& position) {
  for (std::size_t k = 0; k < store_.records.size(); ++k) {
    trSkyPaintStore::Record& record = store_.records[k];
    if (record.isInUse) continue;
    const trSkyPaintGuard::Writer writer(store_.guard);
    record.position = {SixDigits(position.x), SixDigits(position.y), SixDigits(position.z)};
    for (trImage& face : record.face) face.Cleanup();
    record.isInUse = true;
    return static_cast<int>(k) + 1;
  }
  throw SessionError(SessionError::kFailed, node_.NameAndPath() + ": all of its " +
                                                std::to_string(trSkyPaintStore::kViewpoints) +
                                                " viewpoints are in use");
}

const trSkyPaintStore::Record& SkyPaintEdit::RecordOf(int number) const {
  const auto& records = store_.records;
  if (number < 1 || number > trSkyPaintStore::kViewpoints ||
      !records[static_cast<std::size_t>(number - 1)].isInUse)
    throw SessionError(SessionError::kFailed,
                       node_.NameAndPath() + ": there is no viewpoint " + std::to_string(number));
  return records[static_cast<std::size_t>(number - 1)];
}

void SkyPaintEdit::Remove(int number) {
  auto& record = const_cast<trSkyPaintStore::Record&>(RecordOf(number));
  const trSkyPaintGuard::Writer writer(store_.guard);
  record.isInUse = false;
  for (trImage& face : record.face) face.Cleanup();
}

trVector SkyPaintEdit::PositionOf(int number) const { return RecordOf(number).position; }

SkyFaces SkyPaintEdit::Faces(int number) const {
  const trSkyPaintStore::Record& record = RecordOf(number);
  SkyFaces faces;
  for (int f = 0; f < kSkyPaintFaces; ++f) faces[f] = PictureOf(record.face[f]);
  return faces;
}

void SkyPaintEdit::SetFaces(int number, const SkyFaces& faces) {
  auto& record = const_cast<trSkyPaintStore::Record&>(RecordOf(number));
  const trSkyPaintGuard::Writer writer(store_.guard);
  for (int f = 0; f < kSkyPaintFaces; ++f) {
    const Picture& picture = faces[f];
    if (picture.pixels.empty())
      record.face[f].Cleanup();
    else if (record.face[f].Init(0, 0, picture.width, picture.height))
      Fill(record.face[f], picture);
    else
      throw SessionError(SessionError::kFailed, "");
  }
}

// ---------------------------------------------------------------------------------------------------------------

trBase& FindSkyPaint(const Session& session, const std::string& name) {
  if (!name.empty()) return session.Find(name);
  std::vector<trBase*> nodes = session.NodesWithFact("is_sky_paint");
  std::erase_if(nodes, [](trBase* node) { return !node->RequestMember("sky paint store"); });
  if (nodes.size() == 1) return *nodes[0];
  if (nodes.empty()) throw SessionError(SessionError::kFailed, "the project has no sky paint");
  std::string names;
  for (const trBase* node : nodes) names += (names.empty() ? "" : ", ") + node->NameAndPath();
  throw SessionError(SessionError::kBadRequest, "the project has several sky paints: " + names);
}

trBase& MakeSkyPaint(const Session& session, const std::string& name, const std::string& cloud) {
  trBase& layer = session.Find(cloud);
  long index = 0;
  if (!layer.FindParam(index, "paint") || layer.ParamType(index) != trParamType::kSkyPaintLink)
    throw SessionError(SessionError::kFailed, layer.NameAndPath() + ": isn't a cloud that can be painted");
  const std::string wanted = name.empty() ? "Sky paint 01" : name;
  trBase* paint = layer.Root()->NodeByPath(wanted);
  if (!paint) {
    paint = layer.Root()->CreateChild("sky_paint");
    if (!paint) throw SessionError(SessionError::kFailed, "there is no class sky_paint");
    paint->SetName(wanted);
  }
  StoreOf(*paint);
  layer.SetParam("paint", paint->NameAndPath(), trWhoUserIndirect);
  layer.SetParam("enable_paint", 1, trWhoUserIndirect);
  return *paint;
}

}  // namespace ovhost
