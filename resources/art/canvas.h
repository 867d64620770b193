// Small pictures drawn from shapes, with smooth edges. The same bytes in every run and from every compiler:
// nothing here calls the C library but for square roots.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace tessaline::art {

struct Colour {
  uint8_t red, green, blue;
};

// Dialogs are this grey under every current Windows; pictures stand on it without a visible edge.
constexpr Colour kDialogFace = {240, 240, 240};

// A shape is any function of x and y that says whether the place is inside. Coordinates are in pixels, y
// downwards; the pixel in the corner covers 0..1.
inline auto Disc(double centreX, double centreY, double radius) {
  return [=](double x, double y) {
    return (x - centreX) * (x - centreX) + (y - centreY) * (y - centreY) < radius * radius;
  };
}

// The pen line from a to b with round ends.
inline auto Stroke(double ax, double ay, double bx, double by, double radius) {
  return [=](double x, double y) {
    const double dx = bx - ax, dy = by - ay;
    const double along = ((x - ax) * dx + (y - ay) * dy) / (dx * dx + dy * dy);
    const double t = along < 0 ? 0 : along > 1 ? 1 : along;
    const double fromX = x - ax - t * dx, fromY = y - ay - t * dy;
    return fromX * fromX + fromY * fromY < radius * radius;
  };
}

// Corners rounded by `radius`, which may be 0.
inline auto Box(double left, double top, double right, double bottom, double radius) {
  return [=](double x, double y) {
    if (x < left || x > right || y < top || y > bottom) return false;
    const double overX = x < left + radius ? left + radius - x : x > right - radius ? x - right + radius : 0;
    const double overY = y < top + radius ? top + radius - y : y > bottom - radius ? y - bottom + radius : 0;
    return overX * overX + overY * overY <= radius * radius;
  };
}

struct Point {
  double x, y;
};

// Any closed outline; the last corner joins the first.
template <size_t N>
auto Polygon(const std::array<Point, N>& corners) {
  return [=](double x, double y) {
    bool isInside = false;
    for (size_t i = 0; i < N; ++i) {
      const Point& a = corners[i];
      const Point& b = corners[(i + 1) % N];
      if ((a.y > y) != (b.y > y) && x < a.x + (y - a.y) / (b.y - a.y) * (b.x - a.x)) isInside = !isInside;
    }
    return isInside;
  };
}

// Rows of pixels from the top, clear at first. `scale` pixels stand for 1 in the coordinates of shapes, also
// in `width` and `height`.
class Canvas {
 public:
  struct Pixel {
    double red = 0, green = 0, blue = 0;  // 0..255, of the part that is covered
    double cover = 0;                     // 0 clear, 1 opaque
  };

  Canvas(int width, int height, int scale = 1)
      : width_(width * scale),
        height_(height * scale),
        scale_(scale),
        pixels_(static_cast<size_t>(width_) * height_) {}

  int width() const { return width_; }
  int height() const { return height_; }
  const Pixel& At(int x, int y) const { return pixels_[static_cast<size_t>(y) * width_ + x]; }

  template <typename Shape>
  void Fill(const Shape& isInside, const Colour& colour) {
    constexpr int kLooksPerSide = 16;  // of a pixel
    for (int y = 0; y < height_; ++y) {
      for (int x = 0; x < width_; ++x) {
        int hits = 0;
        for (int look = 0; look < kLooksPerSide * kLooksPerSide; ++look) {
          const int across = look % kLooksPerSide, down = look / kLooksPerSide;
          hits += isInside((x + (across + 0.5) / kLooksPerSide) / scale_,
                           (y + (down + 0.5) / kLooksPerSide) / scale_);
        }
        Cover(x, y, colour, static_cast<double>(hits) / (kLooksPerSide * kLooksPerSide));
      }
    }
  }

 private:
  void Cover(int x, int y, const Colour& colour, double cover) {
    if (cover == 0) return;
    Pixel& pixel = pixels_[static_cast<size_t>(y) * width_ + x];
    const double below = pixel.cover * (1 - cover);
    const double total = cover + below;
    pixel = {(colour.red * cover + pixel.red * below) / total,
             (colour.green * cover + pixel.green * below) / total,
             (colour.blue * cover + pixel.blue * below) / total, total};
  }

  int width_;
  int height_;
  int scale_;
  std::vector<Pixel> pixels_;
};

}  // namespace tessaline::art
