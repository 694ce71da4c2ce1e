#include <utility>

#include "tests/session/session_fixture.h"

namespace Veldrift {
namespace {

using VideoPathTest = SessionFixture;
constexpr int64_t kMilli = kNanosPerMilli;

std::string Fields(std::initializer_list<int> bytes) {
  std::string text;
  for (const int byte : bytes) text.push_back(char(byte));
  return text;
}

TEST_F(VideoPathTest, WithoutAPhoneNothingIsReadOrConfigured) {
  instance = std::make_unique<TransmitInstance>(FakeHost::Suites(), Services());
  instance->Start();
  const int before = HostFrame::disposed;
  for (int i = 0; i < 3; ++i) Push(1280, 720);
  EXPECT_EQ(HostFrame::disposed, before + 3);
  EXPECT_EQ(encoder->ConfigureCount(), 0U);
  EXPECT_EQ(encoder->FrameCount(), 0U);
}

TEST_F(VideoPathTest, TheFirstFrameConfiguresPromotesAndAnnounces) {
  StartSession();
  Push(1280, 720);
  ASSERT_EQ(encoder->ConfigureCount(), 1U);
  encoder->With([](EncoderRecord::Data& record) {
    EXPECT_EQ(record.configured[0].width, 1280);
    EXPECT_EQ(record.configured[0].bitrate, 150'000'000U);
    EXPECT_EQ(record.configured[0].fps, 30);
  });
  EXPECT_EQ(encoder->FrameCount(), 1U);
  // 1280 x 720 at 30, cap 340,000; 30.0F is 0x41F00000.
  EXPECT_EQ(phone.NextOf(kSourceChanged)->payload,
            Fields({0x00, 0x05, 0xD0, 0x02, 0x00, 0x00, 0xF0, 0x41}));
  EXPECT_EQ(phone.NextOf(kStreamInfo)->payload,
            Fields({0x00, 0x05, 0xD0, 0x02, 30, 0, 0x20, 0x30, 0x05, 0x00}));
  EXPECT_EQ(phone.NextOf(kEncoderInfo)->payload, Fields({17}) + "recording encoder");
}

TEST_F(VideoPathTest, OnlyTheFirstOfAListIsShownAndAllAreDisposedOf) {
  StartSession();
  HostFrame frame;
  const Host::FrameHandle handle = reinterpret_cast<Host::FrameHandle>(&frame);
  const Host::FrameEntry nullFirst[] = {{nullptr}, {handle}};
  const Host::FrameEntry both[] = {{handle}, {handle}};
  const Host::FrameList lists[] = {{2, nullFirst}, {2, both}, {0, nullptr}};
  const int before = HostFrame::disposed;
  for (const Host::FrameList& list : lists) instance->PushVideo(&list);
  instance->PushVideo(nullptr);
  EXPECT_EQ(HostFrame::disposed, before + 3);
  EXPECT_EQ(encoder->FrameCount(), 1U);
}

TEST_F(VideoPathTest, BadFramesAreDroppedAndDisposedOf) {
  StartSession();
  HostFrame noPixels, noRows, shortRows, narrow{15, 2000}, low{2000, 15};
  noPixels.hasPixels = false;
  noRows.rowBytes = 0;
  shortRows.rowBytes = shortRows.width * 4 - 1;
  const int before = HostFrame::disposed;
  for (const HostFrame& frame : {noPixels, noRows, shortRows, narrow, low}) Push(frame);
  EXPECT_EQ(encoder->ConfigureCount(), 0U);
  EXPECT_EQ(HostFrame::disposed, before + 5);
  Push(16, 16);
  EXPECT_EQ(encoder->FrameCount(), 1U);
}

TEST_F(VideoPathTest, EachChangeOfAnUnsupportedFormatIsLoggedOnce) {
  StartSession();
  const std::string argb = "unsupported pixel format 0x62677261 'bgra' (wanted 'bgra')";
  const std::string line = "PushVideo: unsupported pixel format 0x";
  HostFrame bad;
  const auto push = [&](uint32_t format, int times) {
    bad.format = format;
    for (int i = 0; i < times; ++i) Push(bad);
    return CountInPluginLog(line);
  };
  const size_t before = CountInPluginLog(line);
  EXPECT_EQ(push(0x62677261, 5), before + 1);
  EXPECT_EQ(CountInPluginLog(argb), 1U);
  EXPECT_EQ(push(0x64636261, 1), before + 2);
  EXPECT_EQ(push(Host::kPixelFormatBgra, 1), before + 2);
  EXPECT_EQ(push(0x62677261, 2), before + 3);
  EXPECT_EQ(encoder->FrameCount(), 1U);
}

TEST_F(VideoPathTest, AGrowthWithinToleranceIsToldAfterHalfASecondAndNotReconfigured) {
  StartSession();
  Push(1000, 1000);
  ASSERT_TRUE(phone.NextOf(kEncoderInfo));
  const size_t told = CountInPluginLog("SendControl: kSourceChanged 1040x1000");
  Push(1040, 1000);
  clock.Advance(490 * kMilli);
  Push(1040, 1000);
  EXPECT_EQ(CountInPluginLog("SendControl: kSourceChanged 1040x1000"), told);
  clock.Advance(10 * kMilli);
  Push(1040, 1000);
  EXPECT_EQ(CountInPluginLog("SendControl: kSourceChanged 1040x1000"), told + 1);
  EXPECT_EQ(phone.NextOf(kStreamInfo)->payload.substr(0, 4), Fields({0x10, 0x04, 0xE8, 0x03}));
  EXPECT_EQ(encoder->ConfigureCount(), 1U);
}

TEST_F(VideoPathTest, AnAlternatingSizeReconfiguresEveryFrameWithQualityAtThreeQuarters) {
  StartSession();
  Command(kSetEncoderMode, {1, 90});
  for (int i = 0; i < 4; ++i) Push(i % 2 == 0 ? 1280 : 640, 720);
  encoder->With([](EncoderRecord::Data& record) {
    ASSERT_EQ(record.configured.size(), 4U);
    EXPECT_EQ(record.configured[3].width, 640);
    EXPECT_EQ(record.configured[3].rateControl, kRateControlQuality);
    EXPECT_EQ(record.configured[3].quality, 0.75F);
  });
}

TEST_F(VideoPathTest, TheCapScalesTheTargetButNotTheFrameOrTheAnnouncement) {
  StartSession();
  Command(kSetMaxResolution, {0xD0, 0x02});  // 720
  Push(3840, 2160);
  encoder->With([](EncoderRecord::Data& record) {
    EXPECT_EQ(record.configured.at(0).width, 1280);
    EXPECT_EQ(record.configured.at(0).height, 720);
    EXPECT_EQ(record.frames.at(0).width, 3840U);
  });
  EXPECT_EQ(phone.NextOf(kStreamInfo)->payload.substr(0, 4), Fields({0x00, 0x0F, 0x70, 0x08}));
}

TEST_F(VideoPathTest, AFailedConfigureIsRepeatedOnEachFrame) {
  StartSession();
  encoder->With([](EncoderRecord::Data& record) { record.failConfigure = true; });
  const std::string line = "encoder Configure failed (1280x720 @ 30 fps)";
  for (int i = 0; i < 3; ++i) Push(1280, 720);
  EXPECT_EQ(CountInPluginLog(line), 3U);
  EXPECT_EQ(encoder->FrameCount(), 3U);
  encoder->With([](EncoderRecord::Data& record) { record.failConfigure = false; });
  Push(1280, 720);
  Push(1280, 720);
  EXPECT_EQ(encoder->ConfigureCount(), 4U);
}

TEST_F(VideoPathTest, AStalledEncoderIsRebuiltOnceInFiveSeconds) {
  StartSession();
  const int requests = encoder->With([](EncoderRecord::Data& record) {
    record.silent = true;
    return record.idrRequests;
  });
  const size_t before = CountInPluginLog("encoder stall: no output for");
  for (int i = 0; i < 70; ++i) {
    Push(1280, 720);
    clock.Advance(100 * kMilli);
  }
  EXPECT_EQ(CountInPluginLog("encoder stall: no output for"), before + 1);
  EXPECT_EQ(encoder->ConfigureCount(), 2U);
  encoder->With([&](EncoderRecord::Data& record) { EXPECT_EQ(record.idrRequests, requests + 1); });
}

TEST_F(VideoPathTest, AFrameBeyondTheWireAsksForEmergencyCompression) {
  StartSession();
  Command(kSetGopMode, {3});
  const int requests = encoder->With([](EncoderRecord::Data& record) {
    record.outputBytes = 94'370'401;
    return record.idrRequests;
  });
  Push(1280, 720);
  encoder->With([&](EncoderRecord::Data& record) {
    EXPECT_EQ(record.emergencyFrames, 30);
    EXPECT_EQ(record.idrRequests, requests + 1);
  });
  EXPECT_EQ(CountInPluginLog("wire overrun: encoded 94370401 B → 65536 frags > max 65535 "
                             "(gopSize=600) — triggered emergency compression for 30 frames"),
            1U);
}

TEST_F(VideoPathTest, LongDescriptionsAreCutAndEmptyOnesNeverSent) {
  StartSession();
  encoder->With([](EncoderRecord::Data& record) { record.description = std::string(300, 'd'); });
  Push(1280, 720);
  EXPECT_EQ(phone.NextOf(kEncoderInfo)->payload, Fields({200}) + std::string(200, 'd'));
  encoder->With([](EncoderRecord::Data& record) { record.description = ""; });
  Push(1280, 720);
  encoder->With([](EncoderRecord::Data& record) { record.description = "again"; });
  Push(1280, 720);
  // The long one once more from the first frame's end, then the next text; nothing empty between.
  auto message = phone.NextOf(kEncoderInfo);
  while (message && message->payload.size() == 201) message = phone.NextOf(kEncoderInfo);
  ASSERT_TRUE(message);
  EXPECT_EQ(message->payload, Fields({5}) + "again");
}

TEST_F(VideoPathTest, TheEncodersOutputGoesOutMarkedAndNumberedWhileAPhoneIsThere) {
  instance = std::make_unique<TransmitInstance>(FakeHost::Suites(), Services());
  instance->Start();
  const std::vector<uint8_t> unit(1'441, 0x42);                 // two fragments, one of parity
  instance->OnEncodedFrame(unit.data(), unit.size(), true, 1);  // nobody to send it to
  PairPhone();
  HoldMedia();
  instance->OnEncodedFrame(unit.data(), unit.size(), true, 0x1'0000'0002);
  instance->OnEncodedFrame(unit.data(), 0, true, 3);
  instance->OnEncodedFrame(unit.data(), unit.size(), false, 4);
  const std::vector<DatagramHeader> sent = ReleaseMedia();
  ASSERT_EQ(sent.size(), 6U);
  for (size_t i = 0; i < sent.size(); ++i) {
    EXPECT_EQ(sent[i].streamType, StreamType::Video);
    EXPECT_EQ(sent[i].frameNumber, i / 3) << i;
    EXPECT_EQ(sent[i].sequence, i);
    EXPECT_EQ(sent[i].KeyFrame(), i < 3) << i;
    EXPECT_EQ(sent[i].timestamp, i < 3 ? 2U : 4U);
    EXPECT_EQ(sent[i].ParityCount(), 1U);
  }
}

// The time that passes is what the pacer waits. Of 3.75 MB, 20 ms of the rate may go at once.
TEST_F(VideoPathTest, ThePacersRateFollowsTheEncodersMode) {
  StartSession();
  instance->SetVideoFrameRate(254'016'000'000 / 60);
  encoder->With([](EncoderRecord::Data& record) { record.outputBytes = 3'750'000; });
  const auto millisToSend = [this] {
    const auto handled = [this] {
      return shared.GetPacer().TotalBytes() / 1'440 + shared.GetPacer().TotalFailed();
    };
    const uint64_t before = handled();
    const int64_t start = clock.NowNanos();
    Push(1280, 720);
    EXPECT_TRUE(Eventually([&] { return handled() >= before + 2'605; }));
    return (clock.NowNanos() - start) / kMilli;
  };
  const int64_t configured = millisToSend();  // 300 Mbit/s: 101 ms, of which 20 at once
  EXPECT_GT(configured, 60);
  EXPECT_LT(configured, 130);
  Command(kSetEncoderMode, {1, 80});  // 60 x 340,000 x 32: 653 Mbit/s, 46 ms
  const int64_t quality = millisToSend();
  EXPECT_GT(quality, 15);
  EXPECT_LT(quality, 55);
  Command(kSetEncoderMode, {0, 80});  // twice the encoder's 150 Mbit/s
  EXPECT_GT(millisToSend(), 60);
}

TEST_F(VideoPathTest, StopEmptiesTheCacheAndFramesAreDisposedOfUnread) {
  StartSession();
  Push(1280, 720);
  instance->Stop();
  instance->Stop();
  const int before = HostFrame::disposed;
  Push(1280, 720);
  EXPECT_EQ(HostFrame::disposed, before + 1);
  EXPECT_EQ(encoder->FrameCount(), 1U);
  PairPhone();
  EXPECT_GE(CountInPluginLog("OnNewClient replay: no cache"), 1U);
}

TEST_F(VideoPathTest, ADormantInstanceHasNoPipelineAndTakesNothing) {
  SessionServices services = Services();
  services.createDefaultEncoder = [] { return nullptr; };
  instance = std::make_unique<TransmitInstance>(FakeHost::Suites(), std::move(services));
  EXPECT_FALSE(instance->HasPipeline());
  EXPECT_EQ(shared.ListeningPort(), 0);
}

TEST_F(VideoPathTest, SuitesAreGivenBack) {
  FakeHost::acquired = FakeHost::released = 0;
  StartSession();
  instance->SetVideoFrameRate(254'016'000'000 / 60);
  instance->Start();
  instance.reset();
  EXPECT_EQ(FakeHost::acquired, 2);
  EXPECT_EQ(FakeHost::released, 2);
}

}  // namespace
}  // namespace Veldrift
