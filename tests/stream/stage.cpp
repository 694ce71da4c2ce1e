#include "tests/stream/stage.h"

#include <gtest/gtest.h>

#include <array>
#include <fstream>

#include "platform/file.h"
#include "tools/host/host_exit.h"
#include "tools/platform/this_process.h"

namespace Veldrift {

namespace {

// What a test forgets or loses ends by itself.
constexpr const char* kLongestRunSeconds = "300";
constexpr const char* kWaitSeconds = "60";

constexpr std::array kRoles = {HostApplication::MediaEncoder, HostApplication::AfterEffects,
                               HostApplication::Premiere, HostApplication::UnknownHost};
constexpr std::array kRoleNames = {"premiere", "aftereffects", "mediaencoder", "unknown"};

Arguments Join(Arguments first, const Arguments& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

}  // namespace

std::string Stage::NewAddress() {
  static int count = 0;
  const uint32_t process = ProcessNumber();
  return "127." + std::to_string(16 + process / 256 % 200) + "." + std::to_string(process % 256) +
         "." + std::to_string(1 + count++ % 254);
}

std::string Stage::NewStem(const std::string& what) {
  return PathText(folder_.Path() / (what + "-" + std::to_string(++stems_)));
}

std::string Stage::HostLog() const {
  return PathText(home_ / "local" / "Veldrift" / PerHostFileName(role_, "plugin", ".log"));
}

size_t Stage::CountInHostLog(std::string_view text) const {
  const std::string log = ReadWholeFile(HostLog()).value_or("");
  size_t count = 0;
  for (size_t at = log.find(text); at != log.npos; at = log.find(text, at + 1)) ++count;
  return count;
}

bool Stage::TryHost(const Arguments& arguments) {
  home_ = NewStem("host") + "-home";
  if (!installation_.empty()) {
    std::filesystem::create_directories(home_ / "settings" / "Veldrift");
    std::ofstream(home_ / "settings" / "Veldrift" / "install.json") << installation_;
  }
  hostArguments_ = arguments;
  return RunHost();
}

bool Stage::RunHost() {
  host_ = std::make_unique<StandIn>(
      "veldrift-host",
      Join({"--host", kRoleNames[size_t(role_)], "--home", PathText(home_), "--no-discovery",
            "--json", "--seconds", kLongestRunSeconds},
           hostArguments_),
      NewStem("host"));
  bool listens = false;
  Eventually([&] {
    listens = CountInHostLog(" Listening on :") > 0;
    return listens || CountInHostLog("CreateTcpListener") > 0 || host_->Ended();
  });
  return listens;
}

void Stage::StartHostAgain() {
  std::filesystem::remove(HostLog());
  ASSERT_TRUE(RunHost()) << testing::PrintToString(host_->Complaints());
}

void Stage::StartHost(const Arguments& arguments) {
  const bool started = Eventually([&] {
    for (const HostApplication role : kRoles) {
      // The others run under another name, in a process of their own there, which no Ctrl-C of ours
      // reaches.
      if (HostIsWindows() && role != HostApplication::UnknownHost) continue;
      role_ = role;
      if (TryHost(arguments)) return true;
      host_->Kill();
      const int code = host_->Wait();
      if (code != kExitPortInUse && code != -1) return true;  // a fault, and no use to try again
    }
    return false;
  });
  ASSERT_TRUE(started) << "every control port stays in use";
  ASSERT_FALSE(host_->Ended()) << testing::PrintToString(host_->Complaints());
}

StandIn& Stage::StartPhone(const std::string& id, const Arguments& arguments) {
  return StartPhoneWithoutCode(id, Join({"--code-from-log", HostLog()}, arguments));
}

Arguments Stage::PhoneArguments(const std::string& id, const Arguments& arguments) {
  const Arguments common = {"--host", "127.0.0.1:" + std::to_string(ControlPort()), "--bind",
                            NewAddress(), "--id", id, "--name", "Phone " + id, "--wait",
                            kWaitSeconds, "--json",
                            // How many arrive is the machine's matter.
                            "--most-lost", "100", "--token-file", PathText(File(id + ".token"))};
  return Join(common, arguments);
}

StandIn& Stage::StartPhoneWithoutCode(const std::string& id, const Arguments& arguments) {
  return phones_.emplace_back("veldrift-phone", PhoneArguments(id, arguments), NewStem(id));
}

StandIn& Stage::StartPhoneIn(const Arguments& environment, const std::string& id,
                             const Arguments& arguments) {
  const Arguments phone = Join({PathText(BesideThis("veldrift-phone"))},
                               PhoneArguments(id, Join({"--code-from-log", HostLog()}, arguments)));
  return phones_.emplace_back("/usr/bin/env", Join(environment, phone), NewStem(id));
}

bool Stage::CanMount() {
  const std::string stem = NewStem("mount");
  return StartProcess("/bin/sh", {"-c", "unshare -m true"},
                      ProcessOutput{stem + ".out", stem + ".err"})
             ->Wait() == 0;
}

StandIn& Stage::StartPhoneOnSmallDisk(const std::string& id, const std::string& name,
                                      const Arguments& arguments) {
  const std::filesystem::path disk = File("disk");
  std::filesystem::create_directories(disk);
  // The disk goes with the process; its file is carried out before.
  const std::string script =
      "mount -t tmpfs -o size=3m tmpfs \"$1\" || exit; shift\n"
      "file=$1; copy=$2; shift 2\n"
      "\"$@\"; status=$?; cp \"$file\" \"$copy\"; exit $status";
  const Arguments all = PhoneArguments(
      id, Join({"--code-from-log", HostLog(), "--record", PathText(disk / name)}, arguments));
  return phones_.emplace_back(
      "/usr/bin/unshare",
      Join({"-m", "/bin/sh", "-c", script, "sh", PathText(disk), PathText(disk / name),
            PathText(File(name)), PathText(BesideThis("veldrift-phone"))},
           all),
      NewStem(id));
}

nlohmann::json Stage::EndHost() {
  host_->Interrupt();
  EXPECT_EQ(host_->Wait(), 0) << testing::PrintToString(host_->Complaints());
  EXPECT_TRUE(host_->Complaints().empty()) << testing::PrintToString(host_->Complaints());
  EXPECT_GE(CountInHostLog("discoverable=false — skipping mDNS advertisement"), 1u);
  nlohmann::json summary = host_->Summary();
  EXPECT_EQ(summary.value("undisposed", -1), 0);
  EXPECT_EQ(summary.value("wrongly_disposed", -1), 0);
  EXPECT_EQ(summary.value("suites_held", -1), 0);
  EXPECT_EQ(summary["faults"], nlohmann::json::array());
  return summary;
}

bool ShowsPictures(const std::filesystem::path& snapshots) {
  return Eventually([&] { return std::filesystem::exists(snapshots / "picture-02.png"); });
}

void ExpectGoodPictures(const nlohmann::json& summary, int exit) {
  ASSERT_TRUE(summary.contains("stamps")) << "no summary";
  EXPECT_EQ(summary["exit"], exit) << summary["verdict"];
  EXPECT_EQ(summary["video"]["violations"], 0);
  EXPECT_EQ(summary["audio"]["violations"], 0);
  EXPECT_EQ(summary["decoder"]["failed"], 0);
  EXPECT_EQ(summary["stamps"]["out_of_order"], 0);
  EXPECT_EQ(summary["stamps"]["unreadable"], 0);
  EXPECT_EQ(summary["stamps"]["stamped"], summary["decoder"]["decoded"]);
  // How many is the machine's matter: some, even on one that a sanitizer slows down.
  EXPECT_GE(summary["decoder"]["decoded"], 2);
}

}  // namespace Veldrift
