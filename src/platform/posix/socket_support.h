// What the stream and datagram sockets share.
#pragma once

#include <netinet/in.h>

#include <cstdint>

#include "platform/posix/descriptor.h"
#include "platform/socket.h"

namespace Veldrift {

sockaddr_in ToSystem(const Ipv4Endpoint& endpoint);
Ipv4Endpoint FromSystem(const sockaddr_in& address);

Descriptor OpenSocket(int type);
bool Bind(const Descriptor& socket, const Ipv4Endpoint& local);
void SetOption(const Descriptor& socket, int level, int name, int value);

// Waits for one of the poll `events`; interruptions by signals don't shorten the wait. False: the
// time is over, with ETIMEDOUT in errno, or poll failed.
bool WaitFor(const Descriptor& socket, short events, int64_t timeoutNanos);

// The local port; 0 while the system has given none.
uint16_t LocalPort(const Descriptor& socket);

}  // namespace Veldrift
