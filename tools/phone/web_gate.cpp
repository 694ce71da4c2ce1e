#include "web_gate.h"

#include <array>
#include <charconv>
#include <system_error>

#include "platform/socket.h"
#include "platform/system.h"
#include "tools/receiver/token_file.h"
#include "web_page.h"

namespace Veldrift {

namespace {

constexpr size_t kKeyBytes = 16;
constexpr size_t kKeyText = 2 * kKeyBytes;

enum class Kind { Page, Look, Steer };

struct Place {
  std::string_view path;
  std::string_view method;
  Kind kind;
};
constexpr std::array kPlaces = {
    Place{"/live", "GET", Kind::Look},
    Place{"/events", "GET", Kind::Look},
    Place{"/command", "POST", Kind::Steer},
};

std::optional<Place> PlaceOf(std::string_view path) {
  for (const Place& place : kPlaces) {
    if (place.path == path) return place;
  }
  if (FindWebPage(path) != nullptr) return Place{path, "GET", Kind::Page};
  return std::nullopt;
}

// Takes as long for a key that is nearly right as for any other of its length.
bool Same(std::string_view a, std::string_view b) {
  if (a.size() != b.size() || a.empty()) return false;
  unsigned different = 0;
  for (size_t i = 0; i < a.size(); ++i) different |= unsigned(uint8_t(a[i]) ^ uint8_t(b[i]));
  return different == 0;
}

std::string Hexadecimal(const std::array<std::byte, kKeyBytes>& bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::byte byte : bytes) {
    text += kDigits[std::to_integer<unsigned>(byte) >> 4];
    text += kDigits[std::to_integer<unsigned>(byte) & 15];
  }
  return text;
}

std::optional<std::string> NewKey() {
  std::array<std::byte, kKeyBytes> bytes;
  if (!FillRandom(bytes)) return std::nullopt;
  return Hexadecimal(bytes);
}

bool IsKey(std::string_view text) {
  return text.size() == kKeyText && text.find_first_not_of("0123456789abcdef") == text.npos;
}

// "steer-look"
std::optional<WebKeys> ReadKeys(const std::filesystem::path& file) {
  const std::string text = ReadToken(file);
  const size_t dash = text.find('-');
  if (dash == text.npos) return std::nullopt;
  WebKeys keys{text.substr(0, dash), text.substr(dash + 1)};
  if (!IsKey(keys.steer) || !IsKey(keys.look) || keys.steer == keys.look) return std::nullopt;
  return keys;
}

}  // namespace

std::optional<WebKeys> LoadWebKeys(const std::filesystem::path& file, std::string& sentence) {
  std::error_code failed;
  if (!file.empty() && std::filesystem::exists(file, failed)) {
    std::optional<WebKeys> keys = ReadKeys(file);
    if (!keys) sentence = file.string() + " doesn't hold the page's keys, or can't be read";
    return keys;
  }
  const std::optional<std::string> steer = NewKey();
  const std::optional<std::string> look = NewKey();
  if (!steer || !look) {
    sentence = "the system has no random numbers for the page's keys";
    return std::nullopt;
  }
  if (!file.empty() && !WriteToken(file, *steer + "-" + *look, sentence)) return std::nullopt;
  return WebKeys{*steer, *look};
}

// A name that somebody else's server resolves to this machine would make their page one of ours: so
// only addresses, and the machine's own name for itself.
bool WebGate::IsOurName(std::string_view host) const {
  const size_t colon = host.rfind(':');
  if (colon == host.npos) return false;
  const std::string_view number = host.substr(colon + 1);
  int port = 0;
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), port);
  if (error != std::errc() || end != number.data() + number.size() || port != port_) return false;
  const std::string name(host.substr(0, colon));
  return name == "localhost" || ParseAddress(name).has_value();
}

WebVerdict WebGate::Judge(const WebRequest& request) const {
  // A browser leaves the port out where it is HTTP's own.
  const std::string host =
      std::string(request.host) + (port_ == 80 && !request.host.ends_with(":80") ? ":80" : "");
  if (!IsOurName(host)) return {403};
  if (!request.origin.empty() && request.origin != "http://" + std::string(request.host)) {
    return {403};
  }
  const std::optional<Place> place = PlaceOf(request.path);
  if (!place) return {404};
  if (request.method != place->method) return {405};
  if (place->kind == Kind::Page) return {};
  const bool steers = Same(request.key, keys_.steer);
  if (steers) return {.maySteer = true};
  const bool looks = Same(request.key, keys_.look) ||
                     (request.path == "/live" &&
                      (Same(request.queryKey, keys_.look) || Same(request.queryKey, keys_.steer)));
  if (place->kind == Kind::Look && looks) return {};
  return {.status = 403, .wrongKey = !looks};
}

}  // namespace Veldrift
