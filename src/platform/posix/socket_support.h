// What the stream and datagram sockets share.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <memory>

#include "platform/posix/descriptor.h"
#include "platform/socket.h"

namespace Veldrift {

sockaddr_in ToSystem(const Ipv4Endpoint& endpoint);
Ipv4Endpoint FromSystem(const sockaddr_in& address);

Descriptor OpenSocket(int type);
bool Bind(const Descriptor& socket, const Ipv4Endpoint& local);
bool SetNonBlocking(const Descriptor& socket, bool on);
void SetOption(const Descriptor& socket, int level, int name, int value);

// Waits for one of the poll `events`; interruptions by signals don't shorten the wait. False: the
// time is over, with ETIMEDOUT in errno, or poll failed.
bool WaitFor(int descriptor, short events, int64_t timeoutNanos);

// The local port; 0 while the system has given none.
uint16_t LocalPort(const Descriptor& socket);

// The seam's objects over what was opened: a connected socket, and a datagram socket that doesn't
// wait.
std::unique_ptr<StreamSocket> MakeStream(Descriptor socket, const Ipv4Endpoint& peer);
std::unique_ptr<DatagramSocket> MakeDatagram(Descriptor socket);

}  // namespace Veldrift
