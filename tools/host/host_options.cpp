#include "host_options.h"

#include "exit_codes.h"
#include "platform/file.h"
#include "tools/cli/command_line.h"

namespace Veldrift {

namespace {

constexpr const char* kFooter = R"(
Exit codes:
  0  done, and every frame was disposed of once
  1  a failure of this machine, such as a folder that can't be made
  2  unknown option or bad value
  3  the module can't be loaded
  4  the module refused to make an instance
  5  the input file is missing, or holds no video that can be read
  6  the module kept frames, or disposed of one twice
  7  an option that isn't built yet
  8  the control port is in use by another program
  9  the module left threads, sockets or files behind

Examples:
  veldrift-host                                         the generated picture, until Ctrl-C
  veldrift-host --input holiday.mov --seconds 30
  veldrift-host --size 3840x2160 --fps 60 --home /tmp/trial --host aftereffects
  veldrift-host --qr                                    shows what a phone needs to pair
)";

struct Typed {
  std::string module, input, size, audio, road = "push", home, host = "premiere", removeAtExit;
  bool pattern = false;
};

const std::map<std::string, HostApplication> kHosts = {
    {"premiere", HostApplication::Premiere},
    {"aftereffects", HostApplication::AfterEffects},
    {"mediaencoder", HostApplication::MediaEncoder},
    {"unknown", HostApplication::UnknownHost}};
const std::map<std::string, SoundChoice> kSounds = {
    {"tone", SoundChoice::Tone}, {"file", SoundChoice::File}, {"none", SoundChoice::None}};
const std::map<std::string, AudioRoad> kRoads = {{"push", AudioRoad::Push},
                                                 {"pull", AudioRoad::Pull}};

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
      ->check(CLI::Range(1.0, 240.0))
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
      ->check(CLI::Range(0.0, 1e6));
  app.add_option("--frames", options.limits.frames, "ends a round after so many frames");
  app.add_option("--pause-after", options.limits.pauseAfter,
                 "stands still after so many seconds of playing, as a paused host does")
      ->check(CLI::Range(0.0, 1e6));
  app.add_option("--instances", options.instances, "makes so many; the first one plays")
      ->capture_default_str()
      ->check(CLI::Range(1, 100));
  app.add_option("--rounds", options.rounds,
                 "loads the module, plays and unloads it so many times, and counts what it leaves")
      ->capture_default_str()
      ->check(CLI::Range(1, 1'000'000));
  auto* home =
      app.add_option("--home", typed.home, "settings, logs and trusted phones live in this folder");
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
  app.add_option("--remove-at-exit", typed.removeAtExit)->group("");
}

bool ParseSize(const std::string& text, HostOptions& options) {
  const size_t cross = text.find('x');
  return cross != std::string::npos &&
         CLI::detail::lexical_cast(text.substr(0, cross), options.width) &&
         CLI::detail::lexical_cast(text.substr(cross + 1), options.height) && options.width >= 64 &&
         options.height >= 64 && options.width <= 16'384 && options.height <= 16'384;
}

std::optional<int> Interpret(const Typed& typed, HostOptions& options) {
  if (!typed.size.empty() && !ParseSize(typed.size, options)) {
    return Complain(kExitUsage, "--size " + typed.size +
                                    " isn't a size like 1280x720, from 64x64 to 16384x16384");
  }
  options.module = PathFromText(typed.module);
  options.input = PathFromText(typed.input);
  options.home = PathFromText(typed.home);
  options.removeAtExit = PathFromText(typed.removeAtExit);
  options.host = kHosts.at(typed.host);
  options.audioRoad = kRoads.at(typed.road);
  if (!typed.audio.empty()) options.sound = kSounds.at(typed.audio);
  if (options.sound == SoundChoice::File && options.input.empty()) {
    return Complain(kExitUsage, "--audio file needs a file: give it with --input");
  }
  return std::nullopt;
}

}  // namespace

std::optional<int> ParseHostOptions(int argc, char** argv, HostOptions& options) {
  CLI::App app("A host for the Veldrift plug-in: loads the module and plays into it.",
               "veldrift-host");
  app.footer(kFooter);
  Typed typed;
  AddSource(app, options, typed);
  AddRun(app, options, typed);
  if (const std::optional<int> exit = ParseCommandLine(app, argc, argv)) return exit;
  return Interpret(typed, options);
}

}  // namespace Veldrift
