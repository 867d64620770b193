// dialog_bench [ROUNDS]: what the preview dialog computes for one thing that the user does, until the pixels
// are ready for the screen. A change of a slider is paired with the inverse transforms that it cannot do
// without.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

#include "buffers/buffer_conversion.h"
#include "buffers/buffer_table.h"
#include "buffers/buffer_transforms.h"
#include "dialog/control_pixels.h"
#include "dialog/preview_state.h"
#include "glue/run/removal_run.h"
#include "image/pixel_kind.h"

namespace {

using namespace tessaline;

// The areas of the large layout at 96 dots per inch.
constexpr WindowRectangle kProxyArea = {10, 11, 646, 619};
PreviewState preview;

constexpr WindowRectangle kSpectrumArea = {661, 27, 993, 359};

double Milliseconds(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

double Median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

// A sky that darkens downwards behind a round-dot screen of 5.3 pixels at 45 degrees.
void DrawPicture(int32_t slot) {
  const BufferShape shape = ShapeOf(slot);
  for (int32_t y = 0; y < shape.height; ++y) {
    uint8_t* const row = BufferRow(slot, y);
    for (int32_t x = 0; x < shape.width; ++x) {
      const double screen = std::cos((x + y) * 0.838) + std::cos((x - y) * 0.838);
      const double tone = 0.8 - 0.6 * y / shape.height + 0.05 * std::sin(x * 0.013);
      for (int32_t c = 0; c < shape.bytesPerPixel; ++c) {
        row[x * shape.bytesPerPixel + c] =
            static_cast<uint8_t>(255 * std::clamp(tone + 0.2 * screen, 0.0, 1.0));
      }
    }
  }
}

struct Screen {
  std::vector<uint8_t> proxy =
      std::vector<uint8_t>(kProxyArea.width() * kProxyArea.height() * kControlPixelBytes);
  std::vector<uint8_t> spectrum =
      std::vector<uint8_t>(kSpectrumArea.width() * kSpectrumArea.height() * kControlPixelBytes);

  void Repaint() {
    preview.Compute();
    const PreviewBuffers& buffers = preview.buffers;
    DrawBufferPixels(buffers.zoomedView.slot(), kProxyArea.width(), kProxyArea.height(), proxy.data());
    DrawBufferPixels(buffers.spectrumView.slot(), kSpectrumArea.width(), kSpectrumArea.height(),
                     spectrum.data());
  }
};

// One 1024 x 1024 inverse transform for each channel, of spectra that fill nobody's buffers.
class InverseTransforms {
 public:
  explicit InverseTransforms(int32_t channels) : channels_(channels) {
    for (int32_t c = 0; c < channels; ++c) {
      planes_[c].Create("peer", kProxySquare, kProxySquare, kGrayComplex);
      ConvertBuffer(preview.buffers.spectra[c].slot(), planes_[c].slot());
    }
  }
  void Run() {
    for (int32_t c = 0; c < channels_; ++c) InverseFft2D(planes_[c].slot(), false, false, nullptr, 0, 0, 0);
  }

 private:
  int32_t channels_;
  OwnedBuffer planes_[3];
};

void Measure(int32_t sourceSlot, FilterParameters* parameters, int32_t rounds) {
  PreviewDialogRequest request = {sourceSlot, parameters, &parameters, 0};
  preview.Open(&request, kProxyArea, kSpectrumArea);
  Screen screen;
  const double first = Milliseconds([&] { screen.Repaint(); });
  const int32_t channels = preview.channels;
  InverseTransforms inverse(channels);
  std::printf("%s, dialog opened: first picture %.1f ms\n", channels == 1 ? "grey" : "RGB", first);

  float notchRadius = 4.0f;
  for (const bool is3D : {false, true}) {
    if (preview.spectrum3D != is3D) preview.ToggleSpectrumView();
    screen.Repaint();
    std::vector<double> slider, peer, ratio;
    for (int32_t i = 0; i < rounds; ++i) {
      peer.push_back(Milliseconds([&] { inverse.Run(); }));
      notchRadius = notchRadius >= 8.0f ? 4.0f : notchRadius + 0.5f;
      preview.ChangeValues({parameters->acceptance, notchRadius, parameters->protectionRadius});
      slider.push_back(Milliseconds([&] { screen.Repaint(); }));
      ratio.push_back(slider.back() / peer.back());
    }
    std::printf("  slider change, %-4s spectrum  %6.1f ms   inverse transforms %6.1f ms   ratio %.2f\n",
                is3D ? "3D" : "flat", Median(slider), Median(peer), Median(ratio));
  }

  std::vector<double> drag, drop, zoom;
  for (int32_t i = 0; i < rounds; ++i) {
    const int32_t distance = i % 2 == 0 ? 40 : -40;
    preview.BeginDrag(300, 300);
    for (int32_t step = 1; step <= 4; ++step) {
      preview.ContinueDrag(300 + distance * step / 4, 300 + distance * step / 4);
      drag.push_back(Milliseconds([&] { screen.Repaint(); }));
    }
    preview.EndDrag();
    drop.push_back(Milliseconds([&] { screen.Repaint(); }));
    preview.ChangeZoom(i % 2 == 0 ? ZoomCommand::kIn : ZoomCommand::kOut);
    zoom.push_back(Milliseconds([&] { screen.Repaint(); }));
  }
  std::printf("  drag step %.1f ms, button up after a drag %.1f ms, zoom step %.1f ms\n", Median(drag),
              Median(drop), Median(zoom));
  preview.Close(false);
}

}  // namespace

int main(int argc, char** argv) {
  const int32_t rounds = argc > 1 ? std::max(std::atoi(argv[1]), 1) : 41;
  for (const int32_t kind : {kGray8, kRgb8}) {
    ResetBufferTable();
    OwnedBuffer picture;
    if (picture.Create("main", 2000, 1500, kind) != 0) return 1;
    DrawPicture(picture.slot());
    FilterParameters parameters = {90.0f, 6.0f, 8.0f};
    RunDoor context;
    int32_t wantedRounds = rounds;
    context.user = &wantedRounds;
    context.openDialog = [](void* user, int32_t sourceSlot, FilterParameters* values) {
      Measure(sourceSlot, values, *static_cast<int32_t*>(user));
      return 1;  // as Cancel: the second pass is not wanted
    };
    RunRemoval(picture.slot(), &parameters, nullptr, false, context);
  }
  return 0;
}
