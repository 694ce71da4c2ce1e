// Another engine under running frames, with encoders that answer late, from threads of their own.
#include <gtest/gtest.h>

#include <deque>
#include <thread>
#include <utility>
#include <vector>

#include "tests/session/session_fixture.h"
#include "tools/receiver/media_receiver.h"

namespace Veldrift {
namespace {

// Holds frames back while it is shut.
class Gate {
 public:
  void Shut() { Set(true); }
  void Open() { Set(false); }
  void Pass() {
    MutexLock lock(mutex_);
    ++waiting_;
    changed_.NotifyAll();
    while (shut_) changed_.Wait(lock);
    --waiting_;
  }
  void AwaitSomebody() {
    MutexLock lock(mutex_);
    while (waiting_ == 0) changed_.Wait(lock);
  }

 private:
  void Set(bool shut) {
    MutexLock lock(mutex_);
    shut_ = shut;
    changed_.NotifyAll();
  }
  Mutex mutex_;
  CondVar changed_;
  bool shut_ VD_GUARDED_BY(mutex_) = false;
  int waiting_ VD_GUARDED_BY(mutex_) = 0;
};

// Gives a few bytes for each frame, on its own thread; Shutdown waits for what is under way.
class LateEncoder final : public EncoderDouble {
 public:
  explicit LateEncoder(Gate* gate) : gate_(gate), thread_([this] { Run(); }) {}
  ~LateEncoder() override { Shutdown(); }

  void Shutdown() override {
    {
      MutexLock lock(mutex_);
      ended_ = true;
      changed_.NotifyAll();
    }
    if (thread_.joinable()) thread_.join();
    EncoderDouble::Shutdown();
  }
  void EncodeFrame(const uint8_t*, uint32_t, uint32_t, int32_t, int64_t timestamp) override {
    MutexLock lock(mutex_);
    frames_.push_back(timestamp);
    changed_.NotifyAll();
  }

 private:
  void Run() {
    while (const std::optional<int64_t> timestamp = Next()) {
      if (gate_ != nullptr) gate_->Pass();
      const std::vector<uint8_t> output(100, 0x42);
      Emit(output.data(), output.size(), uint64_t(*timestamp));
    }
  }
  std::optional<int64_t> Next() {
    MutexLock lock(mutex_);
    while (frames_.empty() && !ended_) changed_.Wait(lock);
    if (frames_.empty()) return std::nullopt;
    const int64_t timestamp = frames_.front();
    frames_.pop_front();
    return timestamp;
  }

  Gate* const gate_;
  Mutex mutex_;
  CondVar changed_;
  std::deque<int64_t> frames_ VD_GUARDED_BY(mutex_);
  bool ended_ VD_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

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
    services.createDefaultEncoder = [this] { return std::make_unique<LateEncoder>(&gate); };
    services.createForEngine = [](const std::string&) {
      return std::make_unique<LateEncoder>(nullptr);
    };
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
    while (Received().size() < count) std::this_thread::yield();
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
  while (CountInPluginLog("rebuilding to honor saved choice") == 0) std::this_thread::yield();
  // Until the new engine has taken over, frames still go to the old one, behind the gate.
  while (Received().size() < 2) PushNext();
  gate.Open();
  control.join();
  PushNext();
  const auto last = uint32_t(clock.NowNanos() / kNanosPerMicro - 100'000'000);
  while (Received().back() != last) std::this_thread::yield();
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
  for (size_t i = 0; i < kSwitches; ++i) {
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
