#include "platform/win32/system_library.h"

namespace Veldrift {

bool SystemLibrary::Load(const char* fileName, std::string& error) {
  fileName_ = fileName;
  library_ = LoadLibraryExW(WideText(fileName_).c_str(), nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (library_ == nullptr) error = fileName_ + ": " + SystemMessage(GetLastError());
  return library_ != nullptr;
}

void* SystemLibrary::FindAddress(const char* symbol, std::string& error) const {
  void* address = reinterpret_cast<void*>(GetProcAddress(library_, symbol));
  if (address == nullptr) error = fileName_ + " has no " + symbol;
  return address;
}

}  // namespace Veldrift
