// A transmit instance between a host of ours and a phone on loopback, on a clock that only the test
// moves, and the pacer where it has to wait.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "net/control_protocol.h"
#include "net/media_datagram.h"
#include "session/transmit_instance.h"
#include "tests/session/recording_encoder.h"
#include "tests/support/eventually.h"
#include "tests/support/manual_clock.h"
#include "tests/support/scratch.h"
#include "tests/support/test_phone.h"

namespace Veldrift {

// A frame of the host, and the suites that open it. Not thread-safe: one test pushes.
struct HostFrame {
  int32_t width = 1280, height = 720;
  uint32_t format = Host::kPixelFormatBgra;
  bool hasPixels = true;
  int32_t rowBytes = -1;  // -1: tight

  static inline std::vector<char> pixels;
  static inline int disposed = 0;

  int32_t Stride() const { return rowBytes >= 0 ? rowBytes : width * 4; }
};

class FakeHost {
 public:
  static const Host::SuiteAccess* Suites() { return &kAccess; }
  static inline int acquired = 0, released = 0;
  static inline const Host::AudioSuite* audio = nullptr;  // offered if not null
  static inline int64_t ticksPerSecond = 254'016'000'000;

 private:
  static HostFrame& Open(Host::FrameHandle handle) { return *reinterpret_cast<HostFrame*>(handle); }
  static Host::Error Dispose(Host::FrameHandle) {
    ++HostFrame::disposed;
    return Host::kNoError;
  }
  static Host::Error GetPixels(Host::FrameHandle handle, int32_t, char** pixels) {
    const HostFrame& frame = Open(handle);
    HostFrame::pixels.resize(
        std::max(HostFrame::pixels.size(), size_t(frame.width) * size_t(frame.height) * 4));
    if (frame.hasPixels) *pixels = HostFrame::pixels.data();
    return Host::kNoError;
  }
  static Host::Error GetBounds(Host::FrameHandle handle, Host::Rect* bounds) {
    *bounds = {10, 20, 10 + Open(handle).width, 20 + Open(handle).height};
    return Host::kNoError;
  }
  static Host::Error GetRowBytes(Host::FrameHandle handle, int32_t* rowBytes) {
    *rowBytes = Open(handle).Stride();
    return Host::kNoError;
  }
  static Host::Error GetPixelFormat(Host::FrameHandle handle, uint32_t* format) {
    *format = Open(handle).format;
    return Host::kNoError;
  }
  static Host::Error GetTicksPerSecond(int64_t* ticks) {
    *ticks = ticksPerSecond;
    return Host::kNoError;
  }
  static Host::Error Acquire(const char* name, int32_t version, const void** suite) {
    const std::string wanted = name;
    if (wanted == Host::kPpixSuiteName && version == Host::kPpixSuiteVersion)
      *suite = &kPpix;
    else if (wanted == Host::kTimeSuiteName)
      *suite = &kTime;
    else if (wanted == Host::kAudioSuiteName && audio != nullptr)
      *suite = audio;
    else
      return -1;
    ++acquired;
    return Host::kNoError;
  }
  static Host::Error ReleaseSuite(const char*, int32_t) {
    ++released;
    return Host::kNoError;
  }

  static constexpr Host::PpixSuite kPpix{Dispose, GetPixels, GetBounds, GetRowBytes,
                                         GetPixelFormat};
  static constexpr Host::TimeSuite kTime{GetTicksPerSecond};
  static constexpr Host::SuiteAccess kAccess{Acquire, ReleaseSuite};
};

class SessionFixture : public testing::Test {
 protected:
  static constexpr uint32_t kEndMark = 0xE4D0E4D0;

  SessionFixture() { shared.SetPairingDialogFactory(ShowTo(shown)); }

  SessionServices Services() {
    SessionServices services{shared};
    services.createDefaultEncoder = [this] { return std::make_unique<RecordingEncoder>(encoder); };
    services.createForEngine = [this](const std::string& id) -> std::unique_ptr<IHardwareEncoder> {
      if (id == "unknown") return nullptr;
      return std::make_unique<RecordingEncoder>(switchedEncoder);
    };
    services.enumerateEngines = [this] { return engines; };
    return services;
  }

  // Starts the instance, and a phone that has paired.
  void StartSession() {
    instance = std::make_unique<TransmitInstance>(FakeHost::Suites(), Services());
    instance->Start();
    PairPhone();
  }

  // Up to the acceptance: the greeting is still to be read.
  void ConnectPhone() {
    ASSERT_TRUE(Eventually([&] { return shared.ListeningPort() != 0; }));
    phone = TestPhone::Connect(shared.ListeningPort());
    ASSERT_TRUE(phone.Connected());
    ASSERT_FALSE(PairByCode(phone, *shown).empty());
  }

  void PairPhone() {
    ConnectPhone();
    // Behind the whole greeting.
    ASSERT_TRUE(phone.NextOf(kTransmitState));
  }

  void Push(HostFrame frame) {
    const Host::FrameEntry entry{reinterpret_cast<Host::FrameHandle>(&frame)};
    const Host::FrameList list{1, &entry};
    instance->PushVideo(&list);
  }
  void Push(int32_t width, int32_t height) { Push(HostFrame{width, height}); }

  void Command(uint8_t opcode, const std::vector<int>& bytes) {
    std::vector<std::byte> payload;
    for (const int byte : bytes) payload.push_back(std::byte(byte));
    instance->HandleControlCommand(opcode, payload);
  }

  // From here on queued datagrams stay in the pacer, until ReleaseMedia hands them out, parsed.
  void HoldMedia() { shared.GetPacer().Stop(); }
  std::vector<DatagramHeader> ReleaseMedia() {
    Pacer& pacer = shared.GetPacer();
    std::vector<DatagramHeader> headers;
    Mutex mutex;
    const auto take = [&](Datagrams datagrams) {
      MutexLock lock(mutex);
      for (const std::span<const std::byte> bytes : datagrams) {
        if (const auto datagram = ParseDatagram(bytes)) headers.push_back(datagram->header);
      }
      return DatagramsTaken{datagrams.size(), 0};
    };
    // A frame of the test's own marks the end.
    const std::byte last{0xE7};
    shared.Sender().SendSound({&last, 1}, kEndMark);
    pacer.Start(take, take);
    EXPECT_TRUE(Eventually([&] {
      MutexLock lock(mutex);
      return !headers.empty() && headers.back().timestamp == kEndMark;
    }));
    pacer.Stop();
    headers.pop_back();
    return headers;
  }

  // Opcodes and payloads that the phone has got, up to and including `last`.
  using Messages = std::vector<std::pair<int, std::string>>;
  Messages MessagesUpTo(uint8_t last) {
    Messages messages;
    while (const auto message = phone.Next()) {
      messages.emplace_back(message->opcode, message->payload);
      if (message->opcode == last) break;
    }
    return messages;
  }
  // All that it has been told until now and hasn't read yet.
  Messages TakeTold() {
    // Nobody else says this to a phone that has paired.
    shared.SendControl(kPairChallenge, {});
    Messages messages = MessagesUpTo(kPairChallenge);
    if (!messages.empty()) messages.pop_back();
    return messages;
  }
  // What it has been told in messages of a byte, as digits.
  std::string ToldBytes(uint8_t opcode) {
    std::string digits;
    for (const auto& [told, payload] : TakeTold()) {
      if (told == opcode) digits += char('0' + payload[0]);
    }
    return digits;
  }
  static std::vector<int> OpcodesOf(const Messages& messages) {
    std::vector<int> opcodes;
    for (const auto& [opcode, payload] : messages) opcodes.push_back(opcode);
    return opcodes;
  }

  const ScratchHome home;  // each test's own log
  SocketLayer layer;
  ManualClock clock{100 * kNanosPerSecond};
  std::shared_ptr<EncoderRecord> encoder = std::make_shared<EncoderRecord>();
  std::shared_ptr<EncoderRecord> switchedEncoder = std::make_shared<EncoderRecord>();
  std::vector<EngineEntry> engines{{"software", "Software (CPU)", "note"}};
  std::shared_ptr<ShownCode> shown = std::make_shared<ShownCode>();
  SharedTransport shared{clock, 0};
  std::unique_ptr<TransmitInstance> instance;
  TestPhone phone{nullptr};
};

}  // namespace Veldrift
