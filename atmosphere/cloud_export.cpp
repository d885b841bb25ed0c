// Bakes that a host drives, the box that a cloud is exported in, and what other nodes may ask for by name.
#include "atmosphere/cloud_export.h"

#include <algorithm>
#include <cstring>

#include "atmosphere/cloud_layer_v2.h"
#include "core/shading_state.h"

namespace {

constexpr double kMostMillionsOfVoxels = 1e6;
/// Cells that are looked at to find where a cloud is.
constexpr double kAnalysedCells = 250000;

/// The link's node as something that has a place, or null.
juPreviewHandler* PlacedNode(const trObjectLink& link) {
  trBase* const node = link.LinkedNode(true);
  return node ? dynamic_cast<juPreviewHandler*>(node->PreviewHandler()) : nullptr;
}

double ColumnLength(const trMatrix4x4<double>& m, int column) {
  return trVector(m.m[0][column], m.m[1][column], m.m[2][column]).Length();
}

}  // namespace

// --- The server

/// A worker with a state of its own.
class CloudLayerV2_VoxelServerThread final : public trVoxelServerThread {
 public:
  CloudLayerV2_VoxelServerThread(CloudLayerV2& cloud, const trVoxelBuffer& buffer, trRenderServices& services)
      : cloud_(cloud), buffer_(buffer), state_(services, shading_) {}
  trFCol ValueAt(const trVector& point, unsigned seed) override {
    return cloud_.BakedDensity(state_, buffer_, point, seed);
  }

 private:
  CloudLayerV2& cloud_;
  const trVoxelBuffer& buffer_;
  trShadingInterface shading_;
  trRenderState state_;
};

trVoxelServerThread* CloudLayerV2_VoxelServer::NewThread(trRenderServices& services) {
  try {
    threads_.push_back(std::make_unique<CloudLayerV2_VoxelServerThread>(cloud_, buffer_, services));
    return threads_.back().get();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

// --- The export's grid

trVoxelBuffer* CloudLayerV2::BuildExportBuffer() {
  PrepareCloudDerived();
  CloudVoxels& voxels = *voxels_;
  juPreviewHandler* const placed = settings_.setExportBounds ? PlacedNode(settings_.exportBounds) : nullptr;
  trBoundingBox box = placed ? placed->BoundingBoxL() : CloudBoundingBox();
  const trTransform<double> transform = placed ? placed->Transform() : trTransform<double>();
  trVector size = box.Size();
  for (int axis = 0; axis < 3; ++axis) size[axis] *= ColumnLength(transform.forward, axis);
  const double millions =
      settings_.setExportResolution ? settings_.millionsOfVoxelsForExport : settings_.millionsOfVoxels;
  int nx, ny, nz;
  trVoxelBuffer::GetIdealSizeFromBoundingBox(trBoundingBox(trVector(), size),
                                             std::min(kMostMillionsOfVoxels, millions) * 1e6, nx, ny, nz);
  // The buffer lets go of the old projector before that goes.
  voxels.exportBuffer.SetDimensions(nullptr, 0, 0, 0);
  if (placed) {
    voxels.exportProjector =
        std::make_unique<trVoxelProjector_TransformedBox>(box, transform.forward, transform.inverse);
  } else {
    auto limb = std::make_unique<trVoxelPlanetLimbProjector>();
    limb->Init(box, settings_.localSphereCentre, settings_.centre, settings_.radius,
               settings_.baseAltitude + settings_.radius);
    voxels.exportProjector = std::move(limb);
  }
  voxels.exportBuffer.SetDimensions(voxels.exportProjector.get(), nx, ny, nz);
  return &voxels.exportBuffer;
}

void* CloudLayerV2::RequestMember(const char* name) {
  const auto is = [name](const char* other) { return std::strcmp(name, other) == 0; };
  CloudVoxels& voxels = *voxels_;
  if (is("init voxel buffer")) {
    PrepareCloudDerived();
    PrepareVoxelBuffer(true);
    return static_cast<trVoxelBuffer*>(&voxels.density);
  }
  if (is("voxelBuffer")) return static_cast<trVoxelBuffer*>(&voxels.density);
  if (is("voxel info")) {
    PrepareVoxelBuffer(false);
    return static_cast<trVoxelBuffer*>(&voxels.density);
  }
  if (is("voxel info for export")) return BuildExportBuffer();
  if (is("begin voxel server for export")) {
    if (voxels.exportBuffer.IsEmpty()) BuildExportBuffer();
    server_ = std::make_unique<CloudLayerV2_VoxelServer>(*this, voxels.exportBuffer);
    return static_cast<trVoxelServer*>(server_.get());
  }
  if (is("end voxel server")) {
    server_.reset();
    return nullptr;
  }
  if (is("indirectLightingVoxelCache")) return layout_.usesVoxelScatter ? &voxels.aniso : nullptr;
  return trAtmosShader::RequestMember(name);
}

// --- The box

AnalyzeExportBoundsButton::AnalyzeExportBoundsButton(CloudLayerV2* cloud)
    : trGuiPushButton(cloud, "Analyze and Fit Box"), cloud_(cloud) {}

long AnalyzeExportBoundsButton::OnPressed() { return cloud_->FitExportBoundsToCloud(); }

ResetExportBoundsButton::ResetExportBoundsButton(CloudLayerV2* cloud)
    : trGuiPushButton(cloud, "Reset Box to Max"), cloud_(cloud) {}

long ResetExportBoundsButton::OnPressed() { return cloud_->FitExportBounds(cloud_->CloudBoundingBox()); }

long CloudLayerV2::FitExportBounds(const trBoundingBox& box) {
  trBase* const linked = settings_.exportBounds.LinkedNode(true);
  if (!linked || box.IsEmpty()) return 0;
  const bool isMoved = linked->SetParam("translate", box.Centre(), trWhoUserIndirect) != 0;
  return linked->SetParam("scale", box.Size(), trWhoUserIndirect) && isMoved;
}

long CloudLayerV2::FitExportBoundsToCloud() {
  if (!settings_.exportBounds.LinkedNode(true)) return 0;
  PrepareCloudDerived();
  int nx, ny, nz;
  trVoxelBuffer::GetIdealSizeFromBoundingBox(CloudBoundingBox(), kAnalysedCells, nx, ny, nz);
  trVoxelPlanetLimbProjector projector;
  projector.Init(CloudBoundingBox(), settings_.localSphereCentre, settings_.centre, settings_.radius,
                 settings_.baseAltitude + settings_.radius);
  trVoxelBuffer cells;
  if (!cells.SetDimensions(&projector, nx, ny, nz)) return 0;

  trSamplingState sampling(*this);
  trRenderState& state = sampling.ShadingInterface().RenderState();
  trBoundingBox found;
  unsigned long progress = 0;
  for (int z = 0; z < nz; ++z) {
    if (!ReportProgress(progress, "Analyzing " + Name(), static_cast<float>(z) / static_cast<float>(nz),
                        -1.0f))
      return 0;
    for (int y = 0; y < ny; ++y)
      for (int x = 0; x < nx; ++x) {
        trVector world;
        cells.MapVoxelToWorld(trVector(x + 0.5, y + 0.5, z + 0.5), world);
        const unsigned seed = static_cast<unsigned>((z * ny + y) * nx + x);
        if (BakedDensity(state, cells, world, seed).IsBlack()) continue;
        // With its neighbours: a cell's middle doesn't tell where in it a cloud begins.
        const trBoundingBox around =
            cells.CalculateBoundingBoxOfVoxelRange(x - 1, y - 1, z - 1, x + 2, y + 2, z + 2);
        found.Union(around.min);
        found.Union(around.max);
      }
  }
  ReportProgress(progress, "Analyzing " + Name(), 1.0f, -1.0f);
  return FitExportBounds(found);
}
