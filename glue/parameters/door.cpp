#include "glue/parameters/door.h"

#include <atomic>

namespace tessaline {

namespace {

// Made by the compiler: a static with a constructor to run would itself need a lock.
constinit std::atomic_flag g_isTaken;

}  // namespace

EngineTurn::EngineTurn() : isMine_(!g_isTaken.test_and_set(std::memory_order_acquire)) {}

EngineTurn::~EngineTurn() {
  if (isMine_) g_isTaken.clear(std::memory_order_release);
}

}  // namespace tessaline
