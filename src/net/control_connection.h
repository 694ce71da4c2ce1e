// One accepted control connection: exact reads, and whole messages that never wait for the phone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "platform/mutex.h"
#include "platform/socket.h"
#include "support/clock.h"

namespace Veldrift {

// What the kernel doesn't take at once waits in an outbox and goes out with the next message or
// Flush. A phone whose send buffer stays full for 5 s, or that lets the outbox fill, is gone, and
// the connection is ended like a broken one. So no caller ever waits for a phone.
//
// Threads: one thread reads; any thread sends, stops or ends it.
class ControlConnection {
 public:
  ControlConnection(std::unique_ptr<StreamSocket> socket, Clock& clock);

  // Reads exactly `buffer.size()` bytes; false if the connection ends before. Nothing to read is
  // true.
  [[nodiscard]] bool Receive(std::span<std::byte> buffer);

  // Sends the opcode and its payload as one message. False if the connection is dead.
  [[nodiscard]] bool SendMessage(uint8_t opcode, std::span<const std::byte> payload);

  // Sends of the outbox what the kernel takes now; true if something is left.
  bool Flush();

  // Ends the reading only, so that a reply can still go out.
  void StopReceiving() { socket_->StopReceiving(); }
  void Disconnect() { socket_->Disconnect(); }

  Ipv4Endpoint Peer() const { return socket_->Peer(); }
  long long Number() const { return socket_->Number(); }  // for log lines

 private:
  enum class WriteResult { Done, Failed, Stalled };
  WriteResult Write(std::span<const std::byte> bytes, size_t& taken) VD_REQUIRES(sendMutex_);
  // Done only when the outbox is empty; Stalled when it isn't.
  WriteResult WriteOutbox() VD_REQUIRES(sendMutex_);
  WriteResult Queue(std::span<const std::byte> bytes) VD_REQUIRES(sendMutex_);

  const std::unique_ptr<StreamSocket> socket_;
  Clock& clock_;
  // Keeps the messages of different threads whole. A leaf: only the socket is called under it.
  Mutex sendMutex_;
  std::vector<std::byte> outbox_ VD_GUARDED_BY(sendMutex_);
  int64_t stalledSinceNanos_ VD_GUARDED_BY(sendMutex_) = 0;  // 0: the phone takes what it gets
};

}  // namespace Veldrift
