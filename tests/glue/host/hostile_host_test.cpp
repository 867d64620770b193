// Hosts that lie, and that change their minds in the middle of a run. Memory of a size that they do not tell
// cannot be defended against; everything else ends untouched or finished, with a code.
#include <cmath>
#include <functional>
#include <limits>

#include "glue/automatic/automatic_main.h"
#include "glue/parameters/parameter_list.h"
#include "tests/glue/host/host_fixture.h"

namespace tessaline {
namespace {

using testhost::DescriptorValue;

// What a host tells otherwise than it does: at the start, or after so many of its advances.
using Lie = std::function<void(host::FilterRecord* record)>;
struct Telling {
  Lie lie;
  int32_t afterAdvance = 0;  // 0: at the start
};
Telling g_telling;
host::EntryPoint g_entry;
host::FilterRecord* g_record;
host::OSErr (*g_advance)();
int32_t g_advances;

host::OSErr AdvanceAndLie() {
  const host::OSErr code = g_advance();
  if (++g_advances == g_telling.afterAdvance) g_telling.lie(g_record);
  return code;
}

// Between the fake host, which is honest, and the filter. What was a lie is taken back when the call is over.
intptr_t LyingEntry(int16_t selector, void* block, intptr_t* data, int16_t* result) {
  if (selector != host::kSelectorStart) return g_entry(selector, block, data, result);
  g_record = static_cast<host::FilterRecord*>(block);
  host::FilterRecord honest;
  std::memcpy(&honest, g_record, sizeof honest);
  host::BigDocumentStruct honestBig = {};
  if (honest.bigDocumentData != nullptr) honestBig = *honest.bigDocumentData;
  g_advance = honest.advanceState;
  g_advances = 0;
  if (g_advance != nullptr) g_record->advanceState = AdvanceAndLie;
  if (g_telling.afterAdvance == 0) g_telling.lie(g_record);
  const intptr_t code = g_entry(selector, block, data, result);
  host::FilterRecord after;
  std::memcpy(&after, g_record, sizeof after);
  honest.inRect = after.inRect;
  honest.outRect = after.outRect;
  honest.maskRect = after.maskRect;
  std::memcpy(g_record, &honest, sizeof honest);
  if (honest.bigDocumentData != nullptr) {
    honestBig.PluginUsing32BitCoordinates = 1;
    *honest.bigDocumentData = honestBig;
    RequestNothing(g_record);
  }
  return code;
}

class HostileHostTest : public HostTest {
 protected:
  HostileHostTest() {
    source_ = MakePatterned(host::kModeGray, 8, 2, 20, 3);
    source_.mask.assign(20 * 3, 0);
    for (size_t i = 0; i < source_.mask.size(); ++i)
      source_.mask[i] = static_cast<uint8_t>(130 + i * 37 % 126);
  }

  // Told to each filter, with rectangles of 16 bits to the one and of 32 to the other, and the other way
  // round.
  void Tell(const Lie& lie, int32_t afterAdvance = 0) {
    static int turn = 0;
    ++turn;
    for (const bool isAutomatic : {false, true}) {
      Switches switches;
      switches.offer32Bits = (turn + isAutomatic) % 2 == 0;
      SCOPED_TRACE(testing::Message() << (isAutomatic ? "automatic, " : "") << switches.offer32Bits
                                      << ", after advance " << afterAdvance);
      g_entry = isAutomatic ? AutomaticMain : PluginMain;
      g_telling = {lie, afterAdvance};
      const Report report = RunFilter(LyingEntry, source_, switches);
      EXPECT_LE(report.result, 0);
      EXPECT_GE(report.result, host::kReportString);
      if (report.result != 0) {
        EXPECT_EQ(source_.pixels, report.document.pixels);
      }
      EXPECT_EQ(0, report.handlesLeft);
      EXPECT_TRUE(AllSlotsAreEmpty());
    }
  }

  Document source_;
};

TEST_F(HostileHostTest, NumbersThatLieAreRefusedOrDoNoHarm) {
  for (const int planes : {-32768, -1, 0, 1, 3, 4, 57, 32767}) {
    Tell([=](host::FilterRecord* record) { record->planes = static_cast<int16_t>(planes); });
  }
  for (const int32_t depth : {INT32_MIN, -1, 0, 1, 16, 32, INT32_MAX}) {
    Tell([=](host::FilterRecord* record) { record->depth = depth; });
  }
  for (int16_t mode = -1; mode <= 18; ++mode) {
    Tell([=](host::FilterRecord* record) { record->imageMode = mode; });
  }
  constexpr int32_t kLow = INT32_MIN, kHigh = INT32_MAX;
  for (const host::VRect& r : {host::VRect{kLow, kLow, kHigh, kHigh},
                               {kHigh, kHigh, kLow, kLow},
                               {0, 0, kHigh, 20},
                               {0, 0, 3, kHigh},
                               {-1, -1, 4, 21},
                               {1, 2, 1, 9},
                               {2, 19, 3, 40000}}) {
    Tell([=](host::FilterRecord* record) {
      if (record->bigDocumentData != nullptr) record->bigDocumentData->filterRect32 = r;
      const auto narrow = [](int32_t side) { return static_cast<int16_t>(std::clamp(side, -32768, 32767)); };
      record->filterRect = {narrow(r.top), narrow(r.left), narrow(r.bottom), narrow(r.right)};
    });
  }
}

TEST_F(HostileHostTest, WhatChangesInTheMiddleOfARunDoesNoHarm) {
  const Lie lies[] = {
      [](host::FilterRecord* record) { record->inData = record->outData = record->maskData = nullptr; },
      [](host::FilterRecord* record) { record->outData = nullptr; },
      [](host::FilterRecord* record) { record->inRowBytes = record->outRowBytes = record->maskRowBytes = 1; },
      [](host::FilterRecord* record) { record->outRowBytes = -1; },
      [](host::FilterRecord* record) { record->planes = 1; },
      [](host::FilterRecord* record) { record->planes = 32767; },
      [](host::FilterRecord* record) { record->haveMask = 0; },
      [](host::FilterRecord* record) { record->imageMode = host::kModeRgb48; },
      [](host::FilterRecord* record) {
        record->filterRect = {0, 0, 1, 1};
      },
      [](host::FilterRecord* record) { record->advanceState = nullptr; },
      [](host::FilterRecord* record) { record->handleProcs = nullptr; },
      [](host::FilterRecord* record) { record->descriptorParameters = nullptr; },
      [](host::FilterRecord* record) { record->bigDocumentData = nullptr; },
      [](host::FilterRecord* record) {
        if (record->bigDocumentData != nullptr) record->bigDocumentData->filterRect32 = {0, 0, 1, 1};
      }};
  for (const Lie& lie : lies) {
    SCOPED_TRACE(&lie - lies);
    for (const int32_t after : {5, 8}) Tell(lie, after);  // in the fetch, in the copy back
  }
}

// ---------------------------------------------------------------------------------------------- descriptors

int32_t g_keysHandedOut, g_getterCalls;
host::OSType g_typeTold;

host::Boolean EndlessKeys(host::ReadDescriptorToken, host::OSType* key, host::OSType* type, int32_t* flags) {
  constexpr host::OSType kKeys[] = {kKeyAcceptance, kKeyNotchRadius, kKeyProtectionRadius, 0,
                                    FourCharCode("what")};
  *key = kKeys[g_keysHandedOut++ % std::size(kKeys)];
  *type = g_typeTold;
  *flags = -1;
  return 1;
}

host::OSErr AnyInteger(host::ReadDescriptorToken, int32_t* value) {
  constexpr int32_t kValues[] = {INT32_MIN, INT32_MAX, -1, 0, 1 << 24, 129};
  *value = kValues[g_getterCalls++ % std::size(kValues)];
  return 0;
}

host::OSErr AnyFloat(host::ReadDescriptorToken, double* value) {
  const double values[] = {NAN, INFINITY, -INFINITY, 1e308, -1e308, -5e-324, 0.0};
  *value = values[g_getterCalls++ % std::size(values)];
  return 0;
}

// Passes through: what is played and recorded is the same.
const Document kFloats = MakeDocument(host::kModeGray32, 32, 1, 4, 4);

// The values that cannot be taken leave the standard ones, and the reading ends.
TEST_F(HostileHostTest, DescriptorsWithoutAnEndAndOfWrongTypesAreRead) {
  for (const host::OSType type : {host::kDescriptorInteger, host::kDescriptorFloat, host::kDescriptorText,
                                  host::OSType{0}, host::OSType{0xFFFFFFFF}}) {
    g_typeTold = type;
    g_keysHandedOut = 0;
    g_entry = PluginMain;
    static host::ReadDescriptorProcs procs;
    g_telling = {[](host::FilterRecord* record) {
                   procs = *record->descriptorParameters->readDescriptorProcs;
                   procs.getKeyProc = EndlessKeys;
                   procs.getIntegerProc = AnyInteger;
                   procs.getFloatProc = AnyFloat;
                   record->descriptorParameters->readDescriptorProcs = &procs;
                 },
                 0};
    Switches switches;
    switches.hasRecording = true;
    const Report report = RunFilter(LyingEntry, kFloats, switches);
    EXPECT_EQ(0, report.result);
    EXPECT_NO_COMPLAINTS(report);
    EXPECT_GE(g_keysHandedOut, 1000);
    EXPECT_EQ(0, report.handlesLeft);
    ASSERT_EQ(3u, report.recorded.size());
    EXPECT_TRUE(report.recorded[1].real >= 1 && report.recorded[1].real <= 16);
    EXPECT_TRUE(report.recorded[2].real >= 1 && report.recorded[2].real <= 128);
  }
}

// Every table too short by one or more routines, and without any one of them.
TEST_F(HostileHostTest, TablesOfAnyLengthAndWithAnyHoleServe) {
  static host::HandleProcs handles;
  static host::ReadDescriptorProcs reads;
  static host::WriteDescriptorProcs writes;
  Switches switches;
  switches.hasRecording = true;
  switches.recording = {{kKeyAcceptance, host::kDescriptorInteger, 77, 0.0, {}},
                        {kKeyNotchRadius, host::kDescriptorFloat, 0, 2.5, {}}};
  g_entry = PluginMain;
  static int hole;
  const auto takeOut = [](auto* table, int32_t at) {
    // The routines follow the version and the count.
    void* const none = nullptr;
    if (at < 8) std::memcpy(reinterpret_cast<char*>(table) + 8 + 8 * at, &none, sizeof none);
  };
  static const auto holeIn = takeOut;
  for (hole = 0; hole < 3 * 20; ++hole) {
    SCOPED_TRACE(hole);
    g_telling = {
        [](host::FilterRecord* record) {
          handles = *record->handleProcs;
          reads = *record->descriptorParameters->readDescriptorProcs;
          writes = *record->descriptorParameters->writeDescriptorProcs;
          const int at = hole / 3;
          if (hole % 3 == 0)
            at < 8 ? holeIn(&handles, at) : void(handles.numHandleProcs = static_cast<int16_t>(at - 12));
          if (hole % 3 == 1)
            at < 8 ? holeIn(&reads, at) : void(reads.numReadDescriptorProcs = static_cast<int16_t>(at - 9));
          if (hole % 3 == 2)
            at < 8 ? holeIn(&writes, at)
                   : void(writes.numWriteDescriptorProcs = static_cast<int16_t>(at - 9));
          record->handleProcs = &handles;
          record->descriptorParameters->readDescriptorProcs = &reads;
          record->descriptorParameters->writeDescriptorProcs = &writes;
        },
        0};
    ClearSettings();
    const Report report = RunFilter(LyingEntry, kFloats, switches);
    EXPECT_EQ(0, report.result);
    EXPECT_NO_COMPLAINTS(report);
    EXPECT_TRUE(AllSlotsAreEmpty());
  }
}

}  // namespace
}  // namespace tessaline
