#include "host_options.h"

#include <algorithm>
#include <array>

#include "host_exit.h"
#include "platform/file.h"
#include "tools/cli/command_line.h"

namespace Veldrift {

namespace {

constexpr const char* kFooter = R"(
Exit codes:
  0  done, and the module kept every rule that this host looks at
  1  a failure of this machine, such as a folder that can't be made
  2  unknown option or bad value
  3  the module can't be loaded
  4  the module refused to make an instance
  5  the input file is missing, or holds no video that can be read
  6  the module kept frames, or disposed of one twice
  7  this build can't read video files (--input on Windows)
  8  the control port is in use by another program
  9  the module left threads, sockets or files behind
  10 the module broke a rule of the host's interface: an answer, the clock, sound, a suite
  11 --self-test: a codec gave no pictures or stopped, a built-in test failed, or it crashed

Examples:
  veldrift-host                                         the generated picture, until Ctrl-C
  veldrift-host --input holiday.mov --seconds 30
  veldrift-host --size 3840x2160 --fps 60 --home /tmp/trial --host aftereffects
  veldrift-host --qr                                    shows what a phone needs to pair
  veldrift-host --script '3 pause, 4 step, 4.5 step -1, 5 play, 8 size 640x360'
  veldrift-host --self-test                             what this machine can do; 20 s or so
  veldrift-host --hostile all --playing 2 --instances 3 --seconds 20

--self-test plays the generated picture, 1920x1080 at 30, to a phone of its own process: some seconds
of H.264 and of HEVC, then the module's built-in tests. It prints the adapter, the engines, what each
codec came to and the log's errors, and at the end one line to send back. Settings, log and trust are
in a temporary folder (or in --home, which keeps them), with asynchronous encoders switched on.

The timeline goes by the module's clock. A phone steers it by its transport keys (veldrift-phone
--key play) through VeldriftCtrl.acsrf beside the module; its in point is 0 s, its out point 10 s.
)";

struct Typed {
  std::string module, input, size, audio, road = "push", home, host = "premiere", removeAtExit;
  std::string script, temporaryHome;
  std::vector<std::string> hostile;
  double pauseAfter = 0;
  bool pattern = false;
};

const std::map<std::string, HostApplication> kHosts = {
    {"premiere", HostApplication::Premiere},
    {"aftereffects", HostApplication::AfterEffects},
    {"mediaencoder", HostApplication::MediaEncoder},
    {"unknown", HostApplication::UnknownHost}};
const std::map<std::string, SoundChoice> kSounds = {
    {"tone", SoundChoice::Tone}, {"file", SoundChoice::File}, {"none", SoundChoice::None}};
const std::map<std::string, SoundRoad> kRoads = {{"push", SoundRoad::Push},
                                                 {"pull", SoundRoad::Pull}};

void AddSource(CLI::App& app, HostOptions& options, Typed& typed) {
  app.add_option("--module", typed.module,
                 "the plug-in (default: Veldrift.prm beside this program)");
  auto* input = app.add_option("--input", typed.input,
                               "streams this video file over and over, with its sound");
  app.add_flag("--pattern", typed.pattern, "streams a generated picture (default)")
      ->excludes(input);
  app.add_option("--size", typed.size, "of the generated picture, WxH (default 1280x720)")
      ->excludes(input);
  app.add_option("--fps", options.fps, "frames a second of the generated picture")
      ->capture_default_str()
      ->check(NumberFrom(1, 240))
      ->excludes(input);
  app.add_flag("--stamp", options.stamp, "paints the frame's number over the file's pictures");
  auto* clapper = app.add_flag("--clapper", options.clapper,
                               "a flash and a click each second, to see whether they are in step");
  app.add_option("--audio", typed.audio, "tone, file or none (default: what the source has)")
      ->check(CLI::IsMember(NamesOf(kSounds)))
      ->excludes(clapper);
  app.add_option("--audio-road", typed.road, "push or pull: who asks for the sound")
      ->capture_default_str()
      ->check(CLI::IsMember(NamesOf(kRoads)));
}

void AddRun(CLI::App& app, HostOptions& options, Typed& typed) {
  app.add_option("--seconds", options.limits.seconds, "ends a round after so long (0: at Ctrl-C)")
      ->check(NumberFrom(0, 1e6));
  app.add_option("--frames", options.limits.frames,
                 "ends a round after so many places of the timeline; a place whose time had passed "
                 "counts, although its frame was skipped (0: no limit)")
      ->check(WholeNumberFrom(0, 4e9));
  app.add_option("--pause-after", typed.pauseAfter, "--script 'SECONDS pause'")
      ->check(NumberFrom(0, 1e6));
  app.add_option("--script", typed.script,
                 "does things at their time, in seconds since the start: 'TIME ACTION, ...', where "
                 "an action is play, pause, step [FRAMES], scrub FRAMES, goto SECONDS, shuttle "
                 "SPEED (-8 to 8), render, size WxH or fps N");
  app.add_option("--instances", options.instances, "makes so many instances")
      ->capture_default_str()
      ->check(WholeNumberFrom(1, 100));
  app.add_option("--playing", options.playing, "so many of them play, the first ones")
      ->capture_default_str()
      ->check(WholeNumberFrom(1, 100));
  app.add_option("--hostile", typed.hostile,
                 "is a hard host: frames (odd lists, formats and origins), activation (switched "
                 "off and on while playing), callback (stops the clock from its callback), lock "
                 "(the callback takes a lock that is held around slot 10), or all")
      ->delimiter(',')
      ->check(CLI::IsMember({"frames", "activation", "callback", "lock", "all"}));
  app.add_flag("--setup", options.setup, "opens the module's setup, as its button does");
  app.add_flag("--status", options.status,
               "shows what the module's setup says: all of it, then what changes (on a system with "
               "windows --setup opens it as one)");
  app.add_option("--rounds", options.rounds,
                 "loads the module, plays and unloads it so many times, and counts what it leaves")
      ->capture_default_str()
      ->check(WholeNumberFrom(1, 1e6));
  auto* home =
      app.add_option("--home", typed.home, "settings, logs and trusted phones live in this folder")
          ->check([](const std::string& folder) {
            return folder.empty() ? std::string("the folder's name is empty") : std::string();
          });
  app.add_flag("!--no-discovery", options.discovery,
               "switches off in the settings of --home that phones find the plug-in by themselves")
      ->needs(home);
  app.add_option("--host", typed.host,
                 "which application to be: premiere, aftereffects, mediaencoder or unknown; the "
                 "control port is 47100, 47110, 47120 or 47130")
      ->capture_default_str()
      ->check(CLI::IsMember(NamesOf(kHosts)));
  app.add_flag("--qr", options.qr,
               "draws the QR code that tells a phone of this installation, and prints the six "
               "digits when a pairing begins (with --json on standard error)");
  app.add_flag("--json", options.json, "prints the summary as JSON");
  app.add_flag("--self-test", options.selfTest,
               "tests what this machine can do with the module, and ends; see below");
  app.add_option("--temporary-home", typed.temporaryHome)->group("")->excludes(home);
  app.add_option("--remove-at-exit", typed.removeAtExit)->group("");
}

std::optional<int> InterpretScript(const Typed& typed, HostOptions& options) {
  std::string error;
  auto script = ParseScript(typed.script, error);
  if (!script) return Complain(kExitUsage, "--script: " + error);
  options.script = std::move(*script);
  if (typed.pauseAfter > 0) {
    options.script.push_back({typed.pauseAfter, {HostAction::Kind::Pause}});
    std::ranges::stable_sort(options.script, {}, &ScriptedAction::seconds);
  }
  return std::nullopt;
}

// It brings its own picture, time and phone.
void KeepSelfTestAlone(CLI::App& app) {
  constexpr std::array kGoWith = {"--self-test", "--module", "--home",
                                  "--host",      "--json",   "--help"};
  CLI::Option* const selfTest = app.get_option("--self-test");
  for (CLI::Option* option : app.get_options()) {
    const bool hidden = option->get_group().empty();  // of no use to people
    if (!hidden && std::ranges::find(kGoWith, option->get_name(false, true)) == kGoWith.end()) {
      selfTest->excludes(option);
    }
  }
}

// By itself on a port on which no editing host listens.
void ChooseSelfTest(const CLI::App& app, HostOptions& options, Typed& typed) {
  if (app.count("--host") == 0) typed.host = "unknown";
  options.width = 1920;
  options.height = 1080;
  options.discovery = false;
}

void InterpretHostile(const Typed& typed, PlayerWays& ways) {
  for (const std::string& way : typed.hostile) {
    const bool all = way == "all";
    ways.frames = ways.frames || all || way == "frames";
    ways.activation = ways.activation || all || way == "activation";
    ways.callback = ways.callback || all || way == "callback";
    ways.lock = ways.lock || all || way == "lock";
  }
}

std::optional<int> Interpret(const Typed& typed, HostOptions& options) {
  if (!typed.size.empty() && !ParseSize(typed.size, options.width, options.height)) {
    return Complain(kExitUsage, "--size " + typed.size +
                                    " isn't a size like 1280x720, from 64x64 to 16384x16384");
  }
  options.module = PathFromText(typed.module);
  options.input = PathFromText(typed.input);
  options.temporaryHome = !typed.temporaryHome.empty();
  options.home = PathFromText(options.temporaryHome ? typed.temporaryHome : typed.home);
  options.removeAtExit = PathFromText(typed.removeAtExit);
  options.host = kHosts.at(typed.host);
  options.ways.road = kRoads.at(typed.road);
  if (!typed.audio.empty()) options.sound = kSounds.at(typed.audio);
  if (options.sound == SoundChoice::File && options.input.empty()) {
    return Complain(kExitUsage, "--audio file needs a file: give it with --input");
  }
  options.setup = options.setup || options.status;
  options.instances = std::max(options.instances, options.playing);
  InterpretHostile(typed, options.ways);
  return InterpretScript(typed, options);
}

}  // namespace

std::optional<int> ParseHostOptions(int argc, char** argv, HostOptions& options) {
  CLI::App app("A host for the Veldrift plug-in: loads the module and plays into it.",
               "veldrift-host");
  app.footer(kFooter);
  Typed typed;
  AddSource(app, options, typed);
  AddRun(app, options, typed);
  KeepSelfTestAlone(app);
  if (const std::optional<int> exit = ParseCommandLine(app, argc, argv)) return exit;
  if (options.selfTest) ChooseSelfTest(app, options, typed);
  return Interpret(typed, options);
}

}  // namespace Veldrift
