// What the phone is told of the stream: the source's size and rate, the stream's geometry, and the
// encoder's description; each as it changes, and once.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "encoder/encoder_pipeline.h"
#include "platform/mutex.h"
#include "session/frame_geometry.h"
#include "session/shared_transport.h"

namespace Veldrift {

// Threads: the host's thread, and the control read thread. Messages are sent under stateMutex_,
// which is recursive since the announcements call each other; stateMutex_ comes before the
// instance's pipeline lock, which `pipeline` takes.
class StreamAnnouncer {
 public:
  using PipelineAccess = std::function<std::shared_ptr<EncoderPipeline>()>;

  // `onEncoderTold` runs when a new description has gone out.
  StreamAnnouncer(SharedTransport& transport, PipelineAccess pipeline,
                  std::function<void()> onEncoderTold);

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

  std::string LastEncoderDescription() const;

 private:
  bool SendSourceChanged(const FrameGeometry& source) VD_REQUIRES(stateMutex_);

  SharedTransport& transport_;
  const PipelineAccess pipeline_;
  const std::function<void()> onEncoderTold_;

  mutable RecursiveMutex stateMutex_;
  FrameGeometry source_ VD_GUARDED_BY(stateMutex_);     // committed
  FrameGeometry candidate_ VD_GUARDED_BY(stateMutex_);  // waiting to settle
  int64_t candidateSinceNanos_ VD_GUARDED_BY(stateMutex_) = 0;
  FrameGeometry sent_ VD_GUARDED_BY(stateMutex_);  // of the last kStreamInfo that went out
  // The last description that went out, or kEmptyDescription.
  std::string lastEncoderDescription_ VD_GUARDED_BY(stateMutex_);
};

}  // namespace Veldrift
