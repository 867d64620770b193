// What the page's worker calls. A worker has one picture at a time; codes are the engine's result codes.
#include <emscripten.h>

#include <memory>
#include <new>
#include <string>

#include "web/found_json.h"
#include "web/picture_cleaning.h"

using namespace tessaline;
using namespace tessaline::web;

namespace {

std::unique_ptr<Parallel> g_threads;

PictureCleaning& ThePicture() {
  static PictureCleaning picture(g_threads ? *g_threads : SerialWork());
  return picture;
}

std::string g_text;              // of the last tessaline_web_findings
std::vector<uint8_t> g_drawing;  // of the last tessaline_web_draw_*

// clang-format off
EM_JS(void, TellPage, (double part), { Module["tell"](part); });
// clang-format on

// A message costs more than the work between two reports, and the page shows no more than some in a second.
bool Report(void*, double part) {
  constexpr double kPause = 50.0;  // milliseconds
  static double told = 0.0;
  const double now = emscripten_get_now();
  if (now - told >= kPause) {
    TellPage(part);
    told = now;
  }
  return false;  // the page ends its worker to stop
}
constexpr Progress kProgress = {Report};

template <typename Work>
int32_t WithoutExceptions(const Work& work) {
  try {
    return work();
  } catch (const std::bad_alloc&) {
    return kOutOfMemory;
  }
}

template <typename Draw>
const uint8_t* Drawn(const Draw& draw) {
  return WithoutExceptions([&] { return draw(&g_drawing); }) == kSuccess ? g_drawing.data() : nullptr;
}

}  // namespace

extern "C" {

// Before any other call; not called, there is the caller's thread alone. Returns how many there are.
EMSCRIPTEN_KEEPALIVE int32_t tessaline_web_use_threads(int32_t count) {
  if (count > 1) g_threads = MakeThreadPool(count);
  return g_threads ? g_threads->threads() : 1;
}

EMSCRIPTEN_KEEPALIVE double tessaline_web_bytes_needed(int32_t width, int32_t height, int32_t samples,
                                                       int32_t channels, int32_t format) {
  return BytesNeeded({width, height, samples, channels, static_cast<SampleFormat>(format)});
}

// While the picture is still read: takes memory for it beforehand.
EMSCRIPTEN_KEEPALIVE int32_t tessaline_web_expect(int32_t width, int32_t height) {
  return WithoutExceptions([&] { return ThePicture().Expect(width, height); });
}
// Null: no memory, or no such picture. The caller fills what it gets.
EMSCRIPTEN_KEEPALIVE uint8_t* tessaline_web_open(int32_t width, int32_t height, int32_t samples,
                                                 int32_t channels, int32_t format) {
  const PixelLayout layout = {width, height, samples, channels, static_cast<SampleFormat>(format)};
  return ThePicture().Open(layout) == kSuccess ? ThePicture().pixels() : nullptr;
}

// After tessaline_web_open: the light, 0 to 1, of evenly spaced levels; without any as sRGB has it. What is
// no curve is not used.
EMSCRIPTEN_KEEPALIVE int32_t tessaline_web_set_light(const float* light, int32_t count) {
  return WithoutExceptions([&] {
    ToneCurve curve;
    if (count == 0)
      ThePicture().SetLight(ToneCurve::Srgb());
    else if (curve.Create(light, count))
      ThePicture().SetLight(curve);
    return int32_t{kSuccess};
  });
}
// A block for the caller's own use until tessaline_web_give_back; null: no memory.
EMSCRIPTEN_KEEPALIVE float* tessaline_web_take_floats(int32_t count) {
  return new (std::nothrow) float[static_cast<size_t>(count)];
}
EMSCRIPTEN_KEEPALIVE void tessaline_web_give_back(const float* block) {
  delete[] block;
}

EMSCRIPTEN_KEEPALIVE int32_t tessaline_web_analyse() {
  return WithoutExceptions([] { return ThePicture().Analyse(kProgress); });
}

EMSCRIPTEN_KEEPALIVE int32_t tessaline_web_decide(int32_t isAutomatic, double acceptance, double sensitivity,
                                                  double notchRadius, double protectionRadius) {
  const Settings settings = {isAutomatic != 0, static_cast<float>(acceptance), sensitivity,
                             static_cast<float>(notchRadius), static_cast<float>(protectionRadius)};
  return WithoutExceptions([&] { return ThePicture().Decide(settings); });
}

EMSCRIPTEN_KEEPALIVE int32_t tessaline_web_turn_peak(int32_t dx, int32_t dy, int32_t isTakenOut) {
  return WithoutExceptions([&] { return ThePicture().TurnPeak(dx, dy, isTakenOut != 0); });
}

// Null: no memory. Valid until the next call of it.
EMSCRIPTEN_KEEPALIVE const char* tessaline_web_findings(double horizontal, double vertical) {
  const int32_t code = WithoutExceptions([&] {
    g_text = DescribeFindings(ThePicture(), {horizontal, vertical});
    return int32_t{kSuccess};
  });
  return code == kSuccess ? g_text.c_str() : nullptr;
}

EMSCRIPTEN_KEEPALIVE int32_t tessaline_web_restore() {
  return WithoutExceptions([] { return ThePicture().Restore(kProgress); });
}
EMSCRIPTEN_KEEPALIVE const uint8_t* tessaline_web_result() {
  return ThePicture().result();
}

// What DrawLive of the same part will need.
EMSCRIPTEN_KEEPALIVE int32_t tessaline_web_prepare_live(int32_t x, int32_t y, int32_t width, int32_t height) {
  return WithoutExceptions([&] { return ThePicture().PrepareLive({x, y, width, height}); });
}
// RGBA, valid until the next drawing; null: no memory.
EMSCRIPTEN_KEEPALIVE const uint8_t* tessaline_web_draw_live(int32_t x, int32_t y, int32_t width,
                                                            int32_t height) {
  return Drawn([&](std::vector<uint8_t>* rgba) {
    return ThePicture().DrawLive({x, y, width, height}, rgba);
  });
}

// 512 x 512 pixels of RGBA, valid until the next drawing; null: no memory.
EMSCRIPTEN_KEEPALIVE const uint8_t* tessaline_web_draw_spectrum() {
  return Drawn([](std::vector<uint8_t>* rgba) { return ThePicture().DrawSpectrum(rgba); });
}
EMSCRIPTEN_KEEPALIVE const uint8_t* tessaline_web_draw_surface() {
  return Drawn([](std::vector<uint8_t>* rgba) { return ThePicture().DrawSurface(rgba); });
}
EMSCRIPTEN_KEEPALIVE const uint8_t* tessaline_web_draw_mask() {
  return Drawn([](std::vector<uint8_t>* rgba) { return ThePicture().DrawMask(rgba); });
}

}  // extern "C"
