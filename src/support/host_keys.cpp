#include "support/host_keys.h"

#include <array>
#include <atomic>
#include <initializer_list>
#include <span>

#include "platform/keyboard.h"
#include "support/paths.h"
#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kLog{kLogSubsystem, "kbd"};
constexpr int64_t kNudgeNs = 60 * kNanosPerMilli;
constexpr uint8_t kFirstOpcode = 0x20;

struct Shortcut {
  VirtualKey key;
  bool withShift;
};

// In the order of the opcodes.
constexpr std::array<Shortcut, 10> kShortcuts = {{{kKeySpace, false},
                                                  {kKeyRight, false},
                                                  {kKeyLeft, false},
                                                  {kKeyRight, true},
                                                  {kKeyLeft, true},
                                                  {kKeyI, true},
                                                  {kKeyO, true},
                                                  {kKeyJ, false},
                                                  {kKeyK, false},
                                                  {kKeyL, false}}};

// Whether keys would reach the host. In a window of ours a space would press a button, and letters
// would be a name.
bool KeyboardIsThere() {
  if (OwnWindowInFront()) {
    PluginLog(kLog, kLogInfo, "keys left out: a window of the plug-in is in front");
    return false;
  }
  if (CanTypeKeys()) return true;
  static std::atomic<bool> said{false};
  if (!said.exchange(true)) {
    PluginLog(kLog, kLogInfo, "no way to send keys to the host on this system");
  }
  return false;
}

void Type(std::initializer_list<KeyEvent> events) {
  if (!KeyboardIsThere()) return;
  const TypedKeys typed = TypeKeys({events.begin(), events.size()});
  if (typed.sent == events.size()) return;
  PluginLog(kLog, kLogInfo, "SendInput sent=%u expected=%d err=%lu", typed.sent, int(events.size()),
            typed.error);
}

void WaitFor(int64_t nanos, Clock& clock) {
  const int64_t deadline = clock.NowNanos() + nanos;
  for (int64_t now = clock.NowNanos(); now < deadline; now = clock.NowNanos()) {
    clock.SleepFor(deadline - now);
  }
}

}  // namespace

void SendKeyTap(VirtualKey key) { Type({{key, false}, {key, true}}); }

void SendKeyChord(VirtualKey key, bool withShift) {
  if (!withShift) return SendKeyTap(key);
  Type({{kKeyShift, false}, {key, false}, {key, true}, {kKeyShift, true}});
}

void SendHostKeys(uint8_t opcode) {
  const size_t index = size_t(opcode) - kFirstOpcode;
  if (index < kShortcuts.size()) SendKeyChord(kShortcuts[index].key, kShortcuts[index].withShift);
}

void NudgeHostByKeyboard(Clock& clock) {
  const bool isAe = DetectHostApplication() == HostApplication::AfterEffects;
  PluginLog(kLog, kLogInfo, "nudge: %s", isAe ? "PgDn/PgUp (AE)" : "→← (Premiere)");
  if (!KeyboardIsThere()) return;
  SendKeyTap(isAe ? kKeyPageDown : kKeyRight);
  WaitFor(kNudgeNs, clock);
  SendKeyTap(isAe ? kKeyPageUp : kKeyLeft);
}

}  // namespace Veldrift
