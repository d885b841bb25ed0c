// Turning the displacement of a shader into rows of heights.
#include "heightfield/shader_sampling.h"

#include "core/shading_state.h"
#include "heightfield/operator.h"

namespace {

/// Keeps the points and normals of a state.
class PointGuard {
 public:
  explicit PointGuard(trShadingInterface& si)
      : si_(si), points_{si.P(), si.Pg(), si.Pt(), si.Ptg()}, normals_{si.N(), si.Ng(), si.Nt(), si.Ni()} {}
  ~PointGuard() {
    Set(points_[0], points_[1], points_[2], points_[3]);
    si_.N() = normals_[0];
    si_.Ng() = normals_[1];
    si_.Nt() = normals_[2];
    si_.Ni() = normals_[3];
  }
  PointGuard(const PointGuard&) = delete;
  PointGuard& operator=(const PointGuard&) = delete;

 private:
  void Set(const trVector& p, const trVector& pg, const trVector& pt, const trVector& ptg) {
    si_.P() = p;
    si_.Pg() = pg;
    si_.Pt() = pt;
    si_.Ptg() = ptg;
  }

  trShadingInterface& si_;
  const trVector points_[4], normals_[4];
};

/// `count` coordinates from `first` on, by repeated addition.
std::vector<double> Coordinates(double first, double step, long count) {
  std::vector<double> coordinates;
  coordinates.reserve(static_cast<std::size_t>(count));
  for (long i = 0; i < count; ++i, first += step) coordinates.push_back(first);
  return coordinates;
}

}  // namespace

double DisplacementAlong(trShader& shader, trShadingInterface& si, const trVector& point,
                         const trVector& normal) {
  const PointGuard guard(si);
  si.P() = si.Pg() = si.Pt() = si.Ptg() = point;
  si.N() = si.Ng() = si.Nt() = si.Ni() = normal;
  shader.DisplaceTS(si);
  return Dot(si.P() - point, normal);
}

void FieldPosition::Declare(trBase* node) {
  node->Param(center, "position_center", 0).About("The position is that of the field's middle.");
  node->Param(lowerLeft, "position_lower_left", 1)
      .About("The position is that of the field's south-western corner.");
  node->Param(position, "position", tr2Vector(0, 0))
      .About("Where in the world the shader is looked up: x and z, metres.");
}

tr2Vector FieldPosition::Origin(const trHeightfield& field) const {
  if (center)
    return {position.x - static_cast<double>(field.HfXSize()) * field.HfXScale() * 0.5,
            position.y - static_cast<double>(field.HfYSize()) * field.HfYScale() * 0.5};
  return lowerLeft ? position : tr2Vector(0, 0);
}

trShader* NamedShader(const trBase& node, const trShaderLink& link) {
  trBase* const named = node.NodeByPath(link.FileStringR());
  return named && named->IsTrue("is_shader") ? dynamic_cast<trShader*>(named) : nullptr;
}

ShaderSampling::ShaderSampling(trHeightfield& field, double xScale, double yScale, double zScale,
                               const tr2Vector& origin)
    : field_(field),
      zScale_(zScale),
      worldX_(Coordinates(origin.x, xScale, field.HfXPnts())),
      worldZ_(Coordinates(origin.y, yScale, field.HfYPnts())) {}

void ShaderSampling::SampleRow(trShader& shader, trShadingInterface& si, long row) {
  float* const heights = field_.HfScanlineRaw(static_cast<int>(row));
  for (std::size_t x = 0; x < worldX_.size(); ++x) {
    const double height = DisplacementAlong(shader, si, {worldX_[x], 0, worldZ_[row]}, {0, 1, 0});
    heights[x] = static_cast<float>(GuardedDivide(height, zScale_));
  }
}

bool ShaderSampling::InOrder(trShader& shader, const trString& text) {
  trSamplingState state(field_);
  const long rows = field_.HfYPnts();
  unsigned long token = 0;
  for (long row = 0; row < rows; ++row) {
    const float share = static_cast<float>(row) / static_cast<float>(rows);
    if (!field_.ReportProgress(token, text, share, -1.0f)) return false;
    SampleRow(shader, state.ShadingInterface(), row);
  }
  return true;
}

bool ShaderSampling::InAnyOrder(trShader& shader, const trString& text) {
  // A state for every row: states are cheap, and no two threads ever share one.
  return ForEachRow(field_, text, field_.HfYPnts(), [&](long row) {
    trShadingState state;
    SampleRow(shader, state.ShadingInterface(), row);
  });
}
