// Displacing meshes. An edge is cut in halves while it looks longer than wanted, whatever triangles it
// belongs to, so both sides of it agree and there are no cracks. A point is displaced once, by the mean
// normal of the faces about it, even where they have normals or texture points of their own.
#include "host/render/dice/displace_mesh.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <new>
#include <unordered_map>

#include "host/base/parallel.h"
#include "host/base/sampler.h"
#include "host/render/dice/view_metric.h"

namespace ovhost {
namespace {

constexpr std::uint32_t kNone = ~0u;
constexpr int kMaxCuts = 40;
constexpr int kMaxCoarsenings = 40;
/// Vertices per point of the mesh itself that no picture is too small for.
constexpr std::uint64_t kVerticesPerPoint = 16;
/// How many times longer displacement may make an edge for it to be cut as one of its length.
constexpr double kMostStretch = 4;
/// Filter footprint of displacement, as a share of the longest edge.
constexpr double kFootprint = 0.5;

/// A point of the surface, whatever faces meet there.
struct Position {
  trVector base;           ///< object space
  trFVector normal;        ///< that it is displaced along, object space
  trVector texture;        ///< that it is displaced by
  std::int32_t material;   ///< that it is displaced by
  trFVector moved;         ///< world space, relative to the origin
  trFVector movedTexture;  ///< relative to the texture origin
  PackedNormal textureNormal;
};

/// A corner of faces that agree on their normal and texture point.
struct Wedge {
  std::uint32_t position;
  trFVector normal;
  trVector texture;
  trFVector movedTexture;  ///< relative to the texture origin
  PackedNormal textureNormal;
};

struct Face {
  std::array<std::uint32_t, 3> wedges;
  std::int32_t root;  ///< number among the roots
};

template <typename V>
bool SameBits(const V& a, const V& b) {
  return a.x == b.x && a.y == b.y && a.z == b.z;
}

std::uint64_t Mix(std::uint64_t h, double x) {
  return MixBits64(h ^ std::bit_cast<std::uint64_t>(x + 0.0)) * 31;
}

struct VectorHash {
  size_t operator()(const trVector& p) const { return Mix(Mix(Mix(0x243f6a8885a308d3ull, p.x), p.y), p.z); }
};

class MeshDisplacer {
 public:
  MeshDisplacer(MicroMesh& mesh, const DiceSettings& settings, trRenderServices& services)
      : mesh_(mesh),
        scene_(*mesh.scene),
        toWorld_(scene_.GetTransform()),
        settings_(settings),
        services_(services),
        metric_(settings.view) {
    const trVector x = toWorld_.Direction({1, 0, 0}), y = toWorld_.Direction({0, 1, 0}),
                   z = toWorld_.Direction({0, 0, 1});
    mirror_ = Dot(Cross(x, y), z) < 0 ? -1 : 1;
  }

  bool Run(DiceStatistics& statistics, bool& moves) {
    LoadRoots();
    moves = Moves();
    if (!moves) return !Stopped();
    std::uint64_t most = settings_.maxVertices ? settings_.maxVertices : ~0ull;
    if (settings_.pictureVertices)
      most = std::min(
          most, std::max<std::uint64_t>(settings_.pictureVertices, positions_.size() * kVerticesPerPoint));
    const Start start{positions_, wedges_, faces_};
    int coarsened = 0;
    while (!Cut(most) && !Stopped()) {
      if (++coarsened > kMaxCoarsenings || start.positions.size() > most) throw std::bad_alloc();
      coarser_ *= 2;
      positions_ = start.positions;
      wedges_ = start.wedges;
      faces_ = start.faces;
    }
    statistics.longestEdge = std::fmax(statistics.longestEdge, coarser_);
    Finish();
    statistics.vertices += mesh_.vertices.size();
    statistics.displacements += displacements_;
    return !Stopped();
  }

 private:
  struct Start {
    std::vector<Position> positions;
    std::vector<Wedge> wedges;
    std::vector<Face> faces;
  };
  /// One face's side: its ends as positions and as wedges, the lower position first.
  struct EdgeUse {
    std::uint64_t positions, wedges;
    std::uint32_t slot;  ///< three a face
    bool operator<(const EdgeUse& other) const {
      if (positions != other.positions) return positions < other.positions;
      return wedges != other.wedges ? wedges < other.wedges : slot < other.slot;
    }
  };

  bool Stopped() const { return settings_.stop && settings_.stop->load(std::memory_order_relaxed); }

  // --- The roots
  void LoadRoots();
  std::uint32_t FindPosition(const trVector& base, std::int32_t material);
  std::uint32_t FindWedge(std::uint32_t position, const trFVector& normal, const trVector& texture);
  trFVector FlatNormal(const trTri& tri) const;

  // --- Displacing
  class Sampler;
  void Displace(size_t firstPosition, size_t firstWedge);
  bool Moves();

  // --- Cutting
  bool Cut(std::uint64_t mostVertices);
  bool IsLong(std::uint32_t a, std::uint32_t b) const;
  std::vector<std::uint32_t> CutEdges(const std::vector<Face>& faces);
  void CutFace(const Face& face, const std::uint32_t* mids, std::vector<Face>& out) const;

  void Finish();

  MicroMesh& mesh_;
  const trScene& scene_;
  const trTransform<double>& toWorld_;
  const DiceSettings& settings_;
  trRenderServices& services_;
  ViewMetric metric_;
  double mirror_ = 1;  ///< -1 where the transform turns triangles round
  double coarser_ = 1;
  bool isMapped_ = false;
  std::vector<Position> positions_;
  std::vector<Wedge> wedges_;
  std::vector<Face> faces_;
  std::unordered_map<trVector, std::uint32_t, VectorHash> positionOf_;
  std::vector<std::vector<std::uint32_t>> wedgesOf_;  ///< by position, of the roots
  std::uint64_t displacements_ = 0;
};

// --- The roots
// ------------------------------------------------------------------------------------------------------

trFVector MeshDisplacer::FlatNormal(const trTri& tri) const {
  trVector p[3];
  scene_.GetPointVecs(tri.point, p, 3);
  return trFVector(Normalised(Cross(p[1] - p[0], p[2] - p[0])));
}

std::uint32_t MeshDisplacer::FindPosition(const trVector& base, std::int32_t material) {
  const auto [entry, isNew] = positionOf_.try_emplace(base, static_cast<std::uint32_t>(positions_.size()));
  if (isNew) {
    positions_.push_back({base, {}, {}, material, {}, {}, {}});
    wedgesOf_.emplace_back();
  }
  return entry->second;
}

std::uint32_t MeshDisplacer::FindWedge(std::uint32_t position, const trFVector& normal,
                                       const trVector& texture) {
  for (const std::uint32_t known : wedgesOf_[position])
    if (SameBits(wedges_[known].normal, normal) && SameBits(wedges_[known].texture, texture)) return known;
  wedges_.push_back({position, normal, texture, {}, {}});
  wedgesOf_[position].push_back(static_cast<std::uint32_t>(wedges_.size() - 1));
  return wedgesOf_[position].back();
}

void MeshDisplacer::LoadRoots() {
  for (const std::int32_t root : mesh_.roots) isMapped_ |= scene_.GetPTri(root)->texVert[0] != 0;
  mesh_.origin = settings_.Origin();
  mesh_.textureOrigin = isMapped_ ? trVector() : mesh_.origin;

  for (size_t i = 0; i < mesh_.roots.size(); ++i) {
    const trTri& tri = *scene_.GetPTri(mesh_.roots[i]);
    const trMaterial* material = MaterialOf(scene_, tri);
    trVector points[3], normals[3], textures[3];
    if (scene_.GetPointVecs(tri.point, points, 3) != 3) continue;
    const bool isSmooth = material && material->useNormals && scene_.GetNormals(tri.normal, normals, 3) == 3;
    const bool isTextured = scene_.GetTexVecs(tri.texVert, textures, 3) == 3;
    const trFVector flat = FlatNormal(tri);
    Face face{{}, static_cast<std::int32_t>(i)};
    for (int k = 0; k < 3; ++k) {
      const std::uint32_t position = FindPosition(points[k], tri.material);
      const trVector texture = isTextured ? textures[k] : toWorld_.Point(points[k]);
      face.wedges[k] = FindWedge(position, isSmooth ? trFVector(Normalised(normals[k])) : flat, texture);
    }
    if (face.wedges[0] != face.wedges[1] && face.wedges[1] != face.wedges[2] &&
        face.wedges[2] != face.wedges[0])
      faces_.push_back(face);
  }
  for (size_t i = 0; i < positions_.size(); ++i) {
    trVector sum;
    for (const std::uint32_t wedge : wedgesOf_[i]) sum += wedges_[wedge].normal;
    const bool isWhole = wedgesOf_[i].size() == 1;
    positions_[i].normal = isWhole ? wedges_[wedgesOf_[i][0]].normal : trFVector(Normalised(sum));
    positions_[i].texture = wedges_[wedgesOf_[i][0]].texture;
  }
  positionOf_ = {};
  wedgesOf_ = {};
  Displace(0, 0);
}

// --- Displacing
// -----------------------------------------------------------------------------------------------------

/// A thread's shading state for displacing.
class MeshDisplacer::Sampler {
 public:
  explicit Sampler(const MeshDisplacer& owner) : owner_(owner), state_(owner.services_, si_) {
    const DiceSettings& settings = owner.settings_;
    si_.SetFrame(static_cast<float>(settings.frame));
    si_.SetMainView(&settings.view);
    si_.SetThread(ThreadSlot());
    si_.Eye() = si_.RootEye() = settings.view.eye;
    si_.Object() = {&owner.scene_.GetTransformForShaders(), &owner.scene_};
    si_.SetWants(0);
  }

  /// Leaves the displaced sample in the state.
  trShadingInterface& Evaluate(const trVector& base, const trFVector& normal, const trVector& texture,
                               std::int32_t material) {
    const trVector world = owner_.toWorld_.Point(base);
    const DiceSettings& settings = owner_.settings_;
    si_.SetSample(world, owner_.toWorld_.Normal(trVector(normal)));
    si_.Pt() = si_.Ptg() = texture;
    si_.Random() = {VectorHash()(base) ^ settings.seed};
    si_.SmoothSize() =
        kFootprint * (settings.copiedEdge > 0 ? settings.copiedEdge
                                              : FootprintAt(settings.view, settings.edgePixels,
                                                            (world - settings.view.eye).Length()));
    const trMaterial* used = owner_.scene_.GetPMaterial(material);
    if (!used) used = owner_.scene_.GetPMaterial(1);
    used->surfaceShader->DisplaceTS(si_);
    if (!std::isfinite(si_.P().LengthSquared())) si_.P() = world;
    return si_;
  }

 private:
  const MeshDisplacer& owner_;
  trShadingInterface si_;
  trRenderState state_;
};

void MeshDisplacer::Displace(size_t firstPosition, size_t firstWedge) {
  ParallelForRanges(positions_.size() - firstPosition, RangeCall([&](size_t begin, size_t end) {
                      Sampler sampler(*this);
                      for (size_t i = firstPosition + begin; i < firstPosition + end; ++i) {
                        Position& p = positions_[i];
                        auto& si = sampler.Evaluate(p.base, p.normal, p.texture, p.material);
                        p.moved = trFVector(si.P() - mesh_.origin);
                        p.movedTexture = trFVector(si.Pt() - mesh_.textureOrigin);
                        p.textureNormal = PackedNormal(si.Nt());
                      }
                    }));
  // Only where faces disagree is a wedge's texture point another than its position's.
  std::atomic<std::uint64_t> apart{0};
  ParallelForRanges(wedges_.size() - firstWedge, RangeCall([&](size_t begin, size_t end) {
                      Sampler sampler(*this);
                      for (size_t i = firstWedge + begin; i < firstWedge + end; ++i) {
                        Wedge& w = wedges_[i];
                        const Position& p = positions_[w.position];
                        w.movedTexture = p.movedTexture;
                        w.textureNormal = p.textureNormal;
                        if (SameBits(w.normal, p.normal) && SameBits(w.texture, p.texture)) continue;
                        auto& si = sampler.Evaluate(p.base, w.normal, w.texture, p.material);
                        w.movedTexture = trFVector(si.Pt() - mesh_.textureOrigin);
                        w.textureNormal = PackedNormal(si.Nt());
                        ++apart;
                      }
                    }));
  displacements_ += positions_.size() - firstPosition + apart;
}

bool MeshDisplacer::Moves() {
  const auto isMoved = [&](const trVector& base, const trVector& moved) {
    const trVector world = toWorld_.Point(base);
    return (moved - world).Length() > 1e-9 * (1 + world.Length());
  };
  std::atomic<bool> moves{false};
  ParallelForRanges(faces_.size(), RangeCall([&](size_t begin, size_t end) {
                      Sampler sampler(*this);
                      for (size_t i = begin; i < end && !moves.load(std::memory_order_relaxed); ++i) {
                        trVector base, normal, texture;
                        std::int32_t material = 0;
                        for (const std::uint32_t wedge : faces_[i].wedges) {
                          const Position& p = positions_[wedges_[wedge].position];
                          const trVector moved =
                              sampler.Evaluate(p.base, p.normal, p.texture, p.material).P();
                          if (isMoved(p.base, moved)) moves = true;
                          base += p.base / 3;
                          normal += wedges_[wedge].normal;
                          texture += wedges_[wedge].texture / 3;
                          material = p.material;
                        }
                        const trFVector mean(Normalised(normal));
                        if (isMoved(base, sampler.Evaluate(base, mean, texture, material).P())) moves = true;
                      }
                    }));
  return moves;
}

// --- Cutting
// ----------------------------------------------------------------------------------------------------------

bool MeshDisplacer::IsLong(std::uint32_t a, std::uint32_t b) const {
  const trVector from(positions_[a].moved), to(positions_[b].moved);
  const double length = (to - from).Length();
  if (!(length > 0)) return false;
  // Where displacement tears, an edge stays long however often it is cut.
  const double base = toWorld_.Direction(positions_[b].base - positions_[a].base).Length();
  const double share = std::fmin(1, kMostStretch * base / length) / coarser_;
  if (settings_.copiedEdge > 0) return length * share > settings_.copiedEdge;
  return metric_.Pixels(from, to) * share > settings_.edgePixels;
}

bool MeshDisplacer::Cut(std::uint64_t mostVertices) {
  std::vector<Face> front = std::move(faces_);
  faces_.clear();
  for (int cut = 0; cut < kMaxCuts && !front.empty() && !Stopped(); ++cut) {
    const size_t firstPosition = positions_.size(), firstWedge = wedges_.size();
    const std::vector<std::uint32_t> mids = CutEdges(front);
    if (wedges_.size() > mostVertices) return false;
    Displace(firstPosition, firstWedge);
    std::vector<Face> next;
    for (size_t i = 0; i < front.size(); ++i) {
      const std::uint32_t* mid = &mids[3 * i];
      if (mid[0] == kNone && mid[1] == kNone && mid[2] == kNone)
        faces_.push_back(front[i]);
      else
        CutFace(front[i], mid, next);
    }
    front = std::move(next);
  }
  faces_.insert(faces_.end(), front.begin(), front.end());
  return true;
}

/// The wedges in the middle of each face's sides, three a face; kNone for sides that stay whole.
std::vector<std::uint32_t> MeshDisplacer::CutEdges(const std::vector<Face>& faces) {
  std::vector<EdgeUse> uses(faces.size() * 3);
  ParallelFor(faces.size(), [&](size_t i) {
    for (std::uint32_t k = 0; k < 3; ++k) {
      std::uint32_t a = faces[i].wedges[k], b = faces[i].wedges[(k + 1) % 3];
      if (wedges_[a].position > wedges_[b].position) std::swap(a, b);
      uses[3 * i + k] = {static_cast<std::uint64_t>(wedges_[a].position) << 32 | wedges_[b].position,
                         static_cast<std::uint64_t>(a) << 32 | b, static_cast<std::uint32_t>(3 * i + k)};
    }
  });
  std::vector<char> isLong(uses.size());
  ParallelFor(uses.size(), [&](size_t i) {
    isLong[i] = IsLong(static_cast<std::uint32_t>(uses[i].positions >> 32),
                       static_cast<std::uint32_t>(uses[i].positions));
  });
  std::vector<EdgeUse> cut;
  for (size_t i = 0; i < uses.size(); ++i)
    if (isLong[i]) cut.push_back(uses[i]);
  uses = {};
  std::sort(cut.begin(), cut.end());

  std::vector<std::uint32_t> mids(faces.size() * 3, kNone);
  for (size_t i = 0; i < cut.size();) {
    const std::uint64_t edge = cut[i].positions;
    const Position &low = positions_[edge >> 32], &high = positions_[static_cast<std::uint32_t>(edge)];
    Position middle{(low.base + high.base) * 0.5, {}, {}, low.material, {}, {}, {}};
    const size_t firstWedge = wedges_.size();
    const auto number = static_cast<std::uint32_t>(positions_.size());
    trVector normals;
    while (i < cut.size() && cut[i].positions == edge) {
      const std::uint64_t pair = cut[i].wedges;
      const Wedge &a = wedges_[pair >> 32], &b = wedges_[static_cast<std::uint32_t>(pair)];
      const trFVector normal(Normalised(trVector(a.normal) + trVector(b.normal)));
      const trVector texture = isMapped_ ? (a.texture + b.texture) * 0.5 : toWorld_.Point(middle.base);
      normals += normal;
      wedges_.push_back({number, normal, texture, {}, {}});
      for (; i < cut.size() && cut[i].positions == edge && cut[i].wedges == pair; ++i)
        mids[cut[i].slot] = static_cast<std::uint32_t>(wedges_.size() - 1);
    }
    const bool isWhole = wedges_.size() == firstWedge + 1;
    middle.normal = isWhole ? wedges_[firstWedge].normal : trFVector(Normalised(normals));
    middle.texture = wedges_[firstWedge].texture;
    positions_.push_back(middle);
  }
  return mids;
}

void MeshDisplacer::CutFace(const Face& face, const std::uint32_t* mids, std::vector<Face>& out) const {
  const auto add = [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
    out.push_back({{a, b, c}, face.root});
  };
  const int count = (mids[0] != kNone) + (mids[1] != kNone) + (mids[2] != kNone);
  // Turned so that the one cut side, or the one whole side, comes first.
  int first = 0;
  while (count < 3 && (mids[first] != kNone) != (count == 1)) ++first;
  const std::uint32_t a = face.wedges[first], b = face.wedges[(first + 1) % 3],
                      c = face.wedges[(first + 2) % 3];
  const std::uint32_t ab = mids[first], bc = mids[(first + 1) % 3], ca = mids[(first + 2) % 3];
  if (count == 1) {
    add(a, ab, c);
    add(ab, b, c);
  } else if (count == 2) {
    add(bc, c, ca);
    const auto length = [&](std::uint32_t from, std::uint32_t to) {
      return (trVector(positions_[wedges_[to].position].moved) -
              trVector(positions_[wedges_[from].position].moved))
          .LengthSquared();
    };
    if (length(a, bc) <= length(b, ca)) {
      add(a, b, bc);
      add(a, bc, ca);
    } else {
      add(a, b, ca);
      add(b, bc, ca);
    }
  } else {
    add(a, ab, ca);
    add(ab, b, bc);
    add(ca, bc, c);
    add(ab, bc, ca);
  }
}

// --- The result
// -------------------------------------------------------------------------------------------------------

void MeshDisplacer::Finish() {
  mesh_.triangles.resize(faces_.size());
  mesh_.sceneTris.resize(faces_.size());
  std::vector<trVector> sums(positions_.size());
  for (size_t i = 0; i < faces_.size(); ++i) {
    const Face& face = faces_[i];
    mesh_.triangles[i] = face.wedges;
    mesh_.sceneTris[i] = mesh_.roots[face.root];
    trVector p[3];
    for (int k = 0; k < 3; ++k) p[k] = positions_[wedges_[face.wedges[k]].position].moved;
    const trVector normal = Cross(p[1] - p[0], p[2] - p[0]) * mirror_;
    // Flat triangles that stand for a round surface are told from it by their normals: the displaced normal
    // turns by as much.
    const trVector flat = toWorld_.Normal(trVector(FlatNormal(*scene_.GetPTri(mesh_.sceneTris[i]))));
    const double area = normal.Length();
    for (const std::uint32_t wedge : face.wedges) {
      const trVector round = toWorld_.Normal(trVector(wedges_[wedge].normal));
      sums[wedges_[wedge].position] += normal + (round - flat) * area;
    }
  }
  mesh_.vertices.resize(wedges_.size());
  ParallelFor(wedges_.size(), [&](size_t i) {
    const Wedge& w = wedges_[i];
    const Position& p = positions_[w.position];
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

bool DisplaceMesh(MicroMesh& mesh, const DiceSettings& settings, trRenderServices& services,
                  DiceStatistics& statistics, bool& moves) {
  return MeshDisplacer(mesh, settings, services).Run(statistics, moves);
}

}  // namespace ovhost
