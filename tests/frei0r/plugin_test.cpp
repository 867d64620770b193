// The filter as a host loads it, and hosts that ask for odd things.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/failing_allocations.h"
#include "tests/support/module_allocations.h"

extern "C" {
#include <frei0r.h>
}

namespace {

class Frei0rFilter : public testing::Test {
 protected:
  Frei0rFilter() : module_(dlopen(TESSALINE_MODULE, RTLD_NOW | RTLD_LOCAL)) {
    EXPECT_NE(nullptr, module_) << dlerror();
    Call<decltype(f0r_init)>("f0r_init")();
  }
  ~Frei0rFilter() override { dlclose(module_); }

  template <typename Function>
  Function* Call(const char* name) const {
    return reinterpret_cast<Function*>(dlsym(module_, name));
  }

  void* const module_;
  decltype(f0r_construct)* const construct_ = Call<decltype(f0r_construct)>("f0r_construct");
  decltype(f0r_destruct)* const destruct_ = Call<decltype(f0r_destruct)>("f0r_destruct");
  decltype(f0r_update)* const update_ = Call<decltype(f0r_update)>("f0r_update");
  decltype(f0r_set_param_value)* const set_ = Call<decltype(f0r_set_param_value)>("f0r_set_param_value");
  decltype(f0r_get_param_value)* const get_ = Call<decltype(f0r_get_param_value)>("f0r_get_param_value");
};

constexpr unsigned int kWidth = 301, kHeight = 203;

// Level lines of 3 rows a period on a slope; alpha counts up.
std::vector<uint32_t> Lines() {
  std::vector<uint32_t> frame;
  for (unsigned int i = 0; i < kWidth * kHeight; ++i) {
    const uint32_t y = i / kWidth, level = 60 + y / 2 + (y % 3 == 0 ? 40 : 0) + i * i % 7;
    frame.push_back(level * 0x10101 | i << 24);
  }
  return frame;
}

TEST_F(Frei0rFilter, OddCallsAndValuesOutOfRangeDoNoHarm) {
  EXPECT_EQ(nullptr, construct_(0, 0));
  EXPECT_EQ(nullptr, construct_(8, 7501));
  destruct_(nullptr);
  uint32_t pixel = 0x80123456;
  update_(nullptr, 0, &pixel, &pixel);
  for (const unsigned int height : {1u, 3u}) {
    const f0r_instance_t tiny = construct_(1, height);
    std::vector<uint32_t> frame(height, pixel);
    for (int i = 0; i < 9; ++i) update_(tiny, 0, frame.data(), frame.data());
    EXPECT_EQ(std::vector<uint32_t>(height, pixel), frame);
    destruct_(tiny);
  }
  const f0r_instance_t filter = construct_(kWidth, kHeight);
  f0r_plugin_info_t info;
  Call<decltype(f0r_get_plugin_info)>("f0r_get_plugin_info")(&info);
  for (int number = -1; number <= info.num_params; ++number) {
    f0r_param_info_t parameter;
    Call<decltype(f0r_get_param_info)>("f0r_get_param_info")(&parameter, number);
    EXPECT_EQ(number < 0 || number == info.num_params, parameter.name == nullptr);
    if (parameter.name == nullptr || parameter.type == F0R_PARAM_STRING) continue;
    for (double value : {7.0, -std::numeric_limits<double>::infinity(), std::nan("")}) {
      double taken = -1;
      set_(filter, &value, number);
      get_(filter, &taken, number);
      EXPECT_EQ(value > 0 ? 1 : 0, taken) << parameter.name;  // what is no number changes nothing
    }
    set_(filter, nullptr, number);
  }
  char text[] = "-3x";
  f0r_param_string words = text;
  set_(filter, &words, info.num_params - 1);
  text[0] = '?';  // a copy is kept
  get_(filter, &words, info.num_params - 1);
  EXPECT_EQ(std::string("-3x"), words);
  destruct_(filter);
}

TEST_F(Frei0rFilter, InstancesAtOnceGiveTheSamePixelsAndSettingsAnewDecideAnew) {
  const std::vector<uint32_t> lines = Lines();
  std::vector<std::vector<uint32_t>> results(3);
  std::vector<std::thread> hosts;
  for (std::vector<uint32_t>& result : results) {
    hosts.emplace_back([&, inPlace = &result == &results[0]] {
      const f0r_instance_t filter = construct_(kWidth, kHeight);
      for (int i = 0; i < 9; ++i) {
        result = lines;
        update_(filter, i * 0.04, inPlace ? result.data() : lines.data(), result.data());
      }
      std::vector<uint32_t> untouched = lines;
      double none = 0;
      set_(filter, &none, 0);
      set_(filter, &none, 1);  // by number, 0 %: finds nothing
      update_(filter, 1, untouched.data(), untouched.data());
      EXPECT_EQ(lines, untouched);
      destruct_(filter);
    });
  }
  for (std::thread& host : hosts) host.join();
  EXPECT_EQ(results[0], results[1]);
  EXPECT_EQ(results[0], results[2]);
  EXPECT_NE(lines, results[0]);
  for (size_t i = 0; i < lines.size(); ++i) ASSERT_EQ(lines[i] >> 24, results[0][i] >> 24) << "alpha";
}

// A frame that cannot be cleaned passes as it came, and later ones are cleaned as ever.
TEST_F(Frei0rFilter, WithoutMemoryFramesPassAsTheyAre) {
  const std::vector<uint32_t> lines = Lines();
  ASSERT_TRUE(tessaline::FailAllocationsOfModule("/frei0r-1/tessaline.so"));
  // As hosts do, with every value set before every frame.
  const auto play = [&](f0r_instance_t filter) {
    std::vector<std::vector<uint32_t>> frames;
    for (int i = 0; i < 2 && filter != nullptr; ++i) {
      double automatic = i, acceptance = 0.9;
      set_(filter, &automatic, 0);
      set_(filter, &acceptance, 1);
      frames.push_back(lines);
      update_(filter, i * 0.04, frames[i].data(), frames[i].data());
    }
    return frames;
  };
  const f0r_instance_t undisturbed = construct_(kWidth, kHeight);
  const auto wanted = play(undisturbed);
  ASSERT_NE(lines, wanted[1]);
  destruct_(undisturbed);
  for (tessaline::FailingAllocations failing; failing.Next();) {
    f0r_instance_t filter = nullptr;
    const auto frames = failing.During([&] {
      filter = construct_(kWidth, kHeight);
      return play(filter);
    });
    if (filter == nullptr) continue;
    for (const auto& frame : frames) {
      const bool isCleaned = frame != lines;
      for (size_t i = 0; isCleaned && i < lines.size(); ++i) ASSERT_EQ(lines[i] >> 24, frame[i] >> 24);
    }
    if (!tessaline::kIsWatched) {
      EXPECT_EQ(wanted[1], play(filter)[1]);
    }
    destruct_(filter);
  }
}

TEST_F(Frei0rFilter, StaysWhereAHostUnloadsItUnderItsInstances) {
  const std::vector<uint32_t> lines = Lines();
  std::vector<uint32_t> result = lines;
  const f0r_instance_t filter = construct_(kWidth, kHeight);  // its threads wait in the module's code
  update_(filter, 0, lines.data(), result.data());
  dlclose(module_);
  update_(filter, 0.04, lines.data(), result.data());
  destruct_(filter);
  EXPECT_NE(lines, result);
  EXPECT_EQ(module_, dlopen(TESSALINE_MODULE, RTLD_NOW | RTLD_LOCAL));
}

}  // namespace
