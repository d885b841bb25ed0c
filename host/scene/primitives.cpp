// Primitives as triangles. Corners are told so that (b - a) x (c - a) points outward, and stored the other
// way round, as scenes have them. Every quad is two consecutive triangles.
#include "core/scene.h"
#include "host/base/tangents.h"

namespace {

constexpr long kMaxCount = 4096;
constexpr double kPi = 3.14159265358979323846;

long AddTriangle(trScene& scene, long a, long b, long c, long material) {
  trTri tri;
  const long corners[3] = {a, c, b};
  for (int i = 0; i < 3; ++i) {
    tri.point[i] = static_cast<std::int32_t>(corners[i]);
  }
  tri.material = static_cast<std::int32_t>(material);
  return scene.AddTri(tri);
}

bool AddQuad(trScene& scene, long a, long b, long c, long d, long material) {
  return AddTriangle(scene, a, c, d, material) && AddTriangle(scene, a, b, c, material);
}

/// The points of a cube's surface, `n` quads an edge, as table indices from 0: the bottom layer, the rings
/// between, the top layer. Each point of an edge or a corner has one index whichever face asks.
struct CubeLattice {
  long n;

  long LayerSize() const { return (n + 1) * (n + 1); }
  long Index(long i, long j, long k) const {
    if (k == 0) return i + (n + 1) * j;
    const long above = LayerSize() + (k - 1) * 4 * n;
    return above + (k == n ? i + (n + 1) * j : AlongRing(i, j));
  }
  long AlongRing(long i, long j) const {
    if (j == 0) return i;
    if (i == n) return n + j;
    if (j == n) return 2 * n + (n - i);
    return 3 * n + (n - j);
  }
  /// Calls with every point (i, j, k) in the order of the indices.
  template <typename F>
  bool ForEach(const F& add) const {
    for (long k = 0; k <= n; ++k) {
      if (k == 0 || k == n) {
        for (long j = 0; j <= n; ++j)
          for (long i = 0; i <= n; ++i)
            if (!add(i, j, k)) return false;
        continue;
      }
      for (long i = 0; i < n; ++i)
        if (!add(i, 0, k)) return false;
      for (long j = 0; j < n; ++j)
        if (!add(n, j, k)) return false;
      for (long i = n; i > 0; --i)
        if (!add(i, n, k)) return false;
      for (long j = n; j > 0; --j)
        if (!add(0, j, k)) return false;
    }
    return true;
  }
};

/// The cube's coordinate of lattice line `i` of `n`, spaced by equal angles so that the projected quads are
/// of nearly one size (Ronchi, Iacono and Paolucci, J. Comput. Phys. 124, 1996). Exact at the ends.
double EquiangularCoordinate(long i, long n) {
  if (i == 0) return -1;
  if (i == n) return 1;
  if (2 * i == n) return 0;
  return std::tan((2.0 * static_cast<double>(i) / static_cast<double>(n) - 1.0) * (kPi / 4));
}

/// A ring of points about `centre` in the plane of two axes; the first one's index, or 0.
long AddRing(trScene& scene, const trVector& centre, const trVector& axisA, const trVector& axisB,
             long sides) {
  long first = 0;
  for (long i = 0; i < sides; ++i) {
    const double angle = 2 * kPi * static_cast<double>(i) / static_cast<double>(sides);
    const long index = scene.AddPoint({centre + axisA * std::cos(angle) + axisB * std::sin(angle)});
    if (!index) return 0;
    if (i == 0) first = index;
  }
  return first;
}

/// A fan about a new point at `centre`; reversed it faces the other way.
bool AddFan(trScene& scene, const trVector& centre, long ring, long sides, bool reversed, long material) {
  const long hub = scene.AddPoint({centre});
  if (!hub) return false;
  for (long k = 0; k < sides; ++k) {
    // In the order that makes quads of pairs.
    const long i = reversed ? k : sides - 1 - k;
    const long a = ring + i, b = ring + (i + 1) % sides;
    if (!AddTriangle(scene, hub, reversed ? b : a, reversed ? a : b, material)) return false;
  }
  return true;
}

}  // namespace

long trScene::AddPolyPlane(const trVector& corner, const trVector& edgeA, const trVector& edgeB,
                           bool bothSides, long material) {
  const long first = NumTris() + 1;
  const long a = AddPoint({corner}), b = AddPoint({corner + edgeA}), c = AddPoint({corner + edgeA + edgeB}),
             d = AddPoint({corner + edgeB});
  if (!AddQuad(*this, a, b, c, d, material)) return 0;
  if (bothSides && !AddQuad(*this, a, d, c, b, material)) return 0;
  return first;
}

long trScene::AddPolyDisc(const trVector& centre, const trVector& axisA, const trVector& axisB, long sides,
                          long material) {
  if (sides < 3 || sides > kMaxCount) return 0;
  const long first = NumTris() + 1;
  const long ring = AddRing(*this, centre, axisA, axisB, sides);
  return ring && AddFan(*this, centre, ring, sides, false, material) ? first : 0;
}

long trScene::AddPolyCylinder(const trVector& base, const trVector& top, double radius, long sides,
                              long material) {
  if (sides < 3 || sides > kMaxCount) return 0;
  const long first = NumTris() + 1;
  const trVector axis = Normalised(top - base);
  trVector side, front;
  ovhost::MakeTangents(axis, side, front);
  const trVector a = -side * radius, b = Cross(axis, a);
  const long low = AddRing(*this, base, a, b, sides), high = AddRing(*this, top, a, b, sides);
  if (!low || !high) return 0;
  for (long i = 0; i < sides; ++i) {
    const long next = (i + 1) % sides;
    if (!AddQuad(*this, low + i, low + next, high + next, high + i, material)) return 0;
  }
  if (!AddFan(*this, base, low, sides, true, material)) return 0;
  return AddFan(*this, top, high, sides, false, material) ? first : 0;
}

long trScene::AddPolySphere(const trVector& centre, const trVector& scale, long, long resolutionV,
                            long material) {
  if (resolutionV > kMaxCount) return 0;
  const CubeLattice lattice{resolutionV < 1 ? 1 : resolutionV};
  const long n = lattice.n;
  const long firstPoint = NumPts() + 1, firstNormal = NumNormals() + 1, firstTri = NumTris() + 1;

  const bool added = lattice.ForEach([&](long i, long j, long k) {
    const trVector unit =
        Normalised({EquiangularCoordinate(i, n), EquiangularCoordinate(j, n), EquiangularCoordinate(k, n)});
    const trVector normal = Normalised({unit.x * SafeReciprocal(scale.x), unit.y * SafeReciprocal(scale.y),
                                        unit.z * SafeReciprocal(scale.z)});
    return AddPoint({centre + unit * scale}) && AddNormal({normal});
  });
  if (!added) return 0;

  const auto addTri = [&](long a, long b, long c) {
    trTri tri;
    const long corners[3] = {a, c, b};
    for (int i = 0; i < 3; ++i) {
      tri.point[i] = static_cast<std::int32_t>(firstPoint + corners[i]);
      tri.normal[i] = static_cast<std::int32_t>(firstNormal + corners[i]);
    }
    tri.material = static_cast<std::int32_t>(material);
    return AddTri(tri) != 0;
  };
  // Three axes, the low and the high face of each. With (u, v) the next two axes in turn, u x v points to the
  // high side; the low face takes them the other way round.
  for (int axis = 0; axis < 3; ++axis)
    for (const long side : {0L, n})
      for (long v = 0; v < n; ++v)
        for (long u = 0; u < n; ++u) {
          const auto at = [&](long du, long dv) {
            long ijk[3];
            ijk[axis] = side;
            ijk[(axis + 1) % 3] = side ? u + du : v + dv;
            ijk[(axis + 2) % 3] = side ? v + dv : u + du;
            return lattice.Index(ijk[0], ijk[1], ijk[2]);
          };
          const long a = at(0, 0), b = at(1, 0), c = at(1, 1), d = at(0, 1);
          if (!addTri(a, c, d) || !addTri(a, b, c)) return 0;
        }
  return firstTri;
}

long trScene::AddPolySphere(const trVector& centre, double radius, long resolution, long material) {
  return AddPolySphere(centre, {radius, radius, radius}, 2 * resolution, resolution, material);
}
