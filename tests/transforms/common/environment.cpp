#include "tests/transforms/common/environment.h"

#include <charconv>
#include <cstdint>
#include <cstdio>

namespace Veldrift::Transforms {
namespace {

const char* CodecName(const Kind& kind) { return kind.hevc ? "hevc" : "h264"; }

std::string AsVariable(std::string name) {
  for (char& letter : name) {
    if (letter == '-') letter = '_';
    if (letter >= 'a' && letter <= 'z') letter = static_cast<char>(letter - 'a' + 'A');
  }
  return std::string(kTraitsVariable) + "_" + name;
}

}  // namespace

std::string ReadVariable(const std::string& name) {
  std::string value(GetEnvironmentVariableA(name.c_str(), nullptr, 0), '\0');
  if (value.empty()) return value;
  const DWORD length =
      GetEnvironmentVariableA(name.c_str(), value.data(), static_cast<DWORD>(value.size()));
  value.resize(length < value.size() ? length : 0);
  return value;
}

std::vector<std::string> SplitWords(std::string_view text) {
  constexpr char kBetween[] = " ,\t\r\n";
  std::vector<std::string> words;
  for (size_t at = text.find_first_not_of(kBetween); at != std::string_view::npos;
       at = text.find_first_not_of(kBetween, at)) {
    const size_t end = text.find_first_of(kBetween, at);
    words.emplace_back(text.substr(at, end - at));
    if (end == std::string_view::npos) break;
    at = end;
  }
  return words;
}

std::string NameOf(const Kind& kind) {
  return std::string(kind.family.name) + "-" + CodecName(kind);
}

bool Means(std::string_view word, const Kind& kind) {
  return word == kind.family.name || word == NameOf(kind);
}

std::string ReadTraits(const Kind& kind) {
  return ReadVariable(kTraitsVariable) + " " + ReadVariable(AsVariable(kind.family.name)) + " " +
         ReadVariable(AsVariable(NameOf(kind)));
}

void Trace(const std::string& who, const char* call, const std::string& details, HRESULT result) {
  if (ReadVariable(kTraceVariable).empty()) return;
  char number[16];
  std::snprintf(number, sizeof number, "%08x", static_cast<unsigned>(result));
  AppendTo(kTraceVariable,
           who + " " + call + (details.empty() ? "" : " " + details) + " " + number + "\n");
}

void AppendTo(const char* variable, std::string_view bytes) {
  const std::string path = ReadVariable(variable);
  if (path.empty()) return;
  const HANDLE file =
      CreateFileA(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                  OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return;
  DWORD written = 0;
  WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
  CloseHandle(file);
}

bool ReadNumber(std::string_view text, int& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size();
}

bool ReadResult(std::string_view text, HRESULT& result) {
  constexpr size_t kDigits = 8;
  uint32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
  result = static_cast<HRESULT>(value);
  return text.size() == kDigits && error == std::errc() && end == text.data() + text.size();
}

}  // namespace Veldrift::Transforms
