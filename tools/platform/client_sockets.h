// The sockets of the far end: what connects to the plug-in and receives from it. The plug-in's own
// are in platform/socket.h.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/socket.h"

namespace Veldrift {

// Connects from `localAddress` (0: any) to `remote`, waiting up to `timeoutNanos`. Null on failure,
// with the reason in ErrorText.
std::unique_ptr<StreamSocket> ConnectTcp(const Ipv4Endpoint& remote, uint32_t localAddress,
                                         int64_t timeoutNanos);

// Waits up to `timeoutNanos` until a Receive would answer at once: bytes are there, or the end is.
bool AwaitBytes(const StreamSocket& socket, int64_t timeoutNanos);

// A socket bound to `local`, with a receive buffer of `receiveBufferBytes` as far as the system
// allows it. Null on failure (ErrorText), such as a port in use.
std::unique_ptr<DatagramSocket> OpenDatagramReceiver(const Ipv4Endpoint& local,
                                                     int receiveBufferBytes);

// The same for many datagrams a second: where the system hands out datagrams that arrived together
// in one piece, they are taken so and cut up here. Sending may fail.
std::unique_ptr<DatagramSocket> OpenRunReceiver(const Ipv4Endpoint& local, int receiveBufferBytes);

// True if another program has the TCP port on any of the machine's addresses, so that ListenTcp
// would have to do without it or share it. Nobody can connect to what asks.
bool TcpPortInUse(uint16_t port);

// What the system says of a connection's settings, for diagnosis. -1 stands for what it doesn't
// tell.
struct StreamSettings {
  int noDelay = -1;    // 1: Nagle's delay is off
  int keepAlive = -1;  // 1: on
  int keepAliveIdleSeconds = -1;
  int keepAliveIntervalSeconds = -1;
  int keepAliveCount = -1;
};
StreamSettings ReadStreamSettings(const StreamSocket& socket);

}  // namespace Veldrift
