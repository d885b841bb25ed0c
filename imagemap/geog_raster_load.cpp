// Reading the bands, and what stands for missing values.
#include "imagemap/geog_raster_load.h"

#include <algorithm>
#include <cmath>

namespace {

/// Values that are read at once.
constexpr std::int64_t kValuesAtOnce = 1 << 21;

unsigned char Cut8(double value) {
  return static_cast<unsigned char>(value > 0 ? std::min(std::floor(value + 0.5), 255.0) : 0.0);
}

bool IsWhole(trBandType type) { return type >= trBandType::kByte && type <= trBandType::kSigned32; }

bool IsNoData(const trGeoBand& band, double value) {
  return band.hasNoData && (value == band.noData || (std::isnan(value) && std::isnan(band.noData)));
}

/// One band's values on their way into the image's channels.
class BandReader {
 public:
  BandReader(trGeoRaster& raster, trImage& image, std::array<GeogPackedNODATA, 4>& sets, bool collects)
      : raster_(raster), image_(image), sets_(sets), collects_(collects) {}

  /// Calls `put(pixel, value)` for all pixels, rows of a block from the first to the last; pixels without
  /// data are added to the sets of the channels from `first` to `last`.
  template <typename Put>
  bool Read(int number, int first, int last, const std::function<bool(double)>& progress, const Put& put,
            trString& problem) {
    const trGeoRasterInfo& info = raster_.Info();
    const trGeoBand& band = info.bands[static_cast<std::size_t>(number - 1)];
    const bool collects = collects_ && band.hasNoData;
    const int rowsAtOnce =
        static_cast<int>(std::clamp<std::int64_t>(kValuesAtOnce / info.width, 1, info.height));
    values_.resize(static_cast<std::size_t>(rowsAtOnce) * static_cast<std::size_t>(info.width));
    for (int row = 0; row < info.height; row += rowsAtOnce) {
      const int rows = std::min(rowsAtOnce, info.height - row);
      if (!progress(1.0 * row / info.height)) return problem = "it was stopped", false;
      if (!raster_.ReadRows(number, row, rows, values_.data(), problem)) return false;
      const std::uint64_t start = static_cast<std::uint64_t>(row) * static_cast<std::uint64_t>(info.width);
      const std::size_t count = static_cast<std::size_t>(rows) * static_cast<std::size_t>(info.width);
      for (std::size_t i = 0; i < count; ++i) {
        put(image_.pixels + (start + i) * static_cast<std::uint64_t>(image_.pixelSize), values_[i]);
        if (collects && IsNoData(band, values_[i]))
          for (int channel = first; channel <= last; ++channel)
            sets_[static_cast<std::size_t>(channel)].Add(start + i);
      }
    }
    return true;
  }

 private:
  trGeoRaster& raster_;
  trImage& image_;
  std::array<GeogPackedNODATA, 4>& sets_;
  const bool collects_;
  std::vector<double> values_;
};

}  // namespace

GeogBandMap GeogBandMap::Of(const trGeoRasterInfo& info) {
  GeogBandMap map;
  const int count = static_cast<int>(info.bands.size());
  bool allUndefinedBytes = count > 0;
  for (int i = 1; i <= count; ++i) {
    const trGeoBand& band = info.bands[static_cast<std::size_t>(i - 1)];
    allUndefinedBytes &= band.colour == trBandColour::kUndefined && band.type == trBandType::kByte;
    const bool hasColour = map.red || map.green || map.blue;
    switch (band.colour) {
      case trBandColour::kGrey:
        if (!hasColour && !map.grey) map.grey = i;
        break;
      case trBandColour::kPalette:
        if (!hasColour && !map.palette) map.palette = i;
        break;
      case trBandColour::kRed:
        map.red = i;
        break;
      case trBandColour::kGreen:
        map.green = i;
        break;
      case trBandColour::kBlue:
        map.blue = i;
        break;
      case trBandColour::kAlpha:
        map.alpha = i;
        break;
      default:
        break;
    }
  }
  if (map.red || map.green || map.blue) {
    map.format = map.alpha ? kRgba : kRgb;
  } else if (map.palette) {
    map.format = kPalette;
  } else if (map.grey) {
    map.format = kGrey;
  } else if (allUndefinedBytes && (count == 1 || count == 3 || count == 4)) {
    map = {count == 1   ? kGrey
           : count == 3 ? kRgb
                        : kRgba,
           count > 1 ? 1 : 0,
           count > 1 ? 2 : 0,
           count > 1 ? 3 : 0,
           count == 4 ? 4 : 0,
           0,
           count == 1 ? 1 : 0};
  }
  return map;
}

std::vector<int> GeogBandMap::Bands() const {
  if (format == kPalette) return {palette};
  if (format == kGrey) return {grey};
  if (format == kRgba) return {red, green, blue, alpha};
  return {red, green, blue};
}

std::unique_ptr<trImage> LoadGeogImage(trGeoRaster& raster, const GeogBandMap& map,
                                       const GeogNoDataSettings& settings, const GeogProgress& progress,
                                       trString& problem) {
  const trGeoRasterInfo& info = raster.Info();
  const auto bandAt = [&](int number) -> const trGeoBand& {
    return info.bands[static_cast<std::size_t>(number - 1)];
  };
  const std::vector<int> bands = map.Bands();
  const bool hasNoData =
      std::any_of(bands.begin(), bands.end(), [&](int b) { return b && bandAt(b).hasNoData; });
  const bool wantsAlpha = hasNoData && settings.replaces &&
                          (settings.makesTransparent || (settings.withColour && settings.alpha < 1));
  const bool hasAlpha = wantsAlpha || map.format == GeogBandMap::kRgba;
  const int channels = hasAlpha ? 4 : map.format == GeogBandMap::kGrey ? 1 : 3;
  if (!progress("Loading image data", 0)) return problem = "it was stopped", nullptr;
  for (const int number : bands)
    if (number && (bandAt(number).width != info.width || bandAt(number).height != info.height))
      return problem = "its bands differ in size", nullptr;
  if (map.format == GeogBandMap::kPalette) {
    const trGeoBand& band = bandAt(map.palette);
    if (!band.hasPalette || !band.isPaletteOfColours)
      return problem = "Colour table interpretation mismatch", nullptr;
    if (!IsWhole(band.type)) return problem = "Raster band colour interpretation mismatch", nullptr;
  }

  auto image = std::make_unique<trImage>();
  if (!image->Init(0, 0, info.width, info.height, channels, static_cast<int>(trChannelType::kByte), 0))
    return problem = "there isn't the memory for it", nullptr;
  std::fill_n(image->pixels, image->MemoryBytes(), static_cast<unsigned char>(0));
  if (hasAlpha)
    for (std::int64_t i = 3; i < image->MemoryBytes(); i += 4) image->pixels[i] = 255;

  std::array<GeogPackedNODATA, 4> sets;
  BandReader reader(raster, *image, sets, settings.replaces);
  for (std::size_t i = 0; i < bands.size(); ++i) {
    const int number = bands[i], channel = static_cast<int>(i);
    if (!number) continue;
    double shown = -1;
    const auto report = [&](double done) {
      const double fraction =
          std::min((static_cast<double>(i) + done) / static_cast<double>(bands.size()), 0.99);
      if (fraction - shown < 1.0 / 30) return true;
      shown = fraction;
      return progress("Loading image data band " + std::to_string(number), fraction);
    };
    bool isRead;
    if (map.format == GeogBandMap::kPalette) {
      // Of a palette's pixel without data, all channels are meant.
      const auto& palette = bandAt(number).palette;
      isRead = reader.Read(
          number, 0, 3, report,
          [&](unsigned char* pixel, double value) {
            if (!(value >= 0 && value < static_cast<double>(palette.size()))) return;
            const auto& entry = palette[static_cast<std::size_t>(value)];
            for (int c = 0; c < channels; ++c) pixel[c] = Cut8(entry[static_cast<std::size_t>(c)]);
          },
          problem);
    } else if (map.format == GeogBandMap::kGrey) {
      isRead = reader.Read(
          number, 0, channels == 1 ? 0 : 2, report,
          [&](unsigned char* pixel, double value) {
            for (int c = 0; c < std::min(channels, 3); ++c) pixel[c] = Cut8(value);
          },
          problem);
    } else {
      isRead = reader.Read(
          number, channel, channel, report,
          [&](unsigned char* pixel, double value) { pixel[channel] = Cut8(value); }, problem);
    }
    if (!isRead) return nullptr;
  }
  // Where the file has no alpha of its own, that of a pixel goes with any of its channels.
  if (channels == 4 && map.format != GeogBandMap::kRgba && map.format != GeogBandMap::kPalette)
    for (std::size_t i = 0; i < 3; ++i) sets[3].Merge(sets[i]);
  progress("Processing NODATA", 0.99);
  ReplaceNoData(*image, settings, sets);
  progress("Loading image data", 1);
  return image;
}

void ReplaceNoData(trImage& image, const GeogNoDataSettings& settings,
                   std::array<GeogPackedNODATA, 4>& sets) {
  if (std::all_of(sets.begin(), sets.end(), [](const GeogPackedNODATA& set) { return set.Count() == 0; }))
    return;
  const int channels = image.pixelSize;
  const float colour[3] = {settings.colour.r, settings.colour.g, settings.colour.b};
  const auto byte = [](double value) { return static_cast<unsigned char>(std::clamp(value, 0.0, 255.0)); };
  unsigned char replacement[4];
  for (int i = 0; i < 3; ++i) replacement[i] = byte(colour[i] * 255.0 + 0.5);
  replacement[3] = byte(settings.alpha * 255);
  const auto pixelAt = [&](std::uint64_t index) {
    return image.pixels + index * static_cast<std::uint64_t>(channels);
  };
  std::uint64_t index;

  if (channels == 1) {
    unsigned char grey = 0;
    if (settings.withScalar)
      grey = byte(settings.scalar);
    else if (settings.withColour)
      grey = byte(Luminance(settings.colour.ToRender()) * 255.0);
    else if (!settings.makesTransparent)
      return;
    while (sets[0].Next(index)) *pixelAt(index) = grey;
    return;
  }
  if (settings.withScalar || (settings.withColour && !settings.anyChannel)) {
    for (int c = 0; c < channels; ++c)
      while (sets[static_cast<std::size_t>(c)].Next(index))
        pixelAt(index)[c] = settings.withScalar ? byte(settings.scalar) : replacement[c];
    return;
  }
  if (!settings.withColour && !settings.makesTransparent) return;
  if (!settings.withColour) std::fill(replacement, replacement + 4, static_cast<unsigned char>(0));
  for (std::size_t i = 1; i < 4; ++i) sets[0].Merge(sets[i]);
  while (sets[0].Next(index)) std::copy(replacement, replacement + channels, pixelAt(index));
}
