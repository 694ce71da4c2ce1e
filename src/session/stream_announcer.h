// What the phone and the setup window are told of the stream: the source's size and rate, the
// stream's geometry, and the encoder's description; each as it changes, and once.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "platform/mutex.h"
#include "session/frame_geometry.h"
#include "session/pipeline_seat.h"
#include "session/shared_transport.h"

namespace Veldrift {

// Threads: the host's thread, and the control read thread. Messages are sent under stateMutex_,
// which is recursive since the announcements call each other; stateMutex_ comes before the seat's
// lock.
class StreamAnnouncer {
 public:
  StreamAnnouncer(SharedTransport& transport, const PipelineSeat& seat)
      : transport_(transport), seat_(seat) {}

  // A frame of this geometry has come. A new one is committed and told when it has stayed for
  // 500 ms; a message that doesn't go out is tried again on every frame.
  void ObserveSource(const FrameGeometry& source, int64_t nowNanos);

  // The encoder has just been built for this source: commit it without waiting, whether or not the
  // message goes out, so that nothing is built twice.
  void PromoteSource(const FrameGeometry& source);

  void SendStreamInfoIfReady();
  void SendEncoderInfoIfChanged();

  // Forgets what the phone was told, so that it is told again; with `alsoSource`, the next frame of
  // the same size commits at once, since its candidate has long settled.
  void ResetAnnouncedState(bool alsoSource);

  // Shows the phone that its engine is on the way; the next description replaces it.
  void TellOfSwitching();
  // The engine byte of an older phone, which chose by it; it is published and nothing else.
  void RememberLegacyEngineByte(uint8_t byte) { legacyEngineByte_ = byte; }
  // Hands the setup window what is encoded, and by what, in the words that the phone was told.
  void PublishEncoderStatus();

 private:
  bool SendEncoderInfo(const std::string& text);
  std::string ToldDescription() const;
  bool SendSourceChanged(const FrameGeometry& source) VD_REQUIRES(stateMutex_);

  SharedTransport& transport_;
  const PipelineSeat& seat_;
  std::atomic<uint8_t> legacyEngineByte_{0};

  mutable RecursiveMutex stateMutex_;
  FrameGeometry source_ VD_GUARDED_BY(stateMutex_);     // committed
  FrameGeometry candidate_ VD_GUARDED_BY(stateMutex_);  // waiting to settle
  int64_t candidateSinceNanos_ VD_GUARDED_BY(stateMutex_) = 0;
  FrameGeometry sent_ VD_GUARDED_BY(stateMutex_);  // of the last kStreamInfo that went out
  // The last description that went out, or kEmptyDescription.
  std::string lastEncoderDescription_ VD_GUARDED_BY(stateMutex_);
};

}  // namespace Veldrift
