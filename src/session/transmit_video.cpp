// The road of a frame: from the host's record to the encoder, and from the encoder to the pacer.
#include "net/framing.h"
#include "session/transmit_instance.h"
#include "support/guarded.h"
#include "support/plugin_log.h"

using namespace Veldrift;

namespace {

constexpr LogCategory kLog{kLogSubsystem, "transmit"};
constexpr uint32_t kConfigureBitrate = 150'000'000;  // bits per second
constexpr uint32_t kPacerBitrate = 300'000'000;      // a ceiling above the stream's own rate
constexpr float kConfigureQuality = 0.75F;
constexpr int32_t kEmergencyFrames = 30;
constexpr uint32_t kNoFormat = 0x66646162;  // "badf": what a failing call leaves behind

}  // namespace

// ---- From the host -----------------------------------------------------------------------------

void TransmitInstance::PushVideo(const Host::FrameList* frames) {
  if (frames == nullptr) return;
  const bool hasClient = services_.transport.PeerKnown();
  PluginLog(kLog, kLogDebug, "PushVideo frameCount=%llu hasClient=%d",
            static_cast<unsigned long long>(frames->frameCount), hasClient ? 1 : 0);
  for (uint64_t i = 0; i < frames->frameCount; ++i) {
    const Host::FrameHandle frame = frames->frames[i].frame;
    if (frame == nullptr) continue;
    // Only the first is to be shown now.
    if (i == 0 && running_ && hasClient && ppixSuite_ != nullptr) {
      // Whatever happens to the picture, the host gets its frame back.
      RunGuarded(kLog, "PushVideo", [&] { ShowFrame(frame); });
    }
    if (ppixSuite_ != nullptr) ppixSuite_->Dispose(frame);
  }
}

void TransmitInstance::ShowFrame(Host::FrameHandle frame) {
  char* pixels = nullptr;
  Host::Rect bounds{};
  int32_t rowBytes = 0;
  uint32_t format = kNoFormat;
  ppixSuite_->GetPixels(frame, Host::kAccessReadOnly, &pixels);
  ppixSuite_->GetBounds(frame, &bounds);
  ppixSuite_->GetRowBytes(frame, &rowBytes);
  ppixSuite_->GetPixelFormat(frame, &format);
  if (!FormatIsGood(format) || pixels == nullptr || rowBytes < 1) return;

  const int64_t width = int64_t{bounds.right} - bounds.left;
  const int64_t height = int64_t{bounds.bottom} - bounds.top;
  if (width < kSmallestSide || height < kSmallestSide) return;
  if (width > INT32_MAX || height > INT32_MAX) return;
  Transmit(reinterpret_cast<const uint8_t*>(pixels), {int32_t(width), int32_t(height)}, rowBytes);
}

// Each change of an unsupported format is logged once.
bool TransmitInstance::FormatIsGood(uint32_t format) {
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

void TransmitInstance::Transmit(const uint8_t* pixels, FrameSize size, int32_t rowBytes) {
  const int32_t fps = timeBase_.Fps();
  const FrameGeometry source{size.width, size.height, fps};
  announcer_.ObserveSource(source, GetClock().NowNanos());
  const PipelineReference pipeline = Pipeline();
  if (!pipeline) return;

  const FrameSize target = CappedSize(size, shortSideCap_);
  const bool ready = pipeline->Ready();
  const bool fits = ready && pipeline->GetFps() == fps &&
                    WithinTolerance({pipeline->GetWidth(), pipeline->GetHeight()}, target);
  if (!fits) FitEncoder(*pipeline, ready, target, source);
  announcer_.SendEncoderInfoIfChanged();
  pipeline->EncodeFrame(pixels, uint32_t(size.width), uint32_t(size.height), rowBytes,
                        ElapsedMicros());
  frameCache_.Store(pixels, size.width, size.height, rowBytes, GetClock().NowNanos());
  WatchForStall(*pipeline, target, fps);
}

// Moves the encoder to `target` on this thread; the frame waits for it. A Configure that fails is
// repeated by the next frame, which finds the encoder not ready.
void TransmitInstance::FitEncoder(EncoderPipeline& pipeline, bool ready, FrameSize target,
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
  services_.transport.GetPacer().SetBitrate(kPacerBitrate);
  announcer_.PromoteSource(source);
}

void TransmitInstance::WatchForStall(EncoderPipeline& pipeline, FrameSize target, int32_t fps) {
  const int64_t stalledNanos = stallWatch_.Fed(GetClock().NowNanos());
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

void TransmitInstance::OnEncodedFrame(const uint8_t* data, uint64_t size, bool keyFrame,
                                      uint64_t timestamp) {
  stallWatch_.Output(GetClock().NowNanos());
  SharedTransport& transport = services_.transport;
  if (!transport.PeerKnown()) return;
  const size_t dataCount = DataFragmentCount(size);
  const size_t parityCount = ChooseParityCount(dataCount);
  if (dataCount + parityCount > kMaxFragments) {
    OnWireOverrun(size, dataCount);
    return;
  }
  const size_t datagrams = CountDatagrams(size, parityCount);
  if (datagrams == 0) return;

  FrameToSend frame;
  frame.streamType = StreamType::Video;
  frame.keyFrame = keyFrame;
  frame.parityCount = parityCount;
  frame.frameNumber = transport.video.frameNumber++;
  uint32_t sequence = transport.video.sequence.fetch_add(uint32_t(datagrams));
  frame.timestamp = uint32_t(timestamp);
  frame.data = std::as_bytes(std::span(data, size));
  frame.withSendTime = true;
  PluginLog(kLog, kLogDebug, "frame accepted: %zu B → %zu data + %u parity frags", size_t(size),
            dataCount, unsigned(parityCount));
  FrameGroup group = MakeFrameGroup(frame);
  if (!FragmentFrame(frame, sequence, GetClock().NowNanos(), group)) return;
  transport.GetPacer().Enqueue(std::move(group));
}

// A frame that no receiver could number is not sent; the next ones are made smaller. In an
// all-intra stream every frame is a key frame already.
void TransmitInstance::OnWireOverrun(uint64_t size, size_t fragments) {
  const PipelineReference pipeline = Pipeline();
  if (!pipeline) return;
  pipeline->TriggerEmergencyCompression(kEmergencyFrames);
  if (pipeline->GetGopSize() > 1) pipeline->RequestIdr();
  PluginLog(kLog, kLogFault,
            "wire overrun: encoded %zu B → %zu frags > max %u (gopSize=%d) — triggered emergency "
            "compression for %d frames",
            size_t(size), fragments, unsigned(kMaxFragments), pipeline->GetGopSize(),
            kEmergencyFrames);
}
