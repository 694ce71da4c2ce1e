// Another engine under running frames, with encoders that answer late, from threads of their own.
#include <gtest/gtest.h>

#include <thread>
#include <utility>
#include <vector>

#include "tests/session/session_fixture.h"
#include "tests/support/gate.h"
#include "tests/support/late_encoder.h"
#include "tools/receiver/media_receiver.h"

namespace Veldrift {
namespace {

class EngineSwitchTest : public SessionFixture {
 protected:
  void SetUp() override {
    MediaReceiverOptions options;
    options.bindAddress = *ParseAddress("127.0.0.1");
    receiver = std::make_unique<MediaReceiver>(options);
    std::string error;
    ASSERT_EQ(receiver->Open(error), MediaReceiver::OpenResult::Opened) << error;
    receiver->Start([this](WholeFrame&& frame) {
      MutexLock lock(mutex);
      timestamps.push_back(frame.timestamp);
    });
    SessionServices services = Services();
    services.createDefaultEncoder = [this] {
      return std::make_unique<LateEncoder>([this] { gate.Pass(); });
    };
    services.createForEngine = [](const std::string&) { return std::make_unique<LateEncoder>(); };
    instance = std::make_unique<TransmitInstance>(FakeHost::Suites(), std::move(services));
    instance->Start();
    PairPhone();
  }
  void TearDown() override {
    instance.reset();
    receiver->Stop();
  }

  void PushNext() {
    clock.Advance(kNanosPerMilli);
    Push(64, 64);
  }
  std::vector<uint32_t> Received() {
    MutexLock lock(mutex);
    return timestamps;
  }
  void AwaitReceived(size_t count) {
    ASSERT_TRUE(Eventually([&] { return Received().size() >= count; }));
  }

  Gate gate;
  std::unique_ptr<MediaReceiver> receiver;
  Mutex mutex;
  std::vector<uint32_t> timestamps VD_GUARDED_BY(mutex);
};

TEST_F(EngineSwitchTest, ALateFrameOfTheReplacedEngineIsNotSent) {
  PushNext();
  AwaitReceived(1);
  gate.Shut();
  PushNext();
  gate.AwaitSomebody();
  std::thread control([this] { Command(kSetEncoderEngine, {3, 'n', 'e', 'w'}); });
  EXPECT_TRUE(Eventually([] { return CountInPluginLog("rebuilding to honor saved choice") != 0; }));
  // Until the new engine has taken over, frames still go to the old one, behind the gate.
  EXPECT_TRUE(Eventually([&] {
    PushNext();
    return Received().size() >= 2;
  }));
  gate.Open();
  control.join();
  PushNext();
  const auto last = uint32_t(clock.NowNanos() / kNanosPerMicro - 100'000'000);
  EXPECT_TRUE(Eventually([&] { return Received().back() == last; }));
  const std::vector<uint32_t> all = Received();
  EXPECT_TRUE(std::is_sorted(all.begin(), all.end())) << testing::PrintToString(all);
}

TEST_F(EngineSwitchTest, TwoHundredTimesUnderRunningFramesKeepsTheOrder) {
  constexpr size_t kSwitches = 200;
  std::atomic<bool> playing{true};
  std::thread host([&] {
    while (playing) {
      PushNext();
      SystemClock().SleepFor(kNanosPerMilli);
    }
  });
  for (size_t i = 0; i < kSwitches && !HasFatalFailure(); ++i) {
    phone.SendCommand(kSetEncoderEngine, i % 2 == 0 ? std::string("\3one") : std::string("\3two"));
    EXPECT_TRUE(phone.NextOf(kCommandAck)) << i;
    // Each engine is heard before the next one comes.
    AwaitReceived(Received().size() + 1);
  }
  playing = false;
  host.join();
  const std::vector<uint32_t> all = Received();
  EXPECT_GE(all.size(), kSwitches);
  EXPECT_TRUE(std::is_sorted(all.begin(), all.end()));
}

}  // namespace
}  // namespace Veldrift
