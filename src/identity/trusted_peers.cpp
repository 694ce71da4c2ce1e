#include "identity/trusted_peers.h"

#include <algorithm>

#include "identity/atomic_text_file.h"
#include "identity/trusted_peers_text.h"
#include "platform/file.h"
#include "platform/mutex.h"
#include "support/paths.h"
#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kLog = {kLogSubsystem, "trusted"};

Mutex trustedMutex;

std::filesystem::path TrustedFile() {
  return GetAppSupportDir() / PerHostFileName(DetectHostApplication(), "trusted", ".json");
}

// Without a file the list is empty, and with one that can't be read too; which of both, `file`
// tells.
std::vector<TrustedPeer> ReadTrustedFile(TextFile& file) VD_REQUIRES(trustedMutex) {
  std::string text;
  file = ReadTextFile(TrustedFile(), text, SystemClock());
  return ParseTrustedPeers(text);
}

std::vector<TrustedPeer> ReadTrustedFile() VD_REQUIRES(trustedMutex) {
  TextFile ignored{};
  return ReadTrustedFile(ignored);
}

// A list that was never read isn't written over by the one phone that is known at the moment.
bool WriteTrustedFile(const std::vector<TrustedPeer>& peers, TextFile file)
    VD_REQUIRES(trustedMutex) {
  if (file == TextFile::Unreadable) {
    PluginLog(kLog, kLogError, "write: %{public}s can't be read and stays as it is",
              PathText(TrustedFile()).c_str());
    return false;
  }
  EnsureAppSupportDir();
  return ReplaceTextFile(TrustedFile(), FormatTrustedPeers(peers), {kLog, "write"}, SystemClock());
}

std::vector<TrustedPeer>::iterator FindById(std::vector<TrustedPeer>& peers,
                                            const std::string& id) {
  return std::find_if(peers.begin(), peers.end(),
                      [&](const TrustedPeer& peer) { return peer.id == id; });
}

}  // namespace

std::optional<TrustedPeer> FindTrustedPeer(const std::string& id) {
  if (id.empty()) return std::nullopt;
  MutexLock lock(trustedMutex);
  auto peers = ReadTrustedFile();
  const auto found = FindById(peers, id);
  if (found == peers.end()) return std::nullopt;
  return *found;
}

std::vector<TrustedPeer> ListTrustedPeers() {
  MutexLock lock(trustedMutex);
  return ReadTrustedFile();
}

void AddOrUpdateTrustedPeer(const TrustedPeer& peer) {
  if (peer.id.empty()) return;
  MutexLock lock(trustedMutex);
  TextFile file{};
  auto peers = ReadTrustedFile(file);
  const auto found = FindById(peers, peer.id);
  const bool known = found != peers.end();
  if (known) {
    *found = peer;
  } else {
    peers.push_back(peer);
  }
  if (!WriteTrustedFile(peers, file)) return;
  PluginLog(kLog, kLogInfo, "%{public}s peer id=%{public}s name=%{public}s",
            known ? "updated" : "added", peer.id.c_str(), peer.name.c_str());
}

void RemoveTrustedPeer(const std::string& id) {
  if (id.empty()) return;
  MutexLock lock(trustedMutex);
  TextFile file{};
  auto peers = ReadTrustedFile(file);
  if (std::erase_if(peers, [&](const TrustedPeer& peer) { return peer.id == id; }) == 0) return;
  WriteTrustedFile(peers, file);
  PluginLog(kLog, kLogInfo, "removed peer id=%{public}s", id.c_str());
}

}  // namespace Veldrift
