// The steps of all pixels of a deep picture, by tiles.
#pragma once

#include <cstdint>

#include "host/image/deep_picture.h"
#include "host/render/frame/deep_stack.h"
#include "host/render/frame/film.h"

namespace ovhost {

/// Samples that a pixel may have at most.
constexpr int kMostDeepSamples = 1024;

/// Sums of steps, as the film beside it has sums of light, which also knows how many samples there are. A
/// tile is written by one thread at a time; the rest is main thread only.
class OV_API DeepFilm : public DeepPixels {
 public:
  /// For the pixels of `film`; `most` steps each.
  DeepFilm(const Film& film, int most);

  /// What it may take, and the file made of it, for so many pixels.
  static std::uint64_t BytesFor(const PixelRect& area, int most);

  /// A tile's lists, one after another in the order of its pixels; list i ends before ends[i].
  struct Tile {
    std::vector<std::uint32_t> ends;
    std::vector<DeepStep> steps;
  };
  /// What a thread keeps to make the next lists of a tile in.
  struct Work {
    Tile next;
    DeepStack stack;
    /// Before the first pixel of a tile.
    void Begin() {
      next.ends.clear();
      next.steps.clear();
    }
  };
  /// Makes the next pixel's list: the tile's own with samples of one pass added.
  void Add(int tile, const CameraSample* samples, int count, Work& work) const;
  /// Ends a tile whose pixels have all been added.
  void Replace(int tile, Work& work);

  // DeepPixels: means of the samples so far
  void Steps(int x, int y, std::vector<DeepStep>& steps) const override;

  std::uint64_t NumSteps() const;

  // Checkpoints
  const std::vector<Tile>& Tiles() const { return tiles_; }
  /// Takes a tile from outside. False where it can't be one.
  bool SetTile(int tile, Tile lists);
  void Clear();

 private:
  const Film& film_;
  const size_t most_;
  std::vector<Tile> tiles_;
};

}  // namespace ovhost
