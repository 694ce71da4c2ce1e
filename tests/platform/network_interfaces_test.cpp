#include "platform/network_interfaces.h"

#include <gtest/gtest.h>

#include "platform/socket.h"

namespace Veldrift {
namespace {

// How many there are is the machine's matter; none at all is possible.
TEST(NetworkInterfaces, EachAddressIsThisMachinesOwnAndNoneIsLoopback) {
  const SocketLayer sockets;
  for (const NetworkInterfaceInfo& entry : EnumerateInterfaces()) {
    const std::optional<uint32_t> address = ParseAddress(entry.address);
    ASSERT_TRUE(address.has_value()) << entry.address;
    EXPECT_FALSE(entry.name.empty());
    EXPECT_FALSE(entry.address.starts_with("127.")) << entry.name;
    EXPECT_NE(ListenTcp(0, *address), nullptr) << entry.name << ' ' << entry.address;
  }
}

}  // namespace
}  // namespace Veldrift
