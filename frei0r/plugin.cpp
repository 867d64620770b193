// The entry points of frei0r 1.2: a filter for ffmpeg, MLT and the editors built on it. See docs/video.md.
//
// Nothing is kept but in the instances, so any number of them may work at once, and f0r_deinit, which some
// hosts call before they destroy them, has nothing to do.
#pragma GCC visibility push(default)
extern "C" {
#include <frei0r.h>
}
#pragma GCC visibility pop

#include <dlfcn.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <system_error>

#include "frei0r/video_filter.h"

using namespace tessaline;

namespace {

frei0r::VideoFilter* FilterOf(f0r_instance_t instance) {
  return static_cast<frei0r::VideoFilter*>(instance);
}

bool IsParameter(int number) {
  return number >= 0 && number < frei0r::kParameters;
}

int TypeOf(frei0r::ParameterKind kind) {
  switch (kind) {
    case frei0r::ParameterKind::kSwitch:
      return F0R_PARAM_BOOL;
    case frei0r::ParameterKind::kNumber:
      return F0R_PARAM_DOUBLE;
    case frei0r::ParameterKind::kText:
      break;
  }
  return F0R_PARAM_STRING;
}

// Frames have no pitch: a row is as long as its pixels. The filters of ffmpeg before version 6 (libavfilter
// up to 8) pass rows that are padded to 64 bytes all the same, and nobody is told; what comes out is skewed
// and ends early. Better none than that.
bool PadsRows(const void* caller, unsigned int width) {
  constexpr unsigned int kPixelsOfRowUnit = 16;
  constexpr char kLibrary[] = "libavfilter.so.";
  constexpr int kLastThatPads = 8;
  Dl_info host = {};
  if (width % kPixelsOfRowUnit == 0 || dladdr(caller, &host) == 0 || host.dli_fname == nullptr) return false;
  const char* const library = std::strstr(host.dli_fname, kLibrary);
  return library != nullptr && std::atoi(library + std::strlen(kLibrary)) <= kLastThatPads;
}

}  // namespace

int f0r_init() {
  return 1;
}

void f0r_deinit() {}

void f0r_get_plugin_info(f0r_plugin_info_t* info) {
  *info = {};
  info->name = "Tessaline";
  info->author = "The developers of Tessaline";
  info->plugin_type = F0R_PLUGIN_TYPE_FILTER;
  // The order of the channels counts, for what is summed over them; so a packed model without names will not
  // do.
  info->color_model = F0R_COLOR_MODEL_RGBA8888;
  info->frei0r_version = FREI0R_MAJOR_VERSION;
  info->major_version = TESSALINE_VERSION_MAJOR;
  info->minor_version = TESSALINE_VERSION_MINOR;
  info->num_params = frei0r::kParameters;
  info->explanation = "Takes repeating patterns (halftone screens, line noise, scan weave) out of frames";
}

void f0r_get_param_info(f0r_param_info_t* info, int number) {
  *info = {};
  if (!IsParameter(number)) return;
  const frei0r::Parameter& parameter = frei0r::kParameterTable[number];
  info->name = parameter.name;
  info->type = TypeOf(parameter.kind);
  info->explanation = parameter.explanation;
}

// Null, with which hosts refuse the film: a side of 0 or beyond 7500 pixels, a host that pads rows, or no
// memory.
f0r_instance_t f0r_construct(unsigned int width, unsigned int height) {
  constexpr auto kMost = static_cast<unsigned int>(kLargestSide);
  if (width == 0 || height == 0 || width > kMost || height > kMost) return nullptr;
  if (PadsRows(__builtin_return_address(0), width)) return nullptr;
  try {
    return new frei0r::VideoFilter(static_cast<int32_t>(width), static_cast<int32_t>(height));
  } catch (const std::bad_alloc&) {
    return nullptr;
  } catch (const std::system_error&) {
    return nullptr;
  }
}

void f0r_destruct(f0r_instance_t instance) {
  delete FilterOf(instance);
}

void f0r_set_param_value(f0r_instance_t instance, f0r_param_t value, int number) {
  if (instance == nullptr || value == nullptr || !IsParameter(number)) return;
  try {
    if (frei0r::kParameterTable[number].kind == frei0r::ParameterKind::kText) {
      const char* const text = *static_cast<f0r_param_string*>(value);
      FilterOf(instance)->SetText(text != nullptr ? text : "");
    } else {
      FilterOf(instance)->SetNumber(number, *static_cast<double*>(value));
    }
  } catch (const std::bad_alloc&) {  // it stays what it was
  }
}

void f0r_get_param_value(f0r_instance_t instance, f0r_param_t value, int number) {
  if (instance == nullptr || value == nullptr || !IsParameter(number)) return;
  if (frei0r::kParameterTable[number].kind == frei0r::ParameterKind::kText) {
    *static_cast<f0r_param_string*>(value) = const_cast<char*>(FilterOf(instance)->Text());
  } else {
    *static_cast<double*>(value) = FilterOf(instance)->Number(number);
  }
}

void f0r_update(f0r_instance_t instance, double time, const uint32_t* in, uint32_t* out) {
  if (instance == nullptr || in == nullptr || out == nullptr) return;
  frei0r::VideoFilter& filter = *FilterOf(instance);
  const auto pixels = static_cast<size_t>(filter.width()) * static_cast<size_t>(filter.height());
  if (in != out) std::memmove(out, in, pixels * sizeof(uint32_t));
  filter.Clean(time, reinterpret_cast<uint8_t*>(out));
}

// The host has one frame for a filter.
void f0r_update2(f0r_instance_t instance, double time, const uint32_t* in, const uint32_t*, const uint32_t*,
                 uint32_t* out) {
  f0r_update(instance, time, in, out);
}
