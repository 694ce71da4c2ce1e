#include "tools/receiver/control_client.h"

#include <algorithm>
#include <cstdio>
#include <utility>
#include <vector>

#include "net/control_protocol.h"
#include "tools/platform/client_sockets.h"

namespace Veldrift {

namespace {

constexpr int64_t kSendPatienceNs = 5 * kNanosPerSecond;
constexpr int64_t kSendRetryNs = 2 * kNanosPerMilli;

void AppendText(std::vector<std::byte>& out, const std::string& text, size_t limit) {
  const size_t length = std::min(text.size(), limit);
  out.push_back(std::byte(length));
  const auto* bytes = reinterpret_cast<const std::byte*>(text.data());
  out.insert(out.end(), bytes, bytes + length);
}

std::string OpcodeText(uint8_t opcode) {
  char text[8];
  std::snprintf(text, sizeof text, "0x%02x", opcode);
  return text;
}

}  // namespace

ControlClient::ControlClient() = default;

ControlClient::~ControlClient() {
  Disconnect();
  if (reader_.joinable()) reader_.join();
}

bool ControlClient::Connect(const Ipv4Endpoint& host, uint32_t localAddress, int64_t timeoutNs,
                            std::string& error) {
  socket_ = ConnectTcp(host, localAddress, timeoutNs);
  if (!socket_) error = ErrorText();
  lastHeardNs_ = SteadyNanos();
  return socket_ != nullptr;
}

void ControlClient::Disconnect() {
  closing_ = true;
  if (socket_) socket_->Disconnect();
}

void ControlClient::Violate(std::string text) {
  const MutexLock lock(mutex_);
  if (violation_.empty()) violation_ = std::move(text);
}

std::string ControlClient::Violation() const {
  const MutexLock lock(mutex_);
  return violation_;
}

void ControlClient::NoteEnd(std::string text) {
  const MutexLock lock(mutex_);
  endText_ = std::move(text);
}

std::string ControlClient::EndText() const {
  const MutexLock lock(mutex_);
  return endText_;
}

bool ControlClient::ReadExactly(std::span<std::byte> out) {
  while (!out.empty()) {
    const std::ptrdiff_t count = socket_->Receive(out);
    if (count <= 0) {
      NoteEnd(count == 0 ? "the plug-in closed the connection"
                         : "the connection failed: " + ErrorText());
      return false;
    }
    lastHeardNs_ = SteadyNanos();
    out = out.subspan(size_t(count));
  }
  return true;
}

bool ControlClient::SendAll(std::span<const std::byte> bytes) {
  const int64_t deadline = SteadyNanos() + kSendPatienceNs;
  while (!bytes.empty()) {
    size_t sent = 0;
    switch (socket_->TrySend(bytes, sent)) {
      case StreamSocket::SendResult::Sent:
        bytes = bytes.subspan(sent);
        break;
      case StreamSocket::SendResult::BufferFull:
        if (SteadyNanos() > deadline) return false;
        SystemClock().SleepFor(kSendRetryNs);
        break;
      case StreamSocket::SendResult::Failed:
        return false;
    }
  }
  return true;
}

bool ControlClient::Send(uint8_t opcode, std::span<const std::byte> payload) {
  std::vector<std::byte> message{std::byte(opcode)};
  message.insert(message.end(), payload.begin(), payload.end());
  return SendAll(message);
}

bool ControlClient::SendHello(const PhoneIdentity& identity) {
  std::vector<std::byte> payload;
  AppendText(payload, identity.id, kMaxHelloId);
  AppendText(payload, identity.name, kMaxHelloName);
  AppendText(payload, identity.token, kMaxHelloToken);
  return Send(kClientHello, payload);
}

bool ControlClient::Read(StatusMessage& message) {
  const MessageRead result =
      ReadStatusMessage([this](std::span<std::byte> out) { return ReadExactly(out); }, message);
  message.timeNs = SteadyNanos();
  if (result == MessageRead::UnknownOpcode) {
    Violate("the plug-in sent the unknown opcode " + OpcodeText(message.opcode));
  } else if (result == MessageRead::Truncated && !closing_) {
    Violate("the connection ended inside a " + std::string(StatusName(message.opcode)) +
            " message");
  }
  return result == MessageRead::Message;
}

ControlClient::PairResult ControlClient::NextReply(StatusMessage& message) {
  do {
    if (!Read(message)) return Violation().empty() ? PairResult::Closed : PairResult::Violation;
  } while (message.opcode == kHeartbeat);
  if (AllowedBeforePairing(message.opcode)) return PairResult::Paired;
  Violate("the plug-in sent " + std::string(StatusName(message.opcode)) + " before the pairing");
  return PairResult::Violation;
}

ControlClient::PairResult ControlClient::TakeVerdict(const StatusMessage& message,
                                                     std::string& token) {
  if (message.opcode == kPairRejected) return PairResult::Rejected;
  if (message.opcode != kPairAccepted) {
    Violate("the plug-in answered the pairing with " + std::string(StatusName(message.opcode)));
    return PairResult::Violation;
  }
  token = message.Text();
  return PairResult::Paired;
}

ControlClient::PairResult ControlClient::AnswerChallenge(const CodeCallback& code,
                                                         std::string& token) {
  const std::optional<std::string> digits = code ? code() : std::nullopt;
  if (!digits || digits->size() != kPairingCodeDigits) return PairResult::NoCode;
  if (!Send(kPairingCode, std::as_bytes(std::span(*digits)))) return PairResult::Closed;
  StatusMessage message;
  const PairResult reply = NextReply(message);
  return reply == PairResult::Paired ? TakeVerdict(message, token) : reply;
}

ControlClient::PairResult ControlClient::Pair(const PhoneIdentity& identity,
                                              const CodeCallback& code, std::string& token) {
  if (!SendHello(identity)) return PairResult::Closed;
  StatusMessage message;
  const PairResult reply = NextReply(message);
  if (reply != PairResult::Paired) return reply;
  return message.opcode == kPairChallenge ? AnswerChallenge(code, token)
                                          : TakeVerdict(message, token);
}

void ControlClient::StartReading(StatusCallback onStatus) {
  reader_ = std::thread([this, onStatus = std::move(onStatus)] { ReadLoop(onStatus); });
}

void ControlClient::ReadLoop(const StatusCallback& onStatus) {
  StatusMessage message;
  while (Read(message)) onStatus(message);
  ended_ = true;
}

}  // namespace Veldrift
