// A child with the crash handler that is driven into one of the deaths, and what it leaves.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/file.h"
#include "platform/system.h"
#include "tests/support/child.h"
#include "tests/support/scratch.h"

namespace Veldrift {

class CrashFixture : public testing::Test {
 protected:
  struct End {
    uint32_t process = 0;
    int exitCode = 0;
    uint32_t killedBy = 0;
  };

  // The sanitizers' own handlers stay away, so that a child ends as it would without them.
  static std::string WithoutHandlers(const char* variable) {
    return GetEnvironment(variable).value_or("") +
           ":handle_segv=0:handle_sigbus=0:handle_sigill=0:handle_sigfpe=0:handle_abort=0";
  }

  // Runs the disabled test of this program to its end; `detail` is for the child's DetailOfChild.
  static End Run(const ScratchFolder& folder, const std::string& test,
                 const std::string& detail = "") {
    const ScopedEnvironment given("VD_TEST_DETAIL", detail);
    const ScopedEnvironment address("ASAN_OPTIONS", WithoutHandlers("ASAN_OPTIONS"));
    const ScopedEnvironment thread("TSAN_OPTIONS", WithoutHandlers("TSAN_OPTIONS"));
    const auto child = StartChild(test, folder.Path());
    if (!child) return {};
    End end{child->Number()};
    end.exitCode = child->Wait();
    end.killedBy = child->KilledBy();
    return end;
  }

  static std::string DetailOfChild() { return GetEnvironment("VD_TEST_DETAIL").value_or(""); }

  static std::filesystem::path LocalDir(const ScratchFolder& folder) {
    return folder.Path() / "local" / "Veldrift";
  }

  static std::string LogOf(const ScratchFolder& folder) {
    return ReadWholeFile(LocalDir(folder) / "plugin-x.log").value_or("");
  }

  static size_t Count(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
      ++count;
    }
    return count;
  }
  static size_t FaultLines(const ScratchFolder& folder) {
    return Count(LogOf(folder), "[VEH] fatal exception");
  }

  static std::vector<std::filesystem::path> Dumps(const ScratchFolder& folder) {
    std::vector<std::filesystem::path> dumps;
    std::error_code none;
    for (const auto& entry :
         std::filesystem::directory_iterator(LocalDir(folder) / "crashes", none)) {
      dumps.push_back(entry.path());
    }
    return dumps;
  }
  static std::string OnlyDump(const ScratchFolder& folder) {
    const auto dumps = Dumps(folder);
    return dumps.size() == 1 ? ReadWholeFile(dumps[0]).value_or("") : "";
  }
};

}  // namespace Veldrift
