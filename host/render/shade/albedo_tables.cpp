// Albedo tables.
#include "host/render/shade/albedo_tables.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <memory>
#include <mutex>

#include "host/render/shade/masking_tables.h"
#include "host/render/shade/specular_lobe.h"

namespace ovhost {
namespace {

constexpr int kModels = 4, kTails = 33, kIndices = 65, kRoughnesses = 41;
constexpr int kBlinn = 0, kGgx = 3;
constexpr double kNeutralTail = 2, kTailsPerOctave = 8, kNeutralRow = 16;
/// Greatest (index - 1) / (index + 1) of a table.
constexpr double kGreatestScale = 0.97;
constexpr int kDraws = 1024;
constexpr float kLeastTransmitted = 1e-5f;

// Nodes are even in the roots of the cosine and of roughness / (1 + roughness), where albedos change fastest.
double CosineAt(int node) {
  const double root = static_cast<double>(node) / (AlbedoRow::kCosines - 1);
  return std::max(root * root, 1e-5);
}
double RoughnessAt(int node) {
  const double root = static_cast<double>(node) / kRoughnesses;
  return root * root / (1 - root * root);
}
double IndexAt(int node) {
  const double scale = kGreatestScale * (2.0 * node / (kIndices - 1) - 1);
  return (1 + scale) / (1 - scale);
}
double TailAt(int node) { return kLeastTail * std::exp2(node / kTailsPerOctave); }

/// The nodes about a place, and the share of the second.
struct Between {
  int low, high;
  float share;
  Between(double place, int count) {
    place = place > 0 ? std::min(place, count - 1.0) : 0;
    low = std::min(static_cast<int>(place), count - 2);
    share = static_cast<float>(place - low);
    high = low + 1;
  }
};

/// Points spread evenly over the unit square, however many are taken (the additive recurrence of Roberts,
/// The Unreasonable Effectiveness of Quasirandom Sequences, 2018).
tr2Vector Spread(int i) {
  const double x = 0.5 + 0.7548776662466927 * i, y = 0.5 + 0.5698402909980532 * i;
  return {x - std::floor(x), y - std::floor(y)};
}

/// One facet of those that a viewer sees.
struct SeenFacet {
  const Microfacet& facets;
  double cosV, cosH, vDotH;

  double Reflected() const {
    const double cosL = 2 * vDotH * cosH - cosV;
    return cosL > 0 ? facets.Reflection(cosV, cosL, cosH, vDotH) * cosL * 4 * vDotH : 0;
  }
  /// Of light from beyond the facet.
  double Passed(double index) const {
    const double cosT2 = 1 - (1 - vDotH * vDotH) / (index * index);
    if (!(cosT2 > 0)) return 0;
    const double cosT = std::sqrt(cosT2);  // to the facet, as cosL is to the surface
    const double cosL = cosV / index - cosH * (vDotH / index - cosT);
    if (!(cosL > 0)) return 0;
    return facets.D(cosH) * facets.G1(cosV, cosH, vDotH) * facets.G1(cosL, cosH, cosT) * vDotH / cosV;
  }
};

/// Means over facets as their own sampling draws them, so that what no draw brings is lost here too.
void FillCosine(const Microfacet& facets, double index, int node, AlbedoRow& row) {
  const double cosV = CosineAt(node);
  const trVector v(std::sqrt(1 - cosV * cosV), 0, cosV);
  double white = 0, reflected = 0, total = 0, passed = 0;
  for (int k = 1; k <= kDraws; ++k) {
    const trVector h = facets.SampleHalf(v, Spread(k));
    const SeenFacet seen{facets, cosV, h.z, Dot(v, h)};
    const double pdf = facets.PdfHalf(cosV, h.z, seen.vDotH);
    if (!(pdf > 0)) continue;
    const double weight = 1 / (pdf * kDraws), fresnel = InterfaceFresnel(index, seen.vDotH);
    const double up = seen.Reflected() * weight, down = seen.Passed(index) * weight;
    white += up;
    reflected += up * fresnel;
    total += up * fresnel + down * (1 - fresnel);
    passed += down;
  }
  const auto at = static_cast<size_t>(node);
  row.white[at] = static_cast<float>(std::min(white, 1.0));
  row.reflected[at] = static_cast<float>(reflected - white * InterfaceFresnel(index, cosV));
  row.total[at] = static_cast<float>(std::min(total, 1.0));
  row.passed[at] = static_cast<float>(passed);
}

/// A smooth surface's.
void FillSmooth(double index, AlbedoRow& row) {
  row.white.fill(1);
  row.reflected.fill(0);
  row.total.fill(1);
  for (int j = 0; j < AlbedoRow::kCosines; ++j)
    row.passed[static_cast<size_t>(j)] = InterfaceFresnel(index, CosineAt(j)) < 1 ? 1 : 0;
}

/// Of what is interpolated between a row's nodes.
float MeanOf(const AlbedoRow::Values& values) {
  constexpr int kParts = 8, kSteps = (AlbedoRow::kCosines - 1) * kParts;
  double sum = 0;
  for (int k = 0; k < kSteps; ++k) {
    const double root = (k + 0.5) / kSteps, share = (k % kParts + 0.5) / kParts;
    const auto j = static_cast<size_t>(k / kParts);
    sum += (values[j] + share * (values[j + 1] - values[j])) * 4 * root * root * root / kSteps;
  }
  return static_cast<float>(sum);
}

float MeanFresnelOf(double index) {
  constexpr int kSteps = 512;
  double sum = 0;
  for (int k = 0; k < kSteps; ++k) {
    const double cosine = (k + 0.5) / kSteps;
    sum += 2 * cosine * InterfaceFresnel(index, cosine) / kSteps;
  }
  return static_cast<float>(sum);
}

/// Things that are made when they are first asked for. Thread-safe; later calls cost a load.
template <typename Thing, int kCount>
class MadeOnce {
 public:
  template <typename Make>
  const Thing& Get(int index, const Make& make) {
    Slot& slot = slots_[static_cast<size_t>(index)];
    if (const Thing* thing = slot.made.load(std::memory_order_acquire)) return *thing;
    std::call_once(slot.once, [&] {
      slot.thing = make();
      slot.made.store(slot.thing.get(), std::memory_order_release);
    });
    return *slot.thing;
  }

 private:
  struct Slot {
    std::atomic<const Thing*> made{nullptr};
    std::once_flag once;
    std::unique_ptr<const Thing> thing;
  };
  std::array<Slot, static_cast<size_t>(kCount)> slots_;
};

/// The rows of one kind of facets.
class AlbedoTable {
 public:
  AlbedoTable(int model, double tail, double index)
      : meanFresnel(MeanFresnelOf(index)), model_(model), tail_(tail), index_(index) {}

  const AlbedoRow& Row(int node) const {
    return rows_.Get(node, [&] {
      auto row = std::make_unique<AlbedoRow>();
      if (node == 0)
        FillSmooth(index_, *row);
      else
        for (int j = 0; j < AlbedoRow::kCosines; ++j)
          FillCosine(Microfacet(model_, RoughnessAt(node), tail_), index_, j, *row);
      row->meanWhite = MeanOf(row->white);
      return row;
    });
  }

  const float meanFresnel;

 private:
  int model_;
  double tail_, index_;
  mutable MadeOnce<AlbedoRow, kRoughnesses> rows_;
};

const AlbedoTable& TableOf(int model, int tail, int index) {
  static MadeOnce<AlbedoTable, kModels * kTails * kIndices> tables;
  return tables.Get((model * kTails + tail) * kIndices + index,
                    [&] { return std::make_unique<const AlbedoTable>(model, TailAt(tail), IndexAt(index)); });
}

}  // namespace

InterfaceAlbedo::InterfaceAlbedo(int model, double tail, double index, double roughness) : index_(index) {
  const int shape = model >= 0 && model < kGgx ? model : kGgx;
  roughness = roughness > 0 ? std::min(roughness, 1e4) : 0;
  // Blinn's exponents end at 0, where the roughness is 1.
  if (shape == kBlinn) {
    tail = kNeutralTail;
    roughness = std::min(roughness, 1.0);
  }
  const Between rows(std::sqrt(roughness / (1 + roughness)) * kRoughnesses, kRoughnesses);
  const Between indices(((index - 1) / (index + 1) / kGreatestScale + 1) * 0.5 * (kIndices - 1), kIndices);
  const Between tails(tail == kNeutralTail ? kNeutralRow : MaskingRow(tail), kTails);
  const auto takeTable = [&](int t, int n, float share) {
    if (!(share > 0)) return;
    const AlbedoTable& table = TableOf(shape, t, n);
    meanFresnel_ += share * table.meanFresnel;
    if (rows.share < 1) Take(table.Row(rows.low), share * (1 - rows.share));
    if (rows.share > 0) Take(table.Row(rows.high), share * rows.share);
  };
  const auto takeTables = [&](int t, float share) {
    if (!(share > 0)) return;
    takeTable(t, indices.low, share * (1 - indices.share));
    takeTable(t, indices.high, share * indices.share);
  };
  takeTables(tails.low, 1 - tails.share);
  takeTables(tails.high, tails.share);
}

float InterfaceAlbedo::At(AlbedoRow::Values AlbedoRow::*values, double cosine) const {
  const Between at(std::sqrt(cosine > 0 ? cosine : 0) * (AlbedoRow::kCosines - 1), AlbedoRow::kCosines);
  float sum = 0;
  for (int k = 0; k < count_; ++k) {
    const AlbedoRow::Values& row = parts_[static_cast<size_t>(k)].row->*values;
    const float low = row[static_cast<size_t>(at.low)], high = row[static_cast<size_t>(at.high)];
    sum += parts_[static_cast<size_t>(k)].share * (low + at.share * (high - low));
  }
  return sum;
}

float InterfaceAlbedo::MeanWhite() const {
  float sum = 0;
  for (int k = 0; k < count_; ++k)
    sum += parts_[static_cast<size_t>(k)].share * parts_[static_cast<size_t>(k)].row->meanWhite;
  return sum;
}

float InterfaceAlbedo::Reflected(double cosine) const {
  const float smooth = InterfaceFresnel(index_, std::clamp(cosine, 0.0, 1.0));
  return std::clamp(White(cosine) * smooth + At(&AlbedoRow::reflected, cosine), 0.0f, 1.0f);
}

float InterfaceAlbedo::Transmitted(double cosine, float reflectivity) const {
  const float clear = At(&AlbedoRow::total, cosine) - Reflected(cosine);
  const float more = At(&AlbedoRow::passed, cosine) - clear;
  return std::max(clear + (1 - reflectivity) * std::max(more, 0.0f), kLeastTransmitted);
}

}  // namespace ovhost
