// The sockets of a small server for browsers, for a library that brings the rest. Only where the
// receivers are that have one.
#pragma once

#include <string>

#include "platform/socket.h"

namespace Veldrift {

// A descriptor that listens at `local`, which the caller hands on, or -1 with the system's reason
// in `error`. Children don't inherit it. `port` 0 is any: see ListeningPort.
int OpenWebListener(const Ipv4Endpoint& local, std::string& error);

uint16_t ListeningPort(int descriptor);

void CloseWebListener(int descriptor);

// For a connection that carries live pictures: only so much waits in the kernel, so that it shows
// soon when the other side doesn't keep up; and without Nagle's delay.
void PrepareLiveConnection(int descriptor, int mostUnsentBytes);

}  // namespace Veldrift
