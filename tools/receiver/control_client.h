// The phone's end of the control connection: connects, pairs by token or by code, then sends
// commands and reads status messages.
//
// Threads: Connect, Pair, StartReading and Send belong to the owner, one at a time; the callback
// runs on the reading thread. Disconnect may come from any thread and ends a Pair that waits.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>

#include "platform/mutex.h"
#include "platform/socket.h"
#include "support/clock.h"
#include "tools/receiver/status_message.h"

namespace Veldrift {

struct PhoneIdentity {
  std::string id;
  std::string name;
  std::string token;  // of an earlier pairing; empty: none
};

class ControlClient {
 public:
  // Asked when the plug-in shows a code: its six digits, or nothing if nobody knows them.
  using CodeCallback = std::function<std::optional<std::string>()>;
  using StatusCallback = std::function<void(const StatusMessage&)>;

  enum class PairResult {
    Paired,
    Rejected,   // the code was wrong
    NoCode,     // a code was wanted and nobody had it
    Closed,     // the plug-in closed the connection
    Violation,  // it said something that has no place here
  };

  ControlClient();
  ~ControlClient();
  ControlClient(const ControlClient&) = delete;
  ControlClient& operator=(const ControlClient&) = delete;

  // False, with the system's reason in `error`, if nobody listens there.
  bool Connect(const Ipv4Endpoint& host, uint32_t localAddress, int64_t timeoutNs,
               std::string& error);

  // Says hello and waits for the outcome. On Paired, `token` is the one to keep.
  PairResult Pair(const PhoneIdentity& identity, const CodeCallback& code, std::string& token);

  // Hands every message to `onStatus`, in order, until the connection ends.
  void StartReading(StatusCallback onStatus);

  // False if the message didn't go out whole; the connection is of no use then.
  bool Send(uint8_t opcode, std::span<const std::byte> payload = {});

  // Ends the connection; safe at any time after Connect.
  void Disconnect();

  // True once the reading thread has seen the end.
  bool Ended() const { return ended_; }

  // When something last came from the plug-in, on the steady clock: at least a heartbeat comes each
  // second. From any thread.
  int64_t LastHeardNs() const { return lastHeardNs_; }

  // Once Ended: how the connection ended, as half a sentence.
  std::string EndText() const;

  // What the plug-in did against the protocol; empty if nothing.
  std::string Violation() const;

 private:
  bool ReadExactly(std::span<std::byte> out);
  bool SendAll(std::span<const std::byte> bytes);
  bool SendHello(const PhoneIdentity& identity);
  // The next message that isn't a heartbeat; Paired here means that there is one.
  PairResult NextReply(StatusMessage& message);
  PairResult AnswerChallenge(const CodeCallback& code, std::string& token);
  PairResult TakeVerdict(const StatusMessage& message, std::string& token);
  bool Read(StatusMessage& message);
  void ReadLoop(const StatusCallback& onStatus);
  void Violate(std::string text);
  void NoteEnd(std::string text);

  SocketLayer socketLayer_;
  std::unique_ptr<StreamSocket> socket_;
  std::thread reader_;
  std::atomic<bool> ended_{false};
  std::atomic<bool> closing_{false};
  std::atomic<int64_t> lastHeardNs_{0};
  mutable Mutex mutex_;
  std::string violation_ VD_GUARDED_BY(mutex_);
  std::string endText_ VD_GUARDED_BY(mutex_);
};

}  // namespace Veldrift
