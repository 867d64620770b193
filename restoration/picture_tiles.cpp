#include "restoration/picture_tiles.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "image/result_codes.h"

namespace tessaline {

namespace {

constexpr int32_t kTileSide = 128;
constexpr size_t kMostTiles = 400;

// All that overlap by half.
std::vector<Tile> AllTiles(const PictureView& picture, int32_t width, int32_t height) {
  std::vector<Tile> tiles;
  for (int32_t y = 0; y + height <= picture.height; y += std::max(height / 2, 1)) {
    for (int32_t x = 0; x + width <= picture.width; x += std::max(width / 2, 1)) tiles.push_back({x, y});
  }
  return tiles;
}

std::vector<Tile> EveryNth(const std::vector<Tile>& tiles, size_t step) {
  std::vector<Tile> chosen;
  for (size_t i = 0; i < tiles.size(); i += step) chosen.push_back(tiles[i]);
  return chosen;
}

size_t StepFor(size_t tiles) {
  return std::max<size_t>((tiles + kMostTiles - 1) / kMostTiles, 1);
}

// `picture` from a sample on, as large as `shape`.
PictureView PartOf(const PictureView& picture, const PictureView& shape, const Tile& tile) {
  PictureView part = picture;
  part.width = shape.width;
  part.height = shape.height;
  for (int32_t c = 0; c < part.channels; ++c) {
    ChannelView& channel = part.channel[c];
    channel.data += tile.x * channel.pixelBytes + tile.y * channel.rowBytes;
  }
  return part;
}

// The tile that stands at `samples`, row after row.
PictureView PackedTile(PictureView shape, uint8_t* samples) {
  const ptrdiff_t bytes = static_cast<ptrdiff_t>(SampleBytes(shape.format));
  for (int32_t c = 0; c < shape.channels; ++c) {
    shape.channel[c] = {samples + c * bytes, shape.channels * bytes, shape.width * shape.channels * bytes};
  }
  return shape;
}

// Every channel that the copy has; of a picture that has fewer its last one again.
void CopyTile(const PictureView& from, const PictureView& to) {
  float levels[kTileSide];
  for (int32_t c = 0; c < to.channels; ++c) {
    for (int32_t y = 0; y < to.height; ++y) {
      LoadPart(from, {std::min(c, from.channels - 1), y, 0, to.width}, levels);
      StorePart(to, {c, y, 0, to.width}, Rounding::kNearest, levels);
    }
  }
}

}  // namespace

TiledPicture TilesOf(const PictureView& picture) {
  TiledPicture tiled{picture, std::min(picture.width, kTileSide), std::min(picture.height, kTileSide), {}};
  const std::vector<Tile> all = AllTiles(picture, tiled.tileWidth, tiled.tileHeight);
  tiled.tiles = EveryNth(all, StepFor(all.size()));
  return tiled;
}

PictureView TileOf(const TiledPicture& tiled, size_t index) {
  PictureView shape = tiled.picture;
  shape.width = tiled.tileWidth;
  shape.height = tiled.tileHeight;
  return PartOf(tiled.picture, shape, tiled.tiles[index]);
}

size_t PictureTiles::TileBytes() const {
  return static_cast<size_t>(shape_.width) * static_cast<size_t>(shape_.height) *
         static_cast<size_t>(shape_.channels * static_cast<ptrdiff_t>(SampleBytes(shape_.format)));
}

void PictureTiles::KeepEverySecond() {
  const size_t bytes = TileBytes();
  for (size_t i = 2; i < count_; i += 2) std::memcpy(&samples_[i / 2 * bytes], &samples_[i * bytes], bytes);
  count_ = (count_ + 1) / 2;
  samples_.resize(count_ * bytes);
  step_ *= 2;
}

int32_t PictureTiles::Add(const PictureView& picture, Parallel& parallel) {
  try {
    if (step_ == 0) {
      shape_ = picture;
      shape_.width = std::min(picture.width, kTileSide);
      shape_.height = std::min(picture.height, kTileSide);
      for (ChannelView& channel : shape_.channel) channel = {};
    }
    const std::vector<Tile> all = AllTiles(picture, shape_.width, shape_.height);
    if (step_ == 0) step_ = static_cast<int32_t>(StepFor(all.size()));
    std::vector<Tile> chosen = EveryNth(all, static_cast<size_t>(step_));
    while (count_ + chosen.size() > kMostTiles) {
      KeepEverySecond();
      chosen = EveryNth(all, static_cast<size_t>(step_));
    }
    samples_.resize((count_ + chosen.size()) * TileBytes());
    const auto copy = [&](int32_t index, int32_t) {
      const size_t place = (count_ + static_cast<size_t>(index)) * TileBytes();
      CopyTile(PartOf(picture, shape_, chosen[static_cast<size_t>(index)]),
               PackedTile(shape_, &samples_[place]));
    };
    ForEachTask(parallel, static_cast<int32_t>(chosen.size()), copy, [](int32_t) { return false; });
    count_ += chosen.size();
  } catch (const std::bad_alloc&) {
    return kOutOfMemory;
  }
  return kSuccess;
}

TiledPicture PictureTiles::view() const {
  TiledPicture tiled{
      PackedTile(shape_, const_cast<uint8_t*>(samples_.data())), shape_.width, shape_.height, {}};
  tiled.picture.height = static_cast<int32_t>(count_) * shape_.height;
  for (size_t i = 0; i < count_; ++i) tiled.tiles.push_back({0, static_cast<int32_t>(i) * shape_.height});
  return tiled;
}

}  // namespace tessaline
