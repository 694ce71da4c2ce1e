// This test program once more, as another process that runs one test which is disabled otherwise.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "tools/platform/process.h"

namespace Veldrift {

// `test` is "Subject.DISABLED_Claim". The child's own scratch folders lie under `folder`, so that
// nothing is left of a child that is killed; it finds `folder` by ChildFolder().
std::unique_ptr<ChildProcess> StartChild(const std::string& test,
                                         const std::filesystem::path& folder);

// In the child: what its parent gave it. Empty when somebody runs the disabled test by hand.
std::filesystem::path ChildFolder();

// The arguments that make this program run that one test.
std::vector<std::string> ChildArguments(const std::string& test);

// Sets an environment variable for a scope.
class ScopedEnvironment {
 public:
  ScopedEnvironment(const char* name, const std::optional<std::string>& value);
  ~ScopedEnvironment();
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  const char* const name_;
  const std::optional<std::string> before_;
};

}  // namespace Veldrift
