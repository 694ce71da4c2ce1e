#include "tools/receiver/media_receiver.h"

#include <utility>
#include <vector>

#include "support/clock.h"
#include "tools/platform/client_sockets.h"

namespace Veldrift {

namespace {

constexpr int kReceiveBufferBytes = 8 << 20;
constexpr int64_t kSliceNs = 100 * kNanosPerMilli;        // how soon Stop is seen
constexpr int64_t kWaitingSliceNs = 10 * kNanosPerMilli;  // how soon a waiting frame is given up
constexpr size_t kBatch = 64;                             // datagrams taken in one go
constexpr size_t kBufferBytes = kMaxDatagramBytes + 1;    // one more, to see a longer one

// A port that can't be bound on an address that can is somebody else's.
MediaReceiver::OpenResult WhyNot(const Ipv4Endpoint& local, std::string& error) {
  const std::string reason = ErrorText();
  const std::string address = local.address == 0 ? "any address" : AddressText(local.address);
  if (OpenDatagramReceiver({local.address, 0}, 0)) {
    error =
        "port " + std::to_string(local.port) + " on " + address + " is in use by another program";
    return MediaReceiver::OpenResult::PortInUse;
  }
  error = "can't receive on " + address + ": " + reason;
  return MediaReceiver::OpenResult::Failed;
}

}  // namespace

// One socket, its thread and what the thread owns.
class MediaReceiver::Stream {
 public:
  Stream(StreamType stream, const MediaReceiverOptions& options,
         std::unique_ptr<DatagramSocket> socket)
      : socket_(std::move(socket)),
        assembler_(stream, options.limits,
                   [this](WholeFrame&& frame) { Deliver(std::move(frame)); }),
        loss_(SeedFor(stream, options.loss),
              [this](std::span<const std::byte> bytes) { assembler_.Add(bytes, nowNs_); }) {}

  void Start(const FrameCallback& onFrame, const std::atomic<bool>& running,
             const std::atomic<uint32_t>& connection) {
    onFrame_ = &onFrame;
    thread_ = std::thread([this, &running, &connection] { Run(running, connection); });
  }

  void Join() {
    if (thread_.joinable()) thread_.join();
  }

  MediaCounters Counters() const {
    const MutexLock lock(mutex_);
    return published_;
  }

  std::vector<LostFrame> Lost() const { return ledger_.Lost(); }

 private:
  // Two streams with the same seed would lose in step.
  static LossSettings SeedFor(StreamType stream, LossSettings settings) {
    if (stream == StreamType::Audio) settings.seed ^= 0x5A5A5A5A;
    return settings;
  }

  void Run(const std::atomic<bool>& running, const std::atomic<uint32_t>& connection) {
    std::vector<std::byte> memory(kBatch * kBufferBytes);
    std::vector<DatagramSocket::Slot> slots(kBatch);
    for (size_t i = 0; i < kBatch; ++i) {
      slots[i].buffer = std::span(memory).subspan(i * kBufferBytes, kBufferBytes);
    }
    while (running) {
      const size_t count =
          socket_->ReceiveMany(slots, assembler_.Waits() ? kWaitingSliceNs : kSliceNs);
      nowNs_ = SteadyNanos();
      Follow(connection);
      for (const DatagramSocket::Slot& slot : std::span(slots).first(count)) {
        PassOn(slot.buffer.first(slot.length));
      }
      assembler_.Poll(nowNs_);
      Publish();
    }
    loss_.Flush();
    assembler_.Flush();
    Publish();
  }

  void Follow(uint32_t connection) {
    if (connection == connection_) return;
    loss_.Flush();
    assembler_.BeginAnew();
    ledger_.BeginAnew();
    connection_ = connection;
  }

  void PassOn(std::span<const std::byte> datagram) {
    const uint64_t before = loss_.Dropped();
    loss_.Push(datagram);
    ledger_.Note(datagram, loss_.Dropped() > before);
  }

  void Deliver(WholeFrame&& frame) {
    ledger_.Delivered(frame.frameNumber);
    frame.connection = connection_;
    (*onFrame_)(std::move(frame));
  }

  void Publish() {
    const MediaCounters counters{assembler_.Counters(), loss_.Dropped(), loss_.Reordered()};
    const MutexLock lock(mutex_);
    published_ = counters;
  }

  const std::unique_ptr<DatagramSocket> socket_;
  const FrameCallback* onFrame_ = nullptr;
  int64_t nowNs_ = 0;         // the receiving thread's
  uint32_t connection_ = 0;   // the receiving thread's
  FrameAssembler assembler_;  // the receiving thread's
  LossSimulator loss_;        // the receiving thread's
  ArrivalLedger ledger_;      // the receiving thread's
  mutable Mutex mutex_;
  MediaCounters published_ VD_GUARDED_BY(mutex_);
  std::thread thread_;
};

MediaReceiver::MediaReceiver(const MediaReceiverOptions& options) : options_(options) {}

MediaReceiver::~MediaReceiver() { Stop(); }

MediaReceiver::OpenResult MediaReceiver::Open(std::string& error) {
  for (const StreamType stream : {StreamType::Video, StreamType::Audio}) {
    const bool isVideo = stream == StreamType::Video;
    const Ipv4Endpoint local{options_.bindAddress,
                             isVideo ? options_.videoPort : options_.audioPort};
    std::unique_ptr<DatagramSocket> socket = OpenRunReceiver(local, kReceiveBufferBytes);
    if (!socket) return WhyNot(local, error);
    (isVideo ? video_ : audio_) = std::make_unique<Stream>(stream, options_, std::move(socket));
  }
  return OpenResult::Opened;
}

void MediaReceiver::Start(FrameCallback onFrame) {
  onFrame_ = std::move(onFrame);
  running_ = true;
  video_->Start(onFrame_, running_, connection_);
  audio_->Start(onFrame_, running_, connection_);
}

void MediaReceiver::Stop() {
  running_ = false;
  for (const auto& stream : {video_.get(), audio_.get()}) {
    if (stream != nullptr) stream->Join();
  }
}

MediaCounters MediaReceiver::Counters(StreamType stream) const {
  const Stream* which = stream == StreamType::Video ? video_.get() : audio_.get();
  return which != nullptr ? which->Counters() : MediaCounters{};
}

std::vector<LostFrame> MediaReceiver::Lost(StreamType stream) const {
  const Stream* which = stream == StreamType::Video ? video_.get() : audio_.get();
  return which != nullptr ? which->Lost() : std::vector<LostFrame>{};
}

}  // namespace Veldrift
