#include "phone_options.h"

#include <map>
#include <utility>

#include "net/control_protocol.h"
#include "phone_exit.h"
#include "platform/file.h"
#include "tools/cli/command_line.h"
#include "tools/receiver/pairing_uri_reader.h"

namespace Veldrift {

namespace {

constexpr uint16_t kDefaultPort = 47100;

constexpr const char* kFooter = R"(
Exit codes:
  0  pictures arrived, in order and right, and the connection held
  1  a file can't be written, or another failure of this machine
  2  unknown option or bad value
  3  no plug-in answers at the address, or none was found
  4  a media port (47101 or 47102) is in use by another program
  5  the pairing was refused, or nobody knew the code
  6  a broken stream, or a violation of the protocol
  7  no picture arrived
  8  the connection was lost, for a time or for good
  9  a self-test of the plug-in failed, or gave no verdict
 10  more pictures were lost than --most-lost allows, or no sound came (--want-sound)
130  interrupted before there was a connection, or before --seconds were over

Connection:
  A connection that ends, or on which no heartbeat comes for 5 s, is told at once and made again, by
  the token, without end: after half a second, then ever more seldom, at least every 2 s; only a
  plug-in that ends each connection soon, since another receiver takes it, is left alone for longer,
  up to a minute. The settings are sent again. Found by its id (--discover, --uri, --plugin), the
  plug-in is looked for on the network too. --no-reconnect ends the run instead.

Recordings:
  A file that exists is left alone without --overwrite. What no file can hold goes on in the next of
  the numbered files (take-2.mkv): another codec, size or sound format, sound where there was none,
  and another connection. A recording that can't go on, such as on a full disk, ends the run, and
  what came until then is a whole file; space for its end is set aside. Of an .mkv all but the last
  second or two plays even if this program is killed; an .mp4 or .mov plays only once it is finished.
  Files are for their owner alone.

A player on standard output:
  With --record - the stream goes there as Matroska, picture by picture, and everything that is said
  to standard error. It begins with a key frame; a player that is too slow loses everything up to the
  next one; a player that goes ends the run, as it was meant. A size may change on the way, a codec
  may not.
      veldrift-phone --host ADDR --token-file F --record - | mpv --profile=low-latency -
      veldrift-phone --host ADDR --token-file F --record - |
          ffplay -flags low_delay -framedrop -probesize 100000 -analyzeduration 100000 -i -

Page (--web):
  Who has its address, which holds a random key, sees the picture and steers the host; a second address
  only shows. The picture goes to browsers as it comes, so unless --codec and --gop say otherwise it
  is asked for as H.264 with long groups. There is no encryption, on this way as on the others: serve
  it (--web 0.0.0.0:8080) only on a network that you trust. Eight may watch at once.

Window (--view):
  It shows picture and sound in step, as late as the unrest of what arrives makes it. Space and
  the arrows, J K L, I and O go to the host, F is full screen, Tab shows figures, ? all keys; Esc, Q
  and closing the window end the run. A machine without a sound device shows the picture alone.

Examples:
  veldrift-phone --host 192.0.2.10 --token-file phone.token
  veldrift-phone --discover --token-file phone.token --record take.mkv
  veldrift-phone --uri 'veldrift://pair?v=3&id=0b9c&name=Desk' --token-file phone.token
  veldrift-phone --host 127.0.0.1 --bind 127.0.0.2 --token-file phone.token \
      --code-from-log plugin.log --seconds 10 --record take.mkv --snapshots pictures
  veldrift-phone --host 127.0.0.1:47110 --codec h264 --gop long --drop 5 --reorder 2 --seed 7
  veldrift-phone --host 192.0.2.10 --token-file phone.token --seconds 3600 --record take.mkv \
      --most-lost 1 --want-sound --json
  veldrift-phone --discover --token-file phone.token --web 192.0.2.20:8080
  veldrift-phone --host 127.0.0.1 --code-from-log plugin.log --send set-gop=01 --key play --json
  veldrift-phone --host 127.0.0.1 --code-from-log plugin.log --self-test P0.1 --self-test P3
)";

// What the user typed, before it means anything.
struct Typed {
  std::string host, uri, bind, codec, gop, mode, tokenFile, codeFromLog, pluginLog, record,
      snapshots, web, webKeyFile;
  std::vector<std::string> keys, sends, markers;
  std::optional<int> maxShortSide;
  bool adapt = false, noAdapt = false;
  bool atOnce = false;
  std::string engine;
  int quality = 75;
};

const std::map<std::string, uint8_t> kCodecs = {{"hevc", 0}, {"h264", 1}};
const std::map<std::string, uint8_t> kGopModes = {{"intra", 0}, {"short", 1}, {"long", 3}};
const std::map<std::string, uint8_t> kModes = {{"bitrate", 0}, {"quality", 1}, {"vbr", 2}};
std::string ListOf(const std::vector<std::string>& names) { return CLI::detail::join(names, ", "); }

std::vector<std::string> KeyNames() {
  std::vector<std::string> names;
  for (int opcode = kHostCommandFirst; opcode <= kHostCommandLast; ++opcode) {
    names.emplace_back(CommandName(uint8_t(opcode)));
  }
  return names;
}

void AddConnection(CLI::App& app, PhoneOptions& options, Typed& typed) {
  app.add_option("--host", typed.host, "the plug-in's address, ADDR[:PORT] (default port 47100)");
  app.add_flag("--discover", options.discover,
               "lists the plug-ins on the network, found by DNS-SD, and connects to one");
  app.add_option(
      "--uri", typed.uri,
      "connects to the plug-in of this pairing URI, as its QR code has it, wherever it is");
  app.add_option("--plugin", options.plugin,
                 "the installation's id: with --discover connects to no other; with --host, where "
                 "to look when it "
                 "has moved");
  app.add_option("--bind", typed.bind, "local address; media arrives there on 47101 and 47102");
  app.add_option("--id", options.id, "stable identifier of this phone")->capture_default_str();
  app.add_option("--name", options.name, "display name of this phone")->capture_default_str();
  app.add_option("--token-file", typed.tokenFile, "keeps the trust token between runs");
  app.add_option("--code", options.code,
                 "the six digits that the plug-in shows (default: asks for them)");
  app.add_option("--code-from-log", typed.codeFromLog,
                 "waits for the code of this pairing in the plug-in's log");
  app.add_flag("--no-reconnect", options.noReconnect,
               "ends when the connection does, instead of making it again");
  app.add_option("--wait", options.waitSeconds,
                 "seconds to wait at the start for the plug-in and the code")
      ->capture_default_str()
      ->check(CLI::Range(0.0, 3600.0));
}

void AddSettings(CLI::App& app, Typed& typed) {
  app.add_option("--engine", typed.engine, "encoder engine, by its id")
      ->check([](const std::string& id) {
        return id.size() > 255 ? std::string("an engine id has 255 bytes at most") : std::string();
      });
  app.add_option("--codec", typed.codec, ListOf(NamesOf(kCodecs)))
      ->check(CLI::IsMember(NamesOf(kCodecs)));
  app.add_option("--gop", typed.gop, ListOf(NamesOf(kGopModes)))
      ->check(CLI::IsMember(NamesOf(kGopModes)));
  app.add_option("--mode", typed.mode, ListOf(NamesOf(kModes)))
      ->check(CLI::IsMember(NamesOf(kModes)));
  app.add_option("--quality", typed.quality, "per cent, for --mode")
      ->capture_default_str()
      ->check(CLI::Range(0, 100));
  app.add_option("--max-short-side", typed.maxShortSide, "pixels; 0 is no limit")
      ->check(CLI::Range(0, 65'535));
  CLI::Option* const atOnce = app.add_flag("--settings-at-once", typed.atOnce,
                                           "sends the settings in one message, as an app does");
  CLI::Option* const adapt = app.add_flag(
      "--adapt", typed.adapt,
      "asks for as much as the network carries: steers size, quality and GOP, and says so; "
      "--max-short-side and --mode quality --quality are then the most to ask for (default: for "
      "--view, --web and --record - that no such setting is given for)");
  adapt->excludes(atOnce);
  app.add_flag("--no-adapt", typed.noAdapt, "leaves the stream as it is asked for")
      ->excludes(adapt);
}

void AddCommands(CLI::App& app, PhoneOptions& options, Typed& typed) {
  app.add_option("--key", typed.keys, "transport key, sent once paired: " + ListOf(KeyNames()))
      ->check(CLI::IsMember(KeyNames()));
  app.add_option(
      "--send", typed.sends,
      "any command, as NAME or NAME=PAYLOAD in hexadecimal digits: " + ListOf(CommandNames()));
  app.add_option("--interval", options.commandIntervalMs,
                 "milliseconds between two commands or settings")
      ->capture_default_str()
      ->check(CLI::Range(0, 3'600'000));
  app.add_option("--marker", typed.markers, "leaves this text in the plug-in's log");
  app.add_option("--self-test", options.selfTests,
                 "runs a built-in test of the plug-in (P0.1, P0.3, P0.4, P1.1, P1.2, P2.1, P3, "
                 "P6.1, P6.2), prints the verdict from its log, and ends, with exit code 9 if one "
                 "failed; P6.2 asks for an encoder that keeps frames on the GPU, which Linux never "
                 "has");
  app.add_option("--plugin-log", typed.pluginLog,
                 "the plug-in's log, for --self-test (default: what --code-from-log names)");
}

void AddOutput(CLI::App& app, PhoneOptions& options, Typed& typed) {
  app.add_option("--drop", options.loss.dropPercent, "lose so many per cent of the datagrams")
      ->check(CLI::Range(0.0, 100.0));
  app.add_option("--reorder", options.loss.reorderPercent, "delay so many per cent of them")
      ->check(CLI::Range(0.0, 100.0));
  app.add_option("--seed", options.loss.seed, "of the simulated loss")->capture_default_str();
  app.add_option("--patience", options.patienceMs,
                 "milliseconds that a whole frame waits for older ones")
      ->capture_default_str()
      ->check(CLI::Range(1, 60'000));
  app.add_option("--record", typed.record,
                 "records to FILE: .mkv, .mp4 or .mov; -: live to standard output, for a player");
  app.add_flag("--view", options.view,
               "a window with picture and sound, whose keys steer the host (? shows them); closing "
               "it ends the run");
  app.add_flag("--overwrite", options.overwrite, "recordings may replace files");
  app.add_option(
      "--snapshots", typed.snapshots,
      "writes PNG pictures into this folder: the first that arrives, and more at growing "
      "distances, in the end one a minute");
  app.add_option("--snapshot-every", options.snapshotEvery, "seconds from one picture to the next")
      ->check(NumberFrom(0.1, 1e6));
  app.add_option("--seconds", options.expected.seconds,
                 "ends so long after the pairing (0: goes on)")
      ->check(NumberFrom(0, 1e6));
  app.add_option("--most-lost", options.expected.mostLostPercent,
                 "per cent of the pictures that may be lost, on the way or for want of one before "
                 "them, without exit code 10")
      ->capture_default_str()
      ->check(NumberFrom(0, 100));
  app.add_flag("--want-sound", options.expected.sound, "exit code 10 if no sound comes");
  app.add_flag(
      "--json", options.json,
      "prints the summary as JSON, with every control message but heartbeats; delays from the "
      "push on need a host that stamps its pictures (veldrift-host paints stamps, and puts them "
      "on files with --stamp)");
}

void AddViews(CLI::App& app, Typed& typed) {
  app.add_option("--web", typed.web,
                 "serves a page with the live picture, sound and keys to browsers at [ADDR:]PORT; "
                 "without ADDR to this machine's alone");
  app.add_option("--web-key-file", typed.webKeyFile,
                 "keeps the page's keys between runs, so that its address stays the same");
}

bool ParseHost(const std::string& text, Ipv4Endpoint& host) {
  const size_t colon = text.find(':');
  const std::optional<uint32_t> address = ParseAddress(text.substr(0, colon));
  if (!address) return false;
  host = {*address, kDefaultPort};
  if (colon == std::string::npos) return true;
  int port = 0;
  if (!CLI::detail::lexical_cast(text.substr(colon + 1), port) || port < 1 || port > 65'535) {
    return false;
  }
  host.port = uint16_t(port);
  return true;
}

// Where the plug-in is, in exactly one of three ways.
std::optional<int> InterpretWhere(const Typed& typed, PhoneOptions& options) {
  const int ways = int(!typed.host.empty()) + int(!typed.uri.empty()) + int(options.discover);
  if (ways == 0) {
    return Complain(kExitUsage, "--host, --discover or --uri is missing; see --help");
  }
  if (ways > 1) return Complain(kExitUsage, "give only one of --host, --discover and --uri");
  if (!typed.uri.empty()) {
    const std::optional<InstallIdentity> identity = ParsePairingUri(typed.uri);
    if (!identity || identity->id.empty()) {
      return Complain(kExitUsage, "--uri " + typed.uri + " isn't a pairing URI of a plug-in");
    }
    options.discover = true;
    options.plugin = identity->id;
  } else if (!typed.host.empty() && !ParseHost(typed.host, options.host)) {
    return Complain(kExitUsage, "--host " + typed.host + " isn't an address like 192.0.2.10:47100");
  }
  return std::nullopt;
}

std::optional<int> InterpretWeb(const Typed& typed, PhoneOptions& options) {
  options.web.on = !typed.web.empty();
  options.web.keyFile = PathFromText(typed.webKeyFile);
  if (!options.web.on && !typed.webKeyFile.empty()) {
    return Complain(kExitUsage, "--web-key-file goes with --web");
  }
  if (!options.web.on || ParseWebPlace(typed.web, options.web.local)) return std::nullopt;
  return Complain(kExitUsage, "--web " + typed.web + " isn't a port, or an address and a port");
}

std::optional<int> Interpret(const Typed& typed, PhoneOptions& options) {
  if (const std::optional<int> bad = InterpretWhere(typed, options)) return bad;
  if (!typed.bind.empty()) {
    const std::optional<uint32_t> bind = ParseAddress(typed.bind);
    if (!bind) return Complain(kExitUsage, "--bind " + typed.bind + " isn't an IPv4 address");
    options.bindAddress = *bind;
  }
  const bool digits = options.code.find_first_not_of("0123456789") == std::string::npos;
  if (!options.code.empty() && (options.code.size() != kPairingCodeDigits || !digits)) {
    return Complain(kExitUsage, "--code " + options.code + " isn't six digits");
  }
  if (options.id.empty() || options.id.size() > kMaxHelloId) {
    return Complain(kExitUsage, "--id must have 1 to 64 bytes");
  }
  if (options.name.size() > kMaxHelloName) {
    return Complain(kExitUsage, "--name must have 128 bytes at most");
  }
  const std::string extension = PathFromText(typed.record).extension().string();
  if (!typed.record.empty() && typed.record != "-" && extension != ".mkv" && extension != ".mp4" &&
      extension != ".mov") {
    return Complain(kExitUsage,
                    "--record " + typed.record + " must end in .mkv, .mp4 or .mov, or be -");
  }
  return InterpretWeb(typed, options);
}

template <typename Map>
std::optional<uint8_t> ValueOf(const Map& values, const std::string& name) {
  return name.empty() ? std::nullopt : std::optional<uint8_t>(values.at(name));
}

// The engine first: a new engine starts from its own defaults.
void AddSeparateSettings(const Typed& typed, std::vector<Command>& commands) {
  if (!typed.engine.empty()) commands.push_back(EngineCommand(typed.engine));
  const auto add = [&](uint8_t opcode, std::optional<uint8_t> value) {
    if (value) commands.push_back({opcode, {std::byte(*value)}});
  };
  add(kSetCodec, ValueOf(kCodecs, typed.codec));
  add(kSetGopMode, ValueOf(kGopModes, typed.gop));
  if (const auto mode = ValueOf(kModes, typed.mode)) {
    commands.push_back({kSetEncoderMode, {std::byte(*mode), std::byte(typed.quality)}});
  }
  if (typed.maxShortSide) {
    commands.push_back(MaxResolutionCommand(uint16_t(*typed.maxShortSide)));
  }
}

Command SettingsAtOnce(const Typed& typed) {
  return SnapshotCommand({uint16_t(typed.maxShortSide.value_or(0)),
                          ValueOf(kCodecs, typed.codec).value_or(0),
                          ValueOf(kGopModes, typed.gop).value_or(0),
                          ValueOf(kModes, typed.mode).value_or(0), typed.engine});
}

// The rest is the adaptation's to send.
void AddCeilings(const Typed& typed, PhoneOptions& options) {
  options.adaptation.shortSide = uint16_t(typed.maxShortSide.value_or(0));
  if (typed.mode == "quality") options.adaptation.quality = uint8_t(typed.quality);
  Typed fixed;
  fixed.engine = typed.engine;
  fixed.codec = typed.codec;
  AddSeparateSettings(fixed, options.settings);
}

// In the order in which they go out. Otherwise the exit code.
std::optional<int> FillCommands(const Typed& typed, PhoneOptions& options) {
  if (options.adapt) {
    AddCeilings(typed, options);
  } else if (typed.atOnce) {
    options.settings.push_back(SettingsAtOnce(typed));
  } else {
    AddSeparateSettings(typed, options.settings);
  }
  std::vector<Command>& commands = options.commands;
  std::vector<std::string> sends = typed.sends;
  sends.insert(sends.end(), typed.keys.begin(), typed.keys.end());
  for (const std::string& text : sends) {
    std::string error;
    const std::optional<Command> command = ParseCommand(text, error);
    if (!command) return Complain(kExitUsage, "--send: " + error);
    commands.push_back(*command);
  }
  for (const std::string& text : typed.markers) commands.push_back(MarkerCommand(text));
  return std::nullopt;
}

// Every browser plays H.264, and few take key frames alone over a wireless network.
void ChooseForBrowsers(Typed& typed) {
  if (typed.codec.empty()) typed.codec = "h264";
  if (typed.gop.empty()) typed.gop = "long";
}

std::optional<int> Fill(Typed typed, PhoneOptions& options) {
  options.tokenFile = PathFromText(typed.tokenFile);
  options.codeFromLog = PathFromText(typed.codeFromLog);
  options.pluginLog = typed.pluginLog.empty() ? options.codeFromLog : PathFromText(typed.pluginLog);
  options.live = typed.record == "-";
  if (!options.live) options.record = PathFromText(typed.record);
  options.snapshots = PathFromText(typed.snapshots);
  if (!options.selfTests.empty() && options.pluginLog.empty()) {
    return Complain(kExitUsage, "--self-test finds its verdict in the log: give --plugin-log FILE");
  }
  if (options.view && !options.selfTests.empty()) {
    return Complain(kExitUsage, "--view shows nothing of a --self-test");
  }
  // Who looks on wants a picture, unless they say which; a recording or a measurement wants the
  // stream as it is.
  const bool said = !typed.gop.empty() || !typed.mode.empty() || typed.maxShortSide || typed.atOnce;
  const bool recording = !options.record.empty();
  const bool looking = options.live || ((options.view || options.web.on) && !recording);
  options.adapt = typed.adapt || (looking && !said && !typed.noAdapt);
  if (options.web.on) ChooseForBrowsers(typed);
  return FillCommands(typed, options);
}

}  // namespace

std::optional<int> ParsePhoneOptions(int argc, char** argv, PhoneOptions& options) {
  CLI::App app("A phone for the Veldrift plug-in: pairs, receives, repairs, decodes and measures.",
               "veldrift-phone");
  app.footer(kFooter);
  Typed typed;
  AddConnection(app, options, typed);
  AddSettings(app, typed);
  AddCommands(app, options, typed);
  AddOutput(app, options, typed);
  AddViews(app, typed);
  if (const std::optional<int> exit = ParseCommandLine(app, argc, argv)) return exit;
  if (const std::optional<int> bad = Interpret(typed, options)) return bad;
  return Fill(std::move(typed), options);
}

}  // namespace Veldrift
