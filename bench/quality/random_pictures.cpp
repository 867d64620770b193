#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <iterator>

#include "bench/quality/pictures.h"
#include "samples/noise.h"
#include "samples/picture_files.h"
#include "samples/scene.h"
#include "samples/subjects.h"

namespace tessaline::quality {

namespace {

using namespace samples;

// What is drawn from a seed.
class Draws {
 public:
  explicit Draws(uint64_t seed) : random_(seed) {}

  double Between(double least, double most) { return least + (most - least) * random_.Uniform(); }
  int Whole(int least, int most) { return least + static_cast<int>((most - least + 1) * random_.Uniform()); }
  bool OneOf(double times) { return random_.Uniform() * times < 1; }
  template <typename T, size_t kCount>
  T Any(const T (&values)[kCount]) {
    return values[static_cast<size_t>(Whole(0, kCount - 1))];
  }

 private:
  Random random_;
};

[[gnu::format(printf, 1, 2)]] std::string Told(const char* format, ...) {
  char text[160];
  va_list values;
  va_start(values, format);
  std::vsnprintf(text, sizeof text, format, values);
  va_end(values);
  return text;
}

// No finer: the noise's own lattice would be a pattern.
Texture AnyTexture(Draws& draws) {
  Texture texture{draws.Between(0.01, 0.12), draws.Between(0.01, 0.12), draws.Whole(2, 6)};
  if (draws.OneOf(2)) texture.ridges = draws.Between(0.2, 1);
  if (draws.OneOf(2)) texture.swirl = draws.Between(20, 200);
  texture.contrast = draws.Between(0.3, 1.2);
  return texture;
}

Picture Tinted(const Picture& grey, Draws& draws) {
  Picture colour(grey.width, grey.height, 3);
  float tint[3];
  for (float& part : tint) part = static_cast<float>(draws.Between(0.6, 1));
  for (size_t i = 0; i < colour.samples.size(); ++i) colour.samples[i] = tint[i % 3] * grey.samples[i / 3];
  return colour;
}

// A subject in colour. A texture of its own stands in every fourth.
Picture AnySubject(int width, int height, Draws& draws) {
  const int what = draws.Whole(0, 3);
  if (what == 0) return DrawScene(width, height);
  if (what < 3) return DrawStillLife(width, height, static_cast<uint64_t>(draws.Whole(100, 100000)));
  const Texture texture = AnyTexture(draws);
  return Tinted(DrawTexture(width, height, texture), draws);
}

}  // namespace

PrintCase RandomPrint(uint64_t seed) {
  Draws draws(seed);
  PrintCase print{};
  const int width = draws.Whole(480, 1100), height = draws.Whole(400, 900);
  print.subject = [seed, width, height] {
    Draws own(seed ^ 0x5eed);
    return AnySubject(width, height, own);
  };
  Press& press = print.press;
  press.inks = draws.OneOf(2) ? 4 : 1;
  constexpr double kDotsPerInch[] = {200, 300, 300, 400, 600};
  press.dotsPerInch = draws.Any(kDotsPerInch);
  press.linesPerInch = press.dotsPerInch / draws.Between(2.3, 8);  // a period of so many pixels
  press.turn = draws.OneOf(2) ? draws.Between(-45, 45) : draws.Between(-1, 1);
  if (draws.OneOf(5)) press.warp = draws.Between(1, 8);
  if (draws.OneOf(4)) press.gamma = 2.2;
  press.noise = draws.Between(0, 0.025);
  press.fibre = draws.Between(0, 0.02);
  if (draws.OneOf(8)) press.wear = draws.Between(0.1, 0.35);
  press.softness = draws.Between(0.5, 1.0);
  press.lines = press.inks == 1 && draws.OneOf(8);
  press.seed = seed;
  if (draws.OneOf(3)) print.jpeg = draws.Whole(60, 97);
  print.is16 = print.jpeg == 0 && draws.OneOf(8);
  if (draws.OneOf(4)) {
    print.spacing = draws.Between(12, 40);
    press.frame = {190, 170, 190 + std::min(width - 150, 440), 170 + std::min(height - 110, 320)};
  }
  print.family = print.spacing > 0 ? "page"
                 : press.lines     ? "lines"
                 : press.wear > 0  ? "worn"
                 : press.warp > 0  ? "warped"
                 : press.inks == 1 ? "one ink"
                                   : "four inks";
  print.name = Told("%d: %d ink%s %.0f lpi at %.0f dpi, %.1f deg, warp %.1f, gamma %.1f, noise %.3f",
                    int(seed), press.inks, press.lines ? " lines" : "", press.linesPerInch, press.dotsPerInch,
                    press.turn, press.warp, press.gamma, press.noise) +
               Told(", wear %.2f, JPEG %d%s, lines of text %.0f px", press.wear, print.jpeg,
                    print.is16 ? ", 16 bits" : "", print.spacing);
  return print;
}

CleanCase RandomClean(uint64_t seed) {
  Draws draws(seed);
  const int width = draws.Whole(480, 1100), height = draws.Whole(400, 900);
  const int what = draws.Whole(0, 5);
  const int jpeg = draws.OneOf(2) ? draws.Whole(20, 95) : 0;
  const double noise = draws.Between(0, 0.04);
  const bool isMosaic = draws.OneOf(2), isEnlarged = what < 3 && draws.OneOf(4);
  constexpr const char* kFamilies[] = {"photograph", "photograph", "texture",
                                       "writing",    "repeats",    "barcode"};
  CleanCase clean{kFamilies[what],
                  Told("%d: noise %.3f%s%s, JPEG %d", int(seed), noise, isMosaic ? " through a mosaic" : "",
                       isEnlarged ? ", enlarged" : "", jpeg),
                  false,
                  {}};
  clean.draw = [=] {
    Draws own(seed ^ 0xc1ea);
    const auto drawn = [&] {
      switch (what) {
        case 2:
          return DrawTexture(width, height, AnyTexture(own));
        case 3: {
          const Writing writing{own.Between(10, 45), own.OneOf(3), own.OneOf(2) ? own.Between(-5, 5) : 0,
                                own.Between(0, 0.02)};
          return DrawWriting(width, height, writing);
        }
        case 4: {
          constexpr Repeat kRepeats[] = {Repeat::kFence, Repeat::kBricks, Repeat::kWindows,
                                         Repeat::kCloth, Repeat::kBlinds, Repeat::kTiles};
          const Repeat repeat = own.Any(kRepeats);
          return DrawRepeats(width, height,
                             {repeat, own.Between(7, 40), own.Between(0.2, 0.8), own.Between(-10, 10),
                              own.Between(20, 120)});
        }
        case 5:
          return DrawBarcodes(width, height, own.Between(1.5, 5));
        default:
          return AnySubject(width, height, own);
      }
    };
    Picture picture = drawn();
    if (isEnlarged) picture = Enlarged(picture, own.Between(1.1, 1.9));
    if (what < 3) picture = AsShot(picture, noise, isMosaic && picture.channels == 3);
    return jpeg > 0 ? ThroughJpeg(picture, jpeg) : picture;
  };
  return clean;
}

}  // namespace tessaline::quality
