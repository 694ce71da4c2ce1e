#include "tools/receiver/adapter.h"

#include <algorithm>
#include <utility>

#include "net/control_protocol.h"
#include "support/little_endian.h"

namespace Veldrift {

namespace {

constexpr std::byte kQualityMode{1};
constexpr uint8_t kIntraGop = 0;
constexpr uint8_t kAutoGop = 2;
constexpr uint8_t kLongGop = 3;

AdaptationLimits WithSource(AdaptationLimits limits, uint16_t source) {
  const uint16_t most = source == 0 ? AdaptationLimits{}.shortSide : source;
  if (limits.shortSide == 0 || (source != 0 && limits.shortSide > source)) limits.shortSide = most;
  return limits;
}

}  // namespace

Adapter::Adapter(const AdaptationLimits& limits, std::function<ArrivalCounters()> arrivals,
                 std::function<uint16_t()> sourceShortSide)
    : arrivals_(std::move(arrivals)),
      sourceShortSide_(std::move(sourceShortSide)),
      policy_(WithSource(limits, 0)),
      wished_(limits) {}

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

bool Adapter::Wish(const Command& command) {
  const std::vector<std::byte>& payload = command.payload;
  if (command.opcode == kSetMaxResolution && payload.size() == 2) {
    wished_.shortSide = GetU16(payload.data());
  } else if (command.opcode == kSetGopMode && payload.size() == 1) {
    gop_ = std::to_integer<uint8_t>(payload[0]);
    if (gop_ == kAutoGop) gop_.reset();
  } else if (command.opcode == kSetEncoderMode && payload.size() == 2) {
    mode_.reset();
    if (payload[0] == kQualityMode) {
      wished_.quality = std::to_integer<uint8_t>(payload[1]);
    } else {
      mode_ = command;
    }
  } else {
    return false;
  }
  return true;
}

std::vector<Command> Adapter::Wishes() const {
  return {MaxResolutionCommand(wished_.shortSide),
          mode_.value_or(Command{kSetEncoderMode, {kQualityMode, std::byte(wished_.quality)}}),
          {kSetGopMode, {std::byte(gop_.value_or(kAutoGop))}}};
}

StreamSetting Adapter::ApplyWishes(int64_t nowNs) {
  const MutexLock lock(mutex_);
  policy_.SetLimits(WithSource(wished_, source_), nowNs);
  return policy_.FixIntra(gop_ ? std::optional(*gop_ == kIntraGop) : std::nullopt, nowNs);
}

void Adapter::BeginConnection(ControlLink& link, const Teller& tell, bool sameNetwork,
                              int64_t nowNs) {
  sent_.clear();
  beginning_ = true;
  rests_ = false;
  beganNs_ = nowNs;
  if (!sameNetwork) source_ = 0;
  {
    const MutexLock lock(mutex_);
    policy_.BeginConnection(sameNetwork, nowNs);
  }
  setting_ = ApplyWishes(nowNs);
  Steer(link, tell, nowNs);
}

void Adapter::Steer(ControlLink& link, const Teller& tell, int64_t nowNs) {
  const uint16_t source = sourceShortSide_();
  const bool otherSource = source != 0 && source != source_;
  if (otherSource) source_ = source;
  if (mode_) return Rest(link, tell, nowNs);
  const bool resumes = std::exchange(rests_, false);
  if (resumes) {
    const MutexLock lock(mutex_);
    policy_.BeginConnection(true, nowNs);
  }
  const StreamSetting before = setting_;
  setting_ = ApplyWishes(nowNs);
  Send(link);
  if (beginning_ && (source_ != 0 || nowNs - beganNs_ >= kSourcePatienceNs)) {
    SayBeginning(tell, nowNs);
  } else if (!beginning_ && (resumes || setting_ != before)) {
    ++report_.steps;
    const char* why = otherSource ? "the picture has another size: " : "as asked for: ";
    Say(why + NameOf(setting_), tell, nowNs);
  }
  const std::optional<Adaptation::Step> step = Decide(nowNs);
  if (!step) return;
  if (beginning_) SayBeginning(tell, nowNs);
  ++report_.steps;
  setting_ = step->setting;
  Send(link);
  Say(step->sentence, tell, nowNs);
}

std::optional<Adaptation::Step> Adapter::Decide(int64_t nowNs) {
  const ArrivalCounters arrivals = arrivals_();
  const MutexLock lock(mutex_);
  return policy_.Decide(arrivals, nowNs);
}

void Adapter::Rest(ControlLink& link, const Teller& tell, int64_t nowNs) {
  beginning_ = false;
  Send(link);
  if (!std::exchange(rests_, true)) {
    Say("the rate is left to the encoder, as asked for", tell, nowNs);
  }
}

void Adapter::SendChanged(const Command& command, ControlLink& link) {
  std::vector<std::byte>& sent = sent_[command.opcode];
  if (sent == command.payload) return;
  sent = command.payload;
  link.Send(command);
}

void Adapter::Send(ControlLink& link) {
  const uint8_t gop = gop_.value_or(setting_.intra ? kIntraGop : kLongGop);
  SendChanged({kSetGopMode, {std::byte(gop)}}, link);
  SendChanged(MaxResolutionCommand(mode_ ? wished_.shortSide : setting_.shortSide), link);
  SendChanged(mode_.value_or(Command{kSetEncoderMode, {kQualityMode, std::byte(setting_.quality)}}),
              link);
}

void Adapter::SayBeginning(const Teller& tell, int64_t nowNs) {
  beginning_ = false;
  Say("begins with " + NameOf(setting_), tell, nowNs);
}

void Adapter::Say(const std::string& sentence, const Teller& tell, int64_t nowNs) {
  said_ = sentence;
  report_.setting = setting_;
  if (report_.entries.size() < AdapterReport::kMostKept) {
    report_.entries.push_back({nowNs, sentence});
  }
  tell(sentence);
}

}  // namespace Veldrift
