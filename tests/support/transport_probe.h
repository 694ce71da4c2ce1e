// A way past the front door, for tests and measurements: a port of their own, and media to an
// address without a control connection.
#pragma once

#include <cstdint>

#include "session/shared_transport.h"

class TransportProbe {
 public:
  // Before the first instance. 0 lets the system choose; ListeningPort tells.
  static void ChoosePort(SharedTransport& shared, uint16_t port) { shared.portForTests_ = port; }

  // Media goes to `address` (network byte order) as if a phone had paired from there.
  static void AssumePeer(SharedTransport& shared, uint32_t address) {
    NetworkTransport& transport = shared.transport_;
    Veldrift::MutexLock lock(transport.clientMutex_);
    transport.peer_.address = address;
    transport.peerKnown_ = true;
  }

  // What sends datagrams.
  static NetworkTransport& Transport(SharedTransport& shared) { return shared.transport_; }
};
