// Anything in place of a request's head and of a page's command: nobody gets in without a key, and
// what is taken for a setting is one.
#include <algorithm>
#include <cstdlib>
#include <string>

#include "tools/phone/web_command.h"
#include "tools/phone/web_gate.h"
#include "tools/phone/web_options.h"

using namespace Veldrift;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Pieces between line ends: method, path, host, origin, key, the query's key, command.
  const std::string_view all(reinterpret_cast<const char*>(data), size);
  std::string_view pieces[7];
  size_t at = 0;
  for (std::string_view& piece : pieces) {
    const size_t end = std::min(all.find('\n', at), size);
    piece = all.substr(std::min(at, size), end - std::min(at, size));
    at = std::min(end + 1, size);
  }
  static const WebGate gate(
      {"0123456789abcdef0123456789abcdef", "f123456789abcdef0123456789abcde0"}, 8080);
  const WebVerdict verdict =
      gate.Judge({pieces[0], pieces[1], pieces[2], pieces[3], pieces[4], pieces[5]});
  const bool isKey = pieces[4] == "0123456789abcdef0123456789abcdef";
  if (verdict.maySteer && !isKey) std::abort();
  if (verdict.status == 200 && pieces[1] == "/command" && !isKey) std::abort();
  if (verdict.status == 200 && !pieces[3].empty() &&
      pieces[3] != "http://" + std::string(pieces[2])) {
    std::abort();
  }
  if (const auto command = ParseWebCommand(pieces[6])) {
    const std::string setting = WebSettingText(*command);
    if (!setting.empty() && !ParseWebCommand(setting)) std::abort();
    if (command->payload.size() > 2) std::abort();
  }
  Ipv4Endpoint local;
  static_cast<void>(ParseWebPlace(std::string(pieces[2]), local));
  return 0;
}
