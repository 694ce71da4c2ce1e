#include "host_action.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <sstream>

namespace Veldrift {

namespace {

using Kind = HostAction::Kind;

constexpr double kJumpFrames = 5;
constexpr double kOutSeconds = 10;
constexpr double kScrubStepSeconds = 0.04;  // as fast as a hand drags

enum class Value { None, Optional, Needed, Size };

struct Word {
  const char* text;
  Kind kind;
  double preset;
  Value value;
  double lowest = 0;
  double highest = 0;
};

constexpr std::array kWords = {
    Word{"play", Kind::Play, 1, Value::None},
    Word{"pause", Kind::Pause, 0, Value::None},
    Word{"step", Kind::Step, 1, Value::Optional, -100'000, 100'000},
    Word{"scrub", Kind::Step, 0, Value::Needed, -1'000, 1'000},
    Word{"goto", Kind::GoTo, 0, Value::Needed, 0, 100'000},
    Word{"shuttle", Kind::Play, 0, Value::Needed, -8, 8},
    Word{"render", Kind::Render, 0, Value::None},
    Word{"size", Kind::Size, 0, Value::Size},
    Word{"fps", Kind::Rate, 0, Value::Needed, 1, 240},
};

bool ParseNumber(const std::string& text, double& number) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end && std::isfinite(number);
}

std::string Plain(double number) {
  std::ostringstream text;
  text << number;
  return text.str();
}

bool ReadValue(const Word& word, const std::string& text, HostAction& action) {
  if (word.value == Value::Size) return ParseSize(text, action.width, action.height);
  if (text.empty()) return word.value != Value::Needed;
  const bool whole = word.kind == Kind::Step || word.kind == Kind::Play;
  return word.value != Value::None && ParseNumber(text, action.value) &&
         action.value >= word.lowest && action.value <= word.highest &&
         (!whole || action.value == std::floor(action.value));
}

// One entry: "2 pause". False: it isn't one.
bool ReadEntry(const std::string& entry, std::vector<ScriptedAction>& actions) {
  std::istringstream words(entry);
  std::string time, name, value, rest;
  words >> time >> name >> value >> rest;
  const auto word =
      std::ranges::find_if(kWords, [&](const Word& each) { return name == each.text; });
  ScriptedAction scripted;
  if (!rest.empty() || word == kWords.end() || !ParseNumber(time, scripted.seconds) ||
      scripted.seconds < 0) {
    return false;
  }
  scripted.action = {word->kind, word->preset};
  if (!ReadValue(*word, value, scripted.action)) return false;
  if (name == "shuttle" && scripted.action.value == 0) scripted.action.kind = Kind::Pause;
  if (name != "scrub") {
    actions.push_back(scripted);
    return true;
  }
  const int steps = int(std::abs(scripted.action.value));
  scripted.action.value = scripted.action.value < 0 ? -1 : 1;
  for (int i = 0; i < steps; ++i, scripted.seconds += kScrubStepSeconds) {
    actions.push_back(scripted);
  }
  return true;
}

}  // namespace

std::string TextOf(const HostAction& action) {
  switch (action.kind) {
    case Kind::Play:
      return action.value == 1 ? "play" : "shuttle " + Plain(action.value);
    case Kind::PlayPause:
      return "play or pause";
    case Kind::Pause:
      return "pause";
    case Kind::Step:
      return "step " + Plain(action.value);
    case Kind::GoTo:
      return "goto " + Plain(action.value);
    case Kind::Size:
      return "size " + std::to_string(action.width) + "x" + std::to_string(action.height);
    case Kind::Rate:
      return "fps " + Plain(action.value);
    case Kind::Render:
      break;
  }
  return "render";
}

HostAction ActionOf(BridgeOperation operation) {
  switch (operation) {
    case BridgeOperation::PlayPause:
      return {Kind::PlayPause};
    case BridgeOperation::StepForward:
      return {Kind::Step, 1};
    case BridgeOperation::StepBack:
      return {Kind::Step, -1};
    case BridgeOperation::JumpForward:
      return {Kind::Step, kJumpFrames};
    case BridgeOperation::JumpBack:
      return {Kind::Step, -kJumpFrames};
    case BridgeOperation::GoToIn:
      return {Kind::GoTo, 0};
    case BridgeOperation::GoToOut:
      return {Kind::GoTo, kOutSeconds};
    case BridgeOperation::ShuttleBack:
      return {Kind::Play, -1};
    case BridgeOperation::ShuttleStop:
      return {Kind::Pause};
    case BridgeOperation::ShuttleForward:
      return {Kind::Play, 1};
    case BridgeOperation::NewClientNudge:
      break;
  }
  return {Kind::Render};
}

std::optional<std::vector<ScriptedAction>> ParseScript(const std::string& text,
                                                       std::string& error) {
  std::vector<ScriptedAction> actions;
  std::istringstream entries(text);
  for (std::string entry; std::getline(entries, entry, ',');) {
    if (ReadEntry(entry, actions)) continue;
    error = "\"" + entry + "\" isn't like \"2 pause\", \"3 step -1\" or \"4 size 640x360\"";
    return std::nullopt;
  }
  std::ranges::stable_sort(actions, {}, &ScriptedAction::seconds);
  return actions;
}

bool ParseSize(const std::string& text, int& width, int& height) {
  const size_t cross = text.find('x');
  const auto side = [](const std::string& digits, int& into) {
    const char* end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, into);
    return error == std::errc() && stop == end && into >= 64 && into <= 16'384;
  };
  return cross != std::string::npos && side(text.substr(0, cross), width) &&
         side(text.substr(cross + 1), height);
}

}  // namespace Veldrift
