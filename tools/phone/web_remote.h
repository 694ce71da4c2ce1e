// What pages ask of the host, brought to the session's thread, which alone speaks to the plug-in;
// and what was set by them, told again to a plug-in that was started anew.
//
// Threads: Offer from any; the rest from the session's.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "platform/mutex.h"
#include "support/clock.h"
#include "tools/receiver/adapter.h"
#include "tools/receiver/commands.h"
#include "tools/receiver/control_link.h"

namespace Veldrift {

class WebRemote {
 public:
  enum class Answer { Taken, TooMany, NoConnection };

  // `settings` are sent at the start of each connection by others, and count as set. What is an
  // adapter's matter is wished for there instead of sent; null: there is none.
  explicit WebRemote(const std::vector<Command>& settings, Adapter* adapter = nullptr);

  Answer Offer(const Command& command, int64_t nowNs);

  // Sends what was asked for. `connected`: whether there is a connection.
  void Tick(ControlLink& link, bool connected, int64_t nowNs);

  // What is set, as WebSettingText has it.
  std::vector<std::string> Settings() const;

  static constexpr double kCommandsPerSecond = 20;
  // So long after a connection has come back others have sent their settings, which pages' come
  // behind.
  static constexpr int64_t kSettleNs = 200 * kNanosPerMilli;

 private:
  void Note(const Command& command);
  void Deliver(const Command& command, ControlLink& link);
  void Repeat(ControlLink& link);

  Adapter* const adapter_;
  std::map<uint8_t, Command> settings_;  // by opcode
  std::map<uint8_t, Command> asked_;     // of them, by pages
  bool wasConnected_ = false;
  bool repeated_ = true;
  int64_t connectedNs_ = 0;

  Mutex mutex_;
  std::deque<Command> waiting_ VD_GUARDED_BY(mutex_);
  bool connected_ VD_GUARDED_BY(mutex_) = false;
  double allowance_ VD_GUARDED_BY(mutex_) = kCommandsPerSecond;
  int64_t allowanceNs_ VD_GUARDED_BY(mutex_) = 0;
};

}  // namespace Veldrift
