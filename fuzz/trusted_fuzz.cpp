// Anything in place of the persistent files. What was read from one and written again reads the
// same.
#include <cstdlib>
#include <string>

#include "identity/json_text.h"
#include "identity/trusted_peers_text.h"

using namespace Veldrift;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  static_cast<void>(ExtractJsonString(text, "id"));
  const std::vector<TrustedPeer> peers = ParseTrustedPeers(text);
  for (const TrustedPeer& peer : peers) {
    if (peer.id.empty() || peer.token.empty()) std::abort();
  }
  const std::string once = FormatTrustedPeers(ParseTrustedPeers(FormatTrustedPeers(peers)));
  if (FormatTrustedPeers(ParseTrustedPeers(once)) != once) std::abort();
  return 0;
}
