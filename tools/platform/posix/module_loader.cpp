#include "tools/platform/module_loader.h"

#include <dlfcn.h>

namespace Veldrift {
namespace {

class PosixModule final : public LoadedModule {
 public:
  explicit PosixModule(void* handle) : handle_(handle) {}
  ~PosixModule() override { dlclose(handle_); }
  PosixModule(const PosixModule&) = delete;
  PosixModule& operator=(const PosixModule&) = delete;

  void* FindSymbol(const char* name) const override { return dlsym(handle_, name); }

 private:
  void* const handle_;
};

}  // namespace

std::unique_ptr<LoadedModule> LoadModule(const std::filesystem::path& path, std::string& error,
                                         const ModuleOptions&) {
  // A bare name would be searched for in the library folders instead of being taken as a path.
  void* handle = dlopen(std::filesystem::absolute(path).c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle != nullptr) return std::make_unique<PosixModule>(handle);
  const char* message = dlerror();
  error = message == nullptr ? "" : message;
  return nullptr;
}

}  // namespace Veldrift
