#include "net/control_connection.h"

#include <string>
#include <utility>

#include "support/plugin_log.h"

namespace Veldrift {

namespace {
constexpr LogCategory kLog{kLogSubsystem, "network"};
constexpr int64_t kLongestStallNanos = 5 * kNanosPerSecond;
constexpr size_t kOutboxLimit = 4 * 1024 * 1024;  // nobody writes that much in 5 s
constexpr const char* kStalledText = "the phone has stopped reading";
}  // namespace

ControlConnection::ControlConnection(std::unique_ptr<StreamSocket> socket, Clock& clock)
    : socket_(std::move(socket)), clock_(clock) {}

bool ControlConnection::Receive(std::span<std::byte> buffer) {
  while (!buffer.empty()) {
    const std::ptrdiff_t count = socket_->Receive(buffer);
    if (count <= 0) return false;
    buffer = buffer.subspan(size_t(count));
  }
  return true;
}

bool ControlConnection::SendMessage(uint8_t opcode, std::span<const std::byte> payload) {
  std::vector<std::byte> message{std::byte(opcode)};
  message.insert(message.end(), payload.begin(), payload.end());

  WriteResult result;
  size_t taken = 0;
  std::string error;
  {
    MutexLock lock(sendMutex_);
    result = Write(message, taken);
    if (result == WriteResult::Done) return true;
    error = result == WriteResult::Stalled ? kStalledText : ErrorText();
  }
  if (result == WriteResult::Stalled) Disconnect();
  if (taken == 0) {
    PluginLog(kLog, kLogInfo, "SendControl opcode=0x%02x fd=%lld header send failed: %s", opcode,
              Number(), error.c_str());
  } else {
    PluginLog(kLog, kLogInfo, "SendControl opcode=0x%02x payload send failed: %s", opcode,
              error.c_str());
  }
  return false;
}

// `taken` counts the bytes of this message that the kernel took before a failure.
ControlConnection::WriteResult ControlConnection::Write(std::span<const std::byte> bytes,
                                                        size_t& taken) {
  const WriteResult before = WriteOutbox();
  if (before == WriteResult::Failed) return before;
  if (before == WriteResult::Stalled) return Queue(bytes);
  while (taken < bytes.size()) {
    size_t sent = 0;
    const StreamSocket::SendResult result = socket_->TrySend(bytes.subspan(taken), sent);
    if (result == StreamSocket::SendResult::Failed) return WriteResult::Failed;
    if (result == StreamSocket::SendResult::BufferFull) return Queue(bytes.subspan(taken));
    taken += sent;
  }
  return WriteResult::Done;
}

ControlConnection::WriteResult ControlConnection::WriteOutbox() {
  while (!outbox_.empty()) {
    size_t sent = 0;
    const StreamSocket::SendResult result = socket_->TrySend(outbox_, sent);
    if (result == StreamSocket::SendResult::Failed) return WriteResult::Failed;
    if (result == StreamSocket::SendResult::BufferFull) return WriteResult::Stalled;
    outbox_.erase(outbox_.begin(), outbox_.begin() + std::ptrdiff_t(sent));
    stalledSinceNanos_ = 0;
  }
  return WriteResult::Done;
}

bool ControlConnection::Flush() {
  MutexLock lock(sendMutex_);
  return WriteOutbox() == WriteResult::Stalled;
}

ControlConnection::WriteResult ControlConnection::Queue(std::span<const std::byte> bytes) {
  const int64_t now = clock_.NowNanos();
  if (stalledSinceNanos_ == 0) stalledSinceNanos_ = now;
  if (now - stalledSinceNanos_ >= kLongestStallNanos ||
      outbox_.size() + bytes.size() > kOutboxLimit) {
    return WriteResult::Stalled;
  }
  outbox_.insert(outbox_.end(), bytes.begin(), bytes.end());
  return WriteResult::Done;
}

}  // namespace Veldrift
