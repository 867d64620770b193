// Descriptors that a host plays: any keys, types and values, in hosts with any of their weaknesses.
#include "glue/host/plugin_main.h"
#include "glue/host/scripting.h"
#include "testhost/fake_host.h"
#include "tests/fuzz/bytes.h"
#include "tests/fuzz/every_entry.h"

namespace tessaline::fuzz {
namespace {

ParameterList* g_list = nullptr;

intptr_t ReadAndWrite(int16_t selector, void* block, intptr_t* data, int16_t* result) {
  if (selector != host::kSelectorStart) return PluginMain(selector, block, data, result);
  auto* const record = static_cast<host::FilterRecord*>(block);
  ReadDescriptor(record, g_list);
  *result = static_cast<int16_t>(WriteDescriptor(record, *g_list));
  return *result;
}

testhost::DescriptorValue TakeValue(Bytes& input) {
  constexpr uint32_t kTypes[] = {host::kDescriptorInteger, host::kDescriptorFloat, host::kDescriptorBoolean,
                                 host::kDescriptorText,    FourCharCode("enum"),   FourCharCode("UniT")};
  testhost::DescriptorValue value;
  const int32_t known = input.Pick(g_list->entryCount + 2);
  value.key = known < g_list->entryCount ? g_list->entries[known].key : input.Take<uint32_t>();
  value.type = input.Flag() ? input.OneOf(kTypes) : std::max(input.Take<uint32_t>(), 1u);
  if (value.type == host::kDescriptorFloat) {
    value.real = input.Flag() ? input.Take<double>() : input.Take<int16_t>() / 64.0;
  } else if (value.type == host::kDescriptorText) {
    value.text = input.Text(255);
  } else {
    value.integer = input.Flag() ? input.Hostile() : 0x30303030 + input.Take<int8_t>();
  }
  return value;
}

}  // namespace
}  // namespace tessaline::fuzz

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
  using namespace tessaline;
  using namespace tessaline::testhost;
  fuzz::Bytes input(bytes, count);
  const fuzz::ListPointer list = fuzz::ListOfEveryType();
  fuzz::g_list = list.get();
  Switches switches;
  switches.hasRecording = input.Flag();
  switches.handles = static_cast<HandleTable>(input.Pick(5));
  switches.descriptors = static_cast<DescriptorTables>(input.Pick(3));
  switches.failCallAt = input.Pick(30);
  switches.style = static_cast<Style>(input.Pick(3));
  switches.callbacksAreNull = input.Flag();
  switches.otherTablesAreNull = input.Flag();
  switches.offer32Bits = input.Flag();
  while (!input.IsEmpty() && switches.recording.size() < 40)
    switches.recording.push_back(fuzz::TakeValue(input));
  const Document document{host::kModeGray, 8, 1, 2, 2, std::vector<uint8_t>(4), {}};
  const Report report = RunFilter(fuzz::ReadAndWrite, document, switches);
  for (const std::string& complaint : report.complaints) std::fprintf(stderr, "%s\n", complaint.c_str());
  DEMAND(report.complaints.empty());
  fuzz::DemandRanges(*list);

  // What was recorded plays as itself.
  if (!report.wasRecorded || switches.failCallAt != kNever || switches.handles != HandleTable::kWorking ||
      switches.descriptors != DescriptorTables::kWorking) {
    return 0;
  }
  Switches playing;
  playing.hasRecording = true;
  playing.recording = report.recorded;
  const Report again = RunFilter(fuzz::ReadAndWrite, document, playing);
  DEMAND(again.complaints.empty() && again.recorded == report.recorded);
  return 0;
}
