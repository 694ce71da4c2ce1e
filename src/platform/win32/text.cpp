#include "platform/win32/windows_headers.h"

namespace Veldrift {

std::string NarrowText(std::wstring_view wide) {
  const int length = static_cast<int>(wide.size());
  const int count =
      WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, nullptr, 0, nullptr, nullptr);
  std::string utf8(static_cast<size_t>(count), '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, utf8.data(), count, nullptr, nullptr);
  return utf8;
}

std::wstring WideText(std::string_view utf8) {
  const int length = static_cast<int>(utf8.size());
  const int count = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, nullptr, 0);
  std::wstring wide(static_cast<size_t>(count), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, wide.data(), count);
  return wide;
}

std::string SystemMessage(DWORD error) {
  constexpr DWORD kNeutralLanguage = 0x0400;
  char* message = nullptr;
  const DWORD length = FormatMessageA(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
      nullptr, error, kNeutralLanguage, reinterpret_cast<char*>(&message), 0, nullptr);
  std::string text(message == nullptr ? "" : message, length);
  LocalFree(message);
  text.erase(text.find_last_not_of("\r\n ") + 1);
  return text;
}

}  // namespace Veldrift
