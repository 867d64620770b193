// The text of the programmatic interface, of any length and without an end, into a list with entries of every
// type.
#include <bit>
#include <memory>

#include "glue/api/parameter_text.h"
#include "tests/fuzz/bytes.h"
#include "tests/fuzz/every_entry.h"

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
  using namespace tessaline;
  fuzz::Bytes input(bytes, count);
  const size_t capacity = input.Take<uint16_t>() % 5000;
  const fuzz::ListPointer list = fuzz::ListOfEveryType();
  list->extraTextLines = input.Pick(4);
  const std::string text = input.Rest();
  const auto exact = std::make_unique<char[]>(text.size());  // what is read beyond it is noticed
  std::memcpy(exact.get(), text.data(), text.size());
  ReadParameterText(exact.get(), text.size(), list.get());
  fuzz::DemandRanges(*list);

  const auto written = std::make_unique<char[]>(capacity);
  WriteParameterText(*list, written.get(), capacity);
  DEMAND(capacity == 0 || std::memchr(written.get(), '\0', capacity) != nullptr);
  // What is written means the same again. Floats are written with six decimals, so the text is compared.
  std::string first(20000, '\0'), again(20000, '\0');
  WriteParameterText(*list, first.data(), first.size());
  ReadParameterText(first.data(), first.size(), list.get());
  WriteParameterText(*list, again.data(), again.size());
  DEMAND(first == again);
  return 0;
}
