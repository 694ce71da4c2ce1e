// The sockets of the system: IPv4 only. Policy (who may be connected, what is sent, when a stalled
// connection is given up) stands above; only system calls stand in platform/posix/ and
// platform/win32/. Fakes and faulty wrappers: tests/support/.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace Veldrift {

struct Ipv4Endpoint {
  uint32_t address = 0;  // network byte order; 0 is any address
  uint16_t port = 0;     // host byte order

  bool operator==(const Ipv4Endpoint&) const = default;
};

// "192.0.2.1" and back. Nothing but four decimal numbers is taken.
std::string AddressText(uint32_t address);
std::optional<uint32_t> ParseAddress(const std::string& text);

// One user of the system's socket layer: the first in the process starts it, the last ends it.
class SocketLayer {
 public:
  SocketLayer();
  ~SocketLayer();
  SocketLayer(const SocketLayer&) = delete;
  SocketLayer& operator=(const SocketLayer&) = delete;
};

// The text of the calling thread's last socket error, without trailing white space; "WSA error %d"
// (elsewhere "errno %d") where the system has no text.
std::string ErrorText();

// A connected TCP socket. The descriptor lives as long as the object, so that its number can't be
// taken over by another connection while a thread still names this one.
//
// Threads: one thread calls Receive; one at a time calls TrySend; StopReceiving and Disconnect may
// come from any thread at any time, also twice, and end a Receive that waits, at once.
class StreamSocket {
 public:
  enum class SendResult {
    Sent,        // all or the first part of the bytes; `sent` tells how many
    BufferFull,  // nothing was sent: the peer doesn't read
    Failed,      // the connection is dead
  };

  virtual ~StreamSocket() = default;

  // Waits for at least one byte. Above 0: the count of bytes in `buffer`. 0: the peer closed its
  // side, or StopReceiving or Disconnect was called. Below 0: the connection failed.
  [[nodiscard]] virtual std::ptrdiff_t Receive(std::span<std::byte> buffer) = 0;

  // Hands over what the kernel takes now, and never waits.
  [[nodiscard]] virtual SendResult TrySend(std::span<const std::byte> bytes, size_t& sent) = 0;

  // Ends this and every later Receive; sending goes on.
  virtual void StopReceiving() = 0;

  // Ends the connection in both directions; the peer sees it closed. The descriptor itself is
  // released by the destructor.
  virtual void Disconnect() = 0;

  virtual Ipv4Endpoint Peer() const = 0;

  // The descriptor's number, for log lines only.
  virtual int64_t Number() const = 0;
};

class StreamListener {
 public:
  virtual ~StreamListener() = default;

  // Waits up to `timeoutNanos` for a connection and accepts it: without Nagle's delay, and with
  // keepalive after 10 s idle, then every 5 s, 3 times. Null: none came, or accepting failed.
  virtual std::unique_ptr<StreamSocket> Accept(int64_t timeoutNanos) = 0;

  // The port it listens on, also when it was asked for port 0.
  virtual uint16_t Port() const = 0;
};

// Listens on `address` (0: all interfaces) with address reuse and a backlog of 1. Null on failure,
// with the reason in ErrorText.
std::unique_ptr<StreamListener> ListenTcp(uint16_t port, uint32_t address = 0);

// A datagram socket whose sending never waits. Not thread-safe but for sending, which the system
// serialises; one thread receives.
class DatagramSocket {
 public:
  enum class SendResult { Sent, BufferFull, Failed };

  // Where a datagram is put, and what came.
  struct Slot {
    std::span<std::byte> buffer;
    size_t length = 0;  // cut to the buffer
    Ipv4Endpoint from;
  };

  virtual ~DatagramSocket() = default;

  // Sends each of `datagrams` as one datagram to `to`, in order, each whole or not at all, in as
  // few system calls as the system has. `sent` tells how many went out. Fewer than all: why the
  // next one didn't; BufferFull: the kernel's queue is full; Failed: see ErrorText.
  [[nodiscard]] virtual SendResult SendMany(std::span<const std::span<const std::byte>> datagrams,
                                            const Ipv4Endpoint& to, size_t& sent) = 0;

  // Waits up to `timeoutNanos` for a datagram, and answers how many slots were filled: what is
  // there already comes along. 0: none came.
  [[nodiscard]] virtual size_t ReceiveMany(std::span<Slot> slots, int64_t timeoutNanos) = 0;

  [[nodiscard]] SendResult Send(std::span<const std::byte> bytes, const Ipv4Endpoint& to) {
    size_t sent = 0;
    return SendMany({&bytes, 1}, to, sent);
  }
  // The length of one datagram, below 0 when none came.
  [[nodiscard]] std::ptrdiff_t Receive(std::span<std::byte> buffer, int64_t timeoutNanos) {
    Slot slot{buffer, 0, {}};
    return ReceiveMany({&slot, 1}, timeoutNanos) == 0 ? -1 : std::ptrdiff_t(slot.length);
  }

  virtual int64_t Number() const = 0;
  virtual uint16_t Port() const = 0;
};

// An unbound socket with a send buffer of 4 MiB. Null on failure (ErrorText).
std::unique_ptr<DatagramSocket> OpenDatagramSender();

}  // namespace Veldrift
