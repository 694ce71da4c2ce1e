#include "tests/support/child.h"

#include "platform/file.h"
#include "platform/system.h"
#include "tools/platform/this_process.h"

namespace Veldrift {
namespace {

constexpr const char* kFolderVariable = "VD_TEST_CHILD_FOLDER";

}  // namespace

std::unique_ptr<ChildProcess> StartChild(const std::string& test,
                                         const std::filesystem::path& folder) {
  const std::string text = PathText(folder);
  const ScopedEnvironment given(kFolderVariable, text);
  const ScopedEnvironment posixTemporary("TMPDIR", text);
  const ScopedEnvironment windowsTemporary("TMP", text);
  return StartProcess(GetExecutablePath(), ChildArguments(test));
}

std::filesystem::path ChildFolder() {
  return PathFromText(GetEnvironment(kFolderVariable).value_or(""));
}

std::vector<std::string> ChildArguments(const std::string& test) {
  return {"--gtest_filter=" + test, "--gtest_also_run_disabled_tests", "--gtest_brief=1"};
}

ScopedEnvironment::ScopedEnvironment(const char* name, const std::optional<std::string>& value)
    : name_(name), before_(GetEnvironment(name)) {
  SetEnvironment(name, value);
}

ScopedEnvironment::~ScopedEnvironment() { SetEnvironment(name_, before_); }

}  // namespace Veldrift
