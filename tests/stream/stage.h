// Where the stand-ins meet: a folder of its own, loopback addresses that no other run of these
// tests has, a host, and phones.
//
// Threads: one thread uses it.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "support/paths.h"
#include "tests/stream/stand_in.h"
#include "tests/support/scratch.h"

namespace Veldrift {

using Arguments = std::vector<std::string>;

class Stage {
 public:
  // What the installation's settings file holds when a host starts.
  void SetInstallation(const std::string& json) { installation_ = json; }
  // Starts a host and waits until a phone can connect. It takes the part of an application whose
  // control port is free: the machine may be shared.
  void StartHost(const Arguments& arguments = {"--size", "640x360", "--fps", "30"});

  // Starts one again behind one that ended: the same application, with the same settings and
  // trusted phones, and a log of its own.
  void StartHostAgain();

  StandIn& Host() { return *host_; }
  uint16_t ControlPort() const { return TraitsOf(role_).controlPort; }
  // What the host was given as --home.
  const std::filesystem::path& Home() const { return home_; }
  std::string HostLog() const;
  size_t CountInHostLog(std::string_view text) const;

  // A phone that pairs by the code in the host's log. `id` names the phone: the same id again has
  // the same token file.
  StandIn& StartPhone(const std::string& id, const Arguments& arguments);
  // The same without a code: the token must do, or what `arguments` give.
  StandIn& StartPhoneWithoutCode(const std::string& id, const Arguments& arguments);

  // A phone that pairs by the code in the host's log and has `environment` (NAME=VALUE) too.
  StandIn& StartPhoneIn(const Arguments& environment, const std::string& id,
                        const Arguments& arguments);

  // Whether this user can mount a disk for one process.
  bool CanMount();
  // A phone that records to the file of this name on a disk of three megabytes; what is there when
  // it ends is in File(name).
  StandIn& StartPhoneOnSmallDisk(const std::string& id, const std::string& name,
                                 const Arguments& arguments);

  // Ends the host by Ctrl-C and expects that it got every frame back; its summary.
  nlohmann::json EndHost();

  std::filesystem::path File(const std::string& name) const { return folder_.Path() / name; }
  // A loopback address that is this process's own.
  std::string NewAddress();
  std::string NewStem(const std::string& what);

 private:
  bool TryHost(const Arguments& arguments);
  bool RunHost();
  Arguments PhoneArguments(const std::string& id, const Arguments& arguments);

  ScratchFolder folder_;  // first, so that the children are gone before it
  std::filesystem::path home_;
  std::string installation_;
  HostApplication role_ = HostApplication::MediaEncoder;
  Arguments hostArguments_;
  std::unique_ptr<StandIn> host_;
  std::deque<StandIn> phones_;
  int stems_ = 0;
};

// True once the phone has decoded pictures for a while: it writes the second one then.
bool ShowsPictures(const std::filesystem::path& snapshots);

// Expects the summary of a phone that got its pictures, in order and right, and ended with `exit`.
void ExpectGoodPictures(const nlohmann::json& summary, int exit = 0);

}  // namespace Veldrift
