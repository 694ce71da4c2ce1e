// What the shared transport asks of each transmit instance.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// Threads: all three are called under the transport's instance lock, one at a time; only the replay
// of remembered settings comes without it, on the thread that acquires.
class ISessionInstance {
 public:
  virtual ~ISessionInstance() = default;

  // One command of the phone; the payload lives during the call only.
  virtual void HandleControlCommand(uint8_t opcode, std::span<const std::byte> payload) = 0;
  // A phone has paired: it is told everything.
  virtual void OnNewClient() = 0;
  // Datagrams keep failing.
  virtual void OnUdpFailures() = 0;
};
