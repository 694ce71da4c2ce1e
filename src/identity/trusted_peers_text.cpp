#include "identity/trusted_peers_text.h"

#include "identity/json_text.h"

namespace Veldrift {
namespace {

constexpr const char* kIdKey = "id";
constexpr const char* kNameKey = "name";
constexpr const char* kTokenKey = "token";
constexpr const char* kFirstPairedKey = "firstPaired";

// The position of the brace that ends the object which begins at `begin`, or npos.
size_t FindObjectEnd(std::string_view text, size_t begin) {
  bool inString = false;
  for (size_t at = begin + 1; at < text.size(); ++at) {
    if (inString && text[at] == '\\') {
      ++at;
    } else if (text[at] == '"') {
      inString = !inString;
    } else if (!inString && text[at] == '}') {
      return at;
    }
  }
  return std::string_view::npos;
}

}  // namespace

std::vector<TrustedPeer> ParseTrustedPeers(std::string_view text) {
  std::vector<TrustedPeer> peers;
  for (size_t begin = text.find('{'); begin != std::string_view::npos;) {
    const size_t end = FindObjectEnd(text, begin);
    if (end == std::string_view::npos) break;
    const std::string_view object = text.substr(begin, end - begin + 1);
    TrustedPeer peer = {ExtractJsonString(object, kIdKey), ExtractJsonString(object, kNameKey),
                        ExtractJsonString(object, kTokenKey),
                        ExtractJsonString(object, kFirstPairedKey)};
    if (!peer.id.empty() && !peer.token.empty()) peers.push_back(std::move(peer));
    begin = text.find('{', end + 1);
  }
  return peers;
}

std::string FormatTrustedPeers(const std::vector<TrustedPeer>& peers) {
  std::string text = "[";
  for (const auto& peer : peers) {
    if (text.size() > 1) text += ",";
    text += "{" + JsonMember(kIdKey, peer.id) + "," + JsonMember(kNameKey, peer.name) + "," +
            JsonMember(kTokenKey, peer.token) + "," +
            JsonMember(kFirstPairedKey, peer.firstPaired) + "}";
  }
  return text + "]\n";
}

}  // namespace Veldrift
