#include "support/identifiers.h"

#include <gtest/gtest.h>

namespace Veldrift {
namespace {

TEST(PairingCode, IsTheLittleEndianNumberModuloAMillion) {
  const struct {
    std::array<uint8_t, 4> random;
    const char* code;
  } kCases[] = {
      {{7, 0, 0, 0}, "000007"},
      {{0, 1, 0, 0}, "000256"},
      {{0x3F, 0x42, 0x0F, 0x00}, "999999"},
      {{0x40, 0x42, 0x0F, 0x00}, "000000"},
      {{0xFF, 0xFF, 0xFF, 0xFF}, "967295"},
  };
  for (const auto& c : kCases) EXPECT_EQ(FormatPairingCode(c.random), c.code);
}

TEST(PairingCode, HasAFallbackWithoutTheGenerator) {
  EXPECT_EQ(FormatPairingCode(std::nullopt), "271828");
}

TEST(PairingCode, IsSixDigitsAndNotAlwaysTheSame) {
  const std::string first = MakePairingCode();
  bool differs = false;
  for (int i = 0; i < 20; ++i) {
    const std::string code = MakePairingCode();
    EXPECT_EQ(code.size(), 6u);
    EXPECT_EQ(code.find_first_not_of("0123456789"), std::string::npos);
    differs |= code != first;
  }
  EXPECT_TRUE(differs);
}

TEST(Token, IsTwoLowerCaseDigitsAByte) {
  EXPECT_EQ(FormatHex(std::array<uint8_t, 4>{0x00, 0x1F, 0xA0, 0xFF}), "001fa0ff");
  EXPECT_EQ(MakeToken(0), "");
  const std::string token = MakeToken(32);
  EXPECT_EQ(token.size(), 64u);
  EXPECT_EQ(token.find_first_not_of("0123456789abcdef"), std::string::npos);
  EXPECT_NE(MakeToken(32), token);
}

TEST(Uuid, ShowsItsBytesInOrderWithFourDashes) {
  EXPECT_EQ(FormatUuid(std::array<uint8_t, 16>{0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0x10,
                                               0x32, 0x54, 0x76, 0x98, 0xBA, 0xDC, 0xFE}),
            "01234567-89ab-cdef-1032-547698badcfe");
  EXPECT_EQ(FormatUuid(std::nullopt), "00000000-0000-0000-0000-000000000000");
  EXPECT_EQ(MakeUuid().size(), 36u);
  EXPECT_NE(MakeUuid(), MakeUuid());
}

}  // namespace
}  // namespace Veldrift
