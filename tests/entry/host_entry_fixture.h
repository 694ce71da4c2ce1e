// The module, loaded as a host does it.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "platform/file.h"
#include "platform/system.h"
#include "session/host_interface.h"
#include "support/paths.h"
#include "tests/support/scratch.h"
#include "tools/platform/module_loader.h"
#include "tools/platform/this_process.h"

namespace Veldrift {

class HostEntry : public testing::Test {
 protected:
  void SetUp() override {
    const ScratchFolder& folder = Folder();
    ForbidDiscovery(folder.Path());
    const std::string home = PathText(folder.Path());
    for (const char* name : {"XDG_CONFIG_HOME", "XDG_STATE_HOME", "LOCALAPPDATA", "APPDATA"}) {
      SetEnvironment(name, home);
    }
    std::string error;
    module = LoadModule(GetExecutablePath().parent_path() / "Veldrift.prm", error,
                        {.roamingFolder = folder.Path(), .localFolder = folder.Path()});
    ASSERT_TRUE(module) << error;
    const auto entry =
        reinterpret_cast<Host::EntryFunction>(module->FindSymbol(Host::kEntryExport));
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry(nullptr, 0, nullptr, &table), Host::kNoError);
    EXPECT_EQ(table.Startup, nullptr) << "letting go fills nothing";
    EXPECT_EQ(entry(nullptr, 1, nullptr, &table), Host::kNoError);
  }

  // One for all tests: the module stays loaded, and keeps the folder that it found first.
  static const ScratchFolder& Folder() {
    static const ScratchFolder folder;
    return folder;
  }

  // How often `text` stands in the log that the module writes.
  static size_t CountInModuleLog(const std::string& text) {
    std::string log;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(Folder().Path())) {
      if (entry.path().filename() != GetPluginLogPath().filename()) continue;
      log += ReadWholeFile(entry.path()).value_or("");
    }
    return CountIn(log, text);
  }

  std::unique_ptr<LoadedModule> module;
  Host::TransmitTable table{};
};

}  // namespace Veldrift
