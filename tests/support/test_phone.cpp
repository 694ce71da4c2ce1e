#include "tests/support/test_phone.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

#include "net/control_protocol.h"
#include "support/clock.h"
#include "tools/platform/client_sockets.h"
#include "tools/receiver/status_message.h"

namespace Veldrift {

namespace {

class ShowingDialog final : public IPairingDialog {
 public:
  explicit ShowingDialog(std::shared_ptr<ShownCode> shown) : shown_(std::move(shown)) {}
  ~ShowingDialog() override { ++shown_->closed; }

  void Show(const std::string& code, const std::string& peerName,
            std::function<void()> onCancel) override {
    MutexLock lock(shown_->mutex);
    shown_->code = code;
    shown_->peerName = peerName;
    shown_->cancel = std::move(onCancel);
    shown_->changed.NotifyAll();
  }
  void Close() override {}

 private:
  std::shared_ptr<ShownCode> shown_;
};

int64_t Deadline() { return SteadyNanos() + 30 * kNanosPerSecond; }

std::string Counted(std::string_view text) {
  return std::string(1, char(text.size())) + std::string(text);
}

}  // namespace

TestPhone TestPhone::Connect(uint16_t port, const std::string& from) {
  const Ipv4Endpoint to{*ParseAddress("127.0.0.1"), port};
  return TestPhone(ConnectTcp(to, *ParseAddress(from), 5 * kNanosPerSecond));
}

void TestPhone::Send(std::string_view bytes) {
  std::span<const std::byte> rest = std::as_bytes(std::span(bytes));
  while (!rest.empty()) {
    size_t sent = 0;
    if (socket_->TrySend(rest, sent) == StreamSocket::SendResult::Failed) return;
    rest = rest.subspan(sent);
  }
}

void TestPhone::SendCommand(uint8_t opcode, std::string_view payload) {
  Send(std::string(1, char(opcode)) + std::string(payload));
}

void TestPhone::SendHello(std::string_view id, std::string_view name, std::string_view token) {
  SendCommand(kClientHello, Counted(id) + Counted(name) + Counted(token));
}

bool TestPhone::Read(std::span<std::byte> bytes, int64_t deadlineNs) {
  while (!bytes.empty()) {
    if (!AwaitBytes(*socket_, std::max<int64_t>(deadlineNs - SteadyNanos(), 0))) {
      throw std::runtime_error("the phone waited 30 s in vain for a message");
    }
    const std::ptrdiff_t got = socket_->Receive(bytes);
    if (got <= 0) return false;
    bytes = bytes.subspan(size_t(got));
  }
  return true;
}

std::optional<TestPhone::Message> TestPhone::NextBefore(int64_t deadlineNs) {
  const auto read = [&](std::span<std::byte> bytes) { return Read(bytes, deadlineNs); };
  StatusMessage message;
  do {
    if (ReadStatusMessage(read, message) != MessageRead::Message) return std::nullopt;
  } while (message.opcode == kHeartbeat);
  const auto* text = reinterpret_cast<const char*>(message.payload.data());
  return Message{message.opcode, {text, message.payload.size()}};
}

std::optional<TestPhone::Message> TestPhone::Next() { return NextBefore(Deadline()); }

std::optional<TestPhone::Message> TestPhone::NextOf(uint8_t opcode) {
  const int64_t deadlineNs = Deadline();
  while (std::optional<Message> message = NextBefore(deadlineNs)) {
    if (message->opcode == opcode) return message;
  }
  return std::nullopt;
}

bool TestPhone::SeesTheEnd() {
  const int64_t deadlineNs = Deadline();
  std::array<std::byte, 256> dropped;
  while (AwaitBytes(*socket_, std::max<int64_t>(deadlineNs - SteadyNanos(), 0))) {
    if (socket_->Receive(dropped) <= 0) return true;
  }
  return false;
}

std::string ShownCode::Take() {
  MutexLock lock(mutex);
  while (code.empty()) changed.Wait(lock);
  return std::exchange(code, {});
}

PairingDialogFactory ShowTo(std::shared_ptr<ShownCode> shown) {
  return [shown] { return std::make_unique<ShowingDialog>(shown); };
}

std::string PairByCode(TestPhone& phone, ShownCode& shown, std::string_view id) {
  phone.SendHello(id, "Test phone");
  if (!phone.NextOf(kPairChallenge)) return {};
  phone.SendCommand(kPairingCode, shown.Take());
  const std::optional<TestPhone::Message> accepted = phone.NextOf(kPairAccepted);
  return accepted ? accepted->payload.substr(1) : std::string();
}

}  // namespace Veldrift
