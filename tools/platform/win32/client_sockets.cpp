#include "tools/platform/client_sockets.h"

#include "platform/win32/socket_support.h"

#ifndef TCP_KEEPCNT
#define TCP_KEEPCNT 16
#endif
#ifndef TCP_KEEPIDLE
#define TCP_KEEPIDLE 3
#endif
#ifndef TCP_KEEPINTVL
#define TCP_KEEPINTVL 17
#endif

namespace Veldrift {
namespace {

// Waits for the end of a connection attempt that is under way; its error is the last error.
bool FinishConnecting(const OwnedSocket& socket, int64_t timeoutNanos) {
  if (!WaitFor(socket.Get(), WaitKind::Writing, timeoutNanos)) return false;
  int error = 0;
  int length = sizeof error;
  if (getsockopt(socket.Get(), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &length) !=
      0) {
    return false;
  }
  WSASetLastError(error);
  return error == 0;
}

// Some options fill one byte only, hence the zero.
int ReadOption(const StreamSocket& socket, int level, int name) {
  int value = 0;
  int length = sizeof value;
  return getsockopt(static_cast<SOCKET>(socket.Number()), level, name,
                    reinterpret_cast<char*>(&value), &length) == 0
             ? value
             : -1;
}

}  // namespace

std::unique_ptr<StreamSocket> ConnectTcp(const Ipv4Endpoint& remote, uint32_t localAddress,
                                         int64_t timeoutNanos) {
  OwnedSocket socket = OpenSocket(SOCK_STREAM);
  if (!socket || !SetNonBlocking(socket)) return nullptr;
  if (localAddress != 0 && !Bind(socket, {localAddress, 0})) return nullptr;
  const sockaddr_in address = ToSystem(remote);
  if (connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
      (WSAGetLastError() != WSAEWOULDBLOCK || !FinishConnecting(socket, timeoutNanos))) {
    return nullptr;
  }
  SetOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);
  return MakeStream(std::move(socket), remote);
}

bool AwaitBytes(const StreamSocket& socket, int64_t timeoutNanos) {
  return WaitFor(static_cast<SOCKET>(socket.Number()), WaitKind::Reading, timeoutNanos);
}

std::unique_ptr<DatagramSocket> OpenDatagramReceiver(const Ipv4Endpoint& local,
                                                     int receiveBufferBytes) {
  OwnedSocket socket = OpenDatagram();
  if (!socket) return nullptr;
  SetOption(socket, SOL_SOCKET, SO_RCVBUF, receiveBufferBytes);
  if (!Bind(socket, local)) return nullptr;
  return MakeDatagram(std::move(socket));
}

std::unique_ptr<DatagramSocket> OpenRunReceiver(const Ipv4Endpoint& local, int receiveBufferBytes) {
  return OpenDatagramReceiver(local, receiveBufferBytes);
}

bool TcpPortInUse(uint16_t port) {
  OwnedSocket socket = OpenSocket(SOCK_STREAM);
  if (!socket) return false;
  // Address reuse would let two programs share the port here.
  SetOption(socket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, 1);
  if (Bind(socket, {0, port})) return false;
  const int error = WSAGetLastError();
  return error == WSAEADDRINUSE || error == WSAEACCES;
}

StreamSettings ReadStreamSettings(const StreamSocket& socket) {
  return {
      ReadOption(socket, IPPROTO_TCP, TCP_NODELAY), ReadOption(socket, SOL_SOCKET, SO_KEEPALIVE),
      ReadOption(socket, IPPROTO_TCP, TCP_KEEPIDLE), ReadOption(socket, IPPROTO_TCP, TCP_KEEPINTVL),
      ReadOption(socket, IPPROTO_TCP, TCP_KEEPCNT)};
}

}  // namespace Veldrift
