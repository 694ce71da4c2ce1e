// What the stream and datagram sockets share.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "platform/socket.h"
#include "platform/win32/windows_headers.h"

namespace Veldrift {

// A socket that closes itself, and leaves the last error alone when it does.
class OwnedSocket {
 public:
  OwnedSocket() = default;
  explicit OwnedSocket(SOCKET socket) : socket_(socket) {}
  OwnedSocket(OwnedSocket&& other) noexcept
      : socket_(std::exchange(other.socket_, INVALID_SOCKET)) {}
  OwnedSocket& operator=(OwnedSocket&& other) noexcept {
    std::swap(socket_, other.socket_);
    return *this;
  }
  ~OwnedSocket() {
    const int error = WSAGetLastError();
    if (socket_ != INVALID_SOCKET) closesocket(socket_);
    WSASetLastError(error);
  }

  explicit operator bool() const { return socket_ != INVALID_SOCKET; }
  SOCKET Get() const { return socket_; }

 private:
  SOCKET socket_ = INVALID_SOCKET;
};

sockaddr_in ToSystem(const Ipv4Endpoint& endpoint);
Ipv4Endpoint FromSystem(const sockaddr_in& address);

// Processes that the host starts don't inherit it: they would hold the port and the connection of a
// host that is gone.
OwnedSocket OpenSocket(int type);
// The same for an accepted one, which the system makes inheritable whatever its listener is.
void KeepFromChildren(const OwnedSocket& socket);
// A datagram socket that doesn't wait, and doesn't fail for a peer that isn't there.
OwnedSocket OpenDatagram();
bool Bind(const OwnedSocket& socket, const Ipv4Endpoint& local);
bool SetNonBlocking(const OwnedSocket& socket);
void SetOption(const OwnedSocket& socket, int level, int name, int value);

// Waits until the socket is readable, or, for writing, until it is writable or has failed. False:
// the time is over, with WSAETIMEDOUT as the last error, or the wait failed.
enum class WaitKind { Reading, Writing };
bool WaitFor(SOCKET socket, WaitKind kind, int64_t timeoutNanos);

// The local port; 0 while the system has given none.
uint16_t LocalPort(const OwnedSocket& socket);

// The seam's objects over what was opened. MakeStream: null if the system gives no events.
std::unique_ptr<StreamSocket> MakeStream(OwnedSocket socket, const Ipv4Endpoint& peer);
std::unique_ptr<DatagramSocket> MakeDatagram(OwnedSocket socket);

}  // namespace Veldrift
