// What a phone gets to see of a session, and what its commands do.
#include <cstring>
#include <utility>

#include "session/engine_list.h"
#include "tests/session/session_fixture.h"
#include "tools/receiver/media_receiver.h"

namespace Veldrift {
namespace {

class PhoneSession : public SessionFixture {
 protected:
  int RememberedGop() { return shared.GetClientSettings().gopMode; }
  std::vector<int> TakeAcknowledged() {
    std::vector<int> acknowledged;
    for (const auto& [opcode, payload] : TakeTold()) {
      if (opcode == kCommandAck) acknowledged.push_back(payload[0]);
    }
    return acknowledged;
  }
  int IdrRequests() {
    return encoder->With([](EncoderRecord::Data& record) { return record.idrRequests; });
  }
};

TEST_F(PhoneSession, TheGreetingComesInOrderAndThenTheHostIsMadeToRender) {
  const std::string nudge = "kbd:INFO] nudge: →← (Premiere)";
  instance = std::make_unique<TransmitInstance>(FakeHost::Suites(), Services());
  instance->Start();
  TransmitInstance second(FakeHost::Suites(), Services());
  const std::vector<int> greeting{kHostPlatform, kAudioState, kEncoderEngineList};
  std::vector<int> wanted = greeting;
  wanted.insert(wanted.end(), greeting.begin(), greeting.end());
  wanted.insert(wanted.end(), {kPlaybackState, kTransmitState});
  ConnectPhone();
  EXPECT_EQ(OpcodesOf(MessagesUpTo(kTransmitState)), wanted);
  EXPECT_EQ(CountInPluginLog(nudge), 1U) << "once for both";
}

// Everything that the first phone was told, and a picture of its own.
TEST_F(PhoneSession, ASecondPhoneIsToldEverythingAnew) {
  StartSession();
  Command(kSetMaxResolution, {0x68, 0x01});  // nothing is replayed then
  Push(1280, 720);
  const int requests = IdrRequests();
  instance->UpdateAudioPushState(true, false);
  clock.Advance(kNanosPerSecond);

  ConnectPhone();
  const std::vector<std::byte> list = EncodeEngineList(engines);
  EXPECT_EQ(
      MessagesUpTo(kTransmitState),
      (Messages{{kHostPlatform, "\x01\x02"},
                {kAudioState, "\x01"},
                {kEncoderEngineList, {reinterpret_cast<const char*>(list.data()), list.size()}},
                {kEncoderInfo, "\x11recording encoder"},
                {kPlaybackState, "\x01"},
                {kTransmitState, "\x01"}}));
  EXPECT_EQ(IdrRequests(), requests + 1);
  // The source is committed at once, since its size has long settled.
  Push(1280, 720);
  EXPECT_EQ(OpcodesOf(TakeTold()), (std::vector<int>{kSourceChanged, kStreamInfo}));
}

// Of the old phone's frames nothing, of this phone's everything: each instance's own replay.
TEST_F(PhoneSession, ANewPhoneGetsTheReplayOfEveryInstanceAndNoFrameOfTheOldPhones) {
  TransmitInstance second(FakeHost::Suites(), Services());
  second.Start();
  StartSession();
  HostFrame frame;
  const Host::FrameEntry entry{reinterpret_cast<Host::FrameHandle>(&frame)};
  const Host::FrameList list{1, &entry};
  HoldMedia();
  instance->PushVideo(&list);
  second.PushVideo(&list);
  clock.Advance(5 * kNanosPerSecond);
  PairPhone();
  const std::vector<DatagramHeader> sent = ReleaseMedia();
  ASSERT_EQ(sent.size(), 4U) << "two frames of one datagram and its parity";
  for (const DatagramHeader& datagram : sent) {
    EXPECT_GE(datagram.frameNumber, 2);
    EXPECT_GE(datagram.timestamp, 5'000'000U);
  }
}

TEST_F(PhoneSession, AKeyFrameIsMadeWhenThePhoneAsksAndWhenDatagramsKeepFailing) {
  StartSession();
  int requests = IdrRequests();
  phone.SendCommand(kRequestIdr);
  EXPECT_TRUE(Eventually([&] { return IdrRequests() == requests + 1; }));
  const std::vector<std::byte> tooLong(70'000);  // no system takes a datagram of this length
  const std::vector<std::span<const std::byte>> seven(7, tooLong);
  EXPECT_EQ(shared.SendDatagrams(seven, kVideoPort).count, 0U);
  EXPECT_EQ(IdrRequests(), requests + 2);
}

// What didn't reach a phone is told again.
TEST_F(PhoneSession, AnAnnouncementThatDidNotGoOutIsNotTakenForTold) {
  StartSession();
  PipelineSeat seat({}, clock);
  seat.Seat(std::make_unique<RecordingEncoder>(encoder));
  StreamAnnouncer announcer(shared, seat);
  seat.Current()->Configure(1280, 720, 1, 30);
  const auto announce = [&] {
    for (int i = 0; i < 2; ++i) {
      announcer.ObserveSource({1280, 720, 30}, clock.NowNanos());
      clock.Advance(kNanosPerSecond);
    }
    announcer.SendEncoderInfoIfChanged();
    return shared.PeerKnown() ? OpcodesOf(TakeTold()) : std::vector<int>();
  };
  const auto leave = [this] {
    phone.Close();
    ASSERT_TRUE(Eventually([&] { return !shared.PeerKnown(); }));
  };
  leave();
  announce();
  PairPhone();
  EXPECT_EQ(announce(), (std::vector<int>{kSourceChanged, kStreamInfo, kEncoderInfo}));
  EXPECT_EQ(announce(), std::vector<int>()) << "known";

  leave();
  announcer.PromoteSource({640, 480, 30});  // committed all the same
  PairPhone();
  announcer.SendStreamInfoIfReady();
  EXPECT_EQ(OpcodesOf(TakeTold()), std::vector<int>{kStreamInfo});
}

TEST_F(PhoneSession, TheSetupWindowNeverSeesTheMarkForAnEmptyDescription) {
  StartSession();
  EXPECT_TRUE(shared.GetEncoderStatus().valid) << "told behind the greeting";
  Command(kSetGopMode, {3});
  EXPECT_EQ(shared.GetEncoderStatus().description, "");
  Push(1280, 720);
  EXPECT_EQ(shared.GetEncoderStatus().description, "recording encoder");
}

TEST_F(PhoneSession, APausedHostsLastFrameIsShownToTheNextPhone) {
  StartSession();
  Push(1280, 720);
  const size_t frames = encoder->FrameCount();
  PairPhone();
  EXPECT_EQ(encoder->FrameCount(), frames + 1);
  // With a cap the encoder is smaller than the cached source.
  Command(kSetMaxResolution, {0x68, 0x01});
  Push(1280, 720);
  PairPhone();
  EXPECT_EQ(encoder->FrameCount(), frames + 2);
  EXPECT_GE(CountInPluginLog("dim mismatch cache=1280x720 enc=640x360 — skip"), 1U);
}

TEST_F(PhoneSession, CommandsAreAcknowledgedAlsoWhenShortOrRetired) {
  StartSession();
  for (const CommandRow& row : Commands()) Command(row.opcode, {});
  EXPECT_EQ(TakeAcknowledged(), (std::vector<int>{0x02, 0x04, 0x05, 0x07, 0x08, 0x0B, 0x13}));
  const char* const retired[] = {"0x02 (SetBitrate)",
                                 "0x0A (SetAutoMode)",
                                 "0x0B (SetHardFrameCap)",
                                 "0x0C (SetCongestionController)",
                                 "0x10 (SetPlaybackPrefer)",
                                 "0x11",
                                 "0x12",
                                 "0x14",
                                 "0x15",
                                 "0x19"};
  for (const char* name : retired) {
    const std::string line = std::string("control: retired opcode ") + name + " — ignored";
    EXPECT_EQ(CountInPluginLog(line), 1U) << line;
  }
  EXPECT_EQ(CountInPluginLog("control: retired opcode"), std::size(retired));
  EXPECT_EQ(RememberedGop(), -1) << "too short to say one";
}

TEST_F(PhoneSession, SettingsAreRememberedWithinTheirBounds) {
  StartSession();
  Command(kSetCodec, {1});
  Command(kSetEncoderMode, {1, 250});
  const ClientSettings settings = shared.GetClientSettings();
  EXPECT_EQ(settings.codec, 1);
  EXPECT_EQ(settings.encoderMode, 1);
  EXPECT_EQ(settings.quality, 100);
  EXPECT_EQ(CountInPluginLog("control: SetEncoderMode Quality q=100%"), 1U);
}

TEST_F(PhoneSession, GopModesBecomeSizes) {
  StartSession();
  const std::pair<int, int> rows[] = {{0, 1}, {1, 5}, {3, 600}, {2, 600}, {9, 1}};
  for (const auto& [mode, size] : rows) {
    Command(kSetGopMode, {mode});
    EXPECT_EQ(RememberedGop(), mode);
    EXPECT_EQ(encoder->With([](auto& record) { return record.settings.gopSize; }), size) << mode;
  }
  EXPECT_EQ(CountInPluginLog("control: SetGopMode AUTO is retired — keeping current=600"), 1U);
  EXPECT_EQ(shared.GetEncoderStatus().gopClass, GopClass::AllIntra);
}

TEST_F(PhoneSession, ASnapshotAppliesItsSettingsAndTheEngineLast) {
  StartSession();
  Command(kAppSettingsSnapshot, {0xD0, 0x02, 1, 3, 2, 3, 'a', 'b', 'c'});
  encoder->With([](EncoderRecord::Data& record) {
    EXPECT_EQ(record.settings.codec, kCodecH264);
    EXPECT_EQ(record.settings.gopSize, 600);
    EXPECT_EQ(record.settings.rateControl, kRateControlVbr);
    EXPECT_FLOAT_EQ(record.settings.quality, 0.70F);
  });
  EXPECT_EQ(CountInPluginLog("engine seed 'auto' → 'abc'"), 1U);
  // An engine that the message doesn't hold is left out, without an error.
  Command(kAppSettingsSnapshot, {0, 0, 0, 0, 0, 9, 'x', 'y', 'z'});
  EXPECT_EQ(CountInPluginLog("SetEncoderEngine malformed"), 0U);
  EXPECT_EQ(shared.GetClientSettings().shortSideCap, 0);
  Command(kAppSettingsSnapshot, {0, 0, 0});
  EXPECT_EQ(CountInPluginLog("control: AppSettingsSnapshot too short (3)"), 1U);
}

TEST_F(PhoneSession, AnEngineSwitchReplacesThePipelineAndAnnouncesAnew) {
  StartSession();
  Push(1280, 720);
  Command(kSetEncoderEngine, {4, 'f', 'a', 's', 't'});
  Push(1280, 720);
  EXPECT_EQ(switchedEncoder->ConfigureCount(), 1U);
  EXPECT_EQ(switchedEncoder->FrameCount(), 1U);
  Command(kSetEncoderEngine, {4, 'f', 'a', 's', 't'});
  EXPECT_EQ(CountInPluginLog("engine switch: same id 'fast' — no-op"), 1U);
  // An engine that can't be had falls back, and keeps its name.
  Command(kSetEncoderEngine, {7, 'u', 'n', 'k', 'n', 'o', 'w', 'n'});
  std::optional<TestPhone::Message> info;
  do info = phone.NextOf(kEncoderInfo);
  while (info && info->payload.find("Switching encoder...") == std::string::npos);
  EXPECT_TRUE(info);
  EXPECT_EQ(CountInPluginLog("CreateForEngine('unknown') failed — falling back to default"), 1U);
  Push(1280, 720);
  EXPECT_EQ(encoder->ConfigureCount(), 2U);
  Command(kSetEncoderEngine, {9, 'x'});
  EXPECT_EQ(CountInPluginLog("SetEncoderEngine malformed (idLen=9 payloadLen=2)"), 1U);
}

TEST_F(PhoneSession, AMarkerOfATestClientIsLoggedOrRunsATest) {
  StartSession();
  const auto mark = [this](std::string text, int length) {
    std::vector<int> payload{length};
    payload.insert(payload.end(), text.begin(), text.end());
    Command(kTestMarker, payload);
  };
  mark("here it begins", 14);
  mark("SELFTEST", 200);  // counts more than there is
  mark("SELFTEST P3  \r\n", 15);
  mark("SELFTEST P2.1", 13);
  mark("SELFTEST P1.1", 13);
  mark("SELFTEST P9", 11);
  for (const char* line : {"[TEST] here it begins", "[TEST] SELFTEST\r\n",
                           "[FIXTEST P3] PASS — concurrent dedup+frame", "tornCopies=0 (want 0)",
                           "[FIXTEST P2.1] PASS — pre-auth whitelist", "[FIXTEST P1.1] PASS",
                           "[FIXTEST P9] FAIL — unknown self-test id 'P9'"}) {
    EXPECT_EQ(CountInPluginLog(line), 1U) << line;
  }
}

TEST_F(PhoneSession, WithoutAPhoneNothingIsReplayedIntoAnInstance) {
  StartSession();
  Command(kSetGopMode, {3});
  phone.Close();
  ASSERT_TRUE(Eventually([&] { return !shared.PeerKnown(); }));
  const auto second = std::make_shared<EncoderRecord>();
  SessionServices services = Services();
  services.createDefaultEncoder = [&] { return std::make_unique<RecordingEncoder>(second); };
  const TransmitInstance other(FakeHost::Suites(), std::move(services));
  second->With([](EncoderRecord::Data& record) { EXPECT_EQ(record.settings.gopSize, 1); });
}

TEST_F(PhoneSession, ASecondInstanceGetsTheRememberedSettings) {
  StartSession();
  Command(kSetCodec, {1});
  Command(kSetMaxResolution, {0xD0, 0x02});
  Command(kSetGopMode, {1});
  Command(kSetEncoderMode, {2, 50});  // VBR is not replayed
  TakeTold();
  const auto second = std::make_shared<EncoderRecord>();
  SessionServices services = Services();
  services.createDefaultEncoder = [&] { return std::make_unique<RecordingEncoder>(second); };
  TransmitInstance other(FakeHost::Suites(), std::move(services));
  EXPECT_EQ(TakeAcknowledged(), (std::vector<int>{0x05, 0x07, 0x04}));
  second->With([](EncoderRecord::Data& record) {
    EXPECT_EQ(record.settings.codec, kCodecH264);
    EXPECT_EQ(record.settings.gopSize, 5);
    EXPECT_EQ(record.settings.rateControl, kRateControlBitrate);
  });
}

TEST_F(PhoneSession, RunningClocksBecomeOnePlaybackState) {
  const std::string line = "playback state -> 1 (running clocks=1)";
  const size_t before = CountInPluginLog(line);
  StartSession();
  shared.AdjustRunningClocks(-1);
  shared.AdjustRunningClocks(+1);
  shared.AdjustRunningClocks(+1);
  shared.AdjustRunningClocks(-1);
  shared.AdjustRunningClocks(-1);
  EXPECT_EQ(phone.NextOf(kPlaybackState)->payload[0], 1);
  EXPECT_EQ(phone.NextOf(kPlaybackState)->payload[0], 0);
  EXPECT_EQ(CountInPluginLog(line), before + 1);
}

TEST_F(PhoneSession, PushedSoundArrivesAsBlocksOnTheInstancesTimeline) {
  MediaReceiverOptions options;
  options.bindAddress = *ParseAddress("127.0.0.1");
  MediaReceiver receiver(options);
  std::string error;
  ASSERT_EQ(receiver.Open(error), MediaReceiver::OpenResult::Opened) << error;
  std::atomic<bool> arrived{false};
  WholeFrame block;
  receiver.Start([&](WholeFrame&& frame) {
    if (frame.stream != StreamType::Audio || arrived) return;
    block = std::move(frame);
    arrived = true;
  });
  StartSession();
  instance->SetAudioFormat(44'100, 2);
  clock.Advance(5'000 * kNanosPerMicro);
  const float left[] = {0.5F, -0.5F};
  const float* const channels[] = {left, nullptr};
  const Host::AudioBlock pushed{channels, 2, 2};
  instance->PushAudio(&pushed);
  const bool came = Eventually([&] { return arrived.load(); });
  receiver.Stop();
  ASSERT_TRUE(came);
  const float wanted[] = {0.5F, 0, -0.5F, 0};
  ASSERT_EQ(block.data.size(), kAudioHeadBytes + sizeof wanted);
  EXPECT_EQ(ParseAudioHead(block.data)->sampleRate, 44'100U);
  EXPECT_EQ(std::memcmp(block.data.data() + kAudioHeadBytes, wanted, sizeof wanted), 0);
  EXPECT_GE(block.timestamp, 5'000U);
}

}  // namespace
}  // namespace Veldrift
