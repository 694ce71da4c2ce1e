#include "web_options.h"

#include <charconv>
#include <optional>

namespace Veldrift {

namespace {

constexpr const char* kLoopback = "127.0.0.1";

}  // namespace

bool ParseWebPlace(const std::string& text, Ipv4Endpoint& local) {
  const size_t colon = text.rfind(':');
  const std::string address = colon == text.npos ? kLoopback : text.substr(0, colon);
  const std::string port = colon == text.npos ? text : text.substr(colon + 1);
  const std::optional<uint32_t> parsed = ParseAddress(address);
  const char* end = port.data() + port.size();
  const auto [stopped, error] = std::from_chars(port.data(), end, local.port);
  if (!parsed || error != std::errc() || stopped != end) return false;
  local.address = *parsed;
  return true;
}

}  // namespace Veldrift
