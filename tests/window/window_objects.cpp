#include "tests/window/window_objects.h"

#include <ostream>

#include "platform/win32/windows_headers.h"

// Of ntdll; no header has it.
extern "C" const char* NTAPI RtlGetCurrentPeb();

namespace Veldrift {
namespace {

// An entry of the table of GDI objects that is mapped into each process.
struct GdiEntry {
  uint64_t object;
  uint32_t owner;
  uint16_t unique;
  uint8_t type;  // 0: free
  uint8_t flags;
  uint64_t user;
};
static_assert(sizeof(GdiEntry) == 24);

constexpr size_t kGdiEntries = 0x4000;
constexpr size_t kGdiTableInProcessBlock = 0xF8;

size_t CountInGdiTable() {
  const auto* const table =
      *reinterpret_cast<const GdiEntry* const*>(RtlGetCurrentPeb() + kGdiTableInProcessBlock);
  size_t count = 0;
  for (size_t i = 0; table != nullptr && i < kGdiEntries; ++i) count += table[i].type != 0;
  return count;
}

bool IsWindowOfOurs(HWND window) {
  DWORD process = 0;
  return GetWindowThreadProcessId(window, &process) != 0 && process == GetCurrentProcessId();
}

// Asks for every number that a handle can have.
size_t CountByHandle() {
  constexpr UINT_PTR kFirst = 0x20;
  constexpr UINT_PTR kEnd = 0x10000;
  size_t count = 0;
  for (UINT_PTR handle = kFirst; handle < kEnd; handle += 2) {
    count += IsWindowOfOurs(reinterpret_cast<HWND>(handle));
    count += IsMenu(reinterpret_cast<HMENU>(handle)) != 0;
  }
  return count;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const WindowObjects& objects) {
  return out << objects.gdi << " of GDI, " << objects.user << " windows and menus";
}

size_t CountGdiObjects() {
  const size_t told = GetGuiResources(GetCurrentProcess(), GR_GDIOBJECTS);
  return told != 0 ? told : CountInGdiTable();
}

WindowObjects CountWindowObjects() {
  const size_t told = GetGuiResources(GetCurrentProcess(), GR_USEROBJECTS);
  return {CountGdiObjects(), told != 0 ? told : CountByHandle()};
}

}  // namespace Veldrift
