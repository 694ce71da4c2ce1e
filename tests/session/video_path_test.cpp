#include <utility>

#include "tests/session/session_fixture.h"

namespace Veldrift {
namespace {

using VideoPath = SessionFixture;
constexpr int64_t kMilli = kNanosPerMilli;

std::string Fields(std::initializer_list<int> bytes) {
  std::string text;
  for (const int byte : bytes) text.push_back(char(byte));
  return text;
}

TEST_F(VideoPath, WithoutAPhoneNothingIsReadOrConfigured) {
  instance = std::make_unique<TransmitInstance>(FakeHost::Suites(), Services());
  instance->Start();
  const int before = HostFrame::disposed;
  for (int i = 0; i < 3; ++i) Push(1280, 720);
  EXPECT_EQ(HostFrame::disposed, before + 3);
  EXPECT_EQ(encoder->ConfigureCount(), 0U);
  EXPECT_EQ(encoder->FrameCount(), 0U);
}

TEST_F(VideoPath, TheFirstFrameConfiguresPromotesAndAnnounces) {
  StartSession();
  Push(1280, 720);
  ASSERT_EQ(encoder->ConfigureCount(), 1U);
  encoder->With([](EncoderRecord& record) {
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

TEST_F(VideoPath, OnlyTheFirstOfAListIsShownAndAllAreDisposedOf) {
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

TEST_F(VideoPath, BadFramesAreDroppedAndDisposedOf) {
  StartSession();
  HostFrame noPixels, noRows, narrow{15, 2000}, low{2000, 15};
  noPixels.hasPixels = false;
  noRows.rowBytes = 0;
  const int before = HostFrame::disposed;
  for (const HostFrame& frame : {noPixels, noRows, narrow, low}) Push(frame);
  EXPECT_EQ(encoder->ConfigureCount(), 0U);
  EXPECT_EQ(HostFrame::disposed, before + 4);
  Push(16, 16);
  EXPECT_EQ(encoder->FrameCount(), 1U);
}

TEST_F(VideoPath, EachChangeOfAnUnsupportedFormatIsLoggedOnce) {
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

TEST_F(VideoPath, AGrowthWithinToleranceIsToldAfterHalfASecondAndNotReconfigured) {
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

TEST_F(VideoPath, AnAlternatingSizeReconfiguresEveryFrameWithQualityAtThreeQuarters) {
  StartSession();
  Command(kSetEncoderMode, {1, 90});
  for (int i = 0; i < 4; ++i) Push(i % 2 == 0 ? 1280 : 640, 720);
  encoder->With([](EncoderRecord& record) {
    ASSERT_EQ(record.configured.size(), 4U);
    EXPECT_EQ(record.configured[3].width, 640);
    EXPECT_EQ(record.configured[3].rateControl, kRateControlQuality);
    EXPECT_EQ(record.configured[3].quality, 0.75F);
  });
}

TEST_F(VideoPath, TheCapScalesTheTargetButNotTheFrameOrTheAnnouncement) {
  StartSession();
  Command(kSetMaxResolution, {0xD0, 0x02});  // 720
  Push(3840, 2160);
  encoder->With([](EncoderRecord& record) {
    EXPECT_EQ(record.configured.at(0).width, 1280);
    EXPECT_EQ(record.configured.at(0).height, 720);
    EXPECT_EQ(record.frames.at(0).width, 3840U);
  });
  EXPECT_EQ(phone.NextOf(kStreamInfo)->payload.substr(0, 4), Fields({0x00, 0x0F, 0x70, 0x08}));
}

TEST_F(VideoPath, AFailedConfigureIsRepeatedOnEachFrame) {
  StartSession();
  encoder->With([](EncoderRecord& record) { record.failConfigure = true; });
  const std::string line = "encoder Configure failed (1280x720 @ 30 fps)";
  for (int i = 0; i < 3; ++i) Push(1280, 720);
  EXPECT_EQ(CountInPluginLog(line), 3U);
  EXPECT_EQ(encoder->FrameCount(), 3U);
  encoder->With([](EncoderRecord& record) { record.failConfigure = false; });
  Push(1280, 720);
  Push(1280, 720);
  EXPECT_EQ(encoder->ConfigureCount(), 4U);
}

TEST_F(VideoPath, AStalledEncoderIsRebuiltOnceInFiveSeconds) {
  StartSession();
  encoder->With([](EncoderRecord& record) { record.silent = true; });
  const size_t before = CountInPluginLog("encoder stall: no output for");
  for (int i = 0; i < 70; ++i) {
    Push(1280, 720);
    clock.Advance(100 * kMilli);
  }
  EXPECT_EQ(CountInPluginLog("encoder stall: no output for"), before + 1);
  EXPECT_EQ(encoder->ConfigureCount(), 2U);
}

TEST_F(VideoPath, AFrameBeyondTheWireAsksForEmergencyCompression) {
  StartSession();
  Command(kSetGopMode, {3});
  const int requests = encoder->With([](EncoderRecord& record) {
    record.outputBytes = 94'370'401;
    return record.idrRequests;
  });
  Push(1280, 720);
  encoder->With([&](EncoderRecord& record) {
    EXPECT_EQ(record.emergencyFrames, 30);
    EXPECT_EQ(record.idrRequests, requests + 1);
  });
  EXPECT_EQ(CountInPluginLog("wire overrun: encoded 94370401 B → 65536 frags > max 65535 "
                             "(gopSize=600) — triggered emergency compression for 30 frames"),
            1U);
}

TEST_F(VideoPath, LongDescriptionsAreCutAndEmptyOnesNeverSent) {
  StartSession();
  encoder->With([](EncoderRecord& record) { record.description = std::string(300, 'd'); });
  Push(1280, 720);
  EXPECT_EQ(phone.NextOf(kEncoderInfo)->payload, Fields({200}) + std::string(200, 'd'));
  encoder->With([](EncoderRecord& record) { record.description = ""; });
  Push(1280, 720);
  encoder->With([](EncoderRecord& record) { record.description = "again"; });
  Push(1280, 720);
  // The long one once more from the first frame's end, then the next text; nothing empty between.
  auto message = phone.NextOf(kEncoderInfo);
  while (message && message->payload.size() == 201) message = phone.NextOf(kEncoderInfo);
  ASSERT_TRUE(message);
  EXPECT_EQ(message->payload, Fields({5}) + "again");
}

TEST_F(VideoPath, StopEmptiesTheCacheAndFramesAreDisposedOfUnread) {
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

TEST_F(VideoPath, ADormantInstanceHasNoPipelineAndTakesNothing) {
  SessionServices services = Services();
  services.createDefaultEncoder = [] { return nullptr; };
  instance = std::make_unique<TransmitInstance>(FakeHost::Suites(), std::move(services));
  EXPECT_FALSE(instance->HasPipeline());
  EXPECT_EQ(shared.ListeningPort(), 0);
}

TEST_F(VideoPath, SuitesAreGivenBack) {
  FakeHost::acquired = FakeHost::released = 0;
  StartSession();
  instance->SetVideoFrameRate(254'016'000'000 / 60);
  instance.reset();
  EXPECT_EQ(FakeHost::acquired, 2);
  EXPECT_EQ(FakeHost::released, 2);
}

}  // namespace
}  // namespace Veldrift
