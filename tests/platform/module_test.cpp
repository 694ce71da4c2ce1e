#include "tools/platform/module_loader.h"

#include <gtest/gtest.h>

#include "platform/file.h"
#include "platform/system.h"
#include "tests/support/child.h"
#include "tests/support/scratch.h"

namespace Veldrift {
namespace {

std::filesystem::path TestModule() {
  return GetExecutablePath().parent_path() / "vd_test_module.prm";
}

TEST(Module, ItsSymbolsAreFoundByName) {
  std::string error;
  const auto module = LoadModule(TestModule(), error);
  ASSERT_NE(module, nullptr) << error;
  EXPECT_NE(module->FindSymbol("vd_test_roaming_folder"), nullptr);
  EXPECT_EQ(module->FindSymbol("vd_test_no_such_thing"), nullptr);
}

TEST(Module, WhatIsNotALibraryIsRefusedWithTheSystemsText) {
  const ScratchFolder folder;
  WriteWholeFile(folder.Path() / "text.prm", "no library");
  for (const char* name : {"missing.prm", "text.prm"}) {
    std::string error;
    EXPECT_EQ(LoadModule(folder.Path() / name, error), nullptr);
    EXPECT_FALSE(error.empty()) << name;
  }
}

// The option is the way on Windows, the variable elsewhere: given both, the module's settings lie
// where its loader says on any system.
TEST(Module, ItsSettingsLieWhereItsLoaderSays) {
  const ScratchFolder folder;
  const ScopedEnvironment variable("XDG_CONFIG_HOME", PathText(folder.Path()));
  std::string error;
  const auto module = LoadModule(TestModule(), error, {.roamingFolder = folder.Path()});
  ASSERT_NE(module, nullptr) << error;
  const auto ask =
      reinterpret_cast<void (*)(char*, size_t)>(module->FindSymbol("vd_test_roaming_folder"));
  ASSERT_NE(ask, nullptr);
  char text[1024] = "";
  ask(text, sizeof text);
  EXPECT_EQ(std::string(text), PathText(folder.Path()));
}

}  // namespace
}  // namespace Veldrift
