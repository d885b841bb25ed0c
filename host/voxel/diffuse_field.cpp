#include "host/voxel/diffuse_field.h"

#include <algorithm>
#include <cmath>

namespace ovhost::voxel {

namespace {

constexpr double kMostNodes = 300000;
constexpr double kDeepest = 20;  ///< optical depth past which a light counts for nothing
/// Optical depth past which nobody asks how deep it is. Between nodes depths are interpolated, and light
/// comes to its end far before the next node of a thick cloud.
constexpr double kUntold = 400;
constexpr int kMostRounds = 300;
constexpr double kResidual = 1e-4;

}  // namespace

/// The medium on the nodes, and the equation's coefficients between and at them.
struct DiffuseField::System {
  std::vector<float> extinction;
  double turned = 1;  ///< share of extinction that counts for diffusion: 1 less albedo times mean cosine
  double ahead = 0;   ///< albedo times mean cosine
  std::vector<float> conductance[3];  ///< from a node to the next one along an axis
  std::vector<float> leak;            ///< to the outside
  std::vector<float> volume;
  /// The main light's transmittance at the nodes; and what a node's box takes of it, with the particular
  /// solution put aside.
  std::vector<float> sunlight, taken;
};

bool DiffuseField::Solve(const trVoxelProjector& projector, const int cells[3],
                         const DiffuseSources& sources) {
  // Twice the cells' edges, and wider where that makes too many nodes; thin layers keep some nodes in height.
  int coarse[3];
  double growth = 2;
  for (int attempt = 0; attempt < 60; ++attempt, growth *= 1.15) {
    double total = 1;
    for (int axis = 0; axis < 3; ++axis) {
      const int least = std::min(cells[axis], 6);
      coarse[axis] = std::max(least, static_cast<int>(std::ceil(cells[axis] / growth)));
      total *= coarse[axis] + 1.0;
    }
    if (total <= kMostNodes) break;
  }
  trVector middle;
  projector.MapLocalToWorld({0.5, 0.5, 0.5}, middle);
  const trVector size = projector.EstimatedScaling_WrongIfRotated(middle);
  for (int axis = 0; axis < 3; ++axis) {
    nodes_[axis] = coarse[axis] + 1;
    edge_[axis] = size[axis] / coarse[axis];
    trVector edge;
    edge[axis] = 1;
    axes_[axis] = Normalised(projector.GetTransformLocalToWorld().Direction(edge));
  }
  for (int c = 0; c < 3; ++c) albedo_[c] = static_cast<float>(sources.albedo[c]);
  System system;
  system.ahead = (sources.albedo[0] + sources.albedo[1] + sources.albedo[2]) / 3 * sources.meanCosine;
  system.turned = std::max(1 - system.ahead, 0.01);
  SampleMedium(projector, sources, system);
  const size_t count = system.extinction.size();
  std::array<std::vector<float>, 3> light, inflow;
  for (int c = 0; c < 3; ++c) {
    light[c].assign(count, 0);
    inflow[c].assign(count, 0);
  }
  const trVector grid(nodes_[0] - 1, nodes_[1] - 1, nodes_[2] - 1);
  trVector lightAhead, here;
  projector.MapWorldToLocal(
      middle + sources.toLight * (1e-3 * std::min(edge_[0], std::min(edge_[1], edge_[2]))), lightAhead);
  projector.MapWorldToLocal(middle, here);
  if (!SampleSunlight(sources, (lightAhead - here) * grid, system)) return false;
  for (int z = 0; z < nodes_[2]; ++z) {
    if (!sources.goesOn()) return false;
    for (int y = 0; y < nodes_[1]; ++y)
      for (int x = 0; x < nodes_[0]; ++x) {
        const size_t at = At(x, y, z);
        trVector world;
        projector.MapLocalToWorld(trVector(x / grid.x, y / grid.y, z / grid.z), world);
        const trFCol sun = sources.light(world);
        const double share = sources.share(cosine_[at]);
        for (int c = 0; c < 3; ++c)
          light[c][at] = static_cast<float>(system.taken[at] * share * 0.25 * sources.albedo[c]) * sun[c];
        lightOutside_[at] = sun * 0.25f;
        if (system.leak[at] > 0) {
          const std::array<trFCol, 6> sides = sources.background(world);
          // What a node faces: of a face of the cube that side, of the inside more of what is nearer.
          const int position[3] = {x, y, z};
          trFCol sum;
          float weights = 0;
          for (int side = 0; side < 6; ++side) {
            const int axis = side / 2;
            const double way = side % 2 ? nodes_[axis] - 1 - position[axis] : position[axis];
            const float weight = static_cast<float>(1.0 / (edge_[axis] * (way * way + 0.05)));
            sum += sides[side] * weight;
            weights += weight;
          }
          for (int c = 0; c < 3; ++c) inflow[c][at] = system.leak[at] * sum[c] / weights;
        }
      }
  }
  const std::vector<float> none(count, 0);
  for (int c = 0; c < 3; ++c)
    if (!SolveChannel(sources, system, c, light[c], none, direct_[c]) ||
        !SolveChannel(sources, system, c, none, inflow[c], enviro_[c]))
      return false;
  return true;
}

void DiffuseField::SampleMedium(const trVoxelProjector& projector, const DiffuseSources& sources,
                                System& system) {
  const size_t count = size_t(nodes_[0]) * nodes_[1] * nodes_[2];
  system.extinction.resize(count);
  system.leak.resize(count);
  system.volume.resize(count);
  const double shortest = std::min(edge_[0], std::min(edge_[1], edge_[2]));
  for (int z = 0; z < nodes_[2]; ++z)
    for (int y = 0; y < nodes_[1]; ++y)
      for (int x = 0; x < nodes_[0]; ++x) {
        trVector world;
        // Nodes on the cube's faces belong to the medium, whatever rounding makes of them.
        trVector local(double(x) / (nodes_[0] - 1), double(y) / (nodes_[1] - 1), double(z) / (nodes_[2] - 1));
        for (int axis = 0; axis < 3; ++axis) local[axis] = std::clamp(local[axis], 1e-6, 1 - 1e-6);
        projector.MapLocalToWorld(local, world);
        const double value = sources.extinction(world);
        system.extinction[At(x, y, z)] = static_cast<float>(std::isfinite(value) && value > 0 ? value : 0);
      }
  // Clear air is given a short way to diffuse and a leak in such a measure that a surface beside it loses
  // half of its mean radiance a unit area, as one beside nothing does (Marshak's condition). Air is clear
  // where a free path is several times as long as the volume is thick.
  double thinnest = 1e300;
  for (int axis = 0; axis < 3; ++axis) thinnest = std::min(thinnest, edge_[axis] * (nodes_[axis] - 1));
  const auto clearness = [&](double extinction) {
    return std::max(0.0, 1.0 - extinction * system.turned * thinnest * 4.0);
  };
  const auto diffusivity = [&](double extinction) {
    const double clear = clearness(extinction);
    return clear * shortest + (1.0 - clear) / (3.0 * std::max(extinction * system.turned, 1e-30));
  };
  for (int axis = 0; axis < 3; ++axis) system.conductance[axis].assign(count, 0);
  for (int z = 0; z < nodes_[2]; ++z)
    for (int y = 0; y < nodes_[1]; ++y)
      for (int x = 0; x < nodes_[0]; ++x) {
        const int position[3] = {x, y, z};
        const size_t at = At(x, y, z);
        const size_t stride[3] = {1, size_t(nodes_[0]), size_t(nodes_[0]) * nodes_[1]};
        double width[3], leak = 0;
        for (int axis = 0; axis < 3; ++axis) {
          const bool isEnd = position[axis] == 0 || position[axis] == nodes_[axis] - 1;
          width[axis] = edge_[axis] * (isEnd ? 0.5 : 1.0);
        }
        for (int axis = 0; axis < 3; ++axis) {
          const double area = width[(axis + 1) % 3] * width[(axis + 2) % 3];
          if (position[axis] == 0 || position[axis] == nodes_[axis] - 1) leak += 0.5 * area;
          if (position[axis] == nodes_[axis] - 1) continue;
          const double mean = 0.5 * (double(system.extinction[at]) + system.extinction[at + stride[axis]]);
          system.conductance[axis][at] = static_cast<float>(area * diffusivity(mean) / edge_[axis]);
        }
        const double volume = width[0] * width[1] * width[2];
        leak += volume * clearness(system.extinction[at]) / (4.0 * shortest);
        system.leak[at] = static_cast<float>(leak);
        system.volume[at] = static_cast<float>(volume);
      }
}

double DiffuseField::Extinction(const System& system, const trVector& grid) const {
  int low[3];
  double f[3];
  for (int axis = 0; axis < 3; ++axis) {
    if (!(grid[axis] >= 0 && grid[axis] <= nodes_[axis] - 1)) return -1;
    low[axis] = std::min(static_cast<int>(grid[axis]), nodes_[axis] - 2);
    f[axis] = grid[axis] - low[axis];
  }
  double sum = 0;
  for (int i = 0; i < 8; ++i) {
    const int dx = i & 1, dy = i >> 1 & 1, dz = i >> 2;
    sum += (dx ? f[0] : 1 - f[0]) * (dy ? f[1] : 1 - f[1]) * (dz ? f[2] : 1 - f[2]) *
           system.extinction[At(low[0] + dx, low[1] + dy, low[2] + dz)];
  }
  return sum;
}

/// The medium's optical depth from a point towards the main light; `towards` is the light's direction in
/// nodes, of any length.
double DiffuseField::SunDepth(const System& system, const trVector& grid, const trVector& towards) const {
  const double fastest = std::max(std::fabs(towards.x), std::max(std::fabs(towards.y), std::fabs(towards.z)));
  if (!(fastest > 0)) return 0;
  const trVector step = towards * (0.5 / fastest);
  const double length = trVector(step.x * edge_[0], step.y * edge_[1], step.z * edge_[2]).Length();
  double depth = 0, before = Extinction(system, grid);
  trVector at = grid;
  for (;;) {
    const trVector next = at + step;
    const double extinction = Extinction(system, next);
    if (extinction < 0) break;
    depth += 0.5 * (before + extinction) * length;
    if (depth > kUntold) return depth;
    at = next;
    before = extinction;
  }
  // The rest of the way to where the cube ends.
  double share = 1;
  for (int axis = 0; axis < 3; ++axis) {
    if (step[axis] > 0) share = std::min(share, (nodes_[axis] - 1 - at[axis]) / step[axis]);
    if (step[axis] < 0) share = std::min(share, at[axis] / -step[axis]);
  }
  return depth + before * length * std::max(share, 0.0);
}

/// What the boxes round the nodes take of the main light: what comes in through their faces, less what goes
/// out, so that none is lost or gained however coarse the grid is.
///
/// Near a lit surface the field changes over a free path, which may be much less than a node's edge. There it
/// is the sum of a smooth field and the equation's particular solution, -shape * albedo * light *
/// transmittance: of an even medium, shape is 3 times the square of the cosine between the light and the
/// surface, which the gradient of optical depth tells (Eddington's approximation). The smooth field alone is
/// solved for, and the transmittance comes with a lookup.
bool DiffuseField::SampleSunlight(const DiffuseSources& sources, const trVector& towards, System& system) {
  const size_t count = system.extinction.size();
  const size_t stride[3] = {1, size_t(nodes_[0]), size_t(nodes_[0]) * nodes_[1]};
  const trVector direction = Normalised({towards.x * edge_[0], towards.y * edge_[1], towards.z * edge_[2]});
  const double shortest = std::min(edge_[0], std::min(edge_[1], edge_[2]));
  system.sunlight.assign(count, 0);
  system.taken.assign(count, 0);
  shape_.assign(count, 0);
  cosine_.assign(count, -1);
  sunDepth_.assign(count, 0);
  lightOutside_.assign(count, {});
  std::vector<trFVector> gradient(count);
  const auto forNodes = [&](const auto& body) {
    for (int z = 0; z < nodes_[2]; ++z) {
      if (!sources.goesOn()) return false;
      for (int y = 0; y < nodes_[1]; ++y)
        for (int x = 0; x < nodes_[0]; ++x) {
          const int position[3] = {x, y, z};
          body(position, At(x, y, z));
        }
    }
    return true;
  };
  // Transmittances, gradients of optical depth, and the particular solution's shape at lit nodes.
  if (!forNodes([&](const int position[3], size_t at) {
        const trVector here(position[0], position[1], position[2]);
        const double depth = SunDepth(system, here, towards), extinction = system.extinction[at];
        sunDepth_[at] = static_cast<float>(depth);
        system.sunlight[at] = depth < kDeepest ? static_cast<float>(std::exp(-depth)) : 0.0f;
        if (!(extinction > 0) || depth >= kDeepest) return;
        double squares = 0, slope[3];
        for (int axis = 0; axis < 3; ++axis) {
          const double sign = position[axis] > 0 ? -1 : 1;
          const double step = std::min(0.5, 0.25 / (extinction * edge_[axis]));
          trVector aside = here;
          aside[axis] += sign * step;
          slope[axis] = sign * (SunDepth(system, aside, towards) - depth) / (step * edge_[axis]);
          squares += slope[axis] * slope[axis];
        }
        gradient[at] = trFVector(trVector(slope[0], slope[1], slope[2]));
        cosine_[at] = static_cast<float>(std::min(1.0, extinction / std::sqrt(std::max(squares, 1e-300))));
      }))
    return false;
  // Nodes in the dark take the shape of those beside them: between them light comes to its end.
  for (int pass = 0; pass < 2; ++pass) {
    const std::vector<float> before = cosine_;
    forNodes([&](const int position[3], size_t at) {
      if (before[at] >= 0) return;
      float sum = 0;
      int found = 0;
      for (int axis = 0; axis < 3; ++axis) {
        const auto take = [&](size_t beside) {
          if (before[beside] < 0) return;
          sum += before[beside];
          ++found;
        };
        if (position[axis] > 0) take(at - stride[axis]);
        if (position[axis] < nodes_[axis] - 1) take(at + stride[axis]);
      }
      if (found > 0) cosine_[at] = sum / static_cast<float>(found);
    });
  }
  for (size_t at = 0; at < count; ++at) {
    if (!(cosine_[at] >= 0)) cosine_[at] = 1;
    const double thick = std::clamp((system.extinction[at] * shortest - 0.2) / 0.8, 0.0, 1.0);
    shape_[at] = static_cast<float>(thick * 3.0 * cosine_[at] * cosine_[at]);
  }
  // Faces between boxes, and those on the cube.
  return forNodes([&](const int position[3], size_t at) {
    double low[3], high[3];
    for (int axis = 0; axis < 3; ++axis) {
      low[axis] = std::max(position[axis] - 0.5, 0.0);
      high[axis] = std::min(position[axis] + 0.5, nodes_[axis] - 1.0);
    }
    system.taken[at] += static_cast<float>(system.leak[at] * shape_[at] * system.sunlight[at]);
    for (int axis = 0; axis < 3; ++axis) {
      const int second = (axis + 1) % 3, third = (axis + 2) % 3;
      const double area =
          (high[second] - low[second]) * edge_[second] * (high[third] - low[third]) * edge_[third];
      trVector face;
      face[second] = 0.5 * (low[second] + high[second]);
      face[third] = 0.5 * (low[third] + high[third]);
      if (position[axis] == 0) {
        face[axis] = 0;
        system.taken[at] -=
            static_cast<float>(area * direction[axis] * std::exp(-SunDepth(system, face, towards)));
      }
      face[axis] = high[axis];
      const double sunlight = std::exp(-SunDepth(system, face, towards));
      double beam = area * direction[axis] * sunlight;
      if (position[axis] == nodes_[axis] - 1) {
        system.taken[at] += static_cast<float>(beam);
        continue;
      }
      // Inside of the volume, what the beam scatters goes on its way at first.
      const double mean = 0.5 * (double(system.extinction[at]) + system.extinction[at + stride[axis]]);
      beam *= 1 + 3 * mean * system.ahead * system.conductance[axis][at] * edge_[axis] / area;
      system.taken[at] += static_cast<float>(beam);
      const size_t next = at + stride[axis];
      const float trFVector::*const component[3] = {&trFVector::x, &trFVector::y, &trFVector::z};
      const double slope = 0.5 * (double(gradient[at].*component[axis]) + gradient[next].*component[axis]);
      const double shape = 0.5 * (double(shape_[at]) + shape_[next]);
      const double flux =
          system.conductance[axis][at] * sunlight * (shape_[next] - shape_[at] - shape * slope * edge_[axis]);
      system.taken[at] -= static_cast<float>(flux);
      system.taken[next] += static_cast<float>(flux - beam);
    }
  });
}

/// Conjugate gradients, preconditioned by the diagonal; one thread, so that sums have one order.
bool DiffuseField::SolveChannel(const DiffuseSources& sources, const System& system, int channel,
                                const std::vector<float>& source, const std::vector<float>& inflow,
                                std::vector<float>& field) const {
  const size_t count = source.size();
  const size_t stride[3] = {1, size_t(nodes_[0]), size_t(nodes_[0]) * nodes_[1]};
  field.assign(count, 0);
  std::vector<float> inverse(count), residual(count), search(count), product(count), diagonal(count);
  double target = 0;
  for (size_t i = 0; i < count; ++i)
    diagonal[i] = static_cast<float>(system.leak[i] + system.extinction[i] * system.volume[i] *
                                                          (1.0 - sources.albedo[channel]));
  for (int axis = 0; axis < 3; ++axis)
    for (size_t i = 0; i + stride[axis] < count; ++i) {
      diagonal[i] += system.conductance[axis][i];
      diagonal[i + stride[axis]] += system.conductance[axis][i];
    }
  double rho = 0;
  for (size_t i = 0; i < count; ++i) {
    inverse[i] = diagonal[i] > 0 ? 1.0f / diagonal[i] : 0.0f;
    residual[i] = source[i] + inflow[i];
    search[i] = residual[i] * inverse[i];
    rho += double(residual[i]) * search[i];
  }
  target = rho * kResidual * kResidual;
  for (int round = 0; round < kMostRounds && rho > target && rho > 0; ++round) {
    if (!sources.goesOn()) return false;
    for (size_t i = 0; i < count; ++i) product[i] = diagonal[i] * search[i];
    for (int axis = 0; axis < 3; ++axis) {
      const std::vector<float>& conductance = system.conductance[axis];
      for (size_t i = 0; i + stride[axis] < count; ++i) {
        product[i] -= conductance[i] * search[i + stride[axis]];
        product[i + stride[axis]] -= conductance[i] * search[i];
      }
    }
    double curvature = 0;
    for (size_t i = 0; i < count; ++i) curvature += double(search[i]) * product[i];
    if (!(curvature > 0)) break;
    const float along = static_cast<float>(rho / curvature);
    double next = 0;
    for (size_t i = 0; i < count; ++i) {
      field[i] += along * search[i];
      residual[i] -= along * product[i];
      next += double(residual[i]) * residual[i] * inverse[i];
    }
    const float turn = static_cast<float>(next / rho);
    for (size_t i = 0; i < count; ++i) search[i] = residual[i] * inverse[i] + turn * search[i];
    rho = next;
  }
  for (float& value : field) value = std::isfinite(value) ? value : 0.0f;
  return true;
}

DiffuseField::Taps DiffuseField::TapsAt(const trVector& local) const {
  int low[3];
  float f[3];
  for (int axis = 0; axis < 3; ++axis) {
    const double at = std::clamp(local[axis] * (nodes_[axis] - 1), 0.0, nodes_[axis] - 1.0);
    low[axis] = std::min(static_cast<int>(at), nodes_[axis] - 2);
    f[axis] = static_cast<float>(at - low[axis]);
  }
  Taps taps;
  for (int i = 0; i < 8; ++i) {
    const int dx = i & 1, dy = i >> 1 & 1, dz = i >> 2;
    taps.weight[i] = (dx ? f[0] : 1 - f[0]) * (dy ? f[1] : 1 - f[1]) * (dz ? f[2] : 1 - f[2]);
    taps.node[i] = At(low[0] + dx, low[1] + dy, low[2] + dz);
  }
  return taps;
}

void DiffuseField::Lookup(const trVector& local, const trFCol& sunlight, trFCol& direct,
                          trFCol& enviro) const {
  direct = enviro = trFCol();
  if (enviro_[2].empty()) return;
  const Taps taps = TapsAt(local);
  for (int i = 0; i < 8; ++i) {
    const size_t at = taps.node[i];
    for (int c = 0; c < 3; ++c) {
      direct[c] +=
          taps.weight[i] * (direct_[c][at] - shape_[at] * albedo_[c] * lightOutside_[at][c] * sunlight[c]);
      enviro[c] += taps.weight[i] * enviro_[c][at];
    }
  }
  for (int c = 0; c < 3; ++c) {
    direct[c] = std::max(direct[c], 0.0f);
    enviro[c] = std::max(enviro[c], 0.0f);
  }
}

DiffuseField::Beam DiffuseField::BeamAt(const trVector& local) const {
  Beam beam;
  if (sunDepth_.empty()) return beam;
  const Taps taps = TapsAt(local);
  float cosine = 0;
  for (int i = 0; i < 8; ++i) {
    const size_t at = taps.node[i];
    beam.light += lightOutside_[at] * taps.weight[i];
    cosine += cosine_[at] * taps.weight[i];
    beam.depth += sunDepth_[at] * taps.weight[i];
  }
  beam.cosine = cosine;
  for (int axis = 0; axis < 3; ++axis) {
    double slope = 0;
    for (int i = 0; i < 8; ++i) slope += (i >> axis & 1 ? -1.0 : 1.0) * sunDepth_[taps.node[i]];
    beam.normal += axes_[axis] * (slope / edge_[axis]);
  }
  beam.normal = Normalised(beam.normal);
  return beam;
}

}  // namespace ovhost::voxel
