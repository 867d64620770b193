#include "resources/art/icons.h"

namespace tessaline::art {
namespace {

constexpr Colour kBlack = {0, 0, 0};
constexpr Colour kWhite = {255, 255, 255};
constexpr Colour kInk = {72, 72, 72};
constexpr Colour kButtonFace = {225, 225, 225};
constexpr Colour kCover = {38, 92, 160};
constexpr Colour kSpine = {24, 62, 116};
constexpr Colour kPageEdge = {150, 158, 170};
constexpr Colour kPageLine = {176, 184, 196};
constexpr Colour kBolt = {255, 190, 20};
constexpr Colour kBoltRim = {150, 96, 0};

// --- spin arrows ---

// One colour up to the corners: it goes on around the picture where the control is larger.
constexpr int kSpinWidth = 15;
constexpr int kSpinHeight = 10;
constexpr double kArrowTop = 3;
constexpr double kArrowBottom = 7;
constexpr double kArrowMiddle = kSpinWidth / 2.0;
constexpr double kArrowHalf = 4;

Bytes DrawSpin(double tipY, double baseY, int scale) {
  Canvas canvas(kSpinWidth, kSpinHeight, scale);
  canvas.Fill(Box(0, 0, kSpinWidth, kSpinHeight, 0), kButtonFace);
  canvas.Fill(
      Polygon(std::array<Point, 3>{
          {{kArrowMiddle - kArrowHalf, baseY}, {kArrowMiddle, tipY}, {kArrowMiddle + kArrowHalf, baseY}}}),
      kInk);
  return BitmapFile(canvas);
}

// --- the buttons for help ---

constexpr int kButtonSide = 24;

// A closed book with a question mark.
Bytes DrawManual(int scale) {
  Canvas canvas(kButtonSide, kButtonSide, scale);
  canvas.Fill(Box(3, 1, 21, 23, 2.5), kSpine);
  canvas.Fill(Box(4.5, 18.5, 21, 22, 1), kPageEdge);
  canvas.Fill(Box(5, 19, 21, 21.5, 0.5), kWhite);
  canvas.Fill(Box(6, 1, 21, 19, 2), kCover);
  const auto hook = [](double x, double y) {
    const double dx = x - 13.5, dy = y - 7.5;
    const double squared = dx * dx + dy * dy;
    const bool isOnRing = squared < 3.9 * 3.9 && squared > 2.1 * 2.1;
    return isOnRing && !(dx < 0 && dy > 0);  // open at the lower left
  };
  canvas.Fill(hook, kWhite);
  canvas.Fill(Box(12.6, 9.6, 14.4, 13, 0.4), kWhite);
  canvas.Fill(Disc(13.5, 15.2, 1.15), kWhite);
  return BitmapFile(canvas);
}

// A sheet of text, and a flash for how soon it is read.
Bytes DrawQuickGuide(int scale) {
  Canvas canvas(kButtonSide, kButtonSide, scale);
  const std::array<Point, 5> sheet = {{{2, 1}, {12, 1}, {17, 6}, {17, 23}, {2, 23}}};
  const std::array<Point, 5> paper = {{{3, 2}, {11.6, 2}, {16, 6.4}, {16, 22}, {3, 22}}};
  canvas.Fill(Polygon(sheet), kPageEdge);
  canvas.Fill(Polygon(paper), kWhite);
  canvas.Fill(Polygon(std::array<Point, 3>{{{11, 1}, {17, 7}, {11, 7}}}), kPageEdge);
  for (const double y : {6, 9, 12, 15, 18}) canvas.Fill(Box(5, y, y < 7 ? 9 : 14, y + 1, 0), kPageLine);
  const std::array<Point, 6> bolt = {
      {{17.5, 6}, {10.5, 15.5}, {15, 15.5}, {12, 23}, {21.5, 12.5}, {16.5, 12.5}}};
  for (size_t i = 0; i < bolt.size(); ++i) {
    const Point& next = bolt[(i + 1) % bolt.size()];
    canvas.Fill(Stroke(bolt[i].x, bolt[i].y, next.x, next.y, 0.8), kBoltRim);
  }
  canvas.Fill(Polygon(bolt), kBolt);
  return BitmapFile(canvas);
}

// --- the hand over a picture that can be dragged ---

constexpr int kCursorSide = 32;
constexpr int kHotSpotX = 15;
constexpr int kHotSpotY = 16;
constexpr double kRim = 1.1;

struct Finger {
  double tipX, tipY, rootX, rootY, radius;
};
constexpr Finger kFingers[] = {
    {6.0, 15.5, 11.5, 22.0, 1.9},  // the thumb
    {10.6, 7.6, 12.0, 17.0, 1.8}, {14.6, 4.8, 14.9, 17.0, 1.8},
    {18.6, 5.8, 17.9, 17.0, 1.8}, {22.4, 9.4, 20.9, 18.0, 1.7},
};

Bytes DrawHand() {
  Canvas canvas(kCursorSide, kCursorSide);
  const auto palm = [](double rim) { return Box(10 - rim, 14 - rim, 22.6 + rim, 27.5 + rim, 5 + rim); };
  canvas.Fill(palm(kRim), kBlack);
  // Each finger lies over the one before, so that one line runs between them.
  for (const Finger& finger : kFingers) {
    const auto stroke = [&](double rim) {
      return Stroke(finger.tipX, finger.tipY, finger.rootX, finger.rootY, finger.radius + rim);
    };
    canvas.Fill(stroke(kRim), kBlack);
    canvas.Fill(stroke(0), kWhite);
  }
  canvas.Fill(palm(0), kWhite);
  return CursorFile(canvas, kHotSpotX, kHotSpotY);
}

// The large ones are what screens of more than 96 dots per inch are shown, reduced to their size.
constexpr int kLarge = 4;

constexpr Icon kIcons[] = {
    {"spin_up.bmp", [] { return DrawSpin(kArrowTop, kArrowBottom, 1); }},
    {"spin_down.bmp", [] { return DrawSpin(kArrowBottom, kArrowTop, 1); }},
    {"manual.bmp", [] { return DrawManual(1); }},
    {"quick_guide.bmp", [] { return DrawQuickGuide(1); }},
    {"spin_up_large.bmp", [] { return DrawSpin(kArrowTop, kArrowBottom, kLarge); }},
    {"spin_down_large.bmp", [] { return DrawSpin(kArrowBottom, kArrowTop, kLarge); }},
    {"manual_large.bmp", [] { return DrawManual(kLarge); }},
    {"quick_guide_large.bmp", [] { return DrawQuickGuide(kLarge); }},
    {"hand.cur", DrawHand},
};

}  // namespace

std::span<const Icon> Icons() {
  return kIcons;
}

}  // namespace tessaline::art
