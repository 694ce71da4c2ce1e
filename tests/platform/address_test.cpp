#include <gtest/gtest.h>

#include <array>
#include <bit>

#include "platform/socket.h"

namespace Veldrift {
namespace {

uint32_t Address(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
  return std::bit_cast<uint32_t>(std::array<uint8_t, 4>{a, b, c, d});
}

TEST(Address, TextAndNumberAgreeInNetworkOrder) {
  EXPECT_EQ(AddressText(Address(192, 0, 2, 1)), "192.0.2.1");
  EXPECT_EQ(ParseAddress("192.0.2.1"), Address(192, 0, 2, 1));
  EXPECT_EQ(ParseAddress("0.0.0.0"), 0u);
  EXPECT_EQ(ParseAddress("255.255.255.255"), 0xFFFFFFFFu);
}

TEST(Address, NothingButFourDecimalNumbersIsTaken) {
  for (const char* text : {"", "1.2.3", "1.2.3.", "1.2.3.4.", "1.2.3.4.5", ".1.2.3", "1..2.3",
                           "256.0.0.1", "1.2.3.999", "1.2.3.0004", "1.2.3.4 ", " 1.2.3.4",
                           "1.2.3.-4", "1.2.3.+4", "0x1.2.3.4", "1.2.3.4:5", "localhost", "::1"}) {
    EXPECT_EQ(ParseAddress(text), std::nullopt) << '"' << text << '"';
  }
}

}  // namespace
}  // namespace Veldrift
