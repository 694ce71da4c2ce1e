#include "tests/transforms/module/encoding.h"

#include <utility>

namespace Veldrift::Transforms {

void Encoding::SetSize(const CodecSize& size) {
  const std::lock_guard lock(mutex_);
  size_ = size;
  size_.threads = traits_.threads;
  codec_.reset();
  setsBefore_.clear();
  begun_ = false;
}

bool Encoding::Reopen(const Rates& rates) {
  if (codec_) setsBefore_ = codec_->Sets();
  codec_.reset();
  codec_ = Codec::Open(size_, rates);
  sinceKey_ = 0;
  return codec_ != nullptr;
}

// New rates that the codec can't take while it runs wait for a key frame, which a new codec begins
// with; a quantiser doesn't wait.
bool Encoding::Prepare(const FrameOrder& order) {
  if (size_.width == 0) return false;
  Rates rates = properties_.CurrentRates();
  if (size_.hevc) rates.qp = order.qp;
  if (!codec_) return Reopen(rates);
  if (codec_->TakeRates(rates)) return true;
  const bool waits = begun_ && !order.keyFrame && rates.qp == codec_->CurrentRates().qp;
  return waits || Reopen(rates);
}

Bytes Encoding::SequenceHeader() {
  const std::lock_guard lock(mutex_);
  if (traits_.header == Header::None || !Prepare({})) return {};
  return traits_.header == Header::Record ? MakeRecord(codec_->Sets(), size_.hevc)
                                          : JoinAnnexB(codec_->Sets());
}

bool Encoding::Encode(const Picture& picture, FrameOrder order, Output& output) {
  const std::lock_guard lock(mutex_);
  const uint32_t gop = traits_.ownGop ? properties_.GopSize() : 0;
  if (gop != 0 && sinceKey_ >= gop) order.keyFrame = true;
  if (!Prepare(order)) return false;
  CodedFrame coded;
  if (!codec_->Encode(picture, order, coded)) return false;
  output.newSets = SetsHaveToBeTold();
  setsBefore_.clear();
  begun_ = true;
  sinceKey_ = coded.keyFrame ? 1 : sinceKey_ + 1;
  output.keyFrame = coded.keyFrame;
  output.bytes = Finish(coded);
  return true;
}

// Only those that don't come with the stream have to be told.
bool Encoding::SetsHaveToBeTold() const {
  return begun_ && traits_.header != Header::None && !traits_.setsInStream &&
         !setsBefore_.empty() && setsBefore_ != codec_->Sets();
}

Bytes Encoding::Finish(const CodedFrame& coded) const {
  std::vector<Bytes> units;
  if (coded.keyFrame && traits_.setsInStream) units = codec_->Sets();
  if (traits_.leadBytes > 0) {
    units.push_back(MakeUserData(static_cast<size_t>(traits_.leadBytes), size_.hevc));
  }
  units.insert(units.end(), coded.units.begin(), coded.units.end());
  return traits_.units == Units::Lengths ? JoinLengths(units) : JoinAnnexB(units);
}

}  // namespace Veldrift::Transforms
