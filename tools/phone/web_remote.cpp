#include "web_remote.h"

#include <algorithm>
#include <utility>

#include "web_command.h"

namespace Veldrift {

WebRemote::WebRemote(const std::vector<Command>& settings, Adapter* adapter) : adapter_(adapter) {
  for (const Command& command : settings) Note(command);
  if (adapter == nullptr) return;
  for (const Command& command : adapter->Wishes()) Note(command);
}

void WebRemote::Deliver(const Command& command, ControlLink& link) {
  if (adapter_ == nullptr || !adapter_->Wish(command)) link.Send(command);
}

void WebRemote::Note(const Command& command) {
  if (!WebSettingText(command).empty()) settings_[command.opcode] = command;
}

WebRemote::Answer WebRemote::Offer(const Command& command, int64_t nowNs) {
  const MutexLock lock(mutex_);
  const double seconds = double(nowNs - std::exchange(allowanceNs_, nowNs)) / 1e9;
  allowance_ = std::min(kCommandsPerSecond, allowance_ + seconds * kCommandsPerSecond);
  if (!connected_) return Answer::NoConnection;
  if (allowance_ < 1) return Answer::TooMany;
  allowance_ -= 1;
  waiting_.push_back(command);
  return Answer::Taken;
}

void WebRemote::Repeat(ControlLink& link) {
  for (const auto& [opcode, command] : asked_) Deliver(command, link);
  repeated_ = true;
}

void WebRemote::Tick(ControlLink& link, bool connected, int64_t nowNs) {
  if (connected && !std::exchange(wasConnected_, connected)) {
    connectedNs_ = nowNs;
    repeated_ = false;
  }
  wasConnected_ = connected;
  std::deque<Command> due;
  {
    const MutexLock lock(mutex_);
    connected_ = connected;
    if (connected) due.swap(waiting_);
    if (!connected) waiting_.clear();  // a key that comes a minute later surprises
  }
  if (connected && !repeated_ && nowNs - connectedNs_ >= kSettleNs) Repeat(link);
  for (const Command& command : due) {
    Deliver(command, link);
    if (WebSettingText(command).empty()) continue;
    settings_[command.opcode] = asked_[command.opcode] = command;
  }
}

std::vector<std::string> WebRemote::Settings() const {
  std::vector<std::string> texts;
  for (const auto& [opcode, command] : settings_) texts.push_back(WebSettingText(command));
  return texts;
}

}  // namespace Veldrift
