// shader_array.
#include "surface/shader_array.h"

#include <algorithm>
#include <cmath>

ShaderArray::ShaderArray() {
  SetRange(metresHint_, this, {.min = 0.0, .max = 1e6, .focusPower = 4.0});
  SetRange(rotationHint_, this, {.min = -180.0, .max = 180.0});
  SetRange(jitterHint_, this, {.min = 0.0, .max = 180.0});
  SetRange(shareHint_, this, {.min = 0.0, .max = 1.0});
  SetRange(scaleHint_, this, {.min = 0.0, .max = 10.0});
  countHint_.SetParam("min_value", 1.0, this, true);
  countHint_.SetParam("max_value", 1000.0, this, true);
  SetMenu(overlapHint_, this, {{"Add", kAdd}, {"Highest", kHighest}});

  Param(shader_, "shader", "").About("What is repeated. It sees the middle of its own cell as the origin.");
  Gui(trGuiRule);
  GuiTab("Grid", "grid_tab");
  Gui(trGuiBlockOpen);
  Param(centre_, "centre", trVector()).About("Where the middle of the grid's cell 0, 0 lies, metres.");
  Param(spacing_, "spacing", tr2Vector(1000, 1000))
      .About("Size of a cell along x and z, metres: how far copies stand apart.");
  Param(rotation_, "rotation", 0.0, &rotationHint_)
      .About("Degrees by which the whole grid is turned, from north towards east.");
  Gui(trGuiBlockClose);
  Param(limitNumber_, "limit_number", 0)
      .About("Ends the grid after so many columns and rows; otherwise it goes on for ever.");
  Gui(trGuiIndentOpen);
  Param(columns_, "columns", 10, &countHint_)
      .About("Cells from west to east, half of them on either side of the centre.");
  Param(rows_, "rows", 10, &countHint_)
      .About("Cells from south to north, half of them on either side of the centre.");
  Gui(trGuiIndentClose);
  AddGuiAction({"limit_number"}, {"columns", "rows"}, 2);
  Gui(trGuiRule);
  GuiTab("Copies", "copies_tab");
  Seed(seed_).About("Chooses how copies are moved, turned and scaled. Any number will do.");
  PushButton(randomiseButton_, "randomise_button");
  Gui(trGuiBlockOpen);
  Param(reach_, "reach", 500.0, &metresHint_)
      .About("Distance from its middle, metres, up to which a copy has an effect. Small ones are faster.");
  Param(positionJitter_, "position_jitter", 0.0, &shareHint_)
      .About("How far copies stand off their cells' middles, as a share of half a cell.");
  Param(rotationJitter_, "rotation_jitter", 0.0, &jitterHint_)
      .About("Degrees by which copies are turned at most, either way.");
  Param(scale_, "scale", 1.0, &scaleHint_).About("Size of the copies against the shader's own.");
  Param(scaleJitter_, "scale_jitter", 0.0, &shareHint_)
      .About("How much larger or smaller single copies are, as a share of the scale.");
  Gui(trGuiBlockClose);
  Param(scaleDisplacement_, "scale_displacement", 1)
      .About("Whether copies are as much higher as they are larger.");
  Param(overlap_, "overlap", kAdd, &overlapHint_)
      .About(
          "Where copies meet, whether their displacements add up or the largest one counts. Colours lie one "
          "over another.");
  UpdateDerived();
}

void ShaderArray::UpdateDerived() {
  trShader::UpdateDerived();
  stepX_ = std::max(std::fabs(spacing_.x), 1e-6);
  stepZ_ = std::max(std::fabs(spacing_.y), 1e-6);
  gridSine_ = std::sin(rotation_ * kDegreesToRadians);
  gridCosine_ = std::cos(rotation_ * kDegreesToRadians);
  const double largest = std::fabs(scale_) * (1 + std::clamp(scaleJitter_, 0.0, 1.0));
  const auto neighbours = [&](double step) {
    const double cells = std::max(reach_, 0.0) * largest / step + 0.5 * std::clamp(positionJitter_, 0.0, 1.0);
    return static_cast<int>(std::clamp(std::ceil(cells - 0.5), 0.0, double{kMostNeighbours}));
  };
  neighboursX_ = neighbours(stepX_);
  neighboursZ_ = neighbours(stepZ_);
}

unsigned char ShaderArray::HasDisplacement() {
  trShader* const shader = LinkedShader(shader_);
  return shader && shader->HasDisplacementTS();
}

unsigned char ShaderArray::HasShade() {
  trShader* const shader = LinkedShader(shader_);
  return shader && shader->HasShadeTS();
}

bool ShaderArray::Exists(long column, long row) const {
  if (!limitNumber_) return true;
  const long columns = std::max(columns_, 0L), rows = std::max(rows_, 0L);
  return column >= -(columns / 2) && column < columns - columns / 2 && row >= -(rows / 2) &&
         row < rows - rows / 2;
}

ShaderArray::Copy ShaderArray::CopyAt(long column, long row) const {
  trRandomStream draws;
  draws.key = static_cast<std::uint64_t>(seed_) * 0x9e3779b97f4a7c15ull +
              static_cast<std::uint64_t>(column) * 0xbf58476d1ce4e5b9ull +
              static_cast<std::uint64_t>(row) * 0x94d049bb133111ebull;
  const auto either = [&draws] { return 2 * draws.Next() - 1; };
  const double moved = 0.5 * std::clamp(positionJitter_, 0.0, 1.0);
  Copy copy;
  copy.x = (static_cast<double>(column) + either() * moved) * stepX_;
  copy.z = (static_cast<double>(row) + either() * moved) * stepZ_;
  const double turn = either() * rotationJitter_ * kDegreesToRadians;
  copy.sine = std::sin(turn);
  copy.cosine = std::cos(turn);
  copy.scale = GuardedDenominator(scale_ * (1 + either() * std::clamp(scaleJitter_, 0.0, 1.0)));
  return copy;
}

template <typename Visit>
void ShaderArray::ForCopies(const trVector& pt, Visit visit) const {
  const trVector d = pt - centre_;
  const double x = d.x * gridCosine_ - d.z * gridSine_, z = d.x * gridSine_ + d.z * gridCosine_;
  const double u = std::floor(x / stepX_ + 0.5), w = std::floor(z / stepZ_ + 0.5);
  // Past this, cells have no numbers.
  if (!(std::fabs(u) < 1e15 && std::fabs(w) < 1e15)) return;
  const long column = static_cast<long>(u), row = static_cast<long>(w);
  for (long j = row - neighboursZ_; j <= row + neighboursZ_; ++j)
    for (long i = column - neighboursX_; i <= column + neighboursX_; ++i) {
      if (!Exists(i, j)) continue;
      const Copy copy = CopyAt(i, j);
      const double dx = x - copy.x, dz = z - copy.z, reach = reach_ * copy.scale;
      if (dx * dx + dz * dz < reach * reach) visit(copy);
    }
}

trVector ShaderArray::Inside(const Copy& copy, const trVector& point) const {
  const trVector d = point - centre_;
  const double x = d.x * gridCosine_ - d.z * gridSine_ - copy.x,
               z = d.x * gridSine_ + d.z * gridCosine_ - copy.z;
  return trVector(x * copy.cosine - z * copy.sine, d.y, x * copy.sine + z * copy.cosine) * (1 / copy.scale);
}

class ShaderArray::Moved {
 public:
  Moved(const ShaderArray& array, const Copy& copy, trShadingInterface& si)
      : si_(si), p_(si.P()), pg_(si.Pg()), pt_(si.Pt()), ptg_(si.Ptg()), smoothSize_(si.SmoothSize()) {
    for (trVector* point : {&si.P(), &si.Pg(), &si.Pt(), &si.Ptg()}) *point = array.Inside(copy, *point);
    si.SmoothSize() /= std::fabs(copy.scale);
  }
  ~Moved() {
    si_.P() = p_;
    si_.Pg() = pg_;
    si_.Pt() = pt_;
    si_.Ptg() = ptg_;
    si_.SmoothSize() = smoothSize_;
  }
  Moved(const Moved&) = delete;
  Moved& operator=(const Moved&) = delete;

 private:
  trShadingInterface& si_;
  const trVector p_, pg_, pt_, ptg_;
  const double smoothSize_;
};

long ShaderArray::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  trShader* const shader = LinkedShader(shader_);
  if (!IsEnabled() || !shader) return 1;
  trVector total;
  ForCopies(si.Pt(), [&](const Copy& copy) {
    trVector offset;
    {
      const Moved moved(*this, copy, si);
      const trVector before = si.P();
      shader->DisplaceTS(si);
      offset = si.P() - before;
    }
    if (scaleDisplacement_) offset *= copy.scale;
    if (overlap_ == kAdd)
      total += offset;
    else if (offset.LengthSquared() > total.LengthSquared())
      total = offset;
  });
  si.P() += total;
  return 1;
}

long ShaderArray::Shade(trShadingInterface& si) {
  ShadeInput(si);
  trShader* const shader = LinkedShader(shader_);
  if (!IsEnabled() || !shader) return 1;
  ForCopies(si.Pt(), [&](const Copy& copy) {
    const Moved moved(*this, copy, si);
    shader->ShadeTS(si);
  });
  return 1;
}
