// What the tests of this room share: documents, and a clean state around every test.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "buffers/buffer_table.h"
#include "glue/host/host_access.h"
#include "glue/host/image_mode.h"
#include "glue/host/image_transfer.h"
#include "glue/host/plugin_main.h"
#include "image/result_codes.h"
#include "platform/memory.h"
#include "platform/message.h"
#include "testhost/fake_host.h"
#include "tests/glue/scratch_folder.h"
#include "tests/support/failing_allocations.h"

namespace tessaline {

using testhost::Document;
using testhost::Report;
using testhost::RunFilter;
using testhost::Switches;

// Samples without a pattern, over the whole range of their width, the ends among them.
inline Document MakeDocument(int16_t mode, int32_t depth, int32_t planes, int32_t width, int32_t height) {
  Document document{mode, depth, static_cast<int16_t>(planes), width, height, {}, {}};
  const int64_t samples = int64_t{width} * height * planes;
  document.pixels.resize(static_cast<size_t>(samples * depth / 8));
  uint32_t state = 12345;
  for (int64_t i = 0; i < samples; ++i) {
    state = state * 1664525 + 1013904223;
    const uint32_t level = i == 0 ? 0 : i == 1 ? 32768 : (state >> 8) % 32769;
    uint8_t* const sample = document.pixels.data() + i * depth / 8;
    const auto byte = static_cast<uint8_t>(level * 255 / 32768);
    const auto word = static_cast<uint16_t>(level);
    const float real = static_cast<float>(level) / 32768.0f;
    if (depth == 8) std::memcpy(sample, &byte, sizeof byte);
    if (depth == 16) std::memcpy(sample, &word, sizeof word);
    if (depth == 32) std::memcpy(sample, &real, sizeof real);
  }
  return document;
}

class HostTest : public PreferencesTest {
 protected:
  HostTest() {
    messages = {};
    SetMessageHandler([](const char* text, const char* title) {
      const AllocationFailurePause notTheFilters;
      messages.push_back(std::string(title) + ": " + text);
    });
  }
  ~HostTest() override {
    ClearAllocationFailure();
    SetMessageHandler(nullptr);
    SetDialogOpener(nullptr);
    EXPECT_TRUE(AllSlotsAreEmpty()) << "a run left buffers behind";
  }

  static bool AllSlotsAreEmpty() {
    for (const ImageBuffer& buffer : BufferTable) {
      if (buffer.data != nullptr) return false;
    }
    return imageInfo.mainBuffer == 0 && imageInfo.maskBuffer == 0 && imageInfo.alphaBuffer == 0;
  }

  inline static std::vector<std::string> messages;
};

// The samples of one pixel in a document.
inline const uint8_t* PixelAt(const Document& document, int32_t x, int32_t y) {
  return document.pixels.data() + y * document.RowBytes() + int64_t{x} * document.PixelBytes();
}

// A gradient with a grid and a little noise on it. From some 400 x 300 pixels on, a run finds the grid;
// below, it changes levels by one at most, which is enough to see that it was there.
inline Document MakePatterned(int16_t mode, int32_t depth, int32_t planes, int32_t width, int32_t height) {
  Document document = MakeDocument(mode, depth, planes, width, height);
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      const int noise = (x * 7919 ^ y * 104729) % 97 * 31 % 15 - 7;
      const double level = 100 + (x + y) / 32.0 + noise + 50 * std::cos(x * 1.2) * std::cos(y * 1.3);
      for (int32_t s = 0; s < planes; ++s) {
        auto* const sample = const_cast<uint8_t*>(PixelAt(document, x, y)) + s * depth / 8;
        const auto byte = static_cast<uint8_t>(static_cast<int>(level + 5 * s));  // wraps at 256
        const auto word = static_cast<uint16_t>(byte * 128);
        if (depth == 8) std::memcpy(sample, &byte, sizeof byte);
        if (depth == 16) std::memcpy(sample, &word, sizeof word);
      }
    }
  }
  return document;
}

inline std::string Joined(const std::vector<std::string>& lines) {
  std::string all;
  for (const std::string& line : lines) all += line + "\n";
  return all;
}

#define EXPECT_NO_COMPLAINTS(report) EXPECT_TRUE((report).complaints.empty()) << Joined((report).complaints)

}  // namespace tessaline
