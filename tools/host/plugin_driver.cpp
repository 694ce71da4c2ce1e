#include "plugin_driver.h"

#include <algorithm>

#include "host_suites.h"
#include "steering.h"
#include "support/clock.h"

namespace Veldrift {

namespace {

constexpr int64_t kServeNs = 5 * kNanosPerMilli;
constexpr double kSwitchSeconds = 0.7;
constexpr double kFastest = 8;

}  // namespace

double PluginDriver::Seconds() const { return double(SteadyNanos() - startNs_) / 1e9; }

HostExit PluginDriver::Open(const std::filesystem::path& module, const ModuleOptions& options,
                            std::string& sentence) {
  HostExit exit = table_.Load(module, options, sentence);
  if (exit != kExitGood) return exit;
  // Without it the plug-in presses the keys of whatever window is in front.
  Steering::Instance().LoadSibling(module, options_.host);
  if (options_.setup && !table_.OpenSetup()) {
    sentence = "the module says that it has no setup";
    return kExitRefused;
  }
  while (exit == kExitGood && players_.size() < options_.instances) {
    // Those that don't play have the first one's format.
    const Sources& sources = sources_[players_.size() < options_.playing ? players_.size() : 0];
    const int32_t playID = int32_t(players_.size()) + 1;
    players_.push_back(std::make_unique<Player>(table_, *sources.pictures, sources.sound.get(),
                                                options_.ways, playID));
    exit = players_.back()->Open(sentence);
  }
  return exit;
}

// ---- Playback ----------------------------------------------------------------------------------

bool PluginDriver::Over(double seconds) const {
  const PlayLimits& limits = options_.limits;
  return (limits.seconds > 0 && seconds >= limits.seconds) ||
         (limits.frames > 0 && players_.front()->PlacesPlayed() >= limits.frames) ||
         players_.front()->SourceEnded();
}

HostExit PluginDriver::Play(const std::atomic<bool>& interrupted, PairingScreen& screen,
                            std::string& sentence) {
  HostExit exit = kExitGood;
  startNs_ = SteadyNanos();
  for (size_t i = 0; i < options_.playing; ++i) players_[i]->Play(1);
  Steering::Instance().Open();
  while (exit == kExitGood && !interrupted && !Over(Seconds())) {
    const auto& script = options_.script;
    for (; exit == kExitGood && scriptAt_ < script.size(); ++scriptAt_) {
      if (script[scriptAt_].seconds > Seconds()) break;
      exit = Do(script[scriptAt_].action, false, sentence);
    }
    Steering::Instance().Serve(kServeNs, [&](BridgeOperation operation) {
      if (exit == kExitGood) exit = Do(ActionOf(operation), true, sentence);
    });
    // Backwards it comes to its beginning.
    if (First().Speed() < 0 && First().Place() == 0) First().Pause();
    SwitchActivation(Seconds());
    screen.Update(First().Counters(), First().Speed(), First().TicksPerFrame(), SteadyNanos());
  }
  // What the phone asks from here on would wait for a main thread that is busy with going.
  Steering::Instance().Close();
  counters_.playedNs += SteadyNanos() - startNs_;
  return exit;
}

HostExit PluginDriver::Do(HostAction action, bool byPhone, std::string& sentence) {
  HostExit exit = kExitGood;
  if (action.kind == HostAction::Kind::PlayPause) {
    action = First().Speed() == 0 ? HostAction{HostAction::Kind::Play, 1}
                                  : HostAction{HostAction::Kind::Pause};
  } else if (action.kind == HostAction::Kind::Play && byPhone) {
    // A shuttle key that is pressed again goes faster; a script says how fast.
    const double speed = First().Speed();
    if (speed * action.value > 0) action.value = std::clamp(2 * speed, -kFastest, kFastest);
  }
  for (size_t i = 0; i < options_.playing && exit == kExitGood; ++i) {
    exit = DoTo(*players_[i], action, sentence);
  }
  counters_.actions.push_back({Seconds(), TextOf(action), byPhone, First().Place()});
  return exit;
}

HostExit PluginDriver::DoTo(Player& player, const HostAction& action, std::string& sentence) {
  switch (action.kind) {
    case HostAction::Kind::Play:
      player.Play(int(action.value));
      break;
    case HostAction::Kind::PlayPause:
    case HostAction::Kind::Pause:
      player.Pause();
      break;
    case HostAction::Kind::Step:
      player.Step(int(action.value));
      break;
    case HostAction::Kind::GoTo:
      player.GoTo(action.value);
      break;
    case HostAction::Kind::Render:
      player.Render();
      break;
    case HostAction::Kind::Size:
      player.SetSize(action.width, action.height);
      break;
    case HostAction::Kind::Rate:
      return player.SetRate(action.value, sentence);
  }
  return kExitGood;
}

void PluginDriver::SwitchActivation(double seconds) {
  if (!options_.ways.activation || seconds < kSwitchSeconds * (switches_ + 1)) return;
  const bool on = switches_++ % 2 == 1;
  for (size_t i = 0; i < options_.playing; ++i) players_[i]->Activate(on);
}

// ---- The end -----------------------------------------------------------------------------------

void PluginDriver::Close() {
  for (; !players_.empty(); players_.pop_back()) {
    players_.back()->Close();
    counters_.play.Add(players_.back()->Counters());
  }
  table_.Unload();
  HostSuites& suites = HostSuites::Instance();
  counters_.undisposed = suites.Frames().Undisposed();
  counters_.wronglyDisposed = suites.Frames().WronglyDisposed();
  counters_.suitesHeld = suites.JudgeHeld();
}

}  // namespace Veldrift
