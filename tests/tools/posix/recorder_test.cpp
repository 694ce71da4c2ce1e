// What becomes of a recording when the stream does what streams do: breaks off and comes back, gets
// its sound later, stands still for minutes, or has no picture at all. Files are read by the media
// library.
#include "tools/phone/recorder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "net/media_datagram.h"
#include "platform/file.h"
#include "support/little_endian.h"
#include "tests/support/scratch.h"

namespace Veldrift {
namespace {

constexpr int kSize = 64;
constexpr int kRate = 8'000;
constexpr double kPicture = 1.0 / 25;
constexpr double kBlock = 0.01;

// Pictures of H.264 as they come from the plug-in: a key frame first, and then each `gop` pictures.
class Coder {
 public:
  explicit Coder(int gop = 25) {
    const AVCodec* codec = avcodec_find_encoder_by_name("libx264");
    context_.reset(avcodec_alloc_context3(codec));
    context_->width = context_->height = kSize;
    context_->pix_fmt = AV_PIX_FMT_YUV420P;
    context_->time_base = {1, 25};
    context_->gop_size = gop;
    context_->max_b_frames = 0;
    AVDictionary* options = nullptr;
    av_dict_set(&options, "tune", "zerolatency", 0);
    av_dict_set(&options, "preset", "ultrafast", 0);
    EXPECT_GE(avcodec_open2(context_.get(), codec, &options), 0);
    av_dict_free(&options);
  }

  WholeFrame Next() {
    const Picture picture(av_frame_alloc());
    picture->width = picture->height = kSize;
    picture->format = AV_PIX_FMT_YUV420P;
    av_frame_get_buffer(picture.get(), 0);
    for (int plane = 0; plane < 3; ++plane) {
      std::memset(picture->data[plane], int(count_ * 3 % 200),
                  size_t(picture->linesize[plane]) * size_t(plane == 0 ? kSize : kSize / 2));
    }
    picture->pts = count_++;
    const Packet packet(av_packet_alloc());
    EXPECT_GE(avcodec_send_frame(context_.get(), picture.get()), 0);
    EXPECT_GE(avcodec_receive_packet(context_.get(), packet.get()), 0);
    WholeFrame frame;
    frame.keyFrame = (packet->flags & AV_PKT_FLAG_KEY) != 0;
    const auto* bytes = reinterpret_cast<const std::byte*>(packet->data);
    frame.data.assign(bytes, bytes + packet->size);
    return frame;
  }

 private:
  CodecContext context_;
  int64_t count_ = 0;
};

struct Seen {
  double seconds = 0;  // as the file says
  int pictures = 0;    // decoded
  double lastPicture = 0;
  double firstLoud = -1;
  bool hasSound = false;
};

Seen Read(const std::filesystem::path& path) {
  Seen seen;
  AVFormatContext* opened = nullptr;
  if (avformat_open_input(&opened, PathText(path).c_str(), nullptr, nullptr) < 0) return seen;
  const InputFile file(opened);
  avformat_find_stream_info(file.get(), nullptr);
  seen.seconds = double(file->duration) / AV_TIME_BASE;
  const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_H264);
  const CodecContext decoder(avcodec_alloc_context3(codec));
  const int video = av_find_best_stream(file.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  if (video >= 0) avcodec_parameters_to_context(decoder.get(), file->streams[video]->codecpar);
  EXPECT_GE(avcodec_open2(decoder.get(), codec, nullptr), 0);
  const Packet packet(av_packet_alloc());
  const Picture picture(av_frame_alloc());
  while (av_read_frame(file.get(), packet.get()) >= 0) {
    const AVStream& stream = *file->streams[packet->stream_index];
    const double time = double(packet->pts) * av_q2d(stream.time_base);
    if (stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
      EXPECT_GE(avcodec_send_packet(decoder.get(), packet.get()), 0);
      while (avcodec_receive_frame(decoder.get(), picture.get()) >= 0) ++seen.pictures;
      seen.lastPicture = time;
    } else {
      seen.hasSound = true;
      for (int i = 0; i * 4 < packet->size && seen.firstLoud < 0; ++i) {
        float sample = 0;
        std::memcpy(&sample, packet->data + i * 4, sizeof sample);
        if (sample > 0.1F) seen.firstLoud = time + double(i) / kRate;
      }
    }
    av_packet_unref(packet.get());
  }
  avcodec_send_packet(decoder.get(), nullptr);
  while (avcodec_receive_frame(decoder.get(), picture.get()) >= 0) ++seen.pictures;
  return seen;
}

class Recordings : public testing::Test {
 protected:
  Recordings() {
    av_log_set_level(AV_LOG_FATAL);
    EXPECT_TRUE(series_.Begin(sentence_)) << sentence_;
  }

  // Another connection begins with a key frame.
  void Connect(uint32_t number) {
    connection_ = number;
    coder_ = std::make_unique<Coder>();
  }

  // Sends what a plug-in would, by its own clock; it is loud from `loudFrom` on.
  void Send(double from, double to, bool pictures, bool sound, double loudFrom = 1e9) {
    for (double time = from; time < to - 1e-6; time += kBlock) {
      const bool onPicture = std::fmod(time + 1e-6, kPicture) < kBlock - 1e-6;
      if (pictures && onPicture) Take(coder_->Next(), StreamType::Video, time);
      if (sound) Take(Block(time >= loudFrom - 1e-6), StreamType::Audio, time);
    }
  }

  Seen Part(const char* name) const { return Read(folder_.Path() / name); }
  double Length(size_t part) const { return series_.Parts().at(part).seconds; }

  const ScratchFolder folder_;
  RecordingSeries series_{folder_.Path() / "take.mkv", false};
  Recorder recorder_{series_};
  std::unique_ptr<Coder> coder_ = std::make_unique<Coder>();
  uint32_t connection_ = 1;
  std::string sentence_;

 private:
  static WholeFrame Block(bool loud) {
    WholeFrame block;
    const std::vector<float> samples(size_t(kRate * kBlock), loud ? 0.5F : 0);
    block.data.resize(kAudioHeadBytes + samples.size() * sizeof(float));
    PutU32(&block.data[0], kRate);
    block.data[4] = std::byte{1};
    PutU16(&block.data[5], 32);
    std::memcpy(&block.data[kAudioHeadBytes], samples.data(), samples.size() * sizeof(float));
    return block;
  }

  void Take(WholeFrame&& frame, StreamType stream, double seconds) {
    frame.stream = stream;
    frame.connection = connection_;
    frame.timestamp = uint32_t(std::llround(seconds * 1e6));
    recorder_.Take(std::make_shared<const WholeFrame>(std::move(frame)));
  }
};

TEST_F(Recordings, AnotherConnectionIsAnotherFileAndEachHasItsOwnTrueLength) {
  Send(100, 105.4, true, false);
  Send(105.4, 107, true, true);  // the second file begins with the key frame at 106 s
  Send(107, 107.8, true, false);
  Connect(2);  // to a plug-in that was started anew, whose time begins at 0
  Send(0, 3, true, true, /*loudFrom=*/2);
  ASSERT_TRUE(recorder_.Close()) << recorder_.Error();
  ASSERT_EQ(series_.Parts().size(), 3U);
  const Seen last = Part("take-3.mkv");
  EXPECT_NEAR(last.seconds, 3, 0.1);
  EXPECT_NEAR(Length(2), last.seconds, 0.02);
  EXPECT_EQ(last.pictures, 75);
  EXPECT_NEAR(last.lastPicture, 2.96, 0.01);
  EXPECT_NEAR(last.firstLoud, 2, 0.01) << "out of step";
  const Seen first = Part("take.mkv");
  EXPECT_NEAR(first.seconds, 5.4, 0.1);
  EXPECT_NEAR(Length(0), first.seconds, 0.05);
  EXPECT_NEAR(Length(1), 1.8, 0.1);
  EXPECT_NEAR(series_.Seconds(), Length(0) + Length(1) + Length(2), 1e-9);
}

TEST_F(Recordings, ALateStragglerOfTheConnectionBeforeIsLeftOut) {
  Send(0, 2, true, true);
  Connect(2);
  Send(0, 1, true, true);
  connection_ = 1;
  Send(2, 2.1, false, true);
  connection_ = 2;
  Send(1, 2, true, true);
  ASSERT_TRUE(recorder_.Close());
  EXPECT_EQ(series_.Parts().size(), 2U);
  EXPECT_NEAR(Part("take-2.mkv").seconds, 2, 0.1);
}

// The file that there was can't take it, and the next needs a key frame.
TEST_F(Recordings, SoundThatComesLaterIsRecorded) {
  Send(0, 2.5, true, false);
  EXPECT_FALSE(recorder_.WantsKeyFrame());
  Send(2.5, 2.7, true, true);
  EXPECT_TRUE(recorder_.WantsKeyFrame());
  Send(2.7, 5, true, true, /*loudFrom=*/4);
  EXPECT_FALSE(recorder_.WantsKeyFrame());
  ASSERT_TRUE(recorder_.Close());
  EXPECT_FALSE(Part("take.mkv").hasSound);
  const Seen second = Part("take-2.mkv");
  EXPECT_NEAR(second.seconds, 2, 0.1);  // from the key frame at 3 s on
  EXPECT_NEAR(second.firstLoud, 1, 0.02);
}

TEST_F(Recordings, SoundAloneIsWrittenAsItComesAndHasALength) {
  Send(0, 10, false, true, /*loudFrom=*/5);
  EXPECT_GT(std::filesystem::file_size(folder_.Path() / "take.mkv"), 8U * kRate * sizeof(float));
  ASSERT_TRUE(recorder_.Close());
  EXPECT_NEAR(series_.Seconds(), 10, 0.05);
  EXPECT_NEAR(Part("take.mkv").seconds, 10, 0.05);
  EXPECT_NEAR(Part("take.mkv").firstLoud, 5, 0.02);
}

// A host that stands still sends nothing. Its sound must not run ahead afterwards.
TEST_F(Recordings, SoundStaysInStepBehindAPauseOfMinutes) {
  for (const double pause : {30.0, 400.0}) {
    SCOPED_TRACE(pause);
    Connect(connection_ + 1);
    Send(0, 2, true, true);
    Send(2 + pause, 5 + pause, true, true, /*loudFrom=*/4 + pause);
  }
  ASSERT_TRUE(recorder_.Close());
  EXPECT_NEAR(Part("take.mkv").firstLoud, 34, 0.02);
  EXPECT_NEAR(Part("take-2.mkv").firstLoud, 404, 0.02);
  EXPECT_NEAR(Length(1), 405, 0.1);
}

// As after a kill: the file is read while the recorder still has it open.
TEST_F(Recordings, WhatIsOnTheDiskPlaysWithoutTheEnd) {
  coder_ = std::make_unique<Coder>(/*gop=*/600);
  Send(0, 10, true, true);
  const Seen cut = Part("take.mkv");
  EXPECT_GT(cut.pictures, 25 * 8);
  EXPECT_LT(cut.pictures, 25 * 10);
  EXPECT_TRUE(cut.hasSound);
}

TEST_F(Recordings, NoFileIsWrittenOverUnasked) {
  const auto precious = folder_.Path() / "take-2.mkv";
  ASSERT_EQ(WriteWholeFile(precious, "precious"), WriteResult::Written);
  RecordingSeries again(folder_.Path() / "take.mkv", false);
  EXPECT_FALSE(again.Begin(sentence_));
  EXPECT_NE(sentence_.find("take.mkv exists already"), std::string::npos) << sentence_;
  Send(0, 1, true, true);
  Connect(2);
  Send(0, 1, true, true);
  ASSERT_TRUE(recorder_.Close());
  EXPECT_EQ(ReadWholeFile(precious), "precious");
  EXPECT_EQ(series_.Parts().at(1).path.filename(), "take-3.mkv");

  // Asked for, it is; but not before there is something to write.
  {
    RecordingSeries over(folder_.Path() / "take-2.mkv", true);
    ASSERT_TRUE(over.Begin(sentence_));
  }
  EXPECT_EQ(ReadWholeFile(precious), "precious");
  RecordingSeries over(folder_.Path() / "take-2.mkv", true);
  ASSERT_TRUE(over.Begin(sentence_));
  Recorder recorder(over);
  recorder.Take(std::make_shared<const WholeFrame>([&] {
    WholeFrame frame = Coder().Next();
    frame.connection = 1;
    return frame;
  }()));
  EXPECT_TRUE(recorder.Close()) << recorder.Error();
  EXPECT_EQ(Part("take-2.mkv").pictures, 1);
}

TEST_F(Recordings, AFileThatNothingCameForIsGone) {
  {
    RecordingSeries unused(folder_.Path() / "other.mkv", false);
    ASSERT_TRUE(unused.Begin(sentence_));
    EXPECT_TRUE(std::filesystem::exists(folder_.Path() / "other.mkv"));
  }
  EXPECT_FALSE(std::filesystem::exists(folder_.Path() / "other.mkv"));
  RecordingSeries nowhere(folder_.Path() / "none" / "take.mkv", false);
  EXPECT_FALSE(nowhere.Begin(sentence_));
  EXPECT_NE(sentence_.find("No such file or directory"), std::string::npos) << sentence_;
}

// A device that is always full stands for a disk that is.
TEST_F(Recordings, AFullDiskIsToldWhileTheStreamGoesOn) {
  std::filesystem::create_symlink("/dev/full", folder_.Path() / "full.mkv");
  RecordingSeries full(folder_.Path() / "full.mkv", true);
  ASSERT_TRUE(full.Begin(sentence_)) << sentence_;
  Recorder recorder(full);
  for (int i = 0; i < 25 && recorder.Error().empty(); ++i) {
    WholeFrame frame = coder_->Next();
    frame.connection = 1;
    frame.timestamp = uint32_t(i) * 40'000;
    recorder.Take(std::make_shared<const WholeFrame>(std::move(frame)));
  }
  EXPECT_NE(recorder.Error().find("full.mkv: No space left on device"), std::string::npos)
      << recorder.Error();
}

}  // namespace
}  // namespace Veldrift
