// The phones that come back without a code: one file per host application in the application
// support folder (`trusted.json`, "trusted-ae.json", ...), a JSON array on one line. Nothing is
// kept in memory: every operation reads the file anew. One that is there and can't be read counts
// as an empty list, and is never written over.
//
// Threads: any thread; one mutex for all operations.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace Veldrift {

struct TrustedPeer {
  std::string id;           // the phone's own identifier
  std::string name;         // its display name
  std::string token;        // the shared secret, 64 lower-case hexadecimal digits
  std::string firstPaired;  // when it last paired by code: UTC, "%Y-%m-%dT%H:%M:%SZ"

  bool operator==(const TrustedPeer&) const = default;
};

// The first peer with this id. An empty id has none.
std::optional<TrustedPeer> FindTrustedPeer(const std::string& id);

// All peers in the file's order.
std::vector<TrustedPeer> ListTrustedPeers();

// Replaces the peer with the same id, in its place, or appends. A peer without an id is ignored.
void AddOrUpdateTrustedPeer(const TrustedPeer& peer);

// Removes all peers with this id.
void RemoveTrustedPeer(const std::string& id);

}  // namespace Veldrift
