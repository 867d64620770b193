#include "testhost/plugin_properties.h"

#include <gtest/gtest.h>

#include "resources/resource_bytes.h"
#include "testhost/host_refusal.h"

namespace tessaline::testhost {
namespace {

std::string FaultOf(const std::vector<uint8_t>& resource) {
  try {
    ReadPluginProperties("x.8bf", resource);
  } catch (const Refusal& refusal) {
    EXPECT_EQ(ExitStatus::kBadModule, refusal.status());
    return refusal.what();
  }
  return "";
}

// Every cut and every flipped byte either reads as a filter or is refused: nothing reads past the resource.
TEST(PluginProperties, SurviveAnyDamage) {
  const std::vector<uint8_t> good = PluginPropertyList(kDialogFilter);
  for (size_t bytes = 0; bytes < good.size(); ++bytes) {
    EXPECT_NE("", FaultOf({good.begin(), good.begin() + static_cast<std::ptrdiff_t>(bytes)})) << bytes;
  }
  for (size_t i = 0; i < good.size(); ++i) {
    std::vector<uint8_t> damaged = good;
    damaged[i] ^= 0xFF;
    FaultOf(damaged);
  }
}

TEST(PluginProperties, RefusalNamesTheFault) {
  std::vector<uint8_t> unpadded = PluginPropertyList(kDialogFilter);
  unpadded[0x2A] = 13;  // length of 'name'
  EXPECT_EQ("x.8bf: resource PiPL: property 'name' has length 13, no multiple of 4", FaultOf(unpadded));

  std::vector<uint8_t> tooNew = PluginPropertyList(kDialogFilter);
  tooNew[0x7A] = 1;  // 'vers' 4.1
  EXPECT_EQ("x.8bf: resource PiPL: the interface is newer than 4.0", FaultOf(tooNew));

  std::vector<uint8_t> tail = PluginPropertyList(kDialogFilter);
  tail.resize(tail.size() + 2);
  EXPECT_EQ("x.8bf: resource PiPL: 2 bytes follow the last property", FaultOf(tail));
}

}  // namespace
}  // namespace tessaline::testhost
