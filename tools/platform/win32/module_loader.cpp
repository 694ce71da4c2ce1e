#include "tools/platform/module_loader.h"

#include "platform/win32/windows_headers.h"
// The rest needs windows.h before it.
#include <knownfolders.h>
#include <shlobj.h>

#include <cstring>

namespace Veldrift {
namespace {

// Read by the answering function below, which has no argument to carry it.
ModuleOptions& Answers() {
  static ModuleOptions answers;
  return answers;
}

const std::optional<std::filesystem::path>* AnswerFor(REFKNOWNFOLDERID id) {
  if (IsEqualGUID(id, FOLDERID_RoamingAppData)) return &Answers().roamingFolder;
  if (IsEqualGUID(id, FOLDERID_LocalAppData)) return &Answers().localFolder;
  return nullptr;
}

HRESULT WINAPI AnswerKnownFolder(REFKNOWNFOLDERID id, DWORD flags, HANDLE token, PWSTR* path) {
  const auto* answer = AnswerFor(id);
  if (answer == nullptr || !*answer) return SHGetKnownFolderPath(id, flags, token, path);
  const std::wstring& folder = (*answer)->native();
  const size_t bytes = (folder.size() + 1) * sizeof(wchar_t);
  *path = static_cast<PWSTR>(CoTaskMemAlloc(bytes));
  if (*path == nullptr) return E_OUTOFMEMORY;
  std::memcpy(*path, folder.c_str(), bytes);
  return S_OK;
}

template <typename T>
T* At(HMODULE module, DWORD offset) {
  return reinterpret_cast<T*>(reinterpret_cast<std::byte*>(module) + offset);
}

void Overwrite(ULONGLONG& slot, ULONGLONG value) {
  DWORD protection = 0;
  if (!VirtualProtect(&slot, sizeof slot, PAGE_READWRITE, &protection)) return;
  slot = value;
  VirtualProtect(&slot, sizeof slot, protection, &protection);
}

// Replaces the function in one imported library's address table.
void ReplaceIn(HMODULE module, const IMAGE_IMPORT_DESCRIPTOR& library, const char* name,
               ULONGLONG replacement) {
  const auto* names = At<const IMAGE_THUNK_DATA64>(module, library.OriginalFirstThunk);
  auto* addresses = At<IMAGE_THUNK_DATA64>(module, library.FirstThunk);
  for (; names->u1.AddressOfData != 0; ++names, ++addresses) {
    if (IMAGE_SNAP_BY_ORDINAL64(names->u1.Ordinal)) continue;
    const auto* import =
        At<const IMAGE_IMPORT_BY_NAME>(module, static_cast<DWORD>(names->u1.AddressOfData));
    if (std::strcmp(reinterpret_cast<const char*>(import->Name), name) == 0) {
      Overwrite(addresses->u1.Function, replacement);
    }
  }
}

// Replaces the function wherever the loaded module imports it by name.
void ReplaceImport(HMODULE module, const char* name, ULONGLONG replacement) {
  const auto* dos = At<const IMAGE_DOS_HEADER>(module, 0);
  const auto* headers = At<const IMAGE_NT_HEADERS64>(module, static_cast<DWORD>(dos->e_lfanew));
  const auto& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  if (directory.Size == 0) return;
  const auto* library = At<const IMAGE_IMPORT_DESCRIPTOR>(module, directory.VirtualAddress);
  for (; library->Name != 0; ++library) ReplaceIn(module, *library, name, replacement);
}

class WinModule final : public LoadedModule {
 public:
  explicit WinModule(HMODULE module) : module_(module) {}
  ~WinModule() override { FreeLibrary(module_); }
  WinModule(const WinModule&) = delete;
  WinModule& operator=(const WinModule&) = delete;

  void* FindSymbol(const char* name) const override {
    return reinterpret_cast<void*>(GetProcAddress(module_, name));
  }

 private:
  const HMODULE module_;
};

}  // namespace

std::unique_ptr<LoadedModule> LoadModule(const std::filesystem::path& path, std::string& error,
                                         const ModuleOptions& options) {
  const HMODULE module = LoadLibraryW(std::filesystem::absolute(path).c_str());
  if (module == nullptr) {
    error = SystemMessage(GetLastError());
    return nullptr;
  }
  if (options.roamingFolder || options.localFolder) {
    Answers() = options;
    ReplaceImport(module, "SHGetKnownFolderPath", reinterpret_cast<ULONGLONG>(&AnswerKnownFolder));
  }
  return std::make_unique<WinModule>(module);
}

}  // namespace Veldrift
