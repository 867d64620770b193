// The parameter list as lines of text, the form in which the programmatic interface takes and returns it.
// The lines: tessaline_legacy.h (for the filter's own three) and the table in the implementation.
#pragma once

#include <cstddef>
#include <cstdint>

#include "glue/parameters/parameter_list.h"

namespace tessaline {

// Takes the values that fit from `text` (up to its NUL, at most `capacity` bytes) into the list: only as many
// lines as the list has entries (and extra text lines) are looked at, each says by its key which entry it
// means. What does not fit is ignored silently. Does not depend on the locale. 0; kInvalidSlotOrFile for a
// null text; kOutOfMemory, with the values of the lines before, when there is no memory for a line.
int32_t ReadParameterText(const char* text, size_t capacity, ParameterList* list);

// Writes the list's lines, each ended by CR LF, and a NUL into `text`. A line that would not fit in
// `capacity` bytes is left out with all after it. An entry of unknown type is shown in a message titled
// "Diagnostic" and left out. Nothing happens for a null text or no capacity.
void WriteParameterText(const ParameterList& list, char* text, size_t capacity);

}  // namespace tessaline
