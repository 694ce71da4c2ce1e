// Ten seconds of real H.264 through the session, the pacer and a socket, with 5 per cent loss
// behind it: every frame that the code can repair comes out whole, and no other.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <thread>
#include <vector>

#include "encoder/engine_catalogue.h"
#include "net/control_protocol.h"
#include "net/media_datagram.h"
#include "session/transmit_instance.h"
#include "tests/support/transport_probe.h"
#include "tools/pattern/pattern.h"
#include "tools/receiver/frame_assembler.h"
#include "tools/receiver/loss_simulator.h"

namespace Veldrift {
namespace {

constexpr int kFrames = 300;
constexpr int kWidth = 640, kHeight = 360;
constexpr const char* kReceiver = "127.0.4.1";

// What a lossy network let through of each frame.
struct Passed {
  size_t fragments = 0;
  size_t needed = 0;
};

// A receiver in the open: socket, loss, a note of what passed, reassembly.
class LossyReceiver {
 public:
  LossyReceiver()
      : socket_(OpenDatagramReceiver({*ParseAddress(kReceiver), kVideoPort}, 1 << 22)),
        assembler_(StreamType::Video, {}, [this](WholeFrame&& frame) { Keep(frame); }),
        loss_({5, 1, 20'261}, [this](std::span<const std::byte> bytes) { Note(bytes); }) {}

  bool Open() const { return socket_ != nullptr; }
  void Start() {
    thread_ = std::thread([this] { Run(); });
  }
  void Stop() {
    stopping_ = true;
    thread_.join();
    loss_.Flush();
    assembler_.Flush();
  }

  uint64_t Received() const { return received_; }
  const std::map<uint16_t, Passed>& PassedFrames() const { return passed_; }
  const std::set<uint16_t>& WholeFrames() const { return whole_; }
  size_t Repaired() const { return repaired_; }
  bool EveryFrameIsAnnexB() const { return annexB_; }

 private:
  void Run() {
    std::vector<std::byte> buffer(kMaxDatagramBytes);
    while (!stopping_) {
      const std::ptrdiff_t length = socket_->Receive(buffer, 50 * kNanosPerMilli);
      if (length < 0) continue;
      ++received_;
      loss_.Push({buffer.data(), size_t(length)});
    }
  }
  void Note(std::span<const std::byte> bytes) {
    const auto datagram = ParseDatagram(bytes);
    ASSERT_TRUE(datagram);
    Passed& frame = passed_[datagram->header.frameNumber];
    ++frame.fragments;
    frame.needed = datagram->header.fragmentCount - datagram->header.ParityCount();
    assembler_.Add(bytes, SteadyNanos());
  }
  void Keep(const WholeFrame& frame) {
    whole_.insert(frame.frameNumber);
    if (frame.repairedFragments > 0) ++repaired_;
    annexB_ = annexB_ && frame.data.size() > 4 && frame.data[0] == std::byte{0} &&
              frame.data[1] == std::byte{0};
  }

  std::unique_ptr<DatagramSocket> socket_;
  FrameAssembler assembler_;
  LossSimulator loss_;
  std::thread thread_;
  std::atomic<bool> stopping_{false};
  std::atomic<uint64_t> received_{0};
  std::map<uint16_t, Passed> passed_;
  std::set<uint16_t> whole_;
  size_t repaired_ = 0;
  bool annexB_ = true;
};

// One frame of the host at a time, painted into the same memory.
struct Picture {
  static inline std::vector<uint8_t> pixels = std::vector<uint8_t>(kWidth * kHeight * 4);
};

const Host::PpixSuite kPpix{[](Host::FrameHandle) { return Host::kNoError; },
                            [](Host::FrameHandle, int32_t, char** pixels) {
                              *pixels = reinterpret_cast<char*>(Picture::pixels.data());
                              return Host::kNoError;
                            },
                            [](Host::FrameHandle, Host::Rect* bounds) {
                              *bounds = {0, 0, kWidth, kHeight};
                              return Host::kNoError;
                            },
                            [](Host::FrameHandle, int32_t* rowBytes) {
                              *rowBytes = kWidth * 4;
                              return Host::kNoError;
                            },
                            [](Host::FrameHandle, uint32_t* format) {
                              *format = Host::kPixelFormatBgra;
                              return Host::kNoError;
                            }};

const Host::SuiteAccess kSuites{[](const char* name, int32_t, const void** suite) {
                                  if (std::string(name) != Host::kPpixSuiteName)
                                    return Host::Error{-1};
                                  *suite = &kPpix;
                                  return Host::kNoError;
                                },
                                [](const char*, int32_t) { return Host::kNoError; }};

TEST(LossyStream, EveryFrameThatTheCodeCanRepairIsRepaired) {
  SocketLayer layer;
  LossyReceiver receiver;
  ASSERT_TRUE(receiver.Open()) << ErrorText();
  receiver.Start();

  SharedTransport shared;
  TransportProbe::ChoosePort(shared, 0);
  TransmitInstance instance(&kSuites, SessionServices{shared});
  instance.Start();
  const std::byte h264{1}, longGop{3};
  instance.HandleControlCommand(kSetCodec, {&h264, 1});
  instance.HandleControlCommand(kSetGopMode, {&longGop, 1});
  TransportProbe::AssumePeer(shared, *ParseAddress(kReceiver));

  int anything = 0;
  const Host::FrameEntry entry{reinterpret_cast<Host::FrameHandle>(&anything)};
  const Host::FrameList list{1, &entry};
  for (uint32_t i = 0; i < kFrames; ++i) {
    PaintPattern(Picture::pixels.data(), kWidth, kHeight, kWidth * 4, {i, i});
    instance.PushVideo(&list);
    // As fast as it goes, but never faster than the pacer: its queue would drop whole frames.
    const uint64_t sent = shared.video.sequence;
    const int64_t end = SteadyNanos() + 20 * kNanosPerSecond;
    while (receiver.Received() < sent && SteadyNanos() < end) std::this_thread::yield();
  }
  EXPECT_EQ(receiver.Received(), shared.video.sequence);
  shared.Shutdown();
  receiver.Stop();

  size_t repairable = 0;
  for (const auto& [number, passed] : receiver.PassedFrames()) {
    const bool enough = passed.fragments >= passed.needed;
    repairable += enough ? 1 : 0;
    EXPECT_EQ(receiver.WholeFrames().count(number), enough ? 1U : 0U) << number;
  }
  EXPECT_EQ(receiver.WholeFrames().size(), repairable);
  // The loss was real, and mostly mended.
  EXPECT_GT(receiver.Repaired(), size_t{kFrames} / 5);
  EXPECT_GT(repairable, size_t{kFrames} / 2);
  EXPECT_LT(repairable, size_t{kFrames} + 1);
  EXPECT_TRUE(receiver.EveryFrameIsAnnexB());
}

}  // namespace
}  // namespace Veldrift
