// grass_clump.
#include "objects/grass_clump.h"

#include <cmath>

#include "core/idioms.h"
#include "objects/mesh_budget.h"

namespace {

constexpr double kPi = 3.14159265358979;
constexpr long kBladesBetweenReports = 100000;

trVector InSinglePrecision(const trVector& p) { return trFVector(p); }

}  // namespace

GrassClump::GrassClump() {
  SetRange(diameterHint_, this, {.min = 0.0, .max = 10.0});
  GuiTab("Grass Clump", "grass_clump_tab");
  Param(numberOfBlades_, "number_of_blades", 10000)
      .About("Blades of grass, a triangle each, 216 bytes. Fewer in more clumps vary more when populated.");
  Param(clumpDiameter_, "clump_diameter", 10.0, &diameterHint_)
      .About("Diameter of the clump in metres; blades stand denser in its middle.");
  Param(bladeLength_, "blade_length", 0.1)
      .About(
          "Length in metres of the longest blade; the others are anything down to 0. Width follows the "
          "length.");
  DeclareObjectGeneratorTabbedParams();
  SetParamGuiEnabled("smooth_polygons_at_terminator", false);
  SetParamShouldBeSaved("smooth_polygons_at_terminator", false);
}

long GrassClump::GenerateMesh(trScene& scene, long materialIndex) {
  scene.SetAllowsTriSubdivision(false);
  constexpr std::uint64_t kBytesPerBlade =
      sizeof(trTri) + 3 * sizeof(trPoint) + 3 * sizeof(trTexVert) + sizeof(trNormal);
  if (!FitsMeshBudget(*this, static_cast<double>(numberOfBlades_), "blades", kBytesPerBlade, 1)) return 0;
  unsigned long progress = 0;
  for (long i = 0; i < numberOfBlades_; ++i) {
    if (!AddBlade(scene, materialIndex)) return 0;
    if ((i + 1) % kBladesBetweenReports == 0 &&
        !ReportProgress(progress, Name() + ": Growing blades",
                        static_cast<float>(static_cast<double>(i + 1) / static_cast<double>(numberOfBlades_)),
                        -1.0f))
      break;
  }
  if (progress) ReportProgress(progress, trString(), 1.0f, -1.0f);
  return 1;
}

trBoundingBox GrassClump::BoundingBoxL() {
  // A blade's tip leans out by up to half its length.
  const double reach = std::fabs(clumpDiameter_) * 0.5 + std::fabs(bladeLength_) * 0.5;
  return {{-reach, 0, -reach}, {reach, bladeLength_, reach}};
}

bool GrassClump::AddBlade(trScene& scene, long materialIndex) const {
  const auto draw = [] { return trGlobalRand.Unit(); };
  // A radius first and then a point within it: the clump is denser in the middle.
  const double radius = draw() * 0.45 + 0.05;
  double x, z;
  do {
    x = draw() - 0.5;
    z = draw() - 0.5;
  } while (x * x + z * z > radius * radius);
  const trVector foot(clumpDiameter_ * x, 0, clumpDiameter_ * z);
  const double length = draw() * bladeLength_, width = length * 0.05;
  const double turn = 2 * (draw() * kPi), lean = 2 * (draw() * kPi);
  const double bend = draw() * length * 0.5;
  const trVector side(std::cos(turn) * width, 0, -std::sin(turn) * width);
  const trVector tip(foot.x + bend * std::cos(lean), length, foot.z - bend * std::sin(lean));
  const trVector a = foot + side, b = foot - side;

  trTri tri;
  const trVector corners[3] = {tip, a, b};
  const trVector maps[3] = {{0.5, 1, 0}, {1, 0, 0}, {0, 0, 0}};
  const long normal = scene.AddNormal({Normalised(Cross(b - tip, a - tip))});
  for (int i = 0; i < 3; ++i) {
    tri.point[i] = static_cast<std::int32_t>(scene.AddPoint({InSinglePrecision(corners[i])}));
    tri.texVert[i] = static_cast<std::int32_t>(scene.AddTexVert({maps[i]}));
    tri.normal[i] = static_cast<std::int32_t>(normal);
  }
  tri.material = static_cast<std::int32_t>(materialIndex);
  return scene.AddTri(tri) != 0;
}
