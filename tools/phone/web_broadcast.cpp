#include "web_broadcast.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Veldrift {

namespace {

// How often one that waits for a key frame looks whether pictures still come.
constexpr int64_t kLookNs = 100 * kNanosPerMilli;

}  // namespace

void WebBroadcast::Begin(WebEpoch epoch) {
  const MutexLock lock(mutex_);
  epoch_ = std::make_shared<const WebEpoch>(std::move(epoch));
  firstNumber_ = EndNumber();
  items_.clear();
  bytes_ = 0;
  key_.reset();
  changed_.NotifyAll();
}

void WebBroadcast::Push(WebFragment fragment) {
  const int64_t nowNs = clock_.NowNanos();
  const MutexLock lock(mutex_);
  if (!epoch_) return;
  if (fragment.video) pictureNs_ = nowNs;
  if (fragment.keyFrame) {
    key_ = EndNumber();
    keyNs_ = nowNs;
  }
  bytes_ += fragment.bytes.size();
  items_.push_back({std::make_shared<const WebFragment>(std::move(fragment)), nowNs});
  while (bytes_ > kMostBytes) {
    bytes_ -= items_.front().fragment->bytes.size();
    items_.pop_front();
    ++firstNumber_;
  }
  changed_.NotifyAll();
}

void WebBroadcast::Stop() {
  const MutexLock lock(mutex_);
  stopped_ = true;
  changed_.NotifyAll();
}

bool WebBroadcast::KeyFrameWanted() const {
  const MutexLock lock(mutex_);
  return waiting_ > 0;
}

size_t WebBroadcast::ViewerCount() const {
  const MutexLock lock(mutex_);
  return viewers_;
}

std::optional<uint64_t> WebBroadcast::Start(int64_t nowNs) const {
  if (!key_ || *key_ < firstNumber_) return std::nullopt;
  const bool flows = nowNs - pictureNs_ < kSilenceNs;
  return nowNs - keyNs_ > kFreshNs && flows ? std::nullopt : key_;
}

std::unique_ptr<WebBroadcast::Viewer> WebBroadcast::Watch(bool sound, int64_t patienceNs) {
  const int64_t deadlineNs = clock_.NowNanos() + patienceNs;
  std::shared_ptr<const WebEpoch> epoch;
  {
    MutexLock lock(mutex_);
    while (!stopped_ && !epoch_ && clock_.NowNanos() < deadlineNs) {
      clock_.WaitUntil(changed_, lock, deadlineNs);
    }
    if (stopped_ || !epoch_) return nullptr;
    epoch = epoch_;
  }
  return std::make_unique<Viewer>(*this, std::move(epoch), sound);
}

WebBroadcast::Viewer::Viewer(WebBroadcast& broadcast, std::shared_ptr<const WebEpoch> epoch,
                             bool sound)
    : broadcast_(broadcast), epoch_(std::move(epoch)), sound_(sound) {
  rest_ = sound_ ? epoch_->init : epoch_->silentInit;
  const MutexLock lock(broadcast_.mutex_);
  ++broadcast_.viewers_;
  ++broadcast_.waiting_;
  LookForStart(broadcast_.clock_.NowNanos());
}

WebBroadcast::Viewer::~Viewer() {
  const MutexLock lock(broadcast_.mutex_);
  --broadcast_.viewers_;
  if (!next_) --broadcast_.waiting_;
}

const std::string& WebBroadcast::Viewer::Codecs() const {
  return sound_ ? epoch_->codecs : epoch_->silentCodecs;
}

void WebBroadcast::Viewer::LookForStart(int64_t nowNs) {
  if (next_ || epoch_ != broadcast_.epoch_) return;
  next_ = broadcast_.Start(nowNs);
  if (!next_) return;
  beganNs_ = nowNs;
  --broadcast_.waiting_;
}

bool WebBroadcast::Viewer::Over(int64_t nowNs) const {
  if (broadcast_.stopped_ || epoch_ != broadcast_.epoch_) return true;
  if (!next_ || *next_ >= broadcast_.EndNumber()) return false;
  if (*next_ < broadcast_.firstNumber_) return true;
  // What lay there when it came isn't its fault.
  const Item& item = broadcast_.items_[size_t(*next_ - broadcast_.firstNumber_)];
  return nowNs - std::max(item.pushedNs, beganNs_) > kMostBehindNs;
}

std::optional<WebBroadcast::Item> WebBroadcast::Viewer::Take(int64_t nowNs) {
  LookForStart(nowNs);
  while (next_ && *next_ < broadcast_.EndNumber()) {
    const Item& item = broadcast_.items_[size_t((*next_)++ - broadcast_.firstNumber_)];
    if (sound_ || item.fragment->video) return item;
  }
  return std::nullopt;
}

std::optional<std::span<const std::byte>> WebBroadcast::Viewer::Next() {
  Clock& clock = broadcast_.clock_;
  int64_t nowNs = clock.NowNanos();
  const int64_t deadlineNs = nowNs + kIdleNs;
  MutexLock lock(broadcast_.mutex_);
  for (; nowNs < deadlineNs; nowNs = clock.NowNanos()) {
    if (Over(nowNs)) return std::nullopt;
    if (const std::optional<Item> item = Take(nowNs)) {
      held_ = item->fragment;
      return held_->bytes;
    }
    clock.WaitUntil(broadcast_.changed_, lock,
                    next_ ? deadlineNs : std::min(deadlineNs, nowNs + kLookNs));
  }
  return IdleBox();
}

size_t WebBroadcast::Viewer::Read(std::span<std::byte> out) {
  if (rest_.empty()) {
    const std::optional<std::span<const std::byte>> next = Next();
    if (!next) return 0;
    rest_ = *next;
  }
  const size_t count = std::min(out.size(), rest_.size());
  std::memcpy(out.data(), rest_.data(), count);
  rest_ = rest_.subspan(count);
  return count;
}

}  // namespace Veldrift
