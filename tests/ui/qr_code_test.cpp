// The encoder by itself. What a reader makes of it is tested where there is one, in posix/.
#include "ui/qr_code.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/ui/qr_texts.h"
#include "ui/qr_codewords.h"
#include "ui/qr_matrix.h"

namespace Veldrift {
namespace {

// As the format information beside the finder at the top left tells it.
int MaskOf(const QrCode& code) {
  int bits = 0;
  for (const int column : {2, 3, 4}) bits = 2 * bits + code.modules[code.Index(column, 8)];
  return bits ^ 0b101;
}

uint64_t Fnv1a(const std::vector<uint8_t>& bytes) {
  uint64_t hash = 0xCBF29CE484222325;
  for (const uint8_t byte : bytes) hash = (hash ^ byte) * 0x100000001B3;
  return hash;
}

TEST(QrCode, EachVersionTakesItsMostAndTheNextOneByteMore) {
  for (int version = 1; version <= 40; ++version) {
    const size_t most = kMostBytes[size_t(version - 1)];
    const QrCode code = EncodeQrText(Letters(most));
    EXPECT_EQ(code.version, version);
    EXPECT_EQ(code.size, 17 + 4 * version);
    EXPECT_EQ(code.modules.size(), size_t(code.size) * size_t(code.size));
    EXPECT_EQ(code.isFunction.size(), code.modules.size());
    EXPECT_EQ(EncodeQrText(Letters(most + 1)).version, version == 40 ? 0 : version + 1);
  }
}

TEST(QrCode, MoreThanTheLargestTakesIsNoCode) {
  EXPECT_EQ(EncodeQrText(Letters(1272)).size, 177);
  EXPECT_EQ(EncodeQrText(Letters(1273)).size, 0);
  EXPECT_TRUE(EncodeQrText(Letters(1273)).modules.empty());
  EXPECT_EQ(EncodeQrText(std::string(100'000, 'a')).size, 0);
}

// The standard tells how many modules are left over behind the last codeword.
TEST(QrCode, TheFreeModulesAreTheCodewordsAndTheStandardsRemainder) {
  constexpr int kRemainders[40] = {0, 7, 7, 7, 7, 7, 0, 0, 0, 0, 0, 0, 0, 3, 3, 3, 3, 3, 3, 3,
                                   4, 4, 4, 4, 4, 4, 4, 3, 3, 3, 3, 3, 3, 3, 0, 0, 0, 0, 0, 0};
  for (int version = 1; version <= 40; ++version) {
    const std::string text = Letters(kMostBytes[size_t(version - 1)]);
    const QrCode code = EncodeQrText(text);
    const auto free = std::count(code.isFunction.begin(), code.isFunction.end(), 0);
    EXPECT_EQ(free, 8 * int64_t(MakeQrCodewords(text, version).size()) + kRemainders[version - 1])
        << "version " << version;
  }
}

// The hashes are those of another encoder's codes, its mask set by another program that counted
// the penalties.
TEST(QrCode, TheModulesAreThoseOfAnotherEncoder) {
  constexpr struct {
    size_t bytes;
    int version, mask;
    uint64_t hash;
  } kCodes[] = {
      {0, 1, 0, 0xC846DB19FEAD7A73},    {6, 1, 2, 0xB57E009504A7252D},
      {7, 2, 1, 0xFE911430355001ED},    {43, 5, 7, 0x770367C8040B41A1},
      {63, 7, 4, 0x33377799927D3BE3},   {97, 9, 6, 0x863C93F1DE3F4FB4},
      {98, 10, 6, 0x1A4FC4DCB5F2D6EF},  {118, 10, 4, 0x206A983371C4E931},
      {841, 32, 2, 0xBB61499D78A5CCDA}, {1272, 40, 2, 0x7F136CB084B33D37},
  };
  for (const auto& expected : kCodes) {
    const QrCode code = EncodeQrText(Letters(expected.bytes));
    EXPECT_EQ(code.version, expected.version);
    EXPECT_EQ(MaskOf(code), expected.mask) << expected.bytes << " bytes";
    EXPECT_EQ(Fnv1a(code.modules), expected.hash) << expected.bytes << " bytes";
  }
}

// Texts whose two best masks are equally good by the two rules; the standard's four rules would
// choose 2, 5, 0, 1 and 5. The last text's version tells itself in the modules, and if that counted
// 5 were the best.
TEST(QrCode, OfTiedMasksTheLowerStands) {
  constexpr struct {
    const char* text;
    std::array<int, kQrMasks> penalties;
    int mask;
  } kTies[] = {
      {"tie 12", {324, 321, 313, 303, 353, 303, 362, 346}, 3},
      {"tie 45", {303, 313, 303, 316, 353, 330, 343, 338}, 0},
      {"tie 108", {448, 444, 402, 510, 492, 402, 406, 435}, 2},
      {"tie 91", {365, 343, 331, 331, 373, 358, 404, 381}, 2},
      {"Scan me: which of the eight masks is the best one, take 027",
       {1480, 1317, 1293, 1475, 1382, 1293, 1445, 1489},
       2},
  };
  for (const auto& tie : kTies) {
    EXPECT_EQ(MaskOf(EncodeQrText(tie.text)), tie.mask) << tie.text;
    const int version = *SmallestQrVersion(std::string_view(tie.text).size());
    QrCode code = DrawFunctionPatterns(version);
    PlaceCodewords(code, MakeQrCodewords(tie.text, version));
    for (int mask = 0; mask < kQrMasks; ++mask) {
      ToggleMask(code, mask);
      DrawFormatInformation(code, mask);
      EXPECT_EQ(QrPenalty(code), tie.penalties[size_t(mask)]) << tie.text << ", mask " << mask;
      ToggleMask(code, mask);
    }
  }
}

TEST(QrPenalty, RunsFromFiveOnAndSquaresCount) {
  const std::pair<std::vector<std::string>, int> cases[] = {
      {{"#.#.#", ".#.#.", "#.#.#", ".#.#.", "#.#.#"}, 0},
      {{"####", "....", "####", "...."}, 0},                               // runs of four
      {{"#####", ".....", "#####", ".....", "#####"}, 15},                 // five runs of five
      {{"#.#.#.", "#.#.#.", "#.#.#.", "#.#.#.", "#.#.#.", "#.#.#."}, 24},  // six runs of six
      {{"##", "##"}, 3},
      {{"..",
        "."
        "."},
       3},
      {{"##.", "##.", ".##"}, 3},
      {{"###", "###", "###"}, 12},                          // overlapping squares
      {{".....", ".....", ".....", ".....", "....."}, 78},  // 10 runs, 16 squares
  };
  for (const auto& [rows, penalty] : cases) {
    QrCode code;
    code.size = int32_t(rows.size());
    for (const std::string& row : rows) {
      for (const char module : row) code.modules.push_back(module == '#' ? 1 : 0);
    }
    EXPECT_EQ(QrPenalty(code), penalty) << testing::PrintToString(rows);
  }
}

TEST(QrData, TheTerminatorIsCutAndThePadsTakeTurns) {
  // 4 bits of mode, 8 of length, 8 of text and 4 of terminator, then six pads.
  EXPECT_EQ(MakeQrData("A", 1),
            (std::vector<uint8_t>{0x40, 0x14, 0x10, 0xEC, 0x11, 0xEC, 0x11, 0xEC, 0x11}));
  // One byte more than version 1 takes here, and just what it takes by the standard.
  EXPECT_EQ(MakeQrData("1234567", 1),
            (std::vector<uint8_t>{0x40, 0x73, 0x13, 0x23, 0x33, 0x43, 0x53, 0x63, 0x70}));
  // Two bytes of length from version 10 on.
  EXPECT_EQ(MakeQrData("A", 10)[2], 0x14);
}

TEST(ReedSolomon, ThePublishedExampleComesOut) {
  const std::vector<uint8_t> data = {32, 91, 11,  120, 209, 114, 220, 77,
                                     67, 64, 236, 17,  236, 17,  236, 17};
  EXPECT_EQ(ReedSolomonRemainder(data, ReedSolomonDivisor(10)),
            (std::vector<uint8_t>{196, 35, 39, 119, 235, 215, 231, 226, 93, 23}));
}

}  // namespace
}  // namespace Veldrift
