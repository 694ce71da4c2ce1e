#include "tests/support/test_phone.h"

#include <array>
#include <utility>

#include "net/control_protocol.h"
#include "support/clock.h"
#include "tools/platform/client_sockets.h"

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

bool TestPhone::Read(std::string& bytes, size_t count) {
  bytes.resize(count);
  std::span<std::byte> rest = std::as_writable_bytes(std::span(bytes));
  while (!rest.empty()) {
    const std::ptrdiff_t got = socket_->Receive(rest);
    if (got <= 0) return false;
    rest = rest.subspan(size_t(got));
  }
  return true;
}

std::optional<TestPhone::Message> TestPhone::Next() {
  std::string opcode;
  while (Read(opcode, 1)) {
    const PayloadShape* shape = StatusShape(uint8_t(opcode[0]));
    if (shape == nullptr) return std::nullopt;
    Message message{uint8_t(opcode[0]), {}};
    std::string tail;
    if (!Read(message.payload, shape->headBytes)) return std::nullopt;
    if (shape->countedTail && !Read(tail, uint8_t(message.payload.back()))) return std::nullopt;
    message.payload += tail;
    if (message.opcode != kHeartbeat) return message;
  }
  return std::nullopt;
}

std::optional<TestPhone::Message> TestPhone::NextOf(uint8_t opcode) {
  while (std::optional<Message> message = Next()) {
    if (message->opcode == opcode) return message;
  }
  return std::nullopt;
}

bool TestPhone::SeesTheEnd() {
  std::array<std::byte, 256> dropped;
  while (socket_->Receive(dropped) > 0) {
  }
  return true;
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
