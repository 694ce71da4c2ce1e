// What is the Windows handler's own: what goes to the debugger's channel, and the answers of its
// two parts.
#include "platform/win32/handle.h"
#include "platform/win32/windows_headers.h"

#include <cstdlib>
#include <cstring>

#include "support/crash_handler.h"
#include "support/paths.h"
#include "support/plugin_log.h"
#include "tests/crash/crash_fixture.h"
#include "tests/crash/deaths.h"

namespace Veldrift {
namespace {

using WindowsCrashHandler = CrashFixture;

constexpr DWORD kDebuggerText = 0x40010006;  // what OutputDebugStringA raises
constexpr ULONG kLast = 0;

// The debugger's channel, as far as it was used; written to a file when the process dies.
char channel[65536];
size_t channelLength = 0;

LONG CALLBACK Listen(EXCEPTION_POINTERS* exception) {
  const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
  if (record.ExceptionCode == kDebuggerText && record.NumberParameters == 2) {
    const auto* text = reinterpret_cast<const char*>(record.ExceptionInformation[1]);
    const size_t count = std::strlen(text);
    if (channelLength + count < sizeof channel) {
      std::memcpy(channel + channelLength, text, count);
      channelLength += count;
    }
  }
  return EXCEPTION_CONTINUE_SEARCH;
}

HANDLE channelFile = INVALID_HANDLE_VALUE;
LONG WINAPI WriteChannel(EXCEPTION_POINTERS*) {
  DWORD written = 0;
  WriteFile(channelFile, channel, static_cast<DWORD>(channelLength), &written, nullptr);
  return EXCEPTION_CONTINUE_SEARCH;
}

TEST_F(WindowsCrashHandler, DISABLED_DiesHeard) {
  PrepareToDie();
  UseFoldersUnder(ChildFolder());
  channelFile = CreateFileW((ChildFolder() / "channel.txt").c_str(), GENERIC_WRITE, FILE_SHARE_READ,
                            nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  AddVectoredExceptionHandler(kLast, Listen);
  SetUnhandledExceptionFilter(WriteChannel);
  InstallCrashHandler();
  for (const Death& death : Deaths()) {
    if (std::string(death.name) == DetailOfChild()) death.die();
  }
}

TEST_F(WindowsCrashHandler, AStackOverflowIsToldToTheDebuggerOnly) {
  const ScratchFolder folder;
  EXPECT_EQ(Run(folder, "WindowsCrashHandler.DISABLED_DiesHeard", "stack overflow").killedBy,
            0xC00000FDu);
  const std::string told = ReadWholeFile(folder.Path() / "channel.txt").value_or("");
  EXPECT_EQ(Count(told, "[Veldrift][VEH] STACK_OVERFLOW — minidump has context\n"), 1u) << told;
  EXPECT_EQ(Count(LogOf(folder), "[VEH]"), 0u);
  const auto dumps = Dumps(folder);
  ASSERT_EQ(dumps.size(), 1u);
  EXPECT_EQ(Count(told, "[Veldrift] crash dump: " + PathText(dumps[0]) + "\n"), 1u) << told;
}

__attribute__((noinline)) int Descend(int depth) {
  char room[4096];
  if (depth < 0) return 0;
  asm volatile("" ::"r"(room) : "memory");  // all of it is needed
  return Descend(depth + 1) + room[0];
}

// On a thread of its own: where there is no room for anything Wine ends the thread, and not the
// process, whose other threads would live on.
TEST_F(WindowsCrashHandler, DISABLED_OverflowsItsStack) {
  PrepareToDie();
  UseFoldersUnder(ChildFolder());
  InstallCrashHandler();
  PluginLog({"com.example", "demo"}, kLogInfo, "about to descend");
  const auto descend = [](void*) -> DWORD { return static_cast<DWORD>(Descend(0)); };
  const Handle thread(CreateThread(nullptr, 0, descend, nullptr, 0, nullptr));
  WaitForSingleObject(thread.Get(), INFINITE);
}

// What is left of the stack varies by system: whether there is a dump isn't asked here.
TEST_F(WindowsCrashHandler, AStackThatReallyRanOverLeavesTheLogAlone) {
  const ScratchFolder folder;
  Run(folder, "WindowsCrashHandler.DISABLED_OverflowsItsStack");
  EXPECT_TRUE(LogOf(folder).ends_with("about to descend\r\n")) << LogOf(folder);
}

// The stack is nearly used up, as it is when the system raises this by itself: a dump that was
// written there would run over it.
constexpr size_t kRoomLeft = 24 * 1024;
[[gnu::noinline]] int DescendAndRaise(const char* bottom) {
  char room[1024];
  asm volatile("" ::"r"(room) : "memory");
  if (room > bottom + kRoomLeft) return DescendAndRaise(bottom) + room[0];
  RaiseException(EXCEPTION_STACK_OVERFLOW, 0, 0, nullptr);
  return room[0];
}

DWORD WINAPI RunOutOfStack(void*) {
  ULONG_PTR low = 0, high = 0;
  GetCurrentThreadStackLimits(&low, &high);
  return static_cast<DWORD>(DescendAndRaise(reinterpret_cast<const char*>(low)));
}

TEST_F(WindowsCrashHandler, DISABLED_DiesWithLittleStackLeft) {
  PrepareToDie();
  UseFoldersUnder(ChildFolder());
  InstallCrashHandler();
  const Handle thread(CreateThread(nullptr, 1 << 20, RunOutOfStack, nullptr, 0, nullptr));
  WaitForSingleObject(thread.Get(), INFINITE);
}

TEST_F(WindowsCrashHandler, AStackOverflowIsDumpedFromAnotherStack) {
  const ScratchFolder folder;
  EXPECT_EQ(Run(folder, "WindowsCrashHandler.DISABLED_DiesWithLittleStackLeft").killedBy,
            0xC00000FDu);
  for (const Death& death : Deaths()) {
    if (std::string(death.name) != "stack overflow") continue;
    EXPECT_EQ(FaultOfDump(OnlyDump(folder), death), "");
  }
}

// ---- A crash in the dump ------------------------------------------------------------------------

// Gives the installed filter a context that can't be read.
TEST_F(WindowsCrashHandler, DISABLED_DiesInItsDump) {
  InstallEarlierHandler();
  PrepareToDie();
  UseFoldersUnder(ChildFolder());
  InstallCrashHandler();
  const LPTOP_LEVEL_EXCEPTION_FILTER filter = SetUnhandledExceptionFilter(nullptr);
  SetUnhandledExceptionFilter(filter);
  EXCEPTION_RECORD record{};
  record.ExceptionCode = std::strtoul(DetailOfChild().c_str(), nullptr, 16);
  EXCEPTION_POINTERS exception{&record, reinterpret_cast<CONTEXT*>(8)};
  filter(&exception);
}

TEST_F(WindowsCrashHandler, ACrashInTheDumpGoesToTheEarlierHandler) {
  for (const char* code : {"C0000005", "C00000FD"}) {
    const ScratchFolder folder;
    EXPECT_EQ(Run(folder, "WindowsCrashHandler.DISABLED_DiesInItsDump", code).exitCode,
              kEarlierExit);
    EXPECT_EQ(FaultLines(folder), 1u) << code << LogOf(folder);
    EXPECT_EQ(Dumps(folder).size(), 1u);
  }
}

// ---- Answers ------------------------------------------------------------------------------------

LONG WINAPI AnswerOne(EXCEPTION_POINTERS*) { return 1; }

// Asks the installed filter about a made-up exception.
LONG AskFilter() {
  EXCEPTION_RECORD record{};
  record.ExceptionCode = EXCEPTION_ACCESS_VIOLATION;
  CONTEXT context{};
  RtlCaptureContext(&context);
  EXCEPTION_POINTERS exception{&record, &context};
  return SetUnhandledExceptionFilter(nullptr)(&exception);
}

TEST_F(WindowsCrashHandler, DISABLED_AsksTheFilter) {
  UseFoldersUnder(ChildFolder());
  SetUnhandledExceptionFilter(DetailOfChild() == "one" ? AnswerOne : nullptr);
  InstallCrashHandler();
  std::exit(AskFilter() + 10);
}

TEST_F(WindowsCrashHandler, TheFilterAnswersWhatTheOneBeforeAnswered) {
  const struct {
    const char* before;
    int exitCode;
  } kCases[] = {{"one", 11}, {"nothing", 10}};
  for (const auto& [before, exitCode] : kCases) {
    const ScratchFolder folder;
    EXPECT_EQ(Run(folder, "WindowsCrashHandler.DISABLED_AsksTheFilter", before).exitCode, exitCode)
        << before;
    EXPECT_TRUE(OnlyDump(folder).starts_with("MDMP")) << before;
  }
}

// ---- Where the dumps can't go -------------------------------------------------------------------

TEST_F(WindowsCrashHandler, WithoutAPlaceForTheDumpItIsSilent) {
  const ScratchFolder folder;
  std::filesystem::create_directories(LocalDir(folder));
  WriteWholeFile(LocalDir(folder) / "crashes", "in the way");
  EXPECT_EQ(Run(folder, "WindowsCrashHandler.DISABLED_DiesHeard", "access violation").killedBy,
            0xC0000005u);
  EXPECT_EQ(FaultLines(folder), 1u);
  const std::string told = ReadWholeFile(folder.Path() / "channel.txt").value_or("");
  EXPECT_EQ(Count(told, "[VEH] fatal exception"), 1u) << told;
  EXPECT_EQ(Count(told, "crash dump"), 0u) << told;
}

}  // namespace
}  // namespace Veldrift
