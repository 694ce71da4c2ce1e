// A receiving datagram socket that takes runs of datagrams out of the system whole, where the
// system hands them out so, and cuts them up itself: the way through the system is most of what
// receiving costs.
#pragma once

#include <memory>

#include "platform/posix/descriptor.h"
#include "platform/socket.h"

namespace Veldrift {

// Over a bound socket. It only receives: sending fails.
std::unique_ptr<DatagramSocket> MakeRunReceiver(Descriptor socket);

}  // namespace Veldrift
