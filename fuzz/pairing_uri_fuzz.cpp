// Anything in place of a scanned pairing URI, and anything as the id and name in one.
#include <cstdlib>
#include <string>

#include "tools/receiver/pairing_uri_reader.h"
#include "ui/pairing_uri.h"

using namespace Veldrift;

namespace {

void ExpectReturns(const InstallIdentity& identity) {
  const auto read = ParsePairingUri(BuildPairingUri(identity));
  if (!read || read->id != identity.id || read->name != identity.name) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  for (const std::string& uri : {text, "veldrift://pair?v=3&id=" + text}) {
    if (const auto identity = ParsePairingUri(uri)) ExpectReturns(*identity);
  }
  ExpectReturns({text.substr(0, size / 3), text.substr(size / 3)});
  return 0;
}
