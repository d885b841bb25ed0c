// New landscapes: fresh seeds, water in the valleys, a camera on the ground, and the sun from the side.
#include "host/session/landscape.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <filesystem>

#include "core/heightfield.h"
#include "core/random.h"
#include "host/base/nearest_word.h"
#include "host/node/node_data.h"
#include "host/project/project_file.h"
#include "host/raster/height_grid.h"
#include "host/raster/heightfield_run.h"
#include "host/session/evaluator.h"
#include "host/session/viewpoint.h"

namespace ovhost {
namespace {

constexpr double kDegree = 0.017453292519943278;
constexpr int kSurveySide = 161;
/// Half a side of the surveyed square, metres: as far as the skyline is looked for, and half as much to
/// choose from.
constexpr double kReach = 20000;
/// How much of the land lies under water.
constexpr double kWaterShare = 0.22;
/// Height of the eye over the ground, metres: on a knoll rather than in the grass.
constexpr double kEye = 4;

/// Altitudes of a planet's surface.
class Surface {
 public:
  Surface(Session& session, trBase& planet) : session_(session) {
    planet.GetParam("centre", centre_);
    planet.GetParam("radius", radius_);
    trString shader;
    planet.GetParam("surface_shader", shader);
    shader_ = dynamic_cast<trShader*>(planet.NodeByPath(shader));
    if (!shader_) throw SessionError(SessionError::kInvalidProject, "the planet has no surface");
  }

  double Radius() const { return radius_; }

  /// The point of the undisplaced planet over which x and z lie, moved up by `height`.
  trVector PointAt(double x, double z, double height = 0) const {
    const double ground = std::sqrt(std::max(radius_ * radius_ - x * x - z * z, 0.0));
    const trVector up(x / radius_, ground / radius_, z / radius_);
    return centre_ + up * (radius_ + height);
  }

  /// Metres over the planet's radius, filtered to `smoothSize`.
  std::vector<double> Altitudes(const std::vector<tr2Vector>& places, double smoothSize) const {
    std::vector<EvalPoint> points;
    for (const tr2Vector& place : places) {
      const trVector at = PointAt(place.x, place.y);
      points.push_back({at, Normalised(at - centre_)});
    }
    Evaluator evaluator(session_.Project(), *shader_, smoothSize);
    std::vector<double> altitudes;
    for (const EvalResult& result : evaluator.Evaluate(points))
      altitudes.push_back((result.displaced - centre_).Length() - radius_);
    return altitudes;
  }

 private:
  Session& session_;
  trVector centre_;
  double radius_ = 0;
  trShader* shader_ = nullptr;
};

HeightSurvey Survey(const Surface& surface, double reach) {
  HeightSurvey survey;
  survey.side = kSurveySide;
  survey.step = 2 * reach / (kSurveySide - 1);
  std::vector<tr2Vector> places;
  for (int j = 0; j < survey.side; ++j)
    for (int i = 0; i < survey.side; ++i)
      places.emplace_back(i * survey.step - reach, j * survey.step - reach);
  survey.heights = surface.Altitudes(places, survey.step);
  return survey;
}

/// The highest ground under the feet and a few steps around.
double GroundAt(const Surface& surface, double x, double z) {
  std::vector<tr2Vector> places;
  for (int j = -2; j <= 2; ++j)
    for (int i = -2; i <= 2; ++i) places.emplace_back(x + i, z + j);
  const std::vector<double> heights = surface.Altitudes(places, 0.2);
  return *std::max_element(heights.begin(), heights.end());
}

void DrawSeeds(juProject& project) {
  for (trBase* node : AllNodes(&project))
    for (size_t i = 0; i < node->Data().params.size(); ++i)
      if (node->Data().params[i].isSeed)
        node->SetParam(static_cast<long>(i), trParamValue(trNewSeed()), trWhoSystem);
}

/// The height that a share of the land lies below.
double HeightOfShare(const HeightSurvey& survey, double share) {
  std::vector<double> heights = survey.heights;
  const auto place =
      heights.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(heights.size() - 1));
  std::nth_element(heights.begin(), place, heights.end());
  return *place;
}

/// Fills valleys up to a height that suits the land, with gravel along the shore.
void PourWater(const Session& session, HeightSurvey& survey, const Surface& surface) {
  survey.water = HeightOfShare(survey, kWaterShare);
  session.Find("Water").SetParam("radius", surface.Radius() + *survey.water, trWhoSystem);
  session.Find("Gravel").SetParam("maximum_altitude", *survey.water + 2.5, trWhoSystem);
}

/// Grass on the lower half of land of unknown height, snow on its highest tenth.
void PlaceBelts(const Session& session, const HeightSurvey& survey) {
  session.Find("Grass").SetParam("maximum_altitude", HeightOfShare(survey, 0.5), trWhoSystem);
  session.Find("Snow").SetParam("minimum_altitude", HeightOfShare(survey, 0.9), trWhoSystem);
}

/// Loads the file that the land is made of; half of its shorter side, metres.
double LoadElevation(trBase& node, const std::string& path) {
  node.SetParam("filename", trString(std::filesystem::absolute(path).string()), trWhoSystem);
  trHeightfield* const heightfield = HeightfieldOf(node);
  const ErrorWatch errors;
  std::atomic<bool> stop{false};
  if (!heightfield || RunHeightfield(*heightfield, stop).outcome != HeightfieldRun::Outcome::kDone)
    throw SessionError(SessionError::kInvalidProject, errors.HasErrors() ? "" : path + ": can't be read");
  const HeightGrid grid = GridOf(*heightfield);
  return 0.5 * std::min(static_cast<double>(grid.width - 1) * grid.xScale,
                        static_cast<double>(grid.height - 1) * grid.yScale);
}

/// The highest that stands close before the eye, degrees: stones and crags that the survey is too coarse for.
double HighestNear(const Surface& surface, const Viewpoint& view, double ground) {
  constexpr double kNearest = 4, kFarthest = 300;
  std::vector<tr2Vector> places;
  std::vector<double> distances;
  for (int turn = -24; turn <= 24; turn += 4)
    for (double d = kNearest; d < kFarthest; d *= 1.3) {
      const double heading = (view.heading + turn) * kDegree;
      places.emplace_back(view.x + std::sin(heading) * d, view.z + std::cos(heading) * d);
      distances.push_back(d);
    }
  const std::vector<double> heights = surface.Altitudes(places, 0.5);
  double highest = -90;
  for (size_t i = 0; i < places.size(); ++i)
    highest = std::max(highest, std::atan2(heights[i] - ground - kEye, distances[i]) / kDegree);
  return highest;
}

/// Of the best views the first with nothing in its way, or with the least.
Viewpoint ChooseView(const Surface& surface, const HeightSurvey& survey, double& ground) {
  constexpr double kOutOfTheWay = -0.5;
  Viewpoint chosen;
  double least = 1e9;
  for (const Viewpoint& view : FindViewpoints(survey, surface.Radius(), 24)) {
    const double height = std::max(GroundAt(surface, view.x, view.z), survey.water.value_or(-1e9));
    const double highest = HighestNear(surface, view, height);
    if (highest >= least) continue;
    least = highest;
    chosen = view;
    ground = height;
    if (least < kOutOfTheWay) break;
  }
  return chosen;
}

/// From the side, so that forms have a lit flank and a dark one; from the side that lights more of what is
/// seen.
void TurnSun(const Session& session, const Surface& surface, const HeightSurvey& survey,
             const Viewpoint& view) {
  constexpr double kFromTheView = 70;
  trBase& sun = session.Find("Sun");
  double elevation = 0;
  sun.GetParam("elevation", elevation);
  const auto lit = [&](double side) {
    return LitShare(survey, surface.Radius(), view, view.heading + side, elevation);
  };
  const double side = lit(kFromTheView) >= lit(-kFromTheView) ? kFromTheView : -kFromTheView;
  sun.SetParam("heading", std::round(std::fmod(view.heading + side + 360, 360)), trWhoSystem);
}

void PlaceCamera(const Session& session, const Surface& surface, const HeightSurvey& survey) {
  double ground = 0;
  const Viewpoint view = ChooseView(surface, survey, ground);
  TurnSun(session, surface, survey, view);
  const trVector eye = surface.PointAt(view.x, view.z, ground + kEye);
  // The skyline a little over the middle.
  const double pitch = 0.4 * view.horizon * kDegree, heading = view.heading * kDegree;
  constexpr double kTarget = 5000;
  const trVector target =
      eye + trVector(std::sin(heading) * kTarget, std::tan(pitch) * kTarget, std::cos(heading) * kTarget);
  const auto rounded = [](const trVector& v, double perMetre) {
    return trVector(std::round(v.x * perMetre), std::round(v.y * perMetre), std::round(v.z * perMetre)) *
           (1 / perMetre);
  };
  trBase& camera = session.Find("Camera");
  camera.SetParam("position", rounded(eye, 10), trWhoSystem);
  camera.SetParam("use_target", 1L, trWhoSystem);
  camera.SetParam("target", rounded(target, 1), trWhoSystem);
}

}  // namespace

std::unique_ptr<Session> NewLandscape(const std::string& kind, const std::string& elevation) {
  const LandscapeKind* wanted = nullptr;
  std::vector<std::string> names;
  for (const LandscapeKind& each : LandscapeKinds()) {
    names.push_back(each.name);
    if (each.name == kind) wanted = &each;
  }
  if (!wanted)
    throw SessionError(
        SessionError::kBadRequest,
        "there is no landscape \"" + kind + "\"" + DidYouMean(kind, names) + "; `ov new --list` lists them");
  if (wanted->isFromFile && elevation.empty())
    throw SessionError(SessionError::kBadRequest,
                       "a landscape of the kind " + kind + " takes an elevation file");

  LoadModules();
  auto project = wanted->project.empty() ? NewDefaultProject() : ProjectFromText(wanted->project, "new.ovd");
  if (!project) throw SessionError(SessionError::kFailed, "");
  auto session = std::make_unique<Session>(std::move(project));
  DrawSeeds(session->Project());
  if (!wanted->isOnGround) return session;
  double reach = kReach;
  if (wanted->isFromFile) reach = std::min(reach, LoadElevation(session->Find("Elevation"), elevation));
  const Surface surface(*session, session->Find("Planet"));
  HeightSurvey survey = Survey(surface, reach);
  if (session->Project().NodeByPath("Water")) PourWater(*session, survey, surface);
  if (wanted->isFromFile) PlaceBelts(*session, survey);
  PlaceCamera(*session, surface, survey);
  return session;
}

}  // namespace ovhost
