#include "tools/platform/client_sockets.h"

#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include "platform/posix/socket_support.h"
#include "tools/platform/posix/run_receiver.h"

namespace Veldrift {
namespace {

// Waits for the end of a connection attempt that is under way; its error is in errno.
bool FinishConnecting(const Descriptor& socket, int64_t timeoutNanos) {
  if (!WaitFor(socket.Get(), POLLOUT, timeoutNanos)) return false;
  int error = 0;
  socklen_t length = sizeof error;
  if (getsockopt(socket.Get(), SOL_SOCKET, SO_ERROR, &error, &length) != 0) return false;
  errno = error;
  return error == 0;
}

Descriptor OpenBound(const Ipv4Endpoint& local, int receiveBufferBytes) {
  Descriptor socket = OpenSocket(SOCK_DGRAM | SOCK_NONBLOCK);
  if (!socket) return {};
  SetOption(socket, SOL_SOCKET, SO_RCVBUF, receiveBufferBytes);
  return Bind(socket, local) ? std::move(socket) : Descriptor();
}

int ReadOption(const StreamSocket& socket, int level, int name) {
  int value = 0;
  socklen_t length = sizeof value;
  return getsockopt(static_cast<int>(socket.Number()), level, name, &value, &length) == 0 ? value
                                                                                          : -1;
}

}  // namespace

std::unique_ptr<StreamSocket> ConnectTcp(const Ipv4Endpoint& remote, uint32_t localAddress,
                                         int64_t timeoutNanos) {
  Descriptor socket = OpenSocket(SOCK_STREAM);
  if (!socket || !SetNonBlocking(socket, true)) return nullptr;
  if (localAddress != 0 && !Bind(socket, {localAddress, 0})) return nullptr;
  const sockaddr_in address = ToSystem(remote);
  if (connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
      (errno != EINPROGRESS || !FinishConnecting(socket, timeoutNanos))) {
    return nullptr;
  }
  if (!SetNonBlocking(socket, false)) return nullptr;
  SetOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);
  return MakeStream(std::move(socket), remote);
}

bool AwaitBytes(const StreamSocket& socket, int64_t timeoutNanos) {
  return WaitFor(static_cast<int>(socket.Number()), POLLIN, timeoutNanos);
}

std::unique_ptr<DatagramSocket> OpenDatagramReceiver(const Ipv4Endpoint& local,
                                                     int receiveBufferBytes) {
  Descriptor socket = OpenBound(local, receiveBufferBytes);
  return socket ? MakeDatagram(std::move(socket)) : nullptr;
}

std::unique_ptr<DatagramSocket> OpenRunReceiver(const Ipv4Endpoint& local, int receiveBufferBytes) {
  Descriptor socket = OpenBound(local, receiveBufferBytes);
  return socket ? MakeRunReceiver(std::move(socket)) : nullptr;
}

bool TcpPortInUse(uint16_t port) {
  Descriptor socket = OpenSocket(SOCK_STREAM);
  if (!socket) return false;
  SetOption(socket, SOL_SOCKET, SO_REUSEADDR, 1);
  return !Bind(socket, {0, port}) && errno == EADDRINUSE;
}

StreamSettings ReadStreamSettings(const StreamSocket& socket) {
  return {
      ReadOption(socket, IPPROTO_TCP, TCP_NODELAY), ReadOption(socket, SOL_SOCKET, SO_KEEPALIVE),
      ReadOption(socket, IPPROTO_TCP, TCP_KEEPIDLE), ReadOption(socket, IPPROTO_TCP, TCP_KEEPINTVL),
      ReadOption(socket, IPPROTO_TCP, TCP_KEEPCNT)};
}

}  // namespace Veldrift
