#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "platform/cpu.h"
#include "platform/files.h"
#include "platform/memory.h"
#include "platform/message.h"
#include "platform/parallel.h"
#include "tests/support/sanitizers.h"

namespace tessaline {
namespace {

TEST(Memory, BlocksAreZeroAlsoWhereOthersWereAndFailFromTheAskedOneOn) {
  for (int i = 0; i < 3; ++i) {
    auto* const block = static_cast<uint8_t*>(LockNewBlock(3000));
    ASSERT_TRUE(std::all_of(block, block + 3000, [](uint8_t byte) { return byte == 0; }));
    std::memset(block, 0xAB, 3000);
    FreeLockedBlock(block);
  }
  FreeLockedBlock(nullptr);
  FreeAlignedBlock(nullptr);
  for (const size_t bytes : {size_t{0}, size_t{1}, size_t{5000}, size_t{9} << 20}) {
    const auto block = AllocateBlock<uint8_t>(bytes);
    ASSERT_TRUE(std::all_of(block.get(), block.get() + bytes, [](uint8_t byte) { return byte == 0; }));
    EXPECT_EQ(0U, reinterpret_cast<uintptr_t>(block.get()) % (kIsWatched ? 16 : 64));
  }
  EXPECT_EQ(nullptr, LockNewAlignedBlock(SIZE_MAX - 1));
  FailAllocationAfter(1);
  for (const bool isGiven : {true, false, false}) {
    void* const block = LockNewBlock(0);
    EXPECT_EQ(isGiven, block != nullptr);
    FreeLockedBlock(block);
  }
  ClearAllocationFailure();
  FreeLockedBlock(LockNewBlock(1));
}

TEST(Files, AreReplacedWholeAndToldApartByWhatTheyAre) {
  namespace fs = std::filesystem;
  const fs::path folder = fs::path(testing::TempDir()) / "tessaline_platform_test";
  fs::remove_all(folder);
  SetPrivateFolder(folder.string().c_str());
  char bytes[8] = {};
  EXPECT_EQ(kFileIsMissing, ReadPrivateFile("file", bytes, sizeof bytes));
  for (const std::string content : {"first", "2nd"}) {
    ASSERT_TRUE(ReplacePrivateFile("file", content.data(), content.size()));
    EXPECT_EQ(static_cast<int64_t>(content.size()), ReadPrivateFile("file", bytes, sizeof bytes));
    EXPECT_EQ(content, std::string(bytes, content.size()));
  }
  fs::create_directory(folder / "taken");
  EXPECT_FALSE(ReplacePrivateFile("taken", "x", 1));
  EXPECT_EQ(kFileIsUnreadable, ReadPrivateFile("taken", bytes, sizeof bytes));
  EXPECT_EQ(2, std::distance(fs::directory_iterator(folder), {})) << "a temporary file was left";

  ASSERT_TRUE(ReplacePrivateFile("other", "2nd", 3));
  const std::string file = (folder / "file").string(), other = (folder / "other").string();
  EXPECT_TRUE(IsSameFile(file.c_str(), (folder / "taken" / ".." / "file").string().c_str()));
  EXPECT_FALSE(IsSameFile(file.c_str(), other.c_str()));
  EXPECT_FALSE(IsSameFile(file.c_str(), (folder / "none").string().c_str()));
  SetPrivateFolder(nullptr);
  fs::remove_all(folder);
}

std::string g_shown;

TEST(Message, GoesToTheHandlerThatIsSetAndElseToTheUser) {
  const MessageHandler handler = [](const char* text, const char* title) {
    g_shown = std::string(title) + "|" + text;
  };
  const MessageHandler before = SetMessageHandler(handler);
  ShowMessage("text", "title");
  EXPECT_EQ("title|text", g_shown);
  EXPECT_EQ(handler, SetMessageHandler(nullptr));
  if (std::filesystem::path::preferred_separator == '/') {  // elsewhere somebody would have to click
    testing::internal::CaptureStderr();
    ShowMessage("text", "title");
    EXPECT_EQ("title: text\n", testing::internal::GetCapturedStderr());
  }
  SetMessageHandler(before);
}

TEST(Cpu, OffersWideVectorsOnlyWhereTheProcessorHasThem) {
  EXPECT_EQ(__builtin_cpu_supports("avx2") != 0, DetectVectorLevel() >= VectorLevel::kAvx2);
  EXPECT_TRUE(DetectVectorLevel() < VectorLevel::kAvx512 || __builtin_cpu_supports("avx512bw"));
}

// Every thread takes one task, and the helpers end theirs only when the caller has been asked once.
TEST(Parallel, EveryTaskRunsOnceUnderItsThreadsNumberAndTheCallerAloneIsAsked) {
  const auto caller = std::this_thread::get_id();
  for (const int32_t threads : {1, 4, 4, 4, 4, 4}) {
    std::atomic<int> began = 0, asked = 0;
    std::vector<std::atomic<int>> byTask(threads), byWorker(threads), byRow(1000);
    std::vector<int32_t> polls;
    std::atomic<int> ended = 0;
    const auto pool = MakeThreadPool(threads);
    ASSERT_EQ(threads, pool->threads());
    const auto task = [&](int32_t index, int32_t worker) {
      ++byTask[index];
      ++byWorker[worker];
      ++began;
      while (began < threads || (asked == 0 && std::this_thread::get_id() != caller))
        std::this_thread::yield();
      ++ended;
    };
    const auto poll = [&](int32_t finished) {
      EXPECT_EQ(caller, std::this_thread::get_id());
      polls.push_back(finished);
      asked = 1;
      return false;
    };
    EXPECT_FALSE(ForEachTask(*pool, threads, task, poll));
    ASSERT_EQ(threads, ended);
    EXPECT_EQ((std::vector<int32_t>{1, threads}), polls);
    ForEachRow(*pool, 1000, [&](int32_t y) { ++byRow[y]; });
    for (const auto* const runs : {&byTask, &byWorker, &byRow})
      EXPECT_TRUE(std::all_of(runs->begin(), runs->end(), [](const auto& count) { return count == 1; }));
  }
}

TEST(Parallel, StopsAfterTheTaskThatThePollRefuses) {
  const auto pool = MakeThreadPool(1), several = MakeThreadPool(3);
  for (Parallel* const parallel : {&SerialWork(), pool.get(), several.get()}) {
    std::atomic<int> begun = 0, ended = 0;
    const auto task = [&](int32_t, int32_t) { ++begun, ++ended; };
    EXPECT_TRUE(ForEachTask(*parallel, 100, task, [](int32_t finished) { return finished >= 3; }));
    EXPECT_EQ(begun, ended);
    if (parallel->threads() == 1) {
      EXPECT_EQ(3, begun);
    }
  }
}

// What the helpers work on is gone once it has passed; and they begin no further task, of more than they
// could do.
TEST(Parallel, WhatThePollThrowsPassesWhenAllTasksHaveEnded) {
  constexpr int kTasks = 1000000000;
  const auto several = MakeThreadPool(3);
  for (Parallel* const parallel : {&SerialWork(), several.get()}) {
    std::atomic<int> begun = 0, ended = 0;
    std::atomic<bool> isThrown = false;
    const auto task = [&](int32_t, int32_t worker) {
      ++begun;
      const bool isFirst = !isThrown;
      while (worker == 0 ? begun < parallel->threads() : !isThrown) std::this_thread::yield();
      for (int i = 0; worker > 0 && isFirst && i < 1000; ++i) std::this_thread::yield();
      ++ended;
    };
    const auto poll = [&](int32_t) -> bool {
      isThrown = true;
      throw std::bad_alloc();
    };
    EXPECT_THROW(ForEachTask(*parallel, kTasks, task, poll), std::bad_alloc);
    EXPECT_EQ(ended, begun);
    EXPECT_LT(begun, kTasks);
    EXPECT_FALSE(ForEachTask(
        *parallel, 10, [](int32_t, int32_t) {}, [](int32_t) { return false; }));
  }
}

#ifdef TESSALINE_HARDENED
// The compiler sees neither how much is written nor that it is too much.
__attribute__((noinline)) void WriteOver(volatile char* to, size_t bytes) {
  while (bytes > 0) to[--bytes] = 1;
}

__attribute__((noinline)) char LastOfAnArray(size_t bytes) {
  char array[32] = {};
  WriteOver(array, bytes);
  return array[31];
}

TEST(Hardening, AFrameWrittenOverAndACopyPastTheEndEndTheProcess) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EQ(1, LastOfAnArray(32));
  EXPECT_DEATH(LastOfAnArray(64), "");
  volatile size_t bytes = 16;
  char from[64] = {}, to[16];
  std::memcpy(to, from, bytes);
  EXPECT_EQ(0, to[15]);
  bytes = 24;  // what follows in the frame would not end it
  EXPECT_DEATH(std::memcpy(to, from, bytes), "");
}
#endif

}  // namespace
}  // namespace tessaline
