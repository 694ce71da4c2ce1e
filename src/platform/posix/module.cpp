#include "platform/module.h"

#include <dlfcn.h>
#include <link.h>

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

struct ModuleSearch {
  const std::string fileName;
  std::string path;
};

int NoteIfWanted(dl_phdr_info* module, size_t, void* data) {
  auto& search = *static_cast<ModuleSearch*>(data);
  if (std::filesystem::path(module->dlpi_name).filename() == search.fileName) {
    search.path = module->dlpi_name;
  }
  return search.path.empty() ? 0 : 1;
}

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

void* FindLoadedSymbol(const std::string& fileName, const char* symbol) {
  ModuleSearch search{fileName, {}};
  dl_iterate_phdr(NoteIfWanted, &search);
  if (search.path.empty()) return nullptr;
  void* handle = dlopen(search.path.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (handle == nullptr) return nullptr;
  void* address = dlsym(handle, symbol);
  dlclose(handle);
  return address;
}

bool PinThisModule() {
  Dl_info info{};
  void* map = nullptr;
  if (dladdr1(reinterpret_cast<void*>(&PinThisModule), &info, &map, RTLD_DL_LINKMAP) == 0) {
    return false;
  }
  const char* name = static_cast<link_map*>(map)->l_name;
  if (*name == '\0') return true;  // the executable
  void* handle = dlopen(name, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
  if (handle == nullptr) return false;
  dlclose(handle);
  return true;
}

}  // namespace Veldrift
