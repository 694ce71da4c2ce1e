// A pacer's sender out of one that takes a datagram at a time.
#pragma once

#include <utility>

#include "net/pacer.h"

namespace Veldrift {

// `send` takes a span of bytes and answers whether it took them.
template <typename Send>
Pacer::Sender OneByOne(Send send) {
  return [send = std::move(send)](Datagrams datagrams) mutable {
    DatagramsTaken taken;
    for (const std::span<const std::byte> datagram : datagrams) {
      if (!send(datagram)) continue;
      ++taken.count;
      taken.bytes += datagram.size();
    }
    return taken;
  };
}

}  // namespace Veldrift
