// The phone's side of a control connection, byte for byte, for tests; and a pairing dialog that
// shows the code to the test.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "net/pairing_dialog.h"
#include "platform/mutex.h"
#include "platform/socket.h"

namespace Veldrift {

class TestPhone {
 public:
  struct Message {
    uint8_t opcode = 0;
    std::string payload;
  };

  explicit TestPhone(std::unique_ptr<StreamSocket> socket) : socket_(std::move(socket)) {}
  // Connects to the port on 127.0.0.1 from a loopback address.
  static TestPhone Connect(uint16_t port, const std::string& from = "127.0.0.1");

  bool Connected() const { return socket_ != nullptr; }
  StreamSocket& Socket() { return *socket_; }
  void Send(std::string_view bytes);
  void SendCommand(uint8_t opcode, std::string_view payload = {});
  void SendHello(std::string_view id, std::string_view name, std::string_view token = {});

  // The next message, heartbeats passed over; nothing when the connection has ended. What waits
  // for 30 s in vain throws, which says so and ends the test.
  std::optional<Message> Next();
  // The next message of that opcode, whatever comes before it.
  std::optional<Message> NextOf(uint8_t opcode);
  // True once the other side has ended the connection; reads and drops what came before. False if
  // it hasn't for 30 s.
  bool SeesTheEnd();
  void Close() { socket_.reset(); }

 private:
  std::optional<Message> NextBefore(int64_t deadlineNs);
  // False at the connection's end.
  bool Read(std::span<std::byte> bytes, int64_t deadlineNs);

  std::unique_ptr<StreamSocket> socket_;
};

// Where a test sees what the dialogs of a factory showed.
struct ShownCode {
  Mutex mutex;
  CondVar changed;
  std::string code VD_GUARDED_BY(mutex);
  std::string peerName VD_GUARDED_BY(mutex);
  std::function<void()> cancel VD_GUARDED_BY(mutex);
  std::atomic<int> closed{0};

  // Waits for a dialog and takes its code.
  std::string Take();
};
PairingDialogFactory ShowTo(std::shared_ptr<ShownCode> shown);

// Pairs a connected phone by the shown code; its token, empty if it was refused.
std::string PairByCode(TestPhone& phone, ShownCode& shown, std::string_view id = "phone-1");

}  // namespace Veldrift
