// The picture library's objects and errors, in this program's terms.
#pragma once

#include <vips/vips.h>

#include <memory>
#include <string>

namespace tessaline::cli {

struct GObjectUnref {
  void operator()(void* object) const { g_object_unref(object); }
};
template <typename T>
using GPointer = std::unique_ptr<T, GObjectUnref>;

// Makes the library ready; again and again does no harm. Not before a fork whose child uses it: it starts
// threads. Its own warnings and those of the format libraries go nowhere: what matters comes back as an
// error.
void StartPictureLibrary();

// Loads what the library has in a module of its own for a format, which is named by an operation such as
// "jxlload_source". Refuses with kOutOfMemory when there is a module and it cannot be loaded; a format that
// is nowhere is told of when it is used.
void LoadModuleFor(const std::string& operation);

// While it lives, nothing that a format library prints reaches stderr: some do so on damaged files, and their
// lines would stand between this program's.
class StderrSilenced {
 public:
  StderrSilenced();
  ~StderrSilenced();
  StderrSilenced(const StderrSilenced&) = delete;
  StderrSilenced& operator=(const StderrSilenced&) = delete;

 private:
  int saved_;
};

// What the library complained about since the last call, on one line.
std::string TakeLibraryError();

}  // namespace tessaline::cli
