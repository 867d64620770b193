// Memory that ends exactly before an inaccessible page.
#pragma once

#include <cstddef>

namespace tessaline::testhost {

class GuardedBlock {
 public:
  explicit GuardedBlock(size_t bytes);  // zero-filled; ends the program without memory
  GuardedBlock(const GuardedBlock&) = delete;
  GuardedBlock& operator=(const GuardedBlock&) = delete;
  ~GuardedBlock();
  void* data() const { return data_; }

 private:
  size_t pages_;  // bytes, without the inaccessible page
  void* start_;
  void* data_;
};

}  // namespace tessaline::testhost
