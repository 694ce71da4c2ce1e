#include "ui/win32/window_subclass.h"

namespace Veldrift {
namespace {

constexpr WORD kSetSubclassOrdinal = 410;
constexpr WORD kDefProcedureOrdinal = 413;

struct SubclassApi {
  decltype(&SetWindowSubclass) set = nullptr;
  decltype(&DefSubclassProc) next = nullptr;
};

template <typename Function>
Function Find(HMODULE library, const char* name, WORD ordinal) {
  FARPROC found = GetProcAddress(library, name);
  if (found == nullptr) found = GetProcAddress(library, MAKEINTRESOURCEA(ordinal));
  return reinterpret_cast<Function>(reinterpret_cast<void*>(found));
}

const SubclassApi& Api() {
  static const SubclassApi api = [] {
    SubclassApi found;
    // It is there: this module imports from it. Which of its versions it is depends on the host.
    const HMODULE library = GetModuleHandleW(L"comctl32.dll");
    if (library == nullptr) return found;
    found.set = Find<decltype(found.set)>(library, "SetWindowSubclass", kSetSubclassOrdinal);
    found.next = Find<decltype(found.next)>(library, "DefSubclassProc", kDefProcedureOrdinal);
    return found;
  }();
  return api;
}

constexpr UINT_PTR kSubclassId = 1;

}  // namespace

bool PutInFront(HWND window, SUBCLASSPROC procedure, DWORD_PTR data) {
  const SubclassApi& api = Api();
  if (api.set == nullptr || api.next == nullptr) return false;
  return api.set(window, procedure, kSubclassId, data) != FALSE;
}

LRESULT CallNextProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  return Api().next(window, message, wParam, lParam);
}

}  // namespace Veldrift
