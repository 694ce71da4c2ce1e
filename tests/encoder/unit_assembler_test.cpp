#include "encoder/unit_assembler.h"

#include <gtest/gtest.h>

#include <vector>

#include "encoder/hardware_encoder.h"
#include "tests/support/scratch.h"

namespace Veldrift {
namespace {

using Bytes = std::vector<uint8_t>;

const Bytes kSets = {0, 0, 0, 1, 0x67, 1, 0, 0, 0, 1, 0x68, 2};

Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

TEST(UnitAssembler, SetsStandInFrontOfKeyFramesOnly) {
  struct Case {
    Bytes data;
    bool marked;
    bool keyFrame;
    Bytes unit;
  };
  const Bytes idr = {0, 0, 1, 0x65, 2};
  const Bytes plain = {0, 0, 1, 0x41, 2};
  const Case cases[] = {
      {idr, false, true, kSets + idr},
      {idr, true, true, kSets + idr},
      {plain, true, true, kSets + plain},  // the codec's word is enough
      {plain, false, false, plain},
      {{0, 0, 0, 2, 0x65, 7}, false, true, kSets + Bytes{0, 0, 0, 1, 0x65, 7}},
      {{0xFF, 0xFF, 0xFF, 0xFF}, true, true, kSets},  // nothing could be read
      {{0xFF, 0xFF, 0xFF, 0xFF}, false, false, {}},
  };
  UnitAssembler assembler(kCodecH264);
  assembler.ReadHeader(kSets);
  EncodedUnit unit;  // its memory is used again
  for (const Case& c : cases) {
    assembler.Assemble(c.data, c.marked, unit);
    EXPECT_EQ(unit.keyFrame, c.keyFrame) << testing::PrintToString(c.data);
    EXPECT_EQ(unit.data, c.unit) << testing::PrintToString(c.data);
  }
}

TEST(UnitAssembler, AStreamThatBringsItsSetsGetsThemWhereTheyLack) {
  const Bytes own = {0, 0, 0, 1, 0x67, 3, 0, 0, 0, 1, 0x68, 4};
  const Bytes idr = {0, 0, 0, 1, 0x65, 2};
  UnitAssembler assembler(kCodecH264);
  assembler.ReadHeader({});
  EncodedUnit unit;
  assembler.Assemble(own + idr, true, unit);
  EXPECT_EQ(unit.data, own + idr);
  assembler.Assemble(idr, true, unit);
  EXPECT_EQ(unit.data, own + idr);
}

// Behind lengths as well, and a length isn't taken for the head of a set: 359 is 00 00 01 67.
TEST(UnitAssembler, LearnsSetsFromUnitsBehindLengths) {
  const Bytes idr = {0, 0, 0, 2, 0x65, 2};
  Bytes slice = {0, 0, 1, 0x67, 0x41};
  slice.resize(4 + 359, 0x77);
  UnitAssembler assembler(kCodecH264);
  EncodedUnit unit;
  assembler.Assemble(Bytes{0, 0, 0, 2, 0x67, 3, 0, 0, 0, 2, 0x68, 4} + idr, true, unit);
  assembler.Assemble(slice, false, unit);
  assembler.Assemble(idr, false, unit);
  EXPECT_EQ(unit.data, (Bytes{0, 0, 0, 1, 0x67, 3, 0, 0, 0, 1, 0x68, 4, 0, 0, 0, 1, 0x65, 2}));
}

// An H.264 slice header would be a key frame in HEVC.
TEST(UnitAssembler, ReadsByTheCodecThatItWasMadeFor) {
  const Bytes slice = {0, 0, 1, 0x21, 2};
  EncodedUnit unit;
  UnitAssembler(kCodecH264).Assemble(slice, false, unit);
  EXPECT_FALSE(unit.keyFrame);
  UnitAssembler(kCodecHevc).Assemble(slice, false, unit);
  EXPECT_TRUE(unit.keyFrame);
}

TEST(UnitAssembler, DescribesOneUnitIn25AsTheCodecGaveIt) {
  UnitAssembler assembler(kCodecH264);
  assembler.ReadHeader(kSets);
  Bytes idr = {0, 0, 0, 1, 0x65};
  idr.resize(20, 0xAB);
  EncodedUnit unit;
  const std::string line =
      "[Sunshine] Step 1 NAL diag: cleanPoint=0 scanFound=1 isHevc=0 size=20 first16=[00 00 00 01 "
      "65 AB AB AB AB AB AB AB AB AB AB AB]";
  const size_t before = CountInPluginLog(line);
  for (int i = 0; i < 50; ++i) assembler.Assemble(idr, false, unit);
  EXPECT_EQ(CountInPluginLog(line), before + 2);
}

}  // namespace
}  // namespace Veldrift
