#include "session/video_path.h"

#include <span>

#include "net/media_datagram.h"
#include "support/guarded.h"
#include "support/plugin_log.h"

namespace Veldrift {

namespace {

constexpr LogCategory kLog{kLogSubsystem, "transmit"};
constexpr uint32_t kConfigureBitrate = 150'000'000;  // bits per second
constexpr uint32_t kPacerBitrate = 300'000'000;      // a ceiling above the stream's own rate
constexpr float kConfigureQuality = 0.75F;
constexpr int32_t kEmergencyFrames = 30;
constexpr int32_t kBytesPerPixel = 4;
constexpr uint32_t kNoFormat = 0x66646162;  // "badf": what a failing call leaves behind

}  // namespace

VideoPath::VideoPath(SharedTransport& transport, const HostSuites& suites, PipelineSeat& seat,
                     StreamAnnouncer& announcer, const SessionState& state)
    : transport_(transport),
      suites_(suites),
      seat_(seat),
      announcer_(announcer),
      state_(state),
      statistics_(state.clock) {}

// ---- From the host -----------------------------------------------------------------------------

void VideoPath::PushVideo(const Host::FrameList* frames) {
  if (frames == nullptr) return;
  const bool hasClient = transport_.PeerKnown();
  PluginLog(kLog, kLogDebug, "PushVideo frameCount=%llu hasClient=%d",
            static_cast<unsigned long long>(frames->frameCount), hasClient ? 1 : 0);
  const Host::PpixSuite* const suite = suites_.Ppix();
  if (suite == nullptr) return;
  for (uint64_t i = 0; i < frames->frameCount; ++i) {
    const Host::FrameHandle frame = frames->frames[i].frame;
    if (frame == nullptr) continue;
    // Only the first is to be shown now.
    if (i == 0 && state_.running && hasClient) {
      // Whatever happens to the picture, the host gets its frame back.
      RunGuarded(kLog, "PushVideo", [&] { ShowFrame(*suite, frame); });
    }
    suite->Dispose(frame);
  }
}

void VideoPath::ShowFrame(const Host::PpixSuite& suite, Host::FrameHandle frame) {
  char* pixels = nullptr;
  Host::Rect bounds{};
  int32_t rowBytes = 0;
  uint32_t format = kNoFormat;
  suite.GetPixels(frame, Host::kAccessReadOnly, &pixels);
  suite.GetBounds(frame, &bounds);
  suite.GetRowBytes(frame, &rowBytes);
  suite.GetPixelFormat(frame, &format);
  if (!FormatIsGood(format) || pixels == nullptr || rowBytes < 1) return;

  const int64_t width = int64_t{bounds.right} - bounds.left;
  const int64_t height = int64_t{bounds.bottom} - bounds.top;
  if (width < kSmallestSide || height < kSmallestSide) return;
  // Rows that are shorter than the picture is wide would be read past their end.
  if (width > INT32_MAX || height > INT32_MAX || rowBytes / kBytesPerPixel < width) return;
  Transmit(reinterpret_cast<const uint8_t*>(pixels), {int32_t(width), int32_t(height)}, rowBytes);
}

// Each change of an unsupported format is logged once.
bool VideoPath::FormatIsGood(uint32_t format) {
  if (format == Host::kPixelFormatBgra) {
    lastBadPixelFormat_ = 0;
    return true;
  }
  if (format != lastBadPixelFormat_) {
    const char text[5] = {char(format >> 24), char(format >> 16), char(format >> 8), char(format),
                          '\0'};
    PluginLog(kLog, kLogError,
              "PushVideo: unsupported pixel format 0x%08x '%s' (wanted 'bgra'); dropping frame",
              format, text);
    lastBadPixelFormat_ = format;
  }
  return false;
}

void VideoPath::Transmit(const uint8_t* pixels, FrameSize size, int32_t rowBytes) {
  const int32_t fps = suites_.Fps();
  const FrameGeometry source{size.width, size.height, fps};
  announcer_.ObserveSource(source, state_.clock.NowNanos());
  const PipelineSeat::Reference pipeline = seat_.Current();
  if (!pipeline) return;

  const FrameSize target = CappedSize(size, shortSideCap_);
  const bool ready = pipeline->Ready();
  const bool fits = ready && pipeline->GetFps() == fps &&
                    WithinTolerance({pipeline->GetWidth(), pipeline->GetHeight()}, target);
  if (!fits) FitEncoder(*pipeline, ready, target, source);
  announcer_.SendEncoderInfoIfChanged();
  const int64_t startNanos = state_.clock.NowNanos();
  pipeline->EncodeFrame(pixels, uint32_t(size.width), uint32_t(size.height), rowBytes,
                        state_.ElapsedMicros());
  statistics_.Submitted(state_.clock.NowNanos() - startNanos, fps);
  frameCache_.Store(pixels, size.width, size.height, rowBytes, state_.clock.NowNanos());
  WatchForStall(*pipeline, target, fps);
}

// Moves the encoder to `target` on this thread; the frame waits for it. A Configure that fails is
// repeated by the next frame, which finds the encoder not ready.
void VideoPath::FitEncoder(EncoderPipeline& pipeline, bool ready, FrameSize target,
                           const FrameGeometry& source) {
  PluginLog(kLog, kLogDebug,
            "[dx] PushVideo: dims changed — source=%dx%d cap=%d target=%dx%d fps=%d initial=%d",
            source.width, source.height, shortSideCap_.load(), target.width, target.height,
            source.fps, ready ? 0 : 1);
  if (ready) {
    EncoderSettings settings;
    settings.width = target.width;
    settings.height = target.height;
    settings.fps = source.fps;
    settings.bitrate = kConfigureBitrate;
    settings.gopSize = pipeline.GetGopSize();
    settings.codec = pipeline.GetCodec();
    settings.rateControl = pipeline.GetRateControl();
    settings.quality = kConfigureQuality;
    settings.frameByteCap = pipeline.GetFrameByteCap();
    pipeline.ReconfigureInPlace(settings);
  } else if (!pipeline.Configure(uint32_t(target.width), uint32_t(target.height), kConfigureBitrate,
                                 uint32_t(source.fps))) {
    PluginLog(kLog, kLogError,
              "encoder Configure failed (%dx%d @ %d fps) — Ready() stays false, retry on next "
              "frame",
              target.width, target.height, source.fps);
  }
  transport_.GetPacer().SetBitrate(kPacerBitrate);
  announcer_.PromoteSource(source);
}

void VideoPath::WatchForStall(EncoderPipeline& pipeline, FrameSize target, int32_t fps) {
  const int64_t stalledNanos = stallWatch_.Fed(state_.clock.NowNanos());
  if (stalledNanos == 0) return;
  PluginLog(kLog, kLogFault,
            "encoder stall: no output for %lld ms while feeding — rebuilding session %dx%d @ %d "
            "fps",
            static_cast<long long>(stalledNanos / kNanosPerMilli), target.width, target.height,
            fps);
  (void)pipeline.Configure(uint32_t(target.width), uint32_t(target.height), kConfigureBitrate,
                           uint32_t(fps));
  pipeline.RequestIdr();
}

// ---- From the encoder --------------------------------------------------------------------------

void VideoPath::OnEncodedFrame(const uint8_t* data, uint64_t size, bool keyFrame,
                               uint64_t timestamp) {
  stallWatch_.Output(state_.clock.NowNanos());
  if (!transport_.PeerKnown()) return;
  const MediaSender::Result result =
      transport_.Sender().SendPicture(std::as_bytes(std::span(data, size)), keyFrame, timestamp);
  switch (result.outcome) {
    case MediaSender::Result::Outcome::Queued:
      PluginLog(kLog, kLogDebug, "frame accepted: %zu B → %zu data + %u parity frags", size_t(size),
                result.dataFragments, unsigned(result.parityFragments));
      statistics_.Encoded(size);
      break;
    case MediaSender::Result::Outcome::TooLarge:
      OnWireOverrun(size, result.dataFragments);
      break;
    case MediaSender::Result::Outcome::Empty:
      break;
  }
}

// A frame that no receiver could number is not sent; the next ones are made smaller. In an
// all-intra stream every frame is a key frame already.
void VideoPath::OnWireOverrun(uint64_t size, size_t fragments) {
  const PipelineSeat::Reference pipeline = seat_.Current();
  if (!pipeline) return;
  pipeline->TriggerEmergencyCompression(kEmergencyFrames);
  if (pipeline->GetGopSize() > 1) pipeline->RequestIdr();
  PluginLog(kLog, kLogFault,
            "wire overrun: encoded %zu B → %zu frags > max %u (gopSize=%d) — triggered emergency "
            "compression for %d frames",
            size_t(size), fragments, unsigned(kMaxFragments), pipeline->GetGopSize(),
            kEmergencyFrames);
}

// ---- For a phone that has just come ------------------------------------------------------------

// Not while the cap has made the encoder smaller than the source, since the cache holds the source.
void VideoPath::ReplayCachedFrame() {
  const CachedFrame cached = frameCache_.Copy();
  if (cached.bytes.empty()) {
    PluginLog(kLog, kLogInfo, "OnNewClient replay: no cache, waiting on Premiere");
    return;
  }
  const PipelineSeat::Reference pipeline = seat_.Current();
  if (!pipeline) return;
  const FrameSize encoder{pipeline->GetEncoderWidth(), pipeline->GetEncoderHeight()};
  if (encoder.width >= 1 && encoder.height >= 1 &&
      encoder != FrameSize{cached.width, cached.height}) {
    PluginLog(kLog, kLogInfo, "OnNewClient replay: dim mismatch cache=%dx%d enc=%dx%d — skip",
              cached.width, cached.height, encoder.width, encoder.height);
    return;
  }
  PluginLog(kLog, kLogInfo, "OnNewClient replay: cached %dx%d fresh IDR", cached.width,
            cached.height);
  pipeline->EncodeFrame(cached.bytes.data(), uint32_t(cached.width), uint32_t(cached.height),
                        cached.stride, state_.ElapsedMicros());
}

}  // namespace Veldrift
