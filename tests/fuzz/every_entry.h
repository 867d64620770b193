// A parameter list with the filter's three entries and one of every other type.
#pragma once

#include <bit>
#include <memory>

#include "glue/parameters/parameter_list.h"
#include "glue/parameters/settings_record.h"
#include "tests/fuzz/bytes.h"

namespace tessaline::fuzz {

struct FreeList {
  void operator()(ParameterList* list) const { FreeParameterList(list); }
};
using ListPointer = std::unique_ptr<ParameterList, FreeList>;

inline ListPointer ListOfEveryType() {
  ClearSettings();
  ListPointer list(MakeParameterList());
  DEMAND(list != nullptr);
  const auto add = [&](uint32_t key, uint32_t type, uint32_t most, uint32_t value) {
    list->entries[list->entryCount++] = {key, type, 1, 0, most, value};
  };
  AddLongEntry(list.get(), kKeyUnit, 0, 5, 1);
  add(FourCharCode("brus"), FourCharCode("BrTy"), 9, 3);
  add(FourCharCode("flag"), kTypeBool, 0, 0);
  add(FourCharCode("path"), kTypePath, 0, 0);
  return list;
}

// The values lie in their ranges, or are the zeros of a list that nothing was read into.
inline void DemandRanges(const ParameterList& list) {
  for (int32_t i = 0; i < list.entryCount; ++i) {
    const ParameterEntry& entry = list.entries[i];
    if (entry.valueBits == 0) continue;
    if (entry.type == kTypeFloat) {
      const auto value = std::bit_cast<float>(entry.valueBits);
      DEMAND(value >= std::bit_cast<float>(entry.minimumBits) &&
             value <= std::bit_cast<float>(entry.maximumBits));
    } else if (entry.type == kTypeBool) {
      DEMAND(entry.valueBits == 1);
    } else if (entry.type != kTypePath) {
      const auto value = static_cast<int32_t>(entry.valueBits);
      DEMAND(value >= static_cast<int32_t>(entry.minimumBits) &&
             value <= static_cast<int32_t>(entry.maximumBits));
    }
  }
}

}  // namespace tessaline::fuzz
