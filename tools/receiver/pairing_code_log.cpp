#include "tools/receiver/pairing_code_log.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "net/control_protocol.h"

namespace Veldrift {

namespace {

constexpr std::string_view kMarker = "pair: challenge=";

// The code of a line's rest behind the marker, "123456 for NAME".
std::optional<std::string> CodeIn(std::string_view rest, const std::string& phoneName) {
  const std::string_view code = rest.substr(0, kPairingCodeDigits);
  const bool digits =
      code.size() == kPairingCodeDigits &&
      std::all_of(code.begin(), code.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
  if (!digits || rest.substr(kPairingCodeDigits) != " for " + phoneName) return std::nullopt;
  return std::string(code);
}

}  // namespace

PairingCodeLog::PairingCodeLog(std::filesystem::path file, std::string phoneName)
    : log_(std::move(file)), phoneName_(std::move(phoneName)) {}

std::optional<std::string> PairingCodeLog::Find() const {
  std::optional<std::string> newest;
  for (const std::string& rest : log_.AllBehind(kMarker)) {
    if (auto code = CodeIn(rest, phoneName_)) newest = std::move(code);
  }
  return newest;
}

}  // namespace Veldrift
