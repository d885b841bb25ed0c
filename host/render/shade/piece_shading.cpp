// Shading pieces.
#include "host/render/shade/piece_shading.h"

#include "host/base/sampler.h"
#include "host/render/shade/footprint.h"
#include "host/render/shade/lobes.h"

namespace ovhost {

const ShadeCache::Entry* PieceShading::Find(const SurfaceHit& hit, const SurfacePoint& point,
                                            const trVector& direction, Sight sight) {
  if (hit.levels > 0 || !hit.part->mayBePlain) return nullptr;
  // Pieces are shaded from outside.
  if (Dot(point.normal, point.face) < 0) return nullptr;
  SurfacePiece piece;
  double footprint = 0;  // of the piece; a camera's depends on its middle
  ShadeCache* cache = &seen_;
  switch (sight) {
    case Sight::kCamera:
      if (!hit.part->PieceForCamera(hit, scene_.View().PixelAngularSize(), piece)) return nullptr;
      break;
    case Sight::kBounce:
      cache = &bounced_;
      footprint = hit.part->PieceForBounce(hit, point.footprint, piece);
      if (!(footprint > 0)) return nullptr;
      break;
    case Sight::kCone:
      cache = &mirrored_;
      footprint = 0.5 * hit.part->PieceForCone(hit, direction, point.footprint, piece);
      if (!(footprint > 0)) return nullptr;
      break;
  }
  bool isNew;
  ShadeCache::Entry& entry = cache->Find(piece, isNew);
  if (isNew) Shade(hit, piece, sight, footprint, entry);
  return entry.isShared ? &entry : nullptr;
}

void PieceShading::Shade(const SurfaceHit& hit, const SurfacePiece& piece, Sight sight, double footprint,
                         ShadeCache::Entry& entry) {
  SurfaceHit middle = hit;
  middle.u = piece.u;
  middle.v = piece.v;
  middle.distance = 0;
  SurfacePoint point;
  shading_.hits.Locate(middle, hit.part->PointAt(piece.primitive, piece.u, piece.v), -hit.faceNormal, 0,
                       point);
  point.footprint = sight == Sight::kCamera
                        ? kPixelFootprint * scene_.View().PixelAngularSize() * point.relative.Length()
                        : footprint;
  const trRandomStream random = shading_.si.Random();
  shading_.si.Random() = {MixBits64(static_cast<std::uint64_t>(piece.primitive) << 32 | piece.number)};
  trRenderState::Ray& ray = shading_.state.CurrentRay();
  ray.depth = sight == Sight::kCamera ? 1 : 2;
  ray.spread = sight == Sight::kBounce ? kDiffuseSpread : 0;
  ray.highlights = false;
  shading_.Shade(middle, {}, point);
  shading_.si.Random() = random;

  const trBsdf& bsdf = shading_.si.Bsdf();
  entry.emission = PositivePart(bsdf.Emission());
  entry.diffuse = PositivePart(bsdf.ColourOf(trLobe::kDiffuseReflection));
  entry.isShared = IsPlain(bsdf, shading_.si.Oo_surf()) && shading_.si.N() == point.normal;
}

}  // namespace ovhost
