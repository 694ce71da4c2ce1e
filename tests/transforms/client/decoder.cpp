#include "tests/transforms/client/decoder.h"

#include <filesystem>

namespace Veldrift::Transforms {

DecodeFunction FindDecoder() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  const std::filesystem::path module =
      std::filesystem::path(path).parent_path() / "vd_transforms.dll.so";
  const HMODULE library = LoadLibraryW(module.c_str());
  return library ? reinterpret_cast<DecodeFunction>(
                       reinterpret_cast<void*>(GetProcAddress(library, kDecodeExport)))
                 : nullptr;
}

}  // namespace Veldrift::Transforms
