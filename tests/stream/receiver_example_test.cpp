// examples/receiver.py, as it stands, against the module; and against losses that are counted.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "net/framing.h"
#include "platform/file.h"
#include "tests/judge/video_file.h"
#include "tests/stream/stage.h"
#include "tests/support/test_phone.h"
#include "tools/platform/client_sockets.h"
#include "tools/receiver/pairing_log.h"

namespace Veldrift {
namespace {

constexpr const char* kPython = "/usr/bin/python3";
constexpr size_t kBlockSamples = 1'024;  // of the host's blocks
constexpr const char* kScript = VD_SOURCE_DIR "/examples/receiver.py";

Arguments Together(Arguments first, const Arguments& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

std::string LastComplaint(const StandIn& program) {
  const std::vector<std::string> lines = program.Complaints();
  return lines.empty() ? std::string() : lines.back();
}

// The samples of one channel of a WAV file of floats, whose header must be right.
std::vector<float> ReadWav(const std::filesystem::path& path, int channel) {
  const std::string file = ReadWholeFile(path).value_or("");
  constexpr size_t kHead = 44;
  if (file.size() < kHead) return {};
  const auto* bytes = reinterpret_cast<const std::byte*>(file.data());
  EXPECT_EQ(GetU32(bytes + 4), file.size() - 8);
  EXPECT_EQ(GetU32(bytes + 40), file.size() - kHead);
  std::vector<float> samples;
  for (size_t at = kHead + size_t(channel) * 4; at + 4 <= file.size(); at += 8) {
    std::memcpy(&samples.emplace_back(), file.data() + at, 4);
  }
  return samples;
}

double Hertz(const std::vector<float>& samples) {
  size_t rises = 0;
  for (size_t i = 1; i < samples.size(); ++i) rises += samples[i - 1] < 0 && samples[i] >= 0;
  return double(rises) * 48'000 / double(samples.size());
}

// ---- Against the module ------------------------------------------------------------------------

// One host for all, at which a receiver has paired by typing.
class ReceiverExample : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    stage_ = new Stage;
    address_ = new std::string(stage_->NewAddress());
    stage_->StartHost();
  }
  static void TearDownTestSuite() {
    delete stage_;
    delete address_;
  }

  static Arguments Usual(const Arguments& more) {
    return Together({kScript, "127.0.0.1:" + std::to_string(stage_->ControlPort()), "--bind",
                     *address_, "--token-file", PathText(stage_->File("token"))},
                    more);
  }
  static StandIn Start(const Arguments& more) {
    return {kPython, Usual(more), stage_->NewStem("receiver")};
  }

  // Starts it, and types the digits of the host's log at its prompt.
  static StandIn StartAndType(const Arguments& more) {
    PairingCodeLog log(stage_->HostLog(), "receiver.py");
    const std::string terminal = stage_->NewStem("terminal");
    EXPECT_EQ(mkfifo(terminal.c_str(), 0600), 0);
    const int keys = open(terminal.c_str(), O_RDWR | O_CLOEXEC);
    StandIn receiver(
        "/bin/sh", Together({"-c", "exec \"$0\" \"$@\" <'" + terminal + "'", kPython}, Usual(more)),
        stage_->NewStem("receiver"));
    std::optional<std::string> code;
    EXPECT_TRUE(Eventually([&] { return (code = log.Find()).has_value(); }));
    const std::string typed = "oops\n" + code.value_or("") + "\n";
    EXPECT_EQ(write(keys, typed.data(), typed.size()), ssize_t(typed.size()));
    close(keys);
    return receiver;
  }

  static inline Stage* stage_ = nullptr;
  static inline std::string* address_ = nullptr;
};

TEST_F(ReceiverExample, PairsByTypedDigitsAndWritesWhatPlays) {
  const auto pictures = stage_->File("typed.h264"), sound = stage_->File("typed.wav");
  StandIn receiver =
      StartAndType({"--seconds", "2", "--video", PathText(pictures), "--sound", PathText(sound)});
  EXPECT_EQ(receiver.Wait(), 0) << LastComplaint(receiver);
  const VideoFile video = ReadVideoFile(pictures);
  EXPECT_EQ(video.error, "");
  EXPECT_EQ(video.codec, "h264");
  EXPECT_EQ(video.width, 640);
  ASSERT_GE(video.pictures, 10);
  ASSERT_EQ(video.stamps.size(), size_t(video.pictures));
  // The first may be the picture that greets a new phone.
  EXPECT_TRUE(std::is_sorted(video.stamps.begin() + 1, video.stamps.end()));
  const std::string wrote = std::to_string(video.pictures) + " written as h264, 0 lost";
  EXPECT_NE(receiver.Output().find(wrote), std::string::npos) << receiver.Output();

  const std::vector<float> left = ReadWav(sound, 0), right = ReadWav(sound, 1);
  const size_t blocks = left.size() / kBlockSamples;
  EXPECT_EQ(left.size(), blocks * kBlockSamples);
  EXPECT_NE(receiver.Output().find("sound: " + std::to_string(blocks) + " blocks, 0 lost"),
            std::string::npos)
      << receiver.Output();
  EXPECT_GE(blocks, 10U);
  EXPECT_NEAR(Hertz(left), 440, 5);
  EXPECT_NEAR(Hertz(right), 660, 5);
}

TEST_F(ReceiverExample, ComesBackByItsTokenAndEndsCleanlyOnCtrlC) {
  if (!std::filesystem::exists(stage_->File("token"))) {
    StandIn first = StartAndType({"--seconds", "0.1"});
    first.Wait();
  }
  const auto pictures = stage_->File("again.h265"), sound = stage_->File("again.wav");
  StandIn receiver = Start({"--video", PathText(pictures), "--sound", PathText(sound)});
  EXPECT_TRUE(Eventually([&] {
    constexpr size_t kSome = 50'000;
    return receiver.Ended() || (ReadWholeFile(pictures).value_or("").size() > kSome &&
                                ReadWholeFile(sound).value_or("").size() > kSome);
  }));
  ASSERT_FALSE(receiver.Ended()) << LastComplaint(receiver);
  receiver.Interrupt();
  EXPECT_EQ(receiver.Wait(), 0);
  EXPECT_EQ(receiver.Complaints(), Arguments());
  const VideoFile video = ReadVideoFile(pictures);
  EXPECT_EQ(video.error, "");
  EXPECT_EQ(video.codec, "hevc");
  EXPECT_EQ(video.stamps.size(), size_t(video.pictures));
  EXPECT_FALSE(ReadWav(sound, 0).empty());
}

TEST_F(ReceiverExample, SaysInASentenceWhatWentWrong) {
  const auto fails = [&](const Arguments& arguments, const std::string& sentence) {
    StandIn receiver(kPython, Together({kScript}, arguments), stage_->NewStem("receiver"));
    EXPECT_NE(receiver.Wait(), 0) << sentence;
    EXPECT_EQ(LastComplaint(receiver), "receiver.py: " + sentence);
  };
  const std::string host = "127.0.0.1:" + std::to_string(stage_->ControlPort());
  const Arguments there = {host, "--bind", *address_};
  fails(Together(there, {"--code", "000000"}), "the plug-in refused the code");
  fails(there, "the plug-in wants its code, and there is nobody to ask");
  fails({"127.0.0.1:1", "--bind", *address_}, "can't connect to 127.0.0.1:1: Connection refused");
  // Before anything is connected.
  const std::string nowhere = PathText(stage_->File("nowhere") / "token");
  fails({"127.0.0.1:1", "--token-file", nowhere}, nowhere + ".new: No such file or directory");
  for (const char* seconds : {"nan", "-1", "0"}) {
    fails({host, "--seconds", seconds}, "error: --seconds must be more than 0");
  }
  fails({"127.0.0.1:99999"},
        "error: 127.0.0.1:99999 isn't an address like 192.0.2.10 or 192.0.2.10:47110");
  const std::string script = kScript;
  fails(Together(there, {"--sound", script}),
        "error: " + script + " is there already, or its folder isn't");
  EXPECT_EQ(ReadWholeFile(script).value_or("").substr(0, 2), "#!");
}

// ---- Against losses ----------------------------------------------------------------------------

// A plug-in that sends what the test says, and leaves out what the test says.
class LossyPlugIn : public testing::Test {
 protected:
  void Start(const Arguments& more) {
    listener_ = ListenTcp(0, *ParseAddress("127.0.0.1"));
    address_ = stage_.NewAddress();
    receiver_ = std::make_unique<StandIn>(
        kPython,
        Together({kScript, "127.0.0.1:" + std::to_string(listener_->Port()), "--bind", address_},
                 more),
        stage_.NewStem("receiver"));
    control_ = TestPhone(listener_->Accept(kPatienceNanos));
    ASSERT_TRUE(control_.Connected());
    EXPECT_EQ(Hear(2), std::string("\x30\x0b"));
    EXPECT_EQ(Hear(11 + 1 + 11 + 1), std::string("receiver.py\x0breceiver.py\0", 24));
    control_.Send(std::string("\x09\x33\x05token", 8));
    // No limit, H.264, long GOP, quality, no engine.
    EXPECT_EQ(Hear(7), std::string("\x18\0\0\x01\x03\x01\0", 7));
    EXPECT_EQ(Hear(1), "\x01") << "it waits for a key frame";
  }

  std::string Hear(size_t count) {
    std::string bytes(count, '\0');
    for (char& byte : bytes) {
      if (!AwaitBytes(control_.Socket(), kPatienceNanos)) return "nothing";
      if (control_.Socket().Receive(std::as_writable_bytes(std::span(&byte, 1))) != 1) return {};
    }
    return bytes;
  }

  // The datagrams of the stream's next frame; its contents are kept.
  std::vector<std::vector<std::byte>> Next(StreamType stream, std::string_view begin, size_t size,
                                           bool key = false) {
    StreamState& state = streams_[stream == StreamType::Video ? 0 : 1];
    std::string contents(begin);
    while (contents.size() < size) contents += char('a' + contents.size() % 23 + state.number % 3);
    FrameToSend frame;
    frame.streamType = stream;
    frame.keyFrame = key;
    frame.frameNumber = state.number++;
    frame.data = std::as_bytes(std::span(contents));
    frame.withSendTime = stream == StreamType::Video;
    frame.parityCount = frame.withSendTime ? ChooseParityCount(DataFragmentCount(size)) : 0;
    FrameGroup group = MakeFrameGroup(frame);
    FragmentFrame(frame, state.sequence, 0, group);
    std::vector<std::vector<std::byte>> datagrams;
    group.ForEach([&](std::span<const std::byte> bytes) {
      datagrams.emplace_back(bytes.begin(), bytes.end());
      return true;
    });
    last_ = contents;
    return datagrams;
  }

  void Send(StreamType stream, const std::vector<std::vector<std::byte>>& datagrams) {
    SendFrom(*socket_, stream, datagrams);
  }
  void SendFrom(DatagramSocket& socket, StreamType stream,
                const std::vector<std::vector<std::byte>>& datagrams) {
    const uint16_t port = stream == StreamType::Video ? kVideoPort : kAudioPort;
    for (const std::vector<std::byte>& one : datagrams) {
      const std::span<const std::byte> bytes(one);
      size_t sent = 0;
      EXPECT_EQ(socket.SendMany({&bytes, 1}, {*ParseAddress(address_), port}, sent),
                DatagramSocket::SendResult::Sent);
    }
  }

  struct StreamState {
    uint16_t number = 65'533;  // wraps on the way
    uint32_t sequence = 0;
  };
  SocketLayer layer_;
  Stage stage_;
  std::string address_, last_;
  std::unique_ptr<StreamListener> listener_;
  std::unique_ptr<DatagramSocket> socket_ = OpenDatagramSender();
  TestPhone control_{nullptr};
  std::unique_ptr<StandIn> receiver_;
  StreamState streams_[2];
};

constexpr std::string_view kKeyFrame = {"\0\0\0\1\x67key", 8};
constexpr std::string_view kOfTheOtherCodec = {"\0\0\0\1\x40key", 8};
constexpr std::string_view kPicture = {"\0\0\0\1\x41p", 6};
constexpr std::string_view kStereo = {"\x80\xbb\0\0\x02\x20\0\0", 8};

TEST_F(LossyPlugIn, WhatFollowsALossIsLeftOutUntilTheKeyFrameThatItAsksFor) {
  const auto pictures = stage_.File("lossy.h264");
  ASSERT_NO_FATAL_FAILURE(Start({"--video", PathText(pictures)}));
  const auto video = StreamType::Video;
  std::string wanted;
  Send(video, Next(video, kOfTheOtherCodec, 3'000, true));  // of the settings before
  Send(video, Next(video, kKeyFrame, 5'000, true));
  wanted += last_;
  auto first = Next(video, kPicture, 4'000);
  wanted += last_;
  auto second = Next(video, kPicture, 1'440);
  wanted += last_;
  std::ranges::reverse(first);  // out of order, doubled, and the next one in front of it
  first.push_back(first.back());
  Send(video, second);
  Send(video, first);
  auto broken = Next(video, kPicture, 4'000);
  const auto stranger = OpenDatagramReceiver({*ParseAddress(stage_.NewAddress()), 0}, 0);
  ASSERT_TRUE(stranger);
  SendFrom(*stranger, video, broken);
  broken.erase(broken.begin() + 1);
  Send(video, broken);
  Next(video, kPicture, 2'000);  // not even a part of it arrives
  for (int i = 0; i < 5; ++i) Send(video, Next(video, kPicture, 2'000));
  EXPECT_EQ(Hear(1), "\x01");
  Send(video, Next(video, kKeyFrame, 9'000, true));
  wanted += last_;
  Send(video, Next(video, kPicture, 100));
  wanted += last_;
  control_.Close();
  EXPECT_EQ(receiver_->Wait(), 1);
  EXPECT_EQ(LastComplaint(*receiver_), "receiver.py: the plug-in has ended the connection");
  EXPECT_EQ(ReadWholeFile(pictures).value_or(""), wanted);
  EXPECT_NE(receiver_->Output().find("pictures: 5 written as h264, 2 lost, 6 left out"),
            std::string::npos)
      << receiver_->Output();
}

TEST_F(LossyPlugIn, ALostBlockOfSoundIsAsLongASilence) {
  const auto sound = stage_.File("lossy.wav");
  ASSERT_NO_FATAL_FAILURE(Start({"--sound", PathText(sound)}));
  const auto audio = StreamType::Audio;
  std::string wanted;
  for (int i = 0; i < 8; ++i) {
    auto block = Next(audio, kStereo, 8 + 8'192);
    if (i == 2) block.pop_back();
    wanted += i == 2 ? std::string(8'192, '\0') : last_.substr(8);
    Send(audio, block);
  }
  control_.Close();
  EXPECT_EQ(receiver_->Wait(), 1);
  EXPECT_EQ(ReadWholeFile(sound).value_or("").substr(44), wanted);
  EXPECT_EQ(ReadWav(sound, 0).size(), 8U * 1'024);
  EXPECT_NE(receiver_->Output().find("sound: 7 blocks, 1 lost"), std::string::npos);
}

}  // namespace
}  // namespace Veldrift
