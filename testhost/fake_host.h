// A host in the same process: drives a filter's entry point over a document the way real hosts do, with every
// difference between them, and every failure, as a switch. It watches what the filter does to memory that is
// not its own and complains in words.
//
// Natively it takes the entry point linked into the program; the entry of a loaded module serves as well. One
// run at a time: the filter's callbacks have no place for a context.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "glue/host/host_records.h"

namespace tessaline::testhost {

// A picture as the host holds it: rows packed, pixels interleaved, samples in machine order, colour planes
// first.
struct Document {
  int16_t mode = host::kModeRgb;  // host::ImageModeNumber, or any number
  int32_t depth = 8;              // bits per sample: 8, 16 or 32
  int16_t planes = 3;             // per pixel, alpha and spot channels among them
  int32_t width = 0;
  int32_t height = 0;
  std::vector<uint8_t> pixels;
  std::vector<uint8_t> mask;  // coverage, one byte per pixel; empty: no selection

  int32_t PixelBytes() const { return planes * depth / 8; }
  int64_t RowBytes() const { return int64_t{width} * PixelBytes(); }
};

// One value of a descriptor; which member counts is told by the type.
struct DescriptorValue {
  host::OSType key = 0;
  host::OSType type = 0;  // host::kDescriptorInteger, ..., or an enumeration's
  int64_t integer = 0;    // integer, boolean, enumeration
  double real = 0.0;
  std::string text;
  bool operator==(const DescriptorValue&) const = default;
};

// How three kinds of real host advance.
enum class Style {
  kRefillOnChange,         // input refilled only when its rectangle changes; output holds the result so far
  kRefillOnChangeAndClip,  // the same; a rectangle counts as empty by its right and bottom alone
  kRefillAlways,           // input always refilled; output holds source pixels; no mask wish without a mask
};

enum class HandleTable { kWorking, kNull, kSevenRoutines, kMissingRoutine, kSizesAreZero };
enum class DescriptorTables { kWorking, kRecordNull, kTablesNull };

constexpr int32_t kNever = 0;  // for the counts below, which start at 1

struct Switches {
  Style style = Style::kRefillAlways;
  bool about = false;      // the about selector first, with a result of 1 in it
  bool parameters = true;  // the parameters selector before prepare
  bool otherTablesAreNull = false;
  bool callbacksAreNull = false;  // abortProc, progressProc, platformData, errorString
  bool advanceIsNull = false;
  void* window = nullptr;
  size_t recordBytes = 608;  // 512 or more; an inaccessible page follows the record

  bool offer32Bits = false;         // with nonsense in every 16-bit field that has a 32-bit form
  bool hasStaleRectangles = false;  // the last row is still asked for, as if an earlier run had left it
  bool hasFilterRectangle = false;
  host::VRect filterRectangle = {0, 0, 0, 0};  // else the whole picture

  bool checksMemory = true;    // off for benchmarks: copies rows and nothing more
  bool freshAddresses = true;  // every advance delivers at another address, old ones are overwritten
  int32_t inputPadding = 0;    // bytes between the rows
  int32_t outputPadding = 0;
  int32_t maskPadding = 0;
  bool maskIsNotDelivered = false;  // haveMask, yet maskData stays null
  bool autoMask = false;            // blend the result into the document through the mask

  HandleTable handles = HandleTable::kWorking;
  DescriptorTables descriptors = DescriptorTables::kWorking;
  int16_t playInfo = host::kDialogDontDisplay;
  bool hasRecording = false;
  std::vector<DescriptorValue> recording;  // what is played, in this order

  int32_t failAdvanceAt = kNever;  // the n-th advance by the filter fails with failCode
  int16_t failCode = -108;
  int32_t deliverNothingAt = kNever;  // the n-th advance by the filter answers 0 and delivers null pointers
  int32_t failCallAt = kNever;        // the n-th of all calls that can fail does so in its own way
  int32_t abortAtCall = kNever;       // abortProc answers true from its n-th call on

  // Told every advance as it is asked for, and every selector as it returns: also what went before a crash.
  std::function<void(const std::string& line)> trace;
};

struct Report {
  int16_t result = 0;  // of the last selector called
  std::vector<int16_t> selectors;
  Document document;             // as the user has it afterwards: the source's pixels when the run failed
  bool isOutputTouched = false;  // some output row was handed back, whatever became of it
  int32_t advances = 0;          // by the filter
  int32_t failableCalls = 0;     // calls that failCallAt counts
  int32_t abortCalls = 0;
  int32_t progressCalls = 0;
  int32_t handlesLeft = 0;  // made by the host and not disposed, the recorded descriptor apart
  bool wasRecorded = false;
  std::vector<DescriptorValue> recorded;
  bool descriptorIsNull = false;  // the field, after the run
  int16_t recordInfo = 0;
  std::string errorString;
  std::vector<std::string> complaints;  // empty for a well-behaved filter
};

// One invocation: (about,) (parameters,) prepare, start, then advance and continue while a rectangle is not
// empty, advance, finish; a selector's non-zero result ends it.
Report RunFilter(host::EntryPoint entry, const Document& source, const Switches& switches);

// The four characters of a code, for messages.
std::string CodeText(host::OSType code);

}  // namespace tessaline::testhost
