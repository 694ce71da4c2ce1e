// Libraries of Windows that not every Windows has. They are loaded at run time, so that this module
// loads without them.
#pragma once

#include <string>

#include "platform/win32/windows_headers.h"

namespace Veldrift {

// A library in the system's folder, and nowhere else; it stays loaded until the process ends, since
// its threads and objects may outlast whoever asked for it. Threads: any.
class SystemLibrary {
 public:
  // False, with the reason in `error`, if there is none of this name or the system can't load it.
  bool Load(const char* fileName, std::string& error);

  // The export of that name. False, with null and the reason, if the library has none.
  template <typename Function>
  bool Find(const char* symbol, Function*& function, std::string& error) const {
    function = reinterpret_cast<Function*>(FindAddress(symbol, error));
    return function != nullptr;
  }

 private:
  void* FindAddress(const char* symbol, std::string& error) const;

  std::string fileName_;
  HMODULE library_ = nullptr;
};

}  // namespace Veldrift
