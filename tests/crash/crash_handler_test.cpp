// Children that really die, and what they leave behind.
#include "support/crash_handler.h"

#include <barrier>
#include <cstdio>
#include <regex>
#include <thread>

#include "session/host_interface.h"
#include "support/paths.h"
#include "tests/crash/crash_fixture.h"
#include "tests/crash/deaths.h"
#include "tests/crash/instructions.h"
#include "tools/platform/module_loader.h"
#include "tools/platform/this_process.h"

namespace Veldrift {
namespace {

using CrashHandler = CrashFixture;

const Death* DeathOf(const std::string& name) {
  for (const Death& death : Deaths()) {
    if (name == death.name) return &death;
  }
  return nullptr;
}

void InstallInChild() {
  PrepareToDie();
  UseFoldersUnder(ChildFolder());
  InstallCrashHandler();
}

std::string CodeText(uint32_t code) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", unsigned{code});
  return text;
}

// One line about the fault, whole and in the log's own shape.
void ExpectLine(const std::string& log, const Death& death) {
  const std::string place =
      death.inProgram ? "addr=(0x)?[0-9a-f]+ module=crash_test(\\.exe)?\\+0x[1-9a-f][0-9a-f]*"
                      : death.place;
  const std::regex line(
      "\\[\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} "
      "com\\.ombrette\\.veldrift:crash:FAULT\\] "
      "\\[VEH\\] fatal exception code=" +
      CodeText(death.code) + " " + place + " tid=[1-9]\\d*\r\n");
  EXPECT_TRUE(std::regex_search(log, line)) << log;
}

void ExpectDump(const std::vector<std::filesystem::path>& dumps, uint32_t process,
                const Death& death) {
  ASSERT_EQ(dumps.size(), 1u);
  const std::regex name("\\d{4}-\\d\\d-\\d\\d_\\d\\d-\\d\\d-\\d\\d_" + std::to_string(process) +
                        "\\." + kDumpEnding);
  EXPECT_TRUE(std::regex_match(PathText(dumps[0].filename()), name)) << PathText(dumps[0]);
  EXPECT_EQ(FaultOfDump(ReadWholeFile(dumps[0]).value_or(""), death), "");
}

TEST_F(CrashHandler, DISABLED_Dies) {
  InstallInChild();
  DeathOf(DetailOfChild())->die();
}

TEST_F(CrashHandler, AFatalFaultLeavesALineAndADumpAndEndsTheProcessAsItWould) {
  for (const Death& death : Deaths()) {
    SCOPED_TRACE(death.name);
    const ScratchFolder folder;
    const End end = Run(folder, "CrashHandler.DISABLED_Dies", death.name);
    EXPECT_EQ(end.killedBy, death.killedBy) << "exit code " << end.exitCode;
    EXPECT_EQ(FaultLines(folder), death.code != 0 ? 1u : 0u) << LogOf(folder);
    if (death.code != 0) ExpectLine(LogOf(folder), death);
    ExpectDump(Dumps(folder), end.process, death);
  }
}

TEST_F(CrashHandler, DISABLED_SurvivesAFault) {
  PrepareToSurvive();
  InstallInChild();
  SurviveAccessViolation();
}

TEST_F(CrashHandler, AFaultThatIsCaughtLeavesALine) {
  const ScratchFolder folder;
  EXPECT_EQ(Run(folder, "CrashHandler.DISABLED_SurvivesAFault").exitCode, 0);
  EXPECT_EQ(FaultLines(folder), 1u) << LogOf(folder);
  EXPECT_EQ(Dumps(folder).size(), kDumpsCaughtFaults ? 1u : 0u);
}

TEST_F(CrashHandler, DISABLED_DiesUnderAnEarlierHandler) {
  InstallEarlierHandler();
  InstallInChild();
  DeathOf("access violation")->die();
}

TEST_F(CrashHandler, WhatWasInstalledBeforeHasTheLastWord) {
  const ScratchFolder folder;
  const End end = Run(folder, "CrashHandler.DISABLED_DiesUnderAnEarlierHandler");
  EXPECT_EQ(end.exitCode, kEarlierExit);
  EXPECT_EQ(FaultLines(folder), 1u);
  ExpectDump(Dumps(folder), end.process, *DeathOf("access violation"));
}

TEST_F(CrashHandler, DISABLED_InstallsTwice) {
  InstallInChild();
  InstallCrashHandler();
  DeathOf("access violation")->die();
}

TEST_F(CrashHandler, ASecondInstallationChangesAndLogsNothing) {
  const ScratchFolder folder;
  EXPECT_EQ(Run(folder, "CrashHandler.DISABLED_InstallsTwice").killedBy,
            DeathOf("access violation")->killedBy);
  EXPECT_EQ(Count(LogOf(folder),
                  "com.ombrette.veldrift:crash:INFO] crash handler installed (dumps → "
                  "%LOCALAPPDATA%\\Veldrift\\crashes\\, + VEH diagnostic)\r\n"),
            1u)
      << LogOf(folder);
  EXPECT_EQ(FaultLines(folder), 1u);
  EXPECT_EQ(Dumps(folder).size(), 1u);
}

TEST_F(CrashHandler, DISABLED_MeetsHarmlessExceptions) {
  InstallInChild();
  PassHarmlessExceptions();
}

TEST_F(CrashHandler, OtherExceptionsPassWithoutALine) {
  const ScratchFolder folder;
  EXPECT_EQ(Run(folder, "CrashHandler.DISABLED_MeetsHarmlessExceptions").exitCode, 0);
  EXPECT_EQ(Count(LogOf(folder), "crash handler installed"), 1u);
  EXPECT_EQ(FaultLines(folder), 0u) << LogOf(folder);
  EXPECT_TRUE(Dumps(folder).empty());
}

// ---- Many at once -------------------------------------------------------------------------------

TEST_F(CrashHandler, DISABLED_DiesOnManyThreads) {
  if (DetailOfChild() == "earlier handler") InstallEarlierHandler();
  InstallInChild();
  std::barrier together(8);
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&together] {
      together.arrive_and_wait();
      StoreAtAddressEight();
    });
  }
  for (auto& thread : threads) thread.join();
}

TEST_F(CrashHandler, OfManyThreadsThatCrashTogetherOneLeavesAWholeDump) {
  const Death& death = *DeathOf("access violation");
  for (const char* detail : {"earlier handler", "none", "earlier handler", "none"}) {
    const ScratchFolder folder;
    const End end = Run(folder, "CrashHandler.DISABLED_DiesOnManyThreads", detail);
    EXPECT_TRUE(end.exitCode == kEarlierExit || end.killedBy == death.killedBy) << end.exitCode;
    EXPECT_GE(FaultLines(folder), 1u) << LogOf(folder);
    ExpectDump(Dumps(folder), end.process, death);
  }
}

// ---- The module ---------------------------------------------------------------------------------

void LoadStartAndUnload(const std::filesystem::path& local) {
  std::string error;
  const auto module = LoadModule(GetExecutablePath().parent_path() / "Veldrift.prm", error,
                                 {.roamingFolder = local, .localFolder = local});
  ASSERT_TRUE(module) << error;
  const auto entry = reinterpret_cast<Host::EntryFunction>(module->FindSymbol(Host::kEntryExport));
  Host::TransmitTable table{};
  ASSERT_EQ(entry(nullptr, 1, nullptr, &table), Host::kNoError);
  Host::PluginRecord plugin{};
  EXPECT_EQ(table.Startup(&plugin), Host::kNoError);
  EXPECT_EQ(table.Shutdown(), Host::kNoError);
}

TEST_F(CrashHandler, DISABLED_DiesAfterTheModuleWasUnloaded) {
  PrepareToDie();
  const auto local = ChildFolder() / "local";
  for (const char* name : {"XDG_CONFIG_HOME", "XDG_STATE_HOME", "LOCALAPPDATA", "APPDATA"}) {
    SetEnvironment(name, PathText(local));
  }
  for (int turn = 0; turn < 10; ++turn) LoadStartAndUnload(local);
  DeathOf("access violation")->die();
}

TEST_F(CrashHandler, TheModuleInstallsItFirstAndStaysForIt) {
  const ScratchFolder folder;
  const End end = Run(folder, "CrashHandler.DISABLED_DiesAfterTheModuleWasUnloaded");
  EXPECT_EQ(end.killedBy, DeathOf("access violation")->killedBy) << "exit code " << end.exitCode;
  const std::string log = LogOf(folder);
  EXPECT_EQ(Count(log, "crash handler installed"), 1u);
  EXPECT_EQ(Count(log, "Ombrette plugin v"), 10u);
  EXPECT_LT(log.find("crash handler installed"), log.find("Ombrette plugin v"));
  EXPECT_EQ(FaultLines(folder), 1u) << log;
  ExpectDump(Dumps(folder), end.process, *DeathOf("access violation"));
}

}  // namespace
}  // namespace Veldrift
