#include "tools/receiver/phone_link.h"

#include <algorithm>
#include <future>
#include <utility>

#include "net/control_protocol.h"
#include "platform/file.h"
#include "support/clock.h"
#include "tools/receiver/token_file.h"

namespace Veldrift {

namespace {

constexpr int64_t kStepNs = 50 * kNanosPerMilli;
constexpr int64_t kConnectNs = 2 * kNanosPerSecond;
constexpr double kReopenSeconds = 5;        // a plug-in that is there greets at once
constexpr size_t kMostRemembered = 10'000;  // messages and commands

std::string EndpointText(const Ipv4Endpoint& endpoint) {
  return AddressText(endpoint.address) + ":" + std::to_string(endpoint.port);
}

int64_t Deadline(double seconds) { return SteadyNanos() + int64_t(seconds * 1e9); }

}  // namespace

PhoneLink::PhoneLink(const LinkOptions& options, const std::atomic<bool>& interrupted,
                     CodeReader reader)
    : options_(options),
      interrupted_(interrupted),
      reader_(std::move(reader)),
      client_(std::make_unique<ControlClient>()) {
  if (!options.codeFromLog.empty()) {
    codeLog_ = std::make_unique<PairingCodeLog>(options.codeFromLog, options.name);
  }
}

LinkResult PhoneLink::Open(std::string& sentence) {
  if (!options_.tokenFile.empty()) {
    // The plug-in makes a new one at each pairing, which must not be in vain.
    if (std::string reason; !CanWriteToken(options_.tokenFile, reason)) {
      sentence = "can't keep the token: " + reason;
      return LinkResult::Failed;
    }
    token_ = ReadToken(options_.tokenFile);
  }
  LinkResult result = Connect(sentence);
  if (result == LinkResult::Open) result = Pair(options_.waitSeconds * 2, sentence);
  if (result == LinkResult::Open) BeginReading();
  return result;
}

LinkResult PhoneLink::Reopen(const Ipv4Endpoint& host, std::string& sentence) {
  client_ = std::make_unique<ControlClient>();
  std::string reason;
  if (!client_->Connect(host, options_.bindAddress, kConnectNs, reason)) {
    sentence = "no plug-in answers at " + EndpointText(host) + ": " + reason;
    return LinkResult::NoAnswer;
  }
  const LinkResult result =
      Pair(codeLog_ ? kReopenSeconds + options_.waitSeconds : kReopenSeconds, sentence);
  if (result == LinkResult::Open) BeginReading();
  return result;
}

void PhoneLink::BeginReading() {
  known_ = true;
  settingsDone_ = 0;
  nextCommandNs_ = 0;
  sourceShortSide_ = 0;
  client_->StartReading([this](const StatusMessage& message) { Note(message); });
  SendDue(SteadyNanos());
}

LinkResult PhoneLink::Connect(std::string& sentence) {
  const int64_t deadline = Deadline(options_.waitSeconds);
  std::string reason;
  while (true) {
    connectNs_ = SteadyNanos();
    if (client_->Connect(options_.host, options_.bindAddress, kConnectNs, reason)) {
      return LinkResult::Open;
    }
    if (interrupted_) {
      sentence = "interrupted";
      return LinkResult::Interrupted;
    }
    if (SteadyNanos() >= deadline) {
      sentence = "no plug-in answers at " + EndpointText(options_.host) + ": " + reason;
      return LinkResult::NoAnswer;
    }
    SystemClock().SleepFor(kStepNs);
  }
}

std::optional<std::string> PhoneLink::AskForCode() {
  if (!reader_.ask) return std::nullopt;
  asking_ = true;
  std::optional<std::string> code = reader_.ask();
  asking_ = false;
  return code;
}

std::optional<std::string> PhoneLink::FindCode() {
  // A code is good for one connection; and who comes back may have nobody who looks.
  if (known_ && !codeLog_) return std::nullopt;
  if (!options_.code.empty()) return options_.code;
  if (!codeLog_) return AskForCode();
  const int64_t deadline = Deadline(options_.waitSeconds);
  while (!interrupted_ && SteadyNanos() < deadline) {
    if (auto code = codeLog_->Find()) return code;
    SystemClock().SleepFor(kStepNs);
  }
  return std::nullopt;
}

// A plug-in that doesn't answer, and a user who doesn't want to wait, end the pairing.
ControlClient::PairResult PhoneLink::PairWatched(double patienceSeconds, std::string& token) {
  const PhoneIdentity identity{options_.id, options_.name, token_};
  gaveUp_ = false;
  auto pairing = std::async(std::launch::async, [&] {
    return client_->Pair(
        identity, [this] { return FindCode(); }, token);
  });
  const int64_t deadline = Deadline(patienceSeconds);
  while (pairing.wait_for(std::chrono::nanoseconds(kStepNs)) != std::future_status::ready) {
    // A terminal can't be told to give up, and nothing has been recorded yet.
    if (interrupted_ && asking_) reader_.abandon();
    gaveUp_ = !asking_ && SteadyNanos() >= deadline;
    if (interrupted_ || gaveUp_) client_->Disconnect();
  }
  return pairing.get();
}

LinkResult PhoneLink::Pair(double patienceSeconds, std::string& sentence) {
  std::string token;
  const ControlClient::PairResult result = PairWatched(patienceSeconds, token);
  if (interrupted_) {
    sentence = "interrupted";
    return LinkResult::Interrupted;
  }
  if (result != ControlClient::PairResult::Paired) return SentenceOf(result, sentence);
  const bool isNew = token != token_;
  token_ = std::move(token);
  return isNew ? KeepToken(sentence) : LinkResult::Open;
}

LinkResult PhoneLink::SentenceOf(ControlClient::PairResult result, std::string& sentence) const {
  switch (result) {
    case ControlClient::PairResult::Paired:
      break;
    case ControlClient::PairResult::Rejected:
      sentence = "the plug-in refused the pairing: the code was wrong";
      return LinkResult::Refused;
    case ControlClient::PairResult::NoCode:
      sentence = codeLog_ ? "no pairing code appeared in " + PathText(options_.codeFromLog)
                 : known_ ? "the plug-in doesn't trust this phone any more: it must be paired anew"
                          : "the plug-in wants a pairing code of six digits, and there was none";
      return LinkResult::Refused;
    case ControlClient::PairResult::Closed:
      sentence = gaveUp_ ? "the plug-in took the connection and gave no answer"
                         : "the plug-in closed the connection during the pairing";
      return LinkResult::Closed;
    case ControlClient::PairResult::Violation:
      sentence = client_->Violation();
      return LinkResult::Broken;
  }
  return LinkResult::Open;
}

LinkResult PhoneLink::KeepToken(std::string& sentence) const {
  std::string reason;
  if (options_.tokenFile.empty() || WriteToken(options_.tokenFile, token_, reason)) {
    return LinkResult::Open;
  }
  sentence = "can't keep the token: " + reason;
  return LinkResult::Failed;
}

void PhoneLink::Send(const Command& command) {
  {
    const MutexLock lock(mutex_);
    if (sent_.size() < kMostRemembered) sent_.push_back({command, SteadyNanos(), std::nullopt});
  }
  client_->Send(command.opcode, command.payload);
  if (listener_) listener_(command);
}

void PhoneLink::SendDue(int64_t nowNs) {
  while (nowNs >= nextCommandNs_) {
    if (settingsDone_ < options_.settings.size()) {
      Send(options_.settings[settingsDone_++]);
    } else if (commandsDone_ < options_.commands.size()) {
      Send(options_.commands[commandsDone_++]);
    } else {
      return;
    }
    nextCommandNs_ = nowNs + options_.commandIntervalMs * kNanosPerMilli;
  }
}

void PhoneLink::Note(const StatusMessage& message) {
  if (message.opcode == kHeartbeat) return;
  if (message.opcode == kPlaybackState) playing_ = message.payload[0] != std::byte{0};
  if (const auto source = ParseStreamInfo(message)) {
    sourceShortSide_ = uint16_t(std::min(source->width, source->height));
  } else if (const auto change = ParseSourceChange(message)) {
    sourceShortSide_ = uint16_t(std::min(change->width, change->height));
  }
  const MutexLock lock(mutex_);
  if (message.opcode == kEncoderInfo) encoderText_ = message.Text();
  if (messages_.size() < kMostRemembered) messages_.push_back(message);
  if (message.opcode != kCommandAck) return;
  for (SentCommand& sent : sent_) {
    if (sent.acknowledgedNs || std::byte(sent.command.opcode) != message.payload[0]) continue;
    sent.acknowledgedNs = message.timeNs;
    return;
  }
}

std::vector<SentCommand> PhoneLink::Sent() const {
  const MutexLock lock(mutex_);
  return sent_;
}

std::vector<StatusMessage> PhoneLink::Messages() const {
  const MutexLock lock(mutex_);
  return messages_;
}

std::string PhoneLink::EncoderText() const {
  const MutexLock lock(mutex_);
  return encoderText_;
}

}  // namespace Veldrift
