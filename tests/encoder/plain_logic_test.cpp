#include <gtest/gtest.h>

#include <vector>

#include "encoder/annex_b.h"
#include "encoder/encoder_description.h"
#include "encoder/engine_catalogue.h"
#include "encoder/key_frame_placer.h"
#include "encoder/rate_control_state.h"
#include "encoder/transition_log.h"

namespace Veldrift {
namespace {

using Bytes = std::vector<uint8_t>;

TEST(AnnexB, KeyFramesAreFoundByTheirUnits) {
  struct Case {
    Bytes data;
    int32_t codec;
    bool key;
  };
  const Case cases[] = {
      {{0, 0, 0, 1, 0x65}, 1, true},
      {{0, 0, 1, 0x65}, 1, true},
      {{0, 0, 1, 0x41}, 1, false},
      {{0, 0, 0, 1, 0x67, 9, 0, 0, 1, 0x65}, 1, true},
      {{0, 0, 0, 1, 0x26, 1}, 0, true},
      {{0, 0, 0, 1, 0x2A, 1}, 0, true},   // type 21, CRA
      {{0, 0, 0, 1, 0x2C, 1}, 0, false},  // type 22, reserved
      {{0, 0, 0, 1, 0x02, 1}, 0, false},
      {{0, 0, 0, 1, 0x40, 1}, 0, false},
      {{0, 0, 0, 1, 0x40, 1, 0, 0, 0, 1, 0x26}, 0, true},
      {{0, 0, 0, 0, 1, 0x26}, 0, true},
      {{0, 0, 1}, 1, false},
      {{0, 0, 0, 1}, 1, false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ContainsKeyFrame(c.data, c.codec), c.key) << testing::PrintToString(c.data);
  }
}

TEST(AnnexB, AnAccessUnitIsRewrittenOnlyIfItHasLengths) {
  struct Case {
    Bytes data;
    Bytes annexB;
  };
  const Case cases[] = {
      {{0, 0, 1, 0x41, 7}, {0, 0, 1, 0x41, 7}},
      {{0, 0, 0, 2, 0x65, 7, 0, 0, 0, 1, 9}, {0, 0, 0, 1, 0x65, 7, 0, 0, 0, 1, 9}},
      {{0, 0, 0, 2, 0x65, 7, 0, 0, 0, 0, 9}, {0, 0, 0, 1, 0x65, 7}},  // a length of 0
      {{0, 0, 0, 2, 0x65, 7, 0, 0, 0, 9, 9}, {0, 0, 0, 1, 0x65, 7}},  // past the end
      {{0xFF, 0xFF, 0xFF, 0xFF, 1}, {}},
  };
  for (const Case& c : cases) {
    Bytes out;
    AppendAsAnnexB(c.data, out);
    EXPECT_EQ(out, c.annexB) << testing::PrintToString(c.data);
  }
}

Bytes Filled(const Bytes& head, size_t size) {
  Bytes data = head;
  data.resize(size, 0x55);
  return data;
}

// Units of 256 to 511 bytes have lengths that begin with 00 00 01.
TEST(AnnexB, LengthsThatTileTheDataAreNoStartCode) {
  const Bytes slice = Filled({0, 0, 1, 0x2C, 0x41}, 4 + 300);
  Bytes out;
  AppendAsAnnexB(slice, out);
  EXPECT_EQ(out, Filled({0, 0, 0, 1, 0x41}, 4 + 300));

  Bytes two = slice;
  two.insert(two.end(), {0, 0, 0, 1, 9});
  out.clear();
  AppendAsAnnexB(two, out);
  Bytes rewritten = Filled({0, 0, 0, 1, 0x41}, 4 + 300);
  rewritten.insert(rewritten.end(), {0, 0, 0, 1, 9});
  EXPECT_EQ(out, rewritten);

  for (const size_t size : {4 + 299, 4 + 301, 4 + 305}) {
    const Bytes annexB = Filled({0, 0, 1, 0x2C, 0x41}, size);
    out.clear();
    AppendAsAnnexB(annexB, out);
    EXPECT_EQ(out, annexB) << size;
  }
}

TEST(AnnexB, RecordsGiveTheirSetsUpToAFault) {
  const Bytes avc = {1, 100, 0, 31, 0xFF, 0xE1, 0, 2, 0x67, 9, 1, 0, 1, 0x68};
  EXPECT_EQ(ParameterSetsFromHeader(avc, 1), (Bytes{0, 0, 0, 1, 0x67, 9, 0, 0, 0, 1, 0x68}));
  EXPECT_EQ(ParameterSetsFromHeader(ByteSpan(avc).first(13), 1), (Bytes{0, 0, 0, 1, 0x67, 9}));
  EXPECT_EQ(ParameterSetsFromHeader(ByteSpan(avc).first(6), 1), Bytes{});

  Bytes hevc(22, 0);
  const Bytes arrays = {2, 0xA0, 0, 1, 0, 2, 0x40, 1, 0xA1, 0, 1, 0, 1, 0x42};
  hevc.insert(hevc.end(), arrays.begin(), arrays.end());
  EXPECT_EQ(ParameterSetsFromHeader(hevc, 0), (Bytes{0, 0, 0, 1, 0x40, 1, 0, 0, 0, 1, 0x42}));
  EXPECT_EQ(ParameterSetsFromHeader(ByteSpan(hevc).first(hevc.size() - 1), 0),
            (Bytes{0, 0, 0, 1, 0x40, 1}));
  hevc[22] = 0;
  EXPECT_EQ(ParameterSetsFromHeader(hevc, 0), Bytes{});
}

// A record would take the profile for a count and the level for a length.
TEST(AnnexB, SetsBehindStartCodesStandAsTheyAre) {
  const Bytes avc = {0, 0, 0, 1, 0x67, 0x64, 0, 0x28, 0xAC, 0x2B, 0x40, 0, 0, 0, 1, 0x68, 0xEE};
  EXPECT_EQ(ParameterSetsFromHeader(avc, 1), avc);
  const Bytes shortCodes = {0, 0, 1, 0x67, 0x64, 0, 0x28, 0xAC, 0, 0, 1, 0x68, 0xEE};
  EXPECT_EQ(ParameterSetsFromHeader(shortCodes, 1), shortCodes);
  Bytes hevc;
  for (const uint8_t type : Bytes{0x40, 0x42, 0x44}) {
    const Bytes set = {0, 0, 0, 1, type, 1, 9, 9, 9, 9, 9, 9};
    hevc.insert(hevc.end(), set.begin(), set.end());
  }
  EXPECT_EQ(ParameterSetsFromHeader(hevc, 0), hevc);
}

TEST(AnnexB, ParameterSetsAreFoundInFrontOfThePicture) {
  const Bytes unit = {0, 0, 0, 1, 0x67, 9, 0, 0, 1, 0x68, 8, 0, 0, 1, 0x65, 7, 0, 0, 1, 0x67, 1};
  EXPECT_EQ(FindParameterSets(unit, 1), (Bytes{0, 0, 0, 1, 0x67, 9, 0, 0, 0, 1, 0x68, 8}));
  EXPECT_EQ(FindParameterSets(Bytes{0, 0, 0, 1, 0x26, 1}, 0), Bytes{});
}

TEST(KeyFramePlacer, PlacesByCountAndOnRequest) {
  KeyFramePlacer placer;
  std::vector<int> keys;
  for (int frame = 0; frame < 10; ++frame) {
    if (placer.Place(3)) keys.push_back(frame);
  }
  EXPECT_EQ(keys, (std::vector<int>{0, 4, 8}));
  placer.Request();
  EXPECT_TRUE(placer.Place(100));
  EXPECT_FALSE(placer.Place(100));
  EXPECT_TRUE(placer.Place(1));
}

TEST(RateControlState, ClampsAndCeilings) {
  EXPECT_EQ(ClampQuality(-1.0F), 0.0F);
  EXPECT_EQ(ClampQuality(7.0F), 1.0F);
  EXPECT_FALSE(QualityDiffers(0.5F, 0.504F));
  EXPECT_TRUE(QualityDiffers(0.5F, 0.506F));
  EXPECT_EQ(QualityPercent(0.759F), 75U);
  EXPECT_EQ(ClampFrameByteCap(5), 100'000U);
  EXPECT_EQ(ClampFrameByteCap(30'000'000), 20'000'000U);
  EXPECT_EQ(MaxBitrate(kRateControlBitrate, 10'000'000, 12'000'000), 13'000'000U);
  EXPECT_EQ(MaxBitrate(kRateControlVbr, 10'000'000, 12'000'000), 12'000'000U);
  EXPECT_EQ(MaxBitrate(kRateControlVbr, 10'000'000, 9'000'000), 13'000'000U);
  EXPECT_EQ(PeakAtLeastMean(5, 10), 10U);
  const auto rates = RatesForHrd(3'000'000'000, 3'000'000'000);
  ASSERT_TRUE(rates.has_value());
  EXPECT_EQ(rates->mean, 3'000'000'000U);
  EXPECT_EQ(rates->max, 4'000'000'000U);
  EXPECT_FALSE(RatesForHrd(0, 1).has_value());
}

TEST(EmergencyCount, ASecondTriggerReplacesTheRest) {
  EmergencyCount count;
  EXPECT_FALSE(count.Trigger(0));
  EXPECT_FALSE(count.Take());
  EXPECT_TRUE(count.Trigger(5));
  EXPECT_TRUE(count.Trigger(2));
  EXPECT_TRUE(count.Take());
  EXPECT_TRUE(count.Take());
  EXPECT_FALSE(count.Take());
}

TEST(EncoderDescription, SaysWhatEncodes) {
  EXPECT_EQ(DescribeEncoder({"libx265", "SW", 1280, 720, kCodecHevc, 30, 15'999'999}),
            "libx265 [SW, 1280x720 HEVC @ 30 fps, 15 Mbps]");
}

TEST(EncoderDescription, ALongNameIsCutInFrontOfACharacter) {
  // 254 bytes, then one character of three.
  const std::string name = std::string(254, 'n') + "\xE2\x82\xAC";
  EXPECT_EQ(DescribeEncoder({name, "SW", 1280, 720, kCodecHevc, 30, 0}), std::string(254, 'n'));
  EXPECT_EQ(DescribeEncoder({"x" + name, "SW", 16, 16, 0, 30, 0}).size(), 255U);
}

TEST(EncoderDescription, OnlyTheEncoderThatItDescribesClearsTheActiveOne) {
  EncoderDescription first;
  EncoderDescription second;
  first.Set("first");
  EXPECT_EQ(GetActiveEncoderDescription(), "first");
  second.Set("second");
  first.Clear();
  EXPECT_EQ(first.Text(), "");
  EXPECT_EQ(GetActiveEncoderDescription(), "second");
  second.Clear();
  EXPECT_EQ(GetActiveEncoderDescription(), "");
}

TEST(EngineId, IsKeptInLowerCase) {
  EXPECT_EQ(NormaliseEngineId("NVIDIA"), "nvidia");
  EXPECT_EQ(NormaliseEngineId(""), "auto");
}

TEST(EngineRows, AreTheFamiliesInTheirOrderAndTheSoftwareLast) {
  struct Case {
    HardwareSeen offered;
    HardwareSeen seen;
    std::string ids;
    bool warns;
  };
  const Case cases[] = {
      {{}, {}, "software ", true},
      {{true, true, true, false}, {true, true, true, false}, "nvidia intel amd software ", false},
      {{false, true, false, true}, {false, true, false, true}, "intel software ", false},
      {{false, false, false, true}, {false, false, false, true}, "software ", false},
      {{}, {true, false, false, false}, "software ", false},  // there, but nobody drives it
  };
  for (const Case& c : cases) {
    const std::vector<EngineEntry> rows = EngineRows(c.offered, c.seen, "the CPU");
    std::string ids;
    for (const EngineEntry& row : rows) ids += row.id + " ";
    EXPECT_EQ(ids, c.ids);
    EXPECT_EQ(rows.back().note,
              c.warns
                  ? "No hardware encoder detected. Using CPU — expect higher CPU load and lower "
                    "quality."
                  : "the CPU");
  }
}

TEST(EngineCatalogue, TheSoftwareRowIsAlwaysThereAndLast) {
  const std::vector<EngineEntry> entries = EnumerateEngines();
  ASSERT_FALSE(entries.empty());
  EXPECT_EQ(entries.back().id, "software");
  EXPECT_EQ(entries.back().label, "Software (CPU)");
  EXPECT_FALSE(entries.back().note.empty());
}

TEST(TransitionLog, ALineHasItsColumns) {
  TransitionRecord record;
  record.fromWidth = 1920;
  record.fromHeight = 1080;
  record.toWidth = 1280;
  record.toHeight = 720;
  record.swapMs = 0.25;
  record.totalMs = 1234567.0;
  EXPECT_EQ(FormatTransition(record, 2'999'999),
            "2,Seamless,1920,1080,1280,720,,,0.25,1.23457e+06,0,\n");
}

}  // namespace
}  // namespace Veldrift
