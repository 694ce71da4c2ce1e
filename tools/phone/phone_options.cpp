#include "phone_options.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <map>

#include "exit_codes.h"
#include "net/control_protocol.h"
#include "platform/file.h"

namespace Veldrift {

namespace {

constexpr uint16_t kDefaultPort = 47100;
constexpr const char* kSay = "veldrift-phone: ";

constexpr const char* kFooter = R"(
Exit codes:
  0  pictures arrived, in order and right
  1  a file can't be written, or another failure of this machine
  2  unknown option or bad value
  3  no plug-in answers at the address
  4  a media port (47101 or 47102) is in use by another program
  5  the pairing was refused, or nobody knew the code
  6  a broken stream, or a violation of the protocol
  7  no picture arrived
  8  an option that isn't built yet

Examples:
  veldrift-phone --host 192.0.2.10 --token-file phone.token
  veldrift-phone --host 127.0.0.1 --bind 127.0.0.2 --token-file phone.token \
      --code-from-log plugin.log --seconds 10 --record take.mkv --snapshots pictures
  veldrift-phone --host 127.0.0.1:47110 --codec h264 --gop long --drop 5 --reorder 2 --seed 7
)";

// What the user typed, before it means anything.
struct Typed {
  std::string host, uri, bind, codec, gop, mode, tokenFile, codeFromLog, record, snapshots;
  bool discover = false;
  std::vector<std::string> keys;
  std::optional<int> maxShortSide;
  int quality = 75;
};

const std::map<std::string, uint8_t> kCodecs = {{"hevc", 0}, {"h264", 1}};
const std::map<std::string, uint8_t> kGopModes = {{"intra", 0}, {"short", 1}, {"long", 3}};
const std::map<std::string, uint8_t> kModes = {{"bitrate", 0}, {"quality", 1}, {"vbr", 2}};
const std::map<std::string, uint8_t> kKeys = {
    {"play", 0x20},         {"step-forward", 0x21},   {"step-back", 0x22}, {"jump-forward", 0x23},
    {"jump-back", 0x24},    {"go-to-in", 0x25},       {"go-to-out", 0x26}, {"shuttle-back", 0x27},
    {"shuttle-stop", 0x28}, {"shuttle-forward", 0x29}};

std::vector<std::string> NamesOf(const std::map<std::string, uint8_t>& values) {
  std::vector<std::string> names;
  for (const auto& [name, value] : values) names.push_back(name);
  return names;
}

std::string ListOf(const std::map<std::string, uint8_t>& values) {
  return CLI::detail::join(NamesOf(values), ", ");
}

void AddConnection(CLI::App& app, PhoneOptions& options, Typed& typed) {
  app.add_option("--host", typed.host, "the plug-in's address, ADDR[:PORT] (default port 47100)");
  app.add_flag("--discover", typed.discover, "find the plug-in by DNS-SD (not built yet)");
  app.add_option("--uri", typed.uri, "find the plug-in by its pairing URI (not built yet)");
  app.add_option("--bind", typed.bind, "local address; media arrives there on 47101 and 47102");
  app.add_option("--id", options.id, "stable identifier of this phone")->capture_default_str();
  app.add_option("--name", options.name, "display name of this phone")->capture_default_str();
  app.add_option("--token-file", typed.tokenFile, "keeps the trust token between runs");
  app.add_option("--code", options.code,
                 "the six digits that the plug-in shows (default: asks for them)");
  app.add_option("--code-from-log", typed.codeFromLog,
                 "waits for the code of this pairing in the plug-in's log");
  app.add_option("--wait", options.waitSeconds, "seconds to wait for the plug-in and the code")
      ->capture_default_str()
      ->check(CLI::Range(0.0, 3600.0));
}

void AddSettings(CLI::App& app, PhoneOptions& options, Typed& typed) {
  app.add_option("--engine", options.engine, "encoder engine, by its id")
      ->check([](const std::string& id) {
        return id.size() > 255 ? std::string("an engine id has 255 bytes at most") : std::string();
      });
  app.add_option("--codec", typed.codec, ListOf(kCodecs))->check(CLI::IsMember(NamesOf(kCodecs)));
  app.add_option("--gop", typed.gop, ListOf(kGopModes))->check(CLI::IsMember(NamesOf(kGopModes)));
  app.add_option("--mode", typed.mode, ListOf(kModes))->check(CLI::IsMember(NamesOf(kModes)));
  app.add_option("--quality", typed.quality, "per cent, for --mode")
      ->capture_default_str()
      ->check(CLI::Range(0, 100));
  app.add_option("--max-short-side", typed.maxShortSide, "pixels; 0 is no limit")
      ->check(CLI::Range(0, 65'535));
  app.add_option("--key", typed.keys,
                 "transport key, sent once paired; may be repeated: " + ListOf(kKeys))
      ->check(CLI::IsMember(NamesOf(kKeys)));
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
  app.add_option("--record", typed.record, "records to FILE: .mkv, .mp4 or .mov");
  app.add_option("--snapshots", typed.snapshots, "writes PNG pictures into this folder");
  app.add_option("--seconds", options.seconds, "ends so long after the pairing (0: goes on)")
      ->check(CLI::Range(0.0, 1e6));
  app.add_flag("--json", options.json, "prints the summary as JSON, with every control message");
}

int Complain(PhoneExit code, const std::string& sentence) {
  std::fprintf(stderr, "%s%s\n", kSay, sentence.c_str());
  return code;
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

std::optional<int> Interpret(const Typed& typed, PhoneOptions& options) {
  if (typed.discover || !typed.uri.empty()) {
    return Complain(
        kExitNotBuiltYet,
        "--discover and --uri aren't built yet: give the plug-in's address with --host");
  }
  if (typed.host.empty()) return Complain(kExitUsage, "--host is missing; see --help");
  if (!ParseHost(typed.host, options.host)) {
    return Complain(kExitUsage, "--host " + typed.host + " isn't an address like 192.0.2.10:47100");
  }
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
  if (!typed.record.empty() && extension != ".mkv" && extension != ".mp4" && extension != ".mov") {
    return Complain(kExitUsage, "--record " + typed.record + " must end in .mkv, .mp4 or .mov");
  }
  return std::nullopt;
}

void Fill(const Typed& typed, PhoneOptions& options) {
  options.tokenFile = PathFromText(typed.tokenFile);
  options.codeFromLog = PathFromText(typed.codeFromLog);
  options.record = PathFromText(typed.record);
  options.snapshots = PathFromText(typed.snapshots);
  if (!typed.codec.empty()) options.codec = kCodecs.at(typed.codec);
  if (!typed.gop.empty()) options.gopMode = kGopModes.at(typed.gop);
  if (!typed.mode.empty()) options.encoderMode = kModes.at(typed.mode);
  options.quality = uint8_t(typed.quality);
  if (typed.maxShortSide) options.maxShortSide = uint16_t(*typed.maxShortSide);
  for (const std::string& key : typed.keys) options.keys.push_back(kKeys.at(key));
}

}  // namespace

std::optional<int> ParsePhoneOptions(int argc, char** argv, PhoneOptions& options) {
  CLI::App app("A phone for the Veldrift plug-in: pairs, receives, repairs, decodes and measures.",
               "veldrift-phone");
  app.footer(kFooter);
  Typed typed;
  AddConnection(app, options, typed);
  AddSettings(app, options, typed);
  AddOutput(app, options, typed);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    std::printf("%s", app.help().c_str());
    return kExitGood;
  } catch (const CLI::ParseError& error) {
    return Complain(kExitUsage, std::string(error.what()) + "; see --help");
  }
  if (const std::optional<int> bad = Interpret(typed, options)) return bad;
  Fill(typed, options);
  return std::nullopt;
}

}  // namespace Veldrift
