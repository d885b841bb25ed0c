// Filling and cutting.
#include "host/render/dice/wedge_mesh.h"

#include <algorithm>
#include <unordered_map>

#include "host/base/parallel.h"
#include "host/render/dice/patch_edges.h"
#include "host/render/parts/surface_part.h"
#include "host/render/parts/traced_corners.h"

namespace ovhost {
namespace {

/// One face's side: its ends as positions and as wedges, the lower position first.
struct EdgeUse {
  std::uint64_t positions, wedges;
  std::uint32_t slot;  ///< three a face
  bool operator<(const EdgeUse& other) const {
    if (positions != other.positions) return positions < other.positions;
    return wedges != other.wedges ? wedges < other.wedges : slot < other.slot;
  }
};

/// The corners of the roots on their way in.
class RootFiller {
 public:
  explicit RootFiller(WedgeMesh& mesh) : mesh_(mesh) {}

  std::uint32_t FindPosition(const trVector& base, std::int32_t material) {
    const auto [entry, isNew] =
        positionOf_.try_emplace(base, static_cast<std::uint32_t>(mesh_.positions.size()));
    if (isNew) {
      mesh_.positions.push_back({base, {}, {}, material, {}, {}, {}});
      wedgesOf_.emplace_back();
    }
    return entry->second;
  }

  std::uint32_t FindWedge(std::uint32_t position, const trFVector& normal, const trVector& texture) {
    for (const std::uint32_t known : wedgesOf_[position])
      if (SameBits(mesh_.wedges[known].normal, normal) && SameBits(mesh_.wedges[known].texture, texture))
        return known;
    mesh_.wedges.push_back({position, normal, texture, {}, {}});
    wedgesOf_[position].push_back(static_cast<std::uint32_t>(mesh_.wedges.size() - 1));
    return wedgesOf_[position].back();
  }

  /// Settles by what each position is displaced.
  void FinishPositions() {
    for (size_t i = 0; i < mesh_.positions.size(); ++i) {
      trVector sum;
      for (const std::uint32_t wedge : wedgesOf_[i]) sum += mesh_.wedges[wedge].normal;
      const Wedge& first = mesh_.wedges[wedgesOf_[i][0]];
      mesh_.positions[i].normal = wedgesOf_[i].size() == 1 ? first.normal : trFVector(Normalised(sum));
      mesh_.positions[i].texture = first.texture;
    }
  }

 private:
  struct VectorHash {
    size_t operator()(const trVector& p) const { return KeyOf(p); }
  };
  WedgeMesh& mesh_;
  std::unordered_map<trVector, std::uint32_t, VectorHash> positionOf_;
  std::vector<std::vector<std::uint32_t>> wedgesOf_;  ///< by position
};

}  // namespace

WedgeMesh::WedgeMesh(const trScene& scene, const std::vector<std::int32_t>& roots)
    : scene_(scene), toWorld_(scene.GetTransform()) {
  for (const std::int32_t root : roots) isMapped_ |= scene_.GetPTri(root)->texVert[0] != 0;
  RootFiller filler(*this);
  for (size_t i = 0; i < roots.size(); ++i) {
    const trTri tri = TracedCorners(*scene_.GetPTri(roots[i]));
    const trMaterial* material = MaterialOf(scene_, tri);
    trVector points[3], normals[3], textures[3];
    if (scene_.GetPointVecs(tri.point, points, 3) != 3) continue;
    const bool isSmooth = material && material->useNormals && scene_.GetNormals(tri.normal, normals, 3) == 3;
    const bool isTextured = scene_.GetTexVecs(tri.texVert, textures, 3) == 3;
    const trFVector flat = FlatNormal(tri);
    Face face{{}, static_cast<std::int32_t>(i)};
    for (int k = 0; k < 3; ++k) {
      const std::uint32_t position = filler.FindPosition(points[k], tri.material);
      const trVector texture = isTextured ? textures[k] : toWorld_.Point(points[k]);
      face.wedges[k] =
          filler.FindWedge(position, isSmooth ? trFVector(Normalised(normals[k])) : flat, texture);
    }
    if (face.wedges[0] != face.wedges[1] && face.wedges[1] != face.wedges[2] &&
        face.wedges[2] != face.wedges[0])
      faces.push_back(face);
  }
  filler.FinishPositions();
}

trFVector WedgeMesh::FlatNormal(const trTri& tri) const {
  trVector p[3];
  scene_.GetPointVecs(tri.point, p, 3);
  return trFVector(Normalised(Cross(p[1] - p[0], p[2] - p[0])));
}

std::vector<std::uint32_t> WedgeMesh::CutEdges(
    const std::vector<Face>& of, const std::function<bool(std::uint32_t, std::uint32_t)>& isLong) {
  std::vector<EdgeUse> uses(of.size() * 3);
  ParallelFor(of.size(), [&](size_t i) {
    for (std::uint32_t k = 0; k < 3; ++k) {
      std::uint32_t a = of[i].wedges[k], b = of[i].wedges[(k + 1) % 3];
      if (wedges[a].position > wedges[b].position) std::swap(a, b);
      uses[3 * i + k] = {static_cast<std::uint64_t>(wedges[a].position) << 32 | wedges[b].position,
                         static_cast<std::uint64_t>(a) << 32 | b, static_cast<std::uint32_t>(3 * i + k)};
    }
  });
  std::vector<char> isCut(uses.size());
  ParallelFor(uses.size(), [&](size_t i) {
    isCut[i] = isLong(static_cast<std::uint32_t>(uses[i].positions >> 32),
                      static_cast<std::uint32_t>(uses[i].positions));
  });
  std::vector<EdgeUse> cut;
  for (size_t i = 0; i < uses.size(); ++i)
    if (isCut[i]) cut.push_back(uses[i]);
  uses = {};
  std::sort(cut.begin(), cut.end());

  std::vector<std::uint32_t> mids(of.size() * 3, kNone);
  for (size_t i = 0; i < cut.size();) {
    const std::uint64_t edge = cut[i].positions;
    const Position &low = positions[edge >> 32], &high = positions[static_cast<std::uint32_t>(edge)];
    Position middle{(low.base + high.base) * 0.5, {}, {}, low.material, {}, {}, {}};
    const size_t firstWedge = wedges.size();
    const auto number = static_cast<std::uint32_t>(positions.size());
    trVector normals;
    while (i < cut.size() && cut[i].positions == edge) {
      const std::uint64_t pair = cut[i].wedges;
      const Wedge &a = wedges[pair >> 32], &b = wedges[static_cast<std::uint32_t>(pair)];
      const trFVector normal(Normalised(trVector(a.normal) + trVector(b.normal)));
      const trVector texture = isMapped_ ? (a.texture + b.texture) * 0.5 : toWorld_.Point(middle.base);
      normals += normal;
      wedges.push_back({number, normal, texture, {}, {}});
      for (; i < cut.size() && cut[i].positions == edge && cut[i].wedges == pair; ++i)
        mids[cut[i].slot] = static_cast<std::uint32_t>(wedges.size() - 1);
    }
    const bool isWhole = wedges.size() == firstWedge + 1;
    middle.normal = isWhole ? wedges[firstWedge].normal : trFVector(Normalised(normals));
    middle.texture = wedges[firstWedge].texture;
    positions.push_back(middle);
  }
  return mids;
}

void WedgeMesh::CutFace(const Face& face, const std::uint32_t* mids, std::vector<Face>& out) const {
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
      return (trVector(positions[wedges[to].position].moved) -
              trVector(positions[wedges[from].position].moved))
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

}  // namespace ovhost
