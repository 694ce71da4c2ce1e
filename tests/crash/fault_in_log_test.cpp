// A fault inside the log, on a thread that holds the log's lock.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <utility>

#include "support/crash_handler.h"
#include "support/paths.h"
#include "support/plugin_log.h"
#include "tests/crash/crash_fixture.h"
#include "tests/crash/deaths.h"
#include "tests/crash/instructions.h"

namespace {

// The log allocates for the path alone, under its lock.
thread_local bool nextAllocationFaults = false;

}  // namespace

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VD_OPERATOR_NEW_IS_TAKEN
#endif
#endif

#ifndef VD_OPERATOR_NEW_IS_TAKEN
[[gnu::noinline]] void* operator new(size_t size) {
  if (std::exchange(nextAllocationFaults, false)) Veldrift::StoreAtAddressEight();
  void* const memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept { std::free(memory); }
#endif

namespace Veldrift {
namespace {

using FaultInLog = CrashFixture;

TEST_F(FaultInLog, DISABLED_DiesInTheLog) {
  InstallEarlierHandler();
  PrepareToDie();
  UseFoldersUnder(ChildFolder());
  InstallCrashHandler();
  nextAllocationFaults = true;
  PluginLog({"com.example", "demo"}, kLogInfo, "never written");
}

TEST_F(FaultInLog, TheProcessEndsAsItWouldWithALineAndADump) {
#ifdef VD_OPERATOR_NEW_IS_TAKEN
  GTEST_SKIP() << "the sanitizer has an operator new of its own, so that no allocation can fault";
#endif
  constexpr int64_t kPatience = 60'000'000'000;
  const ScratchFolder folder;
  const auto child = StartChild("FaultInLog.DISABLED_DiesInTheLog", folder.Path());
  ASSERT_NE(child, nullptr);
  EXPECT_EQ(child->WaitFor(kPatience), kEarlierExit) << "it may wait for ever";
  EXPECT_EQ(FaultLines(folder), 1u) << LogOf(folder);
  EXPECT_EQ(Count(LogOf(folder), "never written"), 0u);
  EXPECT_EQ(Dumps(folder).size(), 1u);
}

}  // namespace
}  // namespace Veldrift
