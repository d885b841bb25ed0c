// What is seen from a viewpoint, in six renders.
#include <cmath>
#include <numbers>

#include "host/node/node_data.h"
#include "host/project/project_file.h"
#include "host/render/frame/render_job.h"
#include "host/session/sky_paint_edit.h"

namespace ovhost {
namespace {

/// How a camera looks at a face, and what its picture lacks to be the face.
struct FaceView {
  trVector rotation;  ///< degrees: tilt, heading, roll
  bool isUpsideDown, isMirrored;
};

const FaceView kViews[kSkyPaintFaces] = {{{0, 0, 0}, false, false},  {{0, 90, 0}, false, false},
                                         {{0, 180, 0}, true, false}, {{0, 270, 0}, false, false},
                                         {{90, 0, 0}, false, false}, {{-90, 0, 0}, false, true}};

/// Colour alone, turned as the face is kept.
Picture FaceOf(const Picture& image, const FaceView& view) {
  Picture face = BlankPicture(image.width, image.height, 3);
  const std::size_t channels = image.channels.size();
  for (int y = 0; y < image.height; ++y)
    for (int x = 0; x < image.width; ++x) {
      const int fromX = view.isMirrored ? image.width - 1 - x : x;
      const int fromY = view.isUpsideDown ? image.height - 1 - y : y;
      for (std::size_t c = 0; c < 3; ++c)
        face.pixels[(static_cast<std::size_t>(y) * image.width + x) * 3 + c] =
            image.pixels[(static_cast<std::size_t>(fromY) * image.width + fromX) * channels + c];
    }
  return face;
}

/// A camera of the project while it lives.
class PassingCamera {
 public:
  explicit PassingCamera(juProject& project) : node_(*project.CreateChild("camera")) {}
  ~PassingCamera() { DestroyNode(&node_); }
  PassingCamera(const PassingCamera&) = delete;
  PassingCamera& operator=(const PassingCamera&) = delete;
  trBase& Node() { return node_; }

 private:
  trBase& node_;
};

}  // namespace

RenderOutcome RenderSky(juProject& project, const trVector& position, RenderJobSettings settings, int side,
                        RenderControl& control, SkyView& sky) {
  constexpr double kDegrees = 180 / std::numbers::pi;
  RegisterHostClasses();
  PassingCamera camera(project);
  camera.Node().SetParam("position", position, trWhoSystem);
  camera.Node().SetParam("field_of_view", 2 * std::atan(0.5 / kSkyPaintHalfSide) * kDegrees, trWhoSystem);
  settings.camera = camera.Node().NameAndPath();
  settings.width = settings.height = side;
  settings.crop.reset();
  settings.layers.clear();
  RenderJob job(project, settings, control);
  for (int f = 0; f < kSkyPaintFaces; ++f) {
    job.SetParam(camera.Node(), "rotation", kViews[f].rotation, trWhoSystem);
    RenderOutcome outcome = job.Prepare();
    while (outcome == RenderOutcome::kDone && !job.IsDone()) {
      control.pause = control.writeNow = false;
      outcome = job.RunPass();
    }
    if (outcome != RenderOutcome::kDone) return outcome;
    sky.faces[f] = FaceOf(job.Image(), kViews[f]);
  }
  sky.transform = job.Transform();
  return RenderOutcome::kDone;
}

}  // namespace ovhost
