// Baking a cloud layer's density into voxels, ahead of time and on demand, and asking for it.
#include "atmosphere/cloud_voxels.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "atmosphere/cloud_bake.h"
#include "atmosphere/cloud_layer_v2.h"

namespace {

constexpr float kLeastDensity = 1e-6f;
/// What is left of light behind a cell that is as good as opaque.
constexpr float kOpaqueRest = 9.999999974752427e-7f;
/// Blocks of cells that render threads bake ahead, cells along an edge.
constexpr int kBlockCells = 24;
constexpr double kMostCells = 2147483648.0;

int CountOf(double cells) { return static_cast<int>(std::clamp(std::floor(cells), 1.0, 1e6)); }

/// Whether any part of a box may show: it doesn't lie beyond one edge of the picture with all its corners.
bool MayShow(const trView& view, const trBoundingBox& box) {
  int beyond[5] = {};
  for (int i = 0; i < 8; ++i) {
    const trVector corner(i & 1 ? box.max.x : box.min.x, i & 2 ? box.max.y : box.min.y,
                          i & 4 ? box.max.z : box.min.z);
    const trVector relative = corner - view.eye;
    const double depth = Dot(relative, view.forward), x = Dot(relative, view.right),
                 y = Dot(relative, view.up);
    beyond[0] += depth < 0;
    beyond[1] += x < -depth * view.tanHalfHorizontal;
    beyond[2] += x > depth * view.tanHalfHorizontal;
    beyond[3] += y < -depth * view.tanHalfVertical;
    beyond[4] += y > depth * view.tanHalfVertical;
  }
  return std::none_of(std::begin(beyond), std::end(beyond), [](int corners) { return corners == 8; });
}

}  // namespace

/// A state put into the form in which cells are baked, while this lives.
class CloudLayerV2::CellBake {
 public:
  /// Of `cells`; what is smaller than those doesn't show in them.
  CellBake(CloudLayerV2& cloud, trRenderState& state, const trVoxelBuffer& cells)
      : cloud(cloud),
        thread(cloud.Thread(state)),
        nesting(state, thread),
        draws(state),
        probe(cloud.Probe(state)) {
    trRenderState::Ray& ray = state.CurrentRay();
    ray.depth = 2;
    ray.wantsColour = false;
    ray.quality = 1;
    thread.voxelSolving = true;
    probe.SetLeastDetail(cells.MinVoxelEdgeLength_WrongIfRotated(cloud.settings_.localSphereCentre));
  }
  CloudLayerV2& cloud;
  CloudThread& thread;
  const CloudNesting nesting;
  CloudDraws draws;
  CloudProbe probe;
  bool isNear = true;  ///< cloud, to the middle of the cell that was baked last
};

trFCol CloudLayerV2::BakeCell(CellBake& bake, trRenderState& state, const trVoxelBuffer& buffer,
                              const trVector& point, unsigned seed) {
  bake.draws.Restart(seed);
  trFCol value;
  bake.isNear = true;
  if (cloudSteps_ == trCloudSteps::kTrueLengths) {
    // A step as long as the cell is high, in its middle.
    if (bake.cloud.derived_.isEmpty) return value;
    bake.probe.MoveTo(point);
    const double height = bake.probe.Height();
    const float local = bake.probe.LocalEnvelope();
    CloudSample sample;
    if (height >= 0 && height < 1 && local > kLeastDensity &&
        bake.probe.Sample(local, sample) == CloudProbe::Found::kCloud)
      for (int c = 0; c < 3; ++c) value[c] = std::clamp(sample.opacity[c], 0.0f, -std::log(kOpaqueRest));
    bake.isNear = sample.isNear;
  } else {
    // A tiny ray through the cell, at a density that makes it count for 1 whatever the cell's height.
    const double edge = buffer.EstimatedVoxelSize_WrongIfRotated(point).y;
    const double greatest = derived_.sigma.MaxChannel();
    trRenderState::Ray& ray = state.CurrentRay();
    ray.origin = point - trVector(0, edge / 2, 0);
    ray.end = point + trVector(0, edge / 2, 0);
    bake.thread.densityScale = static_cast<float>(SafeReciprocal(greatest * edge));
    const trFCol left = MarchAlone(state);
    for (int c = 0; c < 3; ++c) {
      const float opacity = 1.0f - left[c], sigma = derived_.sigma[c];
      if (opacity >= kLeastDensity) value[c] = -std::log(std::max(left[c], kOpaqueRest));
      if (sigma != 0) value[c] *= static_cast<float>(greatest) / sigma;
    }
  }
  for (int c = 0; c < 3; ++c)
    if (!(std::fabs(value[c]) > kLeastDensity)) value[c] = 0;
  return value;
}

bool CloudLayerV2::FillCell(void* owner, trRenderState& state, const trVoxelBuffer& buffer,
                            const trVector& world, unsigned seed, trF4Col& value) {
  if (state.IsPausingOrAborting()) return false;
  CellBake& bake = *static_cast<CellBake*>(owner);
  const trFCol density = bake.cloud.BakeCell(bake, state, buffer, world, seed);
  value = {density.r, density.g, density.b, density.IsBlack() ? 0.0f : 1.0f};
  CloudOccupancy& occupancy = bake.cloud.voxels_->occupancy;
  if (bake.isNear && occupancy.IsReady()) occupancy.MarkNear(seed);
  return true;
}

bool CloudLayerV2::IsEmptyRange(void* owner, trRenderState&, const trVoxelBuffer& buffer, const int first[3],
                                const int last[3]) {
  // Beyond the local sphere or the shell there is nothing.
  const CloudLayerV2& cloud = static_cast<CellBake*>(owner)->cloud;
  const trVector middle((first[0] + last[0]) * 0.5, (first[1] + last[1]) * 0.5, (first[2] + last[2]) * 0.5);
  trVector centre;
  buffer.MapVoxelToWorld(middle, centre);
  double reach = 0;
  for (int i = 0; i < 8; ++i) {
    trVector corner;
    buffer.MapVoxelToWorld(
        trVector(i & 1 ? last[0] : first[0], i & 2 ? last[1] : first[1], i & 4 ? last[2] : first[2]), corner);
    reach = std::max(reach, (corner - centre).Length());
  }
  reach *= 1.01;  // bent cells bulge
  const CloudSettings& s = cloud.settings_;
  if (s.localSphere && (centre - s.localSphereCentre).Length() - reach > s.localSphereRadius) return true;
  const double height = (centre - s.centre).Length();
  return height - reach > cloud.derived_.topRadius || height + reach < cloud.derived_.baseRadius;
}

double CloudLayerV2::ClearAhead(trRenderState& state, const Plan& plan, const trVector& point) {
  trVoxelCache<trF4Col>& cells = voxels_->density;
  CloudOccupancy& occupancy = voxels_->occupancy;
  trVector voxel;
  if (!cells.MapWorldToVoxel(point, voxel)) return 0;
  int block[3];
  for (int axis = 0; axis < 3; ++axis) block[axis] = static_cast<int>(voxel[axis]) / CloudOccupancy::kEdge;
  CloudOccupancy::Block found = occupancy.At(block);
  if (found == CloudOccupancy::Block::kUnknown) {
    CellBake bake(*this, state, cells);
    int first[3], last[3];
    occupancy.CellsOf(block, first, last);
    if (!cells.FillBlock(first[0], first[1], first[2], last[0], last[1], last[2], FillCell, &bake, state))
      return 0;
    found = occupancy.Settle(block);
  }
  if (found != CloudOccupancy::Block::kEmpty) return 0;
  double way = 1e12;
  for (int axis = 0; axis < 3; ++axis) {
    const double pace = plan.pace[axis];
    if (std::fabs(pace) < 1e-9) continue;
    const double face = (block[axis] + (pace > 0 ? 1 : 0)) * CloudOccupancy::kEdge;
    way = std::min(way, std::max((face - voxel[axis]) / pace, 0.0));
  }
  return way;
}

trFCol CloudLayerV2::BakedDensity(trRenderState& state, const trVoxelBuffer& buffer, const trVector& point,
                                  unsigned seed) {
  CellBake bake(*this, state, buffer);
  return BakeCell(bake, state, buffer, point, seed);
}

trF4Col CloudLayerV2::VoxelLookup(trRenderState& state, const trVector& point, int level, bool isSmooth) {
  trF4Col found;
  trVector voxel;
  trVoxelCache<trF4Col>& cache = voxels_->density;
  if (!cache.MapWorldToVoxel(point, voxel)) return found;
  if (isSmooth ? cache.CanUseFinalLookupSmooth(voxel, found)
               : cache.CanUseFinalLookupLinear(voxel, found, level))
    return found;
  CellBake bake(*this, state, cache);
  if (isSmooth)
    cache.LookupSmooth(found, voxel, FillCell, &bake, state);
  else
    cache.LookupLinear(found, voxel, level, FillCell, &bake, state);
  return found;
}

int CloudLayerV2::LookupLevel(const trRenderState& state, const trVector& point, double scale) const {
  if (!isProgressive_) return 1;
  const double cells = (point - state.CurrentRay().origin).Length() * scale;
  if (!(cells >= 2)) return 1;
  return 1 << std::min(static_cast<int>(std::log2(cells)), 8);
}

void CloudLayerV2::LayLimbProjector() {
  voxels_->limbProjector.Init(CloudBoundingBox(), settings_.localSphereCentre, settings_.centre,
                              settings_.radius, settings_.baseAltitude + settings_.radius);
}

bool CloudLayerV2::PrepareVoxelBuffer(bool isNamed) {
  const trVector& resolution = settings_.voxelBufferResolution;
  const int nx = CountOf(resolution.x), ny = CountOf(resolution.y), nz = CountOf(resolution.z);
  LayLimbProjector();
  trVoxelCache<trF4Col>& cache = voxels_->density;
  const bool isMade =
      isNamed ? cache.InitVoxelBuffer(&voxels_->limbProjector, nx, ny, nz, 1, Name() + ".voxelBuffer")
              : cache.SetDimensions(&voxels_->limbProjector, nx, ny, nz);
  if (!isMade) {
    const trScopedErrorsWarningsContext context(this);
    const double cells = static_cast<double>(nx) * ny * nz;
    trError("A voxel buffer of " + std::to_string(static_cast<long long>(cells / 1e6)) +
            " million voxels can't be had: there is room for at most " +
            std::to_string(static_cast<long long>(kMostCells / 1e6)) +
            " million, and for no more than the memory holds. The cloud is rendered without.");
  }
  return isMade;
}

bool CloudLayerV2::FillSunlight(void* owner, trRenderState& state, const trVoxelBuffer&,
                                const trVector& world, unsigned seed, trFCol& value) {
  if (state.IsPausingOrAborting()) return false;
  const SunlightFill& fill = *static_cast<const SunlightFill*>(owner);
  CloudLayerV2& cloud = *fill.cloud;
  const CloudNesting nesting(state, cloud.Thread(state));
  CloudDraws draws(state);
  draws.Restart(seed);
  const trVector up = Normalised(world - cloud.settings_.centre);
  const trVector base = cloud.settings_.centre + up * cloud.derived_.baseRadius;
  trRenderState::Ray& ray = state.CurrentRay();
  double distance;
  // From as far below that voxels tell the density.
  ray.origin = base - fill.direction * (fill.voxelsFrom + 1);
  ray.end = fill.light->TracePos(base, distance);
  ray.depth = 2;
  ray.wantsColour = false;
  ray.quality = 1;
  value = cloud.MarchAlone(state);
  return true;
}

/// What a layer lets through of its main light to points below, where voxels would tell the densities on the
/// whole way, changes as little from place to place as those do.
bool CloudLayerV2::SunlightBelow(trRenderState& state, const trLightState& light, const trVector& point,
                                 trFCol& left) {
  trVoxelCache<trFCol>& cache = voxels_->sunlight;
  if (cache.IsEmpty() || !medium_ || &light != medium_->MainLight(state)) return false;
  const CloudThread& thread = ThreadOfRay(state);
  if (thread.densityScale != 1 || thread.inLightingSample || thread.voxelSolving || thread.paintGiven ||
      thread.force3D)
    return false;
  const trVector direction = light.Dir(point);
  if (direction != medium_->MainLightDirection()) return false;
  CloudSpan span;
  double distance;
  if (!FindSpan(point, light.TracePos(point, distance), span)) {
    left = trFCol(1.0f);
    return true;
  }
  constexpr double kAtBase = 0.1;
  if (!(span.entryDistance >= sunlightFrom_) ||
      std::fabs((span.entry - settings_.centre).Length() - derived_.baseRadius) > kAtBase)
    return false;
  trVector voxel;
  if (!cache.MapWorldToVoxel(span.entry + (settings_.localSphereCentre - span.entry) * 1e-6, voxel))
    return false;
  SunlightFill fill{this, &light, direction, sunlightFrom_};
  return cache.LookupLinear(left, voxel, 1, FillSunlight, &fill, state);
}

bool CloudLayerV2::BakeBlock(trRenderState& state, int x, int y, int z) {
  trVoxelCache<trF4Col>& cache = voxels_->density;
  CellBake bake(*this, state, cache);
  return cache.FillBlock(x, y, z, std::min(x + kBlockCells, cache.SizeX()),
                         std::min(y + kBlockCells, cache.SizeY()), std::min(z + kBlockCells, cache.SizeZ()),
                         FillCell, &bake, state, IsEmptyRange);
}

void CloudLayerV2::AddBakeTasks(trRenderingInterface& rendering) {
  const trVoxelCache<trF4Col>& cache = voxels_->density;
  const trView* const view = rendering.PMainView();
  for (int z = 0; z < cache.SizeZ(); z += kBlockCells)
    for (int y = 0; y < cache.SizeY(); y += kBlockCells)
      for (int x = 0; x < cache.SizeX(); x += kBlockCells) {
        const trBoundingBox box = cache.CalculateBoundingBoxOfVoxelRange(
            x, y, z, std::min(x + kBlockCells, cache.SizeX()), std::min(y + kBlockCells, cache.SizeY()),
            std::min(z + kBlockCells, cache.SizeZ()));
        if (view && !MayShow(*view, box)) continue;
        rendering.AddTaskToPrepass(
            [this, x, y, z](trRenderState& state) { return BakeBlock(state, x, y, z); });
      }
}

bool CloudLayerV2::NeedsVoxels() const {
  return IsEnabled() && !derived_.isEmpty && (settings_.useVoxelBuffer || layout_.usesVoxelScatter);
}

void CloudLayerV2::PrepareCloudForRender(trRenderingInterface& rendering) {
  lightingDirty_ = true;
  isProgressive_ = rendering.RenderContext() == trRenderContext::kProgressive;
  PreparePaint(rendering);
  // A progressive render keeps what no change made out of date.
  if (!isProgressive_ || voxelsDirty_) {
    voxels_->density.Cleanup();
    if (NeedsVoxels()) PrepareVoxelBuffer(true);
    // Cells that tiny rays bake don't tell what is near.
    const bool tellsNear = cloudSteps_ == trCloudSteps::kTrueLengths && layout_.usesVoxelScatter;
    voxels_->occupancy.Init(tellsNear ? voxels_->density : trVoxelBuffer());
    voxelsDirty_ = false;
  }
  if (lightingDirty_) {
    PrepareScatter(rendering);
    PrepareIndirectCache();
    PrepareSunlight();
    lightingDirty_ = false;
  }
  if (isProgressive_) {
    if (shadowMapDirty_) shadowMap_.Cleanup();
  } else {
    PrepareShadowMap(rendering.RenderState());
    if (rendering.GISettings().ShouldWriteVoxels() && !voxels_->density.IsEmpty()) AddBakeTasks(rendering);
  }
  shadowMapDirty_ = false;
}

void CloudLayerV2::PrepareSunlight() {
  const trVoxelBuffer& cells = voxels_->density;
  voxels_->sunlight.Cleanup();
  if (!voxels_->hasScatter || !settings_.useVoxelBuffer || !settings_.useVoxelsForShadows || cells.IsEmpty())
    return;
  const trVector edges = cells.EstimatedVoxelSize_WrongIfRotated(settings_.localSphereCentre);
  sunlightFrom_ = std::max(edges.x, std::max(edges.y, edges.z)) * settings_.voxelShadowThreshold;
  if (!(sunlightFrom_ < 1e9)) return;
  voxels_->sunlight.InitVoxelBuffer(&voxels_->limbProjector, cells.SizeX(), 1, cells.SizeZ(), 1,
                                    Name() + ".sunlightVoxelCache");
}

void CloudLayerV2::PrepareIndirectCache() {
  if (!isProgressive_ || !IsEnabled()) {
    voxels_->indirect.Cleanup();
    return;
  }
  constexpr int kCells = 20, kSamples = 16;
  const double edge = 2.0 * std::fabs(settings_.baseAltitude + settings_.radius + settings_.depth);
  voxels_->indirectProjector.Init(trBoundingBox::FromCentre(settings_.centre, {edge, edge, edge}));
  voxels_->indirect.InitVoxelBuffer(&voxels_->indirectProjector, kCells, kCells, kCells, kSamples,
                                    Name() + ".indirectLightingVoxelCacheClv2RTP");
}
