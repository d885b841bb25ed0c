// Grids of cells laid over a region of the world: projectors, buffers, caches that fill themselves, and the
// light of a scene's background gathered in them.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "core/render_state.h"
#include "core/transform.h"

/// Places a grid in the world: maps it to and from a unit cube ("local"). Immutable while buffers use it;
/// then thread-safe.
class OV_API trVoxelProjector {
 public:
  virtual ~trVoxelProjector() = default;
  virtual void MapWorldToLocal(const trVector& world, trVector& local) const = 0;
  virtual void MapLocalToWorld(const trVector& local, trVector& world) const = 0;
  /// The affine part of MapLocalToWorld; all of it where IsLinear.
  virtual trTransform<double> GetTransformLocalToWorld() const = 0;
  virtual bool IsLinear() const = 0;
  /// World lengths of the cube's edges, metres: of an affine projector, and near a point of the world in
  /// general. Wrong by the rotation for turned ones.
  virtual trVector ScalingIfAffine() const = 0;
  virtual trVector EstimatedScaling_WrongIfRotated(const trVector& world) const = 0;
};

/// An axis-aligned box of the world.
class OV_API trVoxelBoxProjector : public trVoxelProjector {
 public:
  /// An empty or infinite box, or one without extent along an axis, gets an edge of 1e-12 there. Main thread
  /// only.
  void Init(const trBoundingBox& box);
  void MapWorldToLocal(const trVector& world, trVector& local) const override;
  void MapLocalToWorld(const trVector& local, trVector& world) const override;
  trTransform<double> GetTransformLocalToWorld() const override;
  bool IsLinear() const override { return true; }
  trVector ScalingIfAffine() const override { return size_; }
  trVector EstimatedScaling_WrongIfRotated(const trVector&) const override { return size_; }

 private:
  trVector min_, size_{1, 1, 1}, invSize_{1, 1, 1};
};

/// A box bent round a sphere: the grid's y is the height above the sphere about the planet's centre through
/// `localCentre`, its x and z are Lambert's azimuthal equal-area map of that sphere about `localCentre`
/// (Lambert 1772). So a thin layer of a planet needs few cells in height, cells hold equal volumes, and a
/// point of the sphere lies as far from the map's middle as a straight line through the planet is long: a box
/// as wide as a ball about `localCentre` holds the ball. Reversible but for the point opposite to
/// `localCentre`.
class OV_API trVoxelPlanetLimbProjector : public trVoxelBoxProjector {
 public:
  /// `box` is a world box about `localCentre` as if that were the planet's apex (up is y), which may lie in
  /// any direction from the planet's centre; compass directions go over by the shortest rotation. Where
  /// `localCentre` is no place on a sphere, it is taken `altitude` metres from the planet's centre, or
  /// `radius`. Main thread only.
  void Init(const trBoundingBox& box, const trVector& localCentre, const trVector& planetCentre,
            double radius, double altitude);
  void MapWorldToLocal(const trVector& world, trVector& local) const override;
  void MapLocalToWorld(const trVector& local, trVector& world) const override;
  /// At `localCentre`.
  trTransform<double> GetTransformLocalToWorld() const override;
  bool IsLinear() const override { return false; }

 private:
  trVector planetCentre_, localCentre_, right_{1, 0, 0}, up_{0, 1, 0}, forward_{0, 0, 1};
  double radius_ = 1;  ///< from the planet's centre to localCentre_
};

/// A box that another node's transform places.
class OV_API trVoxelProjector_TransformedBox : public trVoxelProjector {
 public:
  /// `box` in the space that `toWorld` leads to the world from.
  trVoxelProjector_TransformedBox(const trBoundingBox& box, const trMatrix4x4<double>& toWorld,
                                  const trMatrix4x4<double>& fromWorld);
  void MapWorldToLocal(const trVector& world, trVector& local) const override;
  void MapLocalToWorld(const trVector& local, trVector& world) const override;
  trTransform<double> GetTransformLocalToWorld() const override;
  bool IsLinear() const override { return true; }
  trVector ScalingIfAffine() const override;
  trVector EstimatedScaling_WrongIfRotated(const trVector&) const override { return ScalingIfAffine(); }

 private:
  trVoxelBoxProjector box_;
  trTransform<double> transform_;
};

/// The shape of a grid. Voxel coordinates run from 0 to the number of cells; a cell's centre is at +0.5.
class OV_API trVoxelBuffer {
 public:
  virtual ~trVoxelBuffer() = default;
  /// Lays nx by ny by nz cells over the projector's cube; counts below 1 become 1. False, and an empty
  /// buffer, where there is no projector or more than 2^31 cells are asked for. The projector is the caller's
  /// and must outlive the buffer's use. Main thread only.
  bool SetDimensions(const trVoxelProjector* projector, int nx, int ny, int nz);
  /// Cell counts with the box's proportions and about `voxelCount` cells in all, each at least 1.
  static void GetIdealSizeFromBoundingBox(const trBoundingBox& box, double voxelCount, int& nx, int& ny,
                                          int& nz);

  // --- Thread-safe from here on
  bool IsEmpty() const { return !projector_; }
  int SizeX() const { return size_[0]; }
  int SizeY() const { return size_[1]; }
  int SizeZ() const { return size_[2]; }
  std::int64_t NumCells() const { return std::int64_t(size_[0]) * size_[1] * size_[2]; }
  /// Edges of a cell near a point of the world, metres; 0 in an empty buffer.
  trVector EstimatedVoxelSize_WrongIfRotated(const trVector& world) const;
  double MinVoxelEdgeLength_WrongIfRotated(const trVector& world) const;
  /// Voxel coordinates of a point of the world; false outside the grid or in an empty one.
  bool MapWorldToVoxel(const trVector& world, trVector& voxel) const;
  void MapVoxelToWorld(const trVector& voxel, trVector& world) const;
  /// The world box of the cells from (x0, y0, z0) up to, not including, (x1, y1, z1), by their corners.
  trBoundingBox CalculateBoundingBoxOfVoxelRange(int x0, int y0, int z0, int x1, int y1, int z1) const;
  const trVoxelProjector* Projector() const { return projector_; }

 private:
  const trVoxelProjector* projector_ = nullptr;
  int size_[3] = {0, 0, 0};
};

/// A grid of averages that fills itself on demand. T is trFCol or trF4Col.
///
/// A cell's value is the mean of its first n samples, n being what a lookup asks for; sample i of a cell
/// depends on the cell and i alone. So while all lookups ask for the same number, what they see doesn't
/// depend on who came first; a later pass that asks for more refines the cells it touches.
///
/// Cells lie in bricks of 8 by 8 by 8 that are made when first touched; of a cache whose cells are one sample
/// each, a brick without a value other than 0 takes 80 bytes. Such caches keep trF4Col as half floats: to a
/// share of 1/2048, from 1e-6 to 1000.
template <typename T>
class OV_API trVoxelCache : public trVoxelBuffer {
 public:
  /// Computes one sample of a cell from its centre, using no randomness but `seed`. False stops the lookup
  /// (an aborted render). In a cache of one sample a cell, `seed` is the cell's number (z * SizeY + y) *
  /// SizeX + x.
  using Fill = bool (*)(void* owner, trRenderState& state, const trVoxelBuffer& buffer, const trVector& world,
                        unsigned seed, T& value);
  /// Whether all cells from (first[0], first[1], first[2]) up to, not including, `last` are sure to be 0.
  using IsEmptyRange = bool (*)(void* owner, trRenderState& state, const trVoxelBuffer& buffer,
                                const int first[3], const int last[3]);

  trVoxelCache();
  ~trVoxelCache() override;
  /// Starts over, all cells missing. `resolution` bounds the samples a cell is made of, at least 1. False,
  /// and an empty cache, where SetDimensions or the memory refuses. Main thread only.
  bool InitVoxelBuffer(const trVoxelProjector* projector, int nx, int ny, int nz, int resolution,
                       const trString& name);
  /// Gives the memory back. Main thread only.
  void Cleanup();
  const trString& Name() const { return name_; }
  int Resolution() const { return resolution_; }

  // --- Thread-safe from here on
  // `voxel` beyond the grid takes the nearest cells; not a number gives T() and false.
  /// The interpolated value if all the cells it needs have at least one sample; fills nothing. Level 1 uses
  /// every cell, 2 every second one along each axis, and so on. Linear uses 8 cells, smooth 27 (a quadratic
  /// B-spline).
  bool CanUseFinalLookupLinear(const trVector& voxel, T& out, int level) const;
  bool CanUseFinalLookupSmooth(const trVector& voxel, T& out) const;
  /// The interpolated value, after bringing every cell it needs to `samples` samples. `fill` may look up
  /// other caches, but not this one. False, and T(), when a fill stopped.
  bool LookupLinear(T& out, const trVector& voxel, int level, Fill fill, void* owner, trRenderState& state,
                    int samples = 1);
  bool LookupSmooth(T& out, const trVector& voxel, Fill fill, void* owner, trRenderState& state,
                    int samples = 1);
  /// Brings all cells from (x0, y0, z0) up to, not including, (x1, y1, z1) to one sample, with the values
  /// that lookups would give them. Whole bricks that `isEmpty` answers for aren't filled one by one. False
  /// when a fill stopped.
  bool FillBlock(int x0, int y0, int z0, int x1, int y1, int z1, Fill fill, void* owner, trRenderState& state,
                 IsEmptyRange isEmpty = nullptr);
  /// The value of one cell; false where it has none yet.
  bool CellValue(int x, int y, int z, T& out) const;
  /// Bytes that the cache holds.
  std::uint64_t MemoryInUse() const { return bytes_.load(std::memory_order_relaxed); }

 private:
  struct Brick;
  struct Cell;
  struct Taps;
  static constexpr int kChannels = static_cast<int>(sizeof(T) / sizeof(float));
  static constexpr int kLocks = 64;

  bool LinearTaps(const trVector& voxel, int level, Taps& taps) const;
  bool SmoothTaps(const trVector& voxel, Taps& taps) const;
  bool Gather(const Taps& taps, T& out, int samples) const;
  bool FillTaps(const Taps& taps, Fill fill, void* owner, trRenderState& state, int samples);
  bool FillCell(const int cell[3], Fill fill, void* owner, trRenderState& state, int samples);
  bool RefineCell(Brick& brick, const int cell[3], Fill fill, void* owner, trRenderState& state, int samples);
  std::int64_t BrickOf(const int cell[3]) const;
  Brick* BrickFor(std::int64_t index);
  static Brick& EmptyBrick();

  std::unique_ptr<std::atomic<Brick*>[]> bricks_;
  int numBricks_[3] = {0, 0, 0};
  std::unique_ptr<std::mutex[]> locks_;
  std::atomic<std::uint64_t> bytes_{0};
  int resolution_ = 1;
  trString name_;
};

extern template class OV_API trVoxelCache<trFCol>;
extern template class OV_API trVoxelCache<trF4Col>;

/// Light that reaches points of the air from the scene's background: sky, clouds, lit surfaces. A renderer
/// derives from it and gives BackgroundFunction. Thread-safe.
class OV_API trVoxelLightingSystem {
 public:
  virtual ~trVoxelLightingSystem() = default;
  /// Radiance arriving at `point` from the unit `direction`.
  virtual trFCol BackgroundFunction(trRenderState& state, const trVector& point,
                                    const trVector& direction) = 0;
  /// Rays deeper than this get no background light.
  virtual int DepthLimit() const { return 2; }
  /// How many samples a cell is to have by now; the same for all threads within a pass, growing from pass to
  /// pass.
  virtual int SamplesPerCell() const { return 16; }

  /// Radiance from `direction`: black past the depth limit, or when this thread is in a lookup already.
  trFCol LookupBackground(trRenderState& state, const trVector& point, const trVector& direction);
  /// Mean radiance over all directions at `point`, from a cache that refines itself pass by pass. Black
  /// outside the cache.
  trFCol LookupIsotropicBackgroundProgressive(trVoxelCache<trFCol>& cache, trRenderState& state,
                                              const trVector& point);
  /// One random direction's radiance, from the state's draws: an unbiased but noisy mean over the directions.
  trFCol OneCachelessBackgroundSample(trRenderState& state, const trVector& point);

  /// Nonzero while this thread fills a cell. Per-thread state.
  static unsigned char& sIsDuringLookup();
  /// Marks this thread as filling a cell, on every way out.
  class LookupScope {
   public:
    LookupScope() : during_(sIsDuringLookup()), before_(during_) { during_ = 1; }
    ~LookupScope() { during_ = before_; }
    LookupScope(const LookupScope&) = delete;
    LookupScope& operator=(const LookupScope&) = delete;

   private:
    unsigned char& during_;
    const unsigned char before_;
  };
};

/// Six caches of one grid, one for light that travels along each half axis.
template <typename T>
class OV_API trAnisoVoxelCache {
 public:
  /// As trVoxelCache::InitVoxelBuffer, for all six. Main thread only.
  bool InitVoxelBuffer(const trVoxelProjector* projector, int nx, int ny, int nz, int resolution,
                       const trString& name);
  void Cleanup();
  /// Along +x, -x, +y, -y, +z and -z for 0 to 5.
  trVoxelCache<T>& GetVoxelCache(int direction) { return caches_[direction]; }

 private:
  trVoxelCache<T> caches_[6];
};

extern template class OV_API trAnisoVoxelCache<trFCol>;

/// What a scatter model asks of the volume it works for. Thread-safe; each call leaves the state as it was.
class OV_API trVoxelScatterMedium {
 public:
  virtual ~trVoxelScatterMedium() = default;
  /// What the volume takes from light at a point, per metre: from its voxels where it has them.
  virtual trFCol Extinction(trRenderState& state, const trVector& point) = 0;
  /// The lights that arrive at a point straight, dimmed by all that stands between, in units of
  /// trLightState::Intensity.
  virtual trFCol DirectLight(trRenderState& state, const trVector& point) = 0;
  /// Mean radiance over all directions that comes from outside of the volume, dimmed by it on its way.
  virtual trFCol AverageBackground(trRenderState& state, const trVector& point) = 0;
  /// Of what is taken, the share that is scattered; and how (trAtmosShader::PhaseFunction).
  virtual trFCol Albedo() const = 0;
  virtual float PhaseFunction(double cosAngle) const = 0;
  /// Towards the strongest light, unit; and an upper bound of Extinction.
  virtual trVector MainLightDirection() const = 0;
  virtual double GreatestExtinction() const = 0;

  /// The light from MainLightDirection as it would arrive at a point if this volume weren't there: dimmed by
  /// all else, in units of trLightState::Intensity. False where the volume can't tell; then the model makes
  /// do with DirectLight, which costs more and is coarser. Volumes should tell.
  virtual bool LightOutside(trRenderState&, const trVector&, trFCol&) { return false; }
  /// The radiance that arrives at a point from `direction` as if this volume weren't there, without lights
  /// that LightOutside tells of. False where the volume can't tell; then the model makes do with
  /// AverageBackground. Volumes should tell.
  virtual bool BackgroundOutside(trRenderState&, const trVector&, const trVector& /*direction*/, trFCol&) {
    return false;
  }
};

/// Light that a volume scatters more than once.
class OV_API trVoxelScatterModel {
 public:
  virtual ~trVoxelScatterModel() = default;
  /// What a point scatters along the state's ray towards its origin, in the units of mean radiance: times
  /// albedo and extinction it is the radiance that a metre adds. That of light that was scattered in the
  /// medium at least once before it reaches `point`: of lights into `direct`, of the background into
  /// `enviro`; and the background's that arrives unscattered, into `enviro` as well. `precision` tells how
  /// much the answer counts, per channel. False, and black, when a fill stopped. Thread-safe; the answer
  /// hangs on the point and the ray's direction alone; a ray without length gets the mean over all
  /// directions.
  virtual bool Lookup(trRenderState& state, const trVector& point, const trFCol& precision, trFCol& direct,
                      trFCol& enviro) = 0;
};

/// The model of cloud layers: paths from the nodes of a grid, kept and interpolated.
class OV_API trVoxelScatterModelC : public trVoxelScatterModel {
 public:
  trVoxelScatterModelC();
  ~trVoxelScatterModelC() override;
  /// Starts over. `medium` and the caches are the caller's, laid over `projector`, and outlive the model's
  /// use: light that arrives from outside is kept in them. `depthLimit` bounds the scatterings that are
  /// counted; below 1 none is. Main thread only.
  void Init(const trVoxelProjector& projector, int depthLimit, trVoxelScatterMedium& medium,
            trVoxelCache<trFCol>& lighting, trAnisoVoxelCache<trFCol>& aniso);
  bool Lookup(trRenderState& state, const trVector& point, const trFCol& precision, trFCol& direct,
              trFCol& enviro) override;
  /// The main light as it is outside of the medium, and what the medium lets through of it on its way to
  /// `point`. False where a fill stopped. Thread-safe.
  bool MainLight(trRenderState& state, const trVector& point, trFCol& light, trFCol& transmittance);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// One worker of a bake that a host drives.
class OV_API trVoxelServerThread {
 public:
  virtual ~trVoxelServerThread() = default;
  /// The value at a point of the world, using no randomness but `seed`. One thread at a time.
  virtual trFCol ValueAt(const trVector& point, unsigned seed) = 0;
};

/// A bake that a host drives: it asks for as many workers as it has threads.
class OV_API trVoxelServer {
 public:
  virtual ~trVoxelServer() = default;
  /// A new worker, which the server keeps; null where there is no memory. `services` must outlive it. Main
  /// thread only.
  virtual trVoxelServerThread* NewThread(trRenderServices& services) = 0;

 protected:
  std::vector<std::unique_ptr<trVoxelServerThread>> threads_;
};
