#include "tools/receiver/adapter.h"

#include <algorithm>
#include <utility>

#include "net/control_protocol.h"

namespace Veldrift {

namespace {

constexpr std::byte kQualityMode{1};
constexpr std::byte kIntraGop{0};
constexpr std::byte kLongGop{3};

AdaptationLimits WithSource(AdaptationLimits limits) {
  if (limits.shortSide == 0) limits.shortSide = AdaptationLimits{}.shortSide;
  return limits;
}

}  // namespace

Adapter::Adapter(const AdaptationLimits& limits, std::function<ArrivalCounters()> arrivals,
                 std::function<uint16_t()> sourceShortSide)
    : mostShortSide_(limits.shortSide),
      arrivals_(std::move(arrivals)),
      sourceShortSide_(std::move(sourceShortSide)),
      policy_(WithSource(limits)) {}

void Adapter::Take(const SharedFrame& frame) {
  if (frame->stream != StreamType::Video) return;
  const MutexLock lock(mutex_);
  policy_.NotePicture({frame->data.size(), frame->keyFrame, frame->firstDatagramNs, frame->wholeNs,
                       frame->sendTimeMicros});
}

int64_t Adapter::KeyFrameTravelNs() const {
  const MutexLock lock(mutex_);
  return policy_.KeyFrameTravelNs();
}

void Adapter::BeginConnection(ControlLink& link, const Teller& tell, int64_t nowNs) {
  known_ = false;
  Adaptation::Step step;
  {
    const MutexLock lock(mutex_);
    step = policy_.BeginConnection(nowNs);
  }
  Obey(step, link, tell, nowNs);
}

void Adapter::Steer(ControlLink& link, const Teller& tell, int64_t nowNs) {
  const ArrivalCounters arrivals = arrivals_();
  const uint16_t source = sourceShortSide_();
  std::optional<Adaptation::Step> step;
  {
    const MutexLock lock(mutex_);
    if (source != 0) {
      policy_.SetShortSide(mostShortSide_ == 0 ? source : std::min(source, mostShortSide_));
    }
    step = policy_.Decide(arrivals, nowNs);
  }
  if (step) {
    ++report_.steps;
    Obey(*step, link, tell, nowNs);
  }
}

void Adapter::Obey(const Adaptation::Step& step, ControlLink& link, const Teller& tell,
                   int64_t nowNs) {
  const StreamSetting& wanted = step.setting;
  if (!known_ || wanted.intra != setting_.intra) {
    link.Send({kSetGopMode, {wanted.intra ? kIntraGop : kLongGop}});
  }
  if (!known_ || wanted.shortSide != setting_.shortSide) {
    link.Send(MaxResolutionCommand(wanted.shortSide));
  }
  link.Send({kSetEncoderMode, {kQualityMode, std::byte(wanted.quality)}});
  setting_ = report_.setting = wanted;
  known_ = true;
  if (report_.entries.size() < AdapterReport::kMostKept) {
    report_.entries.push_back({nowNs, step.sentence});
  }
  tell(step.sentence);
}

}  // namespace Veldrift
