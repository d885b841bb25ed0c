// Displacing meshes. An edge is cut in halves while it looks longer than wanted, whatever triangles it
// belongs to, so both sides of it agree and there are no cracks. A point is displaced once, by the mean
// normal of the faces about it, even where they have normals or texture points of their own.
#include "host/render/dice/displace_mesh.h"

#include <algorithm>
#include <atomic>
#include <new>

#include "host/base/parallel.h"
#include "host/render/dice/displacement_sampler.h"
#include "host/render/dice/view_metric.h"
#include "host/render/dice/wedge_mesh.h"
#include "host/render/parts/traced_corners.h"

namespace ovhost {
namespace {

constexpr int kMaxCuts = 40;
constexpr int kMaxCoarsenings = 40;
/// Vertices per point of the mesh itself that no picture is too small for.
constexpr std::uint64_t kVerticesPerPoint = 16;
/// Vertices that a square of the wanted length takes. Edges that are cut by halves end between half of it and
/// all: triangles of 0.75, two a vertex.
constexpr double kVerticesPerSquare = 2;
/// How many times longer displacement may make an edge for it to be cut as one of its length.
constexpr double kMostStretch = 4;

/// Vertices that the picture's size is worth.
std::uint64_t PictureLimit(const WedgeMesh& surface, const DiceSettings& settings) {
  if (!settings.pictureVertices) return ~0ull;
  return std::max<std::uint64_t>(settings.pictureVertices, surface.positions.size() * kVerticesPerPoint);
}

class MeshDisplacer {
 public:
  MeshDisplacer(MicroMesh& mesh, const DiceSettings& settings, trRenderServices& services)
      : mesh_(mesh),
        scene_(*mesh.scene),
        toWorld_(scene_.GetTransform()),
        settings_(settings),
        services_(services),
        metric_(settings.view),
        surface_(scene_, mesh.roots) {
    const trVector x = toWorld_.Direction({1, 0, 0}), y = toWorld_.Direction({0, 1, 0}),
                   z = toWorld_.Direction({0, 0, 1});
    mirror_ = Dot(Cross(x, y), z) < 0 ? -1 : 1;
  }

  bool Run(DiceStatistics& statistics, bool& moves) {
    mesh_.origin = settings_.Origin();
    mesh_.textureOrigin = surface_.IsMapped() ? trVector() : mesh_.origin;
    Displace(0, 0);
    moves = Moves();
    if (!moves) return !Stopped();
    const std::uint64_t byMemory = settings_.maxVertices ? settings_.maxVertices : ~0ull;
    const std::uint64_t byPicture = PictureLimit(surface_, settings_), most = std::min(byMemory, byPicture);
    const std::vector<Position> positions = surface_.positions;
    const std::vector<Wedge> wedges = surface_.wedges;
    const std::vector<Face> faces = surface_.faces;
    int coarsened = 0;
    while (!Cut(most) && !Stopped()) {
      if (++coarsened > kMaxCoarsenings || positions.size() > most) throw std::bad_alloc();
      coarser_ *= 2;
      surface_.positions = positions;
      surface_.wedges = wedges;
      surface_.faces = faces;
    }
    statistics.AddLongest(coarser_, byMemory < byPicture);
    Finish();
    statistics.vertices += mesh_.vertices.size();
    statistics.displacements += displacements_;
    return !Stopped();
  }

 private:
  bool Stopped() const { return settings_.stop && settings_.stop->load(std::memory_order_relaxed); }

  trShadingInterface& Evaluate(DisplacementSampler& sampler, const trVector& base, const trFVector& normal,
                               const trVector& texture, std::int32_t material) const;
  /// All positions and wedges from these on.
  void Displace(size_t firstPosition, size_t firstWedge);
  /// Whether displacement moves anything.
  bool Moves();
  bool IsLong(std::uint32_t a, std::uint32_t b) const;
  /// False where that would take more vertices than that.
  bool Cut(std::uint64_t mostVertices);
  void Finish();

  MicroMesh& mesh_;
  const trScene& scene_;
  const trTransform<double>& toWorld_;
  const DiceSettings& settings_;
  trRenderServices& services_;
  ViewMetric metric_;
  double mirror_ = 1;  ///< -1 where the transform turns triangles round
  double coarser_ = 1;
  WedgeMesh surface_;
  std::uint64_t displacements_ = 0;
};

trShadingInterface& MeshDisplacer::Evaluate(DisplacementSampler& sampler, const trVector& base,
                                            const trFVector& normal, const trVector& texture,
                                            std::int32_t material) const {
  const trMaterial* used = scene_.GetPMaterial(material);
  if (!used) used = scene_.GetPMaterial(1);
  return sampler.OnTriangle(*used, base, trVector(normal), texture);
}

void MeshDisplacer::Displace(size_t firstPosition, size_t firstWedge) {
  ParallelForRanges(surface_.positions.size() - firstPosition, RangeCall([&](size_t begin, size_t end) {
                      DisplacementSampler sampler(scene_, settings_, services_);
                      for (size_t i = firstPosition + begin; i < firstPosition + end; ++i) {
                        Position& p = surface_.positions[i];
                        auto& si = Evaluate(sampler, p.base, p.normal, p.texture, p.material);
                        p.moved = trFVector(si.P() - mesh_.origin);
                        p.movedTexture = trFVector(si.Pt() - mesh_.textureOrigin);
                        p.textureNormal = PackedNormal(si.Nt());
                      }
                    }));
  // Only where faces disagree is a wedge's texture point another than its position's.
  std::atomic<std::uint64_t> apart{0};
  ParallelForRanges(surface_.wedges.size() - firstWedge, RangeCall([&](size_t begin, size_t end) {
                      DisplacementSampler sampler(scene_, settings_, services_);
                      for (size_t i = firstWedge + begin; i < firstWedge + end; ++i) {
                        Wedge& w = surface_.wedges[i];
                        const Position& p = surface_.positions[w.position];
                        w.movedTexture = p.movedTexture;
                        w.textureNormal = p.textureNormal;
                        if (SameBits(w.normal, p.normal) && SameBits(w.texture, p.texture)) continue;
                        auto& si = Evaluate(sampler, p.base, w.normal, w.texture, p.material);
                        w.movedTexture = trFVector(si.Pt() - mesh_.textureOrigin);
                        w.textureNormal = PackedNormal(si.Nt());
                        ++apart;
                      }
                    }));
  displacements_ += surface_.positions.size() - firstPosition + apart;
}

bool MeshDisplacer::Moves() {
  const auto isMoved = [&](const trVector& base, const trVector& moved) {
    const trVector world = toWorld_.Point(base);
    return (moved - world).Length() > 1e-9 * (1 + world.Length());
  };
  std::atomic<bool> moves{false};
  ParallelForRanges(surface_.faces.size(), RangeCall([&](size_t begin, size_t end) {
                      DisplacementSampler sampler(scene_, settings_, services_);
                      for (size_t i = begin; i < end && !moves.load(std::memory_order_relaxed); ++i) {
                        trVector base, normal, texture;
                        std::int32_t material = 0;
                        for (const std::uint32_t wedge : surface_.faces[i].wedges) {
                          const Position& p = surface_.positions[surface_.wedges[wedge].position];
                          const trVector moved =
                              Evaluate(sampler, p.base, p.normal, p.texture, p.material).P();
                          if (isMoved(p.base, moved)) moves = true;
                          base += p.base / 3;
                          normal += surface_.wedges[wedge].normal;
                          texture += surface_.wedges[wedge].texture / 3;
                          material = p.material;
                        }
                        const trFVector mean(Normalised(normal));
                        if (isMoved(base, Evaluate(sampler, base, mean, texture, material).P())) moves = true;
                      }
                    }));
  return moves;
}

bool MeshDisplacer::IsLong(std::uint32_t a, std::uint32_t b) const {
  const trVector from(surface_.positions[a].moved), to(surface_.positions[b].moved);
  const double length = (to - from).Length();
  if (!(length > 0)) return false;
  // Where displacement tears, an edge stays long however often it is cut.
  const double base = toWorld_.Direction(surface_.positions[b].base - surface_.positions[a].base).Length();
  const double share = std::fmin(1, kMostStretch * base / length) / coarser_;
  if (settings_.copiedEdge > 0) return length * share > settings_.copiedEdge;
  return metric_.Pixels(from, to) * share > settings_.edgePixels;
}

bool MeshDisplacer::Cut(std::uint64_t mostVertices) {
  std::vector<Face> front = std::move(surface_.faces);
  surface_.faces.clear();
  for (int cut = 0; cut < kMaxCuts && !front.empty() && !Stopped(); ++cut) {
    const size_t firstPosition = surface_.positions.size(), firstWedge = surface_.wedges.size();
    const std::vector<std::uint32_t> mids =
        surface_.CutEdges(front, [this](std::uint32_t a, std::uint32_t b) { return IsLong(a, b); });
    if (surface_.wedges.size() > mostVertices) return false;
    Displace(firstPosition, firstWedge);
    std::vector<Face> next;
    for (size_t i = 0; i < front.size(); ++i) {
      const std::uint32_t* mid = &mids[3 * i];
      if (mid[0] == WedgeMesh::kNone && mid[1] == WedgeMesh::kNone && mid[2] == WedgeMesh::kNone)
        surface_.faces.push_back(front[i]);
      else
        surface_.CutFace(front[i], mid, next);
    }
    front = std::move(next);
  }
  surface_.faces.insert(surface_.faces.end(), front.begin(), front.end());
  return true;
}

void MeshDisplacer::Finish() {
  mesh_.triangles.resize(surface_.faces.size());
  mesh_.sceneTris.resize(surface_.faces.size());
  std::vector<trVector> sums(surface_.positions.size());
  for (size_t i = 0; i < surface_.faces.size(); ++i) {
    const Face& face = surface_.faces[i];
    mesh_.triangles[i] = face.wedges;
    mesh_.sceneTris[i] = mesh_.roots[face.root];
    trVector p[3];
    for (int k = 0; k < 3; ++k) p[k] = surface_.positions[surface_.wedges[face.wedges[k]].position].moved;
    const trVector normal = Cross(p[1] - p[0], p[2] - p[0]) * mirror_;
    // Flat triangles that stand for a round surface are told from it by their normals: the displaced normal
    // turns by as much.
    const trTri root = TracedCorners(*scene_.GetPTri(mesh_.sceneTris[i]));
    const trVector flat = toWorld_.Normal(trVector(surface_.FlatNormal(root)));
    const double area = normal.Length();
    for (const std::uint32_t wedge : face.wedges) {
      const trVector round = toWorld_.Normal(trVector(surface_.wedges[wedge].normal));
      sums[surface_.wedges[wedge].position] += normal + (round - flat) * area;
    }
  }
  mesh_.vertices.resize(surface_.wedges.size());
  ParallelFor(surface_.wedges.size(), [&](size_t i) {
    const Wedge& w = surface_.wedges[i];
    const Position& p = surface_.positions[w.position];
    MicroVertex& vertex = mesh_.vertices[i];
    vertex.point = p.moved;
    vertex.base = trFVector(toWorld_.Point(p.base) - mesh_.origin);
    vertex.texture = w.movedTexture;
    vertex.normal = PackedNormal(Normalised(sums[w.position]));
    vertex.baseNormal = PackedNormal(toWorld_.Normal(trVector(w.normal)));
    vertex.textureNormal = w.textureNormal;
  });
}

}  // namespace

VertexDemand DemandOf(const MicroMesh& mesh, const DiceSettings& settings) {
  const WedgeMesh surface(*mesh.scene, mesh.roots);
  const ViewMetric metric(settings.view);
  const trTransform<double>& toWorld = mesh.scene->GetTransform();
  double area = 0;  // in squares of wanted lengths
  for (const Face& face : surface.faces) {
    trVector points[3];
    for (int k = 0; k < 3; ++k)
      points[k] =
          toWorld.Point(surface.positions[surface.wedges[face.wedges[k]].position].base) - settings.Origin();
    double sides[3], half = 0;
    for (int k = 0; k < 3; ++k) {
      const trVector &a = points[k], &b = points[(k + 1) % 3];
      sides[k] = settings.copiedEdge > 0 ? (b - a).Length() / settings.copiedEdge
                                         : metric.Pixels(a, b) / settings.edgePixels;
      half += sides[k] / 2;
    }
    // Heron's; lengths by different distances needn't make a triangle.
    area += std::sqrt(std::fmax(0, half * (half - sides[0]) * (half - sides[1]) * (half - sides[2])));
  }
  const double wanted = static_cast<double>(surface.wedges.size()) + kVerticesPerSquare * area;
  const std::uint64_t limit = PictureLimit(surface, settings);
  return {surface.wedges.size(),
          wanted < static_cast<double>(limit) ? static_cast<std::uint64_t>(wanted) : limit};
}

bool DisplaceMesh(MicroMesh& mesh, const DiceSettings& settings, trRenderServices& services,
                  DiceStatistics& statistics, bool& moves) {
  return MeshDisplacer(mesh, settings, services).Run(statistics, moves);
}

}  // namespace ovhost
