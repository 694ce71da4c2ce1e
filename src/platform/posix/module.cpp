#include "platform/module.h"

#include <dlfcn.h>
#include <link.h>

#include <climits>
#include <string_view>

namespace Veldrift {
namespace {

struct ModuleSearch {
  const std::string_view fileName;
  char path[PATH_MAX] = "";
};

// Runs inside the loader, through which nothing may be thrown: it allocates nothing.
int NoteIfWanted(dl_phdr_info* module, size_t, void* data) noexcept {
  auto& search = *static_cast<ModuleSearch*>(data);
  const std::string_view path = module->dlpi_name;
  if (path.substr(path.rfind('/') + 1) != search.fileName) return 0;
  if (path.size() >= sizeof search.path) return 0;
  path.copy(search.path, path.size());
  return 1;
}

}  // namespace

void* FindLoadedSymbol(const std::string& fileName, const char* symbol) {
  ModuleSearch search{fileName};
  if (dl_iterate_phdr(NoteIfWanted, &search) == 0) return nullptr;
  void* handle = dlopen(search.path, RTLD_NOW | RTLD_NOLOAD);
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
