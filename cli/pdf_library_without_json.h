// Clang 14 cannot compile the PDF library's JSON class in C++20: for the destructor of a vector of it, which
// the standard library has made constexpr, it demands the whole class inside the class. Nothing here uses it;
// included before everything else, this stands for its header.
#pragma once

#define JSON_HH
class JSON;
