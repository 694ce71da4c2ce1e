// The host stand-in: loads the module and plays pictures and sound into it, as the editing host
// does.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "host_exit.h"
#include "host_options.h"
#include "identity/install_identity.h"
#include "other_name.h"
#include "pairing_screen.h"
#include "platform/file.h"
#include "platform/socket.h"
#include "plugin_driver.h"
#include "self_check.h"
#include "self_report.h"
#include "summary.h"
#include "support/clock.h"
#include "temporary_home.h"
#include "tools/cli/command_line.h"
#include "tools/platform/client_sockets.h"
#include "tools/platform/interrupt.h"
#include "tools/platform/module_loader.h"
#include "tools/platform/this_process.h"

namespace Veldrift {
namespace {

// One set for each instance that plays. After a Ctrl-C there may be no pictures.
HostExit OpenSources(const HostOptions& options, const std::atomic<bool>& interrupted,
                     Sources& sources, std::string& sentence) {
  SoundChoice choice = options.sound;
  if (options.input.empty()) {
    sources.pictures = MakePatternSource(options.width, options.height, options.fps);
    if (choice == SoundChoice::Default) choice = SoundChoice::Tone;
  } else {
    FileSources file = OpenFileSources(options.input, options.stamp, interrupted);
    if (interrupted) return kExitGood;
    sentence = file.error;
    if (!file.pictures) return file.noDecoder ? kExitNoDecoder : kExitNoInput;
    if (!file.note.empty()) std::fprintf(stderr, "veldrift-host: %s\n", file.note.c_str());
    sources.pictures = std::move(file.pictures);
    if (choice == SoundChoice::File && !file.sound) {
      sentence = "there is no sound in " + PathText(options.input);
      return kExitNoInput;
    }
    if (choice != SoundChoice::None) sources.sound = std::move(file.sound);
  }
  if (choice == SoundChoice::Tone) sources.sound = MakeToneSource();
  if (options.clapper) {
    sources.pictures = MakeFlashing(std::move(sources.pictures));
    sources.sound = MakeClickSource();
  }
  return kExitGood;
}

// The module looks for its folders in the environment, and on Windows asks the system for one; this
// program looks into the same ones.
HostExit MoveHome(const std::filesystem::path& home, ModuleOptions& options,
                  std::string& sentence) {
  if (home.empty()) return kExitGood;
  const std::filesystem::path settings = std::filesystem::absolute(home) / "settings";
  const std::filesystem::path local = std::filesystem::absolute(home) / "local";
  for (const std::filesystem::path& folder : {settings, local}) {
    std::error_code failed;
    std::filesystem::create_directories(folder, failed);
    if (!failed) continue;
    sentence = "can't make the folder " + PathText(folder) + ": " + failed.message();
    return kExitFailed;
  }
  for (const char* name : {"XDG_CONFIG_HOME", "APPDATA"}) SetEnvironment(name, PathText(settings));
  for (const char* name : {"XDG_STATE_HOME", "LOCALAPPDATA"}) SetEnvironment(name, PathText(local));
  UseFoldersUnder(std::filesystem::absolute(home));
  options.roamingFolder = settings;
  options.localFolder = local;
  return kExitGood;
}

// The module goes on without its control port, and says so in its log alone; whoever runs this
// program wants a phone to connect.
HostExit CheckControlPort(HostApplication host, std::string& sentence) {
  const SocketLayer sockets;
  const uint16_t port = TraitsOf(host).controlPort;
  if (!TcpPortInUse(port)) return kExitGood;
  sentence = "control port " + std::to_string(port) +
             " is in use by another program, so no phone could connect";
  return kExitPortInUse;
}

std::filesystem::path PluginLogOf(HostApplication host) {
  return GetLocalDir() / PerHostFileName(host, "plugin", ".log");
}

std::filesystem::path SetupTextOf(HostApplication host) {
  return GetLocalDir() / PerHostFileName(host, "status", ".txt");
}

void Announce(const HostOptions& options, const PictureFormat& format) {
  if (options.json) return;
  const HostTraits& traits = TraitsOf(options.host);
  std::printf("veldrift-host: as %s on control port %u, %dx%d at %.3f frames/s\n",
              traits.displayText, unsigned{traits.controlPort}, format.width, format.height,
              double(kTicksPerSecond) / double(format.ticksPerFrame));
  std::printf("veldrift-host: log and pairing code in %s\n",
              PathText(PluginLogOf(options.host)).c_str());
  std::fflush(stdout);
}

int Report(const HostOptions& options, const HostRun& run) {
  std::string sentence;
  const HostExit exit = Judge(run, sentence);
  const std::string text = options.json ? HostSummaryJson(run, exit) : HostSummaryText(run);
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
  return exit == kExitGood ? exit : Complain(exit, sentence);
}

// What is open now. A thread that was joined just before is given a moment to vanish.
ProcessResources SettledResources(const HostRun& run) {
  constexpr int64_t kPatienceNs = kNanosPerSecond;
  constexpr int64_t kStepNs = 5 * kNanosPerMilli;
  ProcessResources resources = CountProcessResources();
  const uint32_t expected = run.afterRounds.empty() ? 1 : run.afterRounds.front().threads;
  for (int64_t waited = 0; resources.threads > expected && waited < kPatienceNs;
       waited += kStepNs) {
    SystemClock().SleepFor(kStepNs);
    resources = CountProcessResources();
  }
  return resources;
}

// From loading the module to unloading it.
HostExit RunOnce(const HostOptions& options, const ModuleOptions& moduleOptions,
                 std::vector<Sources>& sources, const std::atomic<bool>& interrupted, HostRun& run,
                 std::string& sentence) {
  PluginDriver driver(options, sources, run.counters);
  const std::filesystem::path module = options.module.empty() ? DefaultModule() : options.module;
  PairingScreen screen({PluginLogOf(options.host), options.qr, options.json,
                        options.status ? SetupTextOf(options.host) : std::filesystem::path()});
  HostExit exit = driver.Open(module, moduleOptions, sentence);
  if (exit == kExitGood) {
    if (run.afterRounds.empty()) Announce(options, sources.front().pictures->Format());
    if (run.afterRounds.empty() && options.qr) screen.ShowInvitation();
    exit = driver.Play(interrupted, screen, sentence);
  }
  if (exit == kExitGood && options.status && !screen.SetupShown()) {
    std::fprintf(stderr, "veldrift-host: no status came: the module's setup is a window here\n");
  }
  driver.Close();
  run.afterRounds.push_back(SettledResources(run));
  return exit;
}

// ---- The self-test -----------------------------------------------------------------------------

HostExit PlayToSelfCheck(const HostOptions& options, const ModuleOptions& moduleOptions,
                         const std::atomic<bool>& interrupted, SelfReport& report,
                         std::string& sentence) {
  const std::filesystem::path log = PluginLogOf(options.host);
  SelfCheck check(log, TraitsOf(options.host).controlPort, interrupted, options.json);
  std::vector<Sources> sources(1);
  sources[0].pictures = check.Count(MakePatternSource(options.width, options.height, options.fps));
  sources[0].sound = MakeToneSource();
  PluginDriver driver(options, sources, report.run.counters);
  PairingScreen silent({log, false, true});
  const std::filesystem::path module = options.module.empty() ? DefaultModule() : options.module;
  HostExit exit = driver.Open(module, moduleOptions, sentence);
  if (exit == kExitGood) {
    check.Start();
    exit = driver.Play(check.Done(), silent, sentence);
  }
  driver.Close();
  report.check = check.Finish();
  report.run.faults = FaultBook::Instance().All();
  return exit;
}

int ReportSelfTest(const HostOptions& options, const SelfReport& report) {
  std::string sentence;
  const HostExit exit = Judge(report, sentence);
  const std::string text = options.json ? SelfTestJson(report, exit) : SelfTestText(report, exit);
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
  return exit == kExitGood ? exit : Complain(exit, sentence);
}

int RunSelfTest(const HostOptions& options) {
  const std::atomic<bool>& interrupted = InstallInterruptFlag();
  std::string sentence;
  HostExit exit = CheckControlPort(options.host, sentence);
  ModuleOptions moduleOptions;
  if (exit == kExitGood) exit = MoveHome(options.home, moduleOptions, sentence);
  if (exit != kExitGood) return Complain(exit, sentence);
  SetDiscoverable(false);
  // What a machine has, it shall show, also what users have to allow first.
  SetEnableAsyncHwEncoders(true);
  SelfReport report;
  report.version = ToolVersion();
  report.system = SystemName();
  report.kept = !options.temporaryHome;
  exit = PlayToSelfCheck(options, moduleOptions, interrupted, report, sentence);
  return exit == kExitGood ? ReportSelfTest(options, report) : Complain(exit, sentence);
}

int Run(const HostOptions& options) {
  const std::atomic<bool>& interrupted = InstallInterruptFlag();
  std::vector<Sources> sources(options.playing);
  std::string sentence;
  HostExit exit = kExitGood;
  for (Sources& each : sources) {
    if (exit == kExitGood) exit = OpenSources(options, interrupted, each, sentence);
  }
  if (exit == kExitGood) exit = CheckControlPort(options.host, sentence);
  ModuleOptions moduleOptions;
  if (exit == kExitGood) exit = MoveHome(options.home, moduleOptions, sentence);
  if (exit != kExitGood) return Complain(exit, sentence);
  // The module reads it when it starts to listen.
  if (!options.discovery) SetDiscoverable(false);
  HostRun run;
  for (int round = 0; round < options.rounds && exit == kExitGood && !interrupted; ++round) {
    exit = RunOnce(options, moduleOptions, sources, interrupted, run, sentence);
  }
  run.faults = FaultBook::Instance().All();
  return exit == kExitGood ? Report(options, run) : Complain(exit, sentence);
}

}  // namespace
}  // namespace Veldrift

int main(int argc, char** argv) {
  Veldrift::HostOptions options;
  if (const std::optional<int> exit = Veldrift::ParseHostOptions(argc, argv, options)) return *exit;
  if (options.selfTest && options.home.empty()) return Veldrift::RunInTemporaryHome(argc, argv);
  if (const std::optional<int> exit = Veldrift::RunUnderOtherName(options, argc, argv)) {
    return *exit;
  }
  const int exit = options.selfTest ? Veldrift::RunSelfTest(options) : Veldrift::Run(options);
  if (!options.removeAtExit.empty()) {
    std::error_code ignored;
    std::filesystem::remove_all(options.removeAtExit, ignored);
  }
  return exit;
}
