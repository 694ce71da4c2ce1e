#include "tools/receiver/adaptation.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

#include "net/framing.h"
#include "net/media_datagram.h"

namespace Veldrift {

namespace {

constexpr double kCongestedMs = 40;  // that nearly all of the last pictures waited
constexpr size_t kDelaysKept = 4;
constexpr size_t kTrainsKept = 15;
constexpr size_t kFewestTrains = 8;
constexpr size_t kTrainBytes = 10 * kFragmentBytes;  // fewer datagrams tell no rate
constexpr int64_t kShortestTrainNs = kNanosPerMilli;
constexpr int64_t kFloorPeriodNs = 20 * kNanosPerSecond;
constexpr double kRunOfFullNetwork = 2;  // datagrams missing in a row, on average
constexpr double kFewestMissing = 6;
constexpr double kBadRadio = 0.003;  // of the datagrams
constexpr double kGoodRadio = 0.001;
constexpr int64_t kForgiveRadioNs = 20 * kNanosPerSecond;
constexpr double kHeadroom = 0.7;
constexpr int64_t kResizeNs = 200 * kNanosPerMilli;
constexpr int64_t kKeyFrameNs = 150 * kNanosPerMilli;  // in which a queue behind one gets shorter
constexpr double kFewer = 0.1;  // of the pictures: what a larger one may cost
constexpr double kWorthLarger = 0.05;
constexpr double kWorthSmaller = 0.1;
constexpr double kEnoughDatagrams = 800;  // that tell the share of losses
constexpr size_t kFewestPictures = 8;     // that tell a size, or that a stream flows
constexpr double kEncodersQuality = 75;   // with which it begins a size
constexpr double kLongestKeyFrameNs = 120 * kNanosPerMilli;
constexpr double kLongestFirstNs = 350 * kNanosPerMilli;  // once a size
constexpr double kStartSide = 720;
constexpr double kStartQuality = 40;
constexpr double kIntraCost = 4;  // times the rate, on a network whose limit has been met

// Measured with the generated picture and with film: half as much again for ten per cent of
// quality, and a little less than the number of pixels for the size.
double WeightOf(double shortSide, double quality) {
  return std::pow(shortSide / 1080, 1.5) * std::pow(1.5, quality / 10);
}

std::string Number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, value < 9.95 ? "%.1f" : "%.0f", value);
  return text;
}

}  // namespace

std::string NameOf(const StreamSetting& setting) {
  return std::to_string(setting.shortSide) + "p, quality " + std::to_string(setting.quality) +
         (setting.intra ? ", key frames only" : "");
}

double PictureLossShare(double bytes, double lossShare) {
  const size_t data = DataFragmentCount(size_t(std::max(bytes, 1.0)));
  const size_t parity = ChooseParityCount(data);
  const auto all = double(data + parity);
  if (lossShare <= 0) return 0;
  if (lossShare >= 1) return 1;
  double chance = std::pow(1 - lossShare, all);  // of exactly so many lost
  double repairable = chance;
  for (size_t lost = 1; lost <= parity; ++lost) {
    chance *= (all - double(lost) + 1) / double(lost) * lossShare / (1 - lossShare);
    repairable += chance;
  }
  return std::clamp(1 - repairable, 0.0, 1.0);
}

Adaptation::Adaptation(const AdaptationLimits& limits) : limits_(limits) { BuildLadder(); }

void Adaptation::BuildLadder() {
  // Few sizes: an encoder begins each with a key frame of its own quality, which is a large one.
  constexpr StreamSetting kBelowLimit[] = {{270, 15}, {360, 20}, {360, 30}, {360, 40}, {360, 50},
                                           {720, 30}, {720, 40}, {720, 50}, {720, 60}};
  ladder_.clear();
  const auto add = [this](uint16_t side, uint8_t quality) {
    const double weight = WeightOf(side, quality);
    if (quality > limits_.quality || (!ladder_.empty() && weight <= ladder_.back().weight)) return;
    ladder_.push_back({side, quality, weight});
  };
  for (const StreamSetting& each : kBelowLimit) {
    if (each.shortSide < limits_.shortSide) add(each.shortSide, each.quality);
  }
  for (const int quality : {10, 20, 30, 40, 50, 60, 70}) add(limits_.shortSide, uint8_t(quality));
  add(limits_.shortSide, limits_.quality);
  if (ladder_.empty()) ladder_.push_back({limits_.shortSide, limits_.quality, 1});
  rung_ = std::min(rung_, ladder_.size() - 1);
}

void Adaptation::SettleAt(const StreamSetting& before, int64_t nowNs) {
  if (Setting() != before) Settle(nowNs);
}

StreamSetting Adaptation::SetLimits(const AdaptationLimits& limits, int64_t nowNs) {
  if (limits == limits_ || limits.shortSide == 0) return Setting();
  const StreamSetting before = Setting();
  const double weight = ladder_[rung_].weight;
  limits_ = limits;
  BuildLadder();
  rung_ = 0;
  while (rung_ + 1 < ladder_.size() && ladder_[rung_ + 1].weight <= weight) ++rung_;
  SettleAt(before, nowNs);
  return Setting();
}

StreamSetting Adaptation::FixIntra(std::optional<bool> intra, int64_t nowNs) {
  const StreamSetting before = Setting();
  intraFixed_ = intra.has_value();
  intra_ = intra.value_or(intra_);
  SettleAt(before, nowNs);
  return Setting();
}

StreamSetting Adaptation::Setting() const {
  return {ladder_[rung_].shortSide, ladder_[rung_].quality, intra_};
}

StreamSetting Adaptation::BeginConnection(bool sameNetwork, int64_t nowNs) {
  if (!sameNetwork) {
    const bool fixed = intraFixed_, intra = intra_;
    *this = Adaptation(limits_);
    if (fixed) FixIntra(intra, nowNs);
    const double start = WeightOf(kStartSide, kStartQuality);
    while (rung_ + 1 < ladder_.size() && ladder_[rung_ + 1].weight <= start) ++rung_;
  }
  entries_.clear();
  pictures_.clear();
  radioFromNs_ = decidedNs_ = nowNs;
  clocksApart_.reset();  // another machine's, perhaps
  floorMicros_.reset();
  floorBeforeMicros_.reset();
  Settle(nowNs);
  ExpectQueue();
  return Setting();
}

// ---- Measuring -------------------------------------------------------------------------------

void Adaptation::NotePicture(const PictureArrival& picture) {
  if (picture.keyFrame) {
    keyFrameBytes_ = double(picture.bytes);
    keyFrameNs_ = picture.wholeNs - picture.firstNs;
  }
  pictures_.push_back(picture);
  while (picture.wholeNs - pictures_.front().wholeNs > kWindowNs) pictures_.pop_front();
  const int64_t trainNs = picture.wholeNs - picture.firstNs;
  if (picture.bytes >= kTrainBytes) {
    trainRates_.push_back(double(picture.bytes) * 8e9 /
                          double(std::max(trainNs, kShortestTrainNs)));
    if (trainRates_.size() > kTrainsKept) trainRates_.pop_front();
  }
  if (!picture.sendTimeMicros) return;

  // The clocks have nothing to do with each other: only differences count, and drift slowly.
  const uint32_t apart = uint32_t(picture.firstNs / kNanosPerMicro) - *picture.sendTimeMicros;
  if (!clocksApart_) clocksApart_ = apart;
  const int64_t micros = int32_t(apart - *clocksApart_);
  if (floorMicros_ && picture.wholeNs - floorSinceNs_ > kFloorPeriodNs) {
    floorBeforeMicros_ = floorMicros_;
    floorMicros_ = micros;
    floorSinceNs_ = picture.wholeNs;
  } else if (!floorMicros_) {
    floorSinceNs_ = picture.wholeNs;
  }
  floorMicros_ = std::min(floorMicros_.value_or(micros), micros);
  const int64_t floor = std::min(*floorMicros_, floorBeforeMicros_.value_or(*floorMicros_));
  delaysMs_.push_back(double(micros - floor) / 1e3);
  if (delaysMs_.size() > kDelaysKept) delaysMs_.pop_front();
}

// A single late picture is somebody's pause; all of the last ones are a queue.
double Adaptation::StandingDelayMs() const {
  return delaysMs_.size() < kDelaysKept ? 0 : *std::ranges::min_element(delaysMs_);
}

// Of the present setting; 0 while it isn't known.
double Adaptation::PictureBytes() const {
  double bytes = 0;
  size_t count = 0;
  for (const PictureArrival& picture : pictures_) {
    if (picture.firstNs < changedNs_ + kSettleNs) continue;
    bytes += double(picture.bytes);
    ++count;
  }
  return count < kFewestPictures ? 0 : bytes / double(count);
}

// Of the last pictures, by the sender's clock: more than what comes while a queue fills.
double Adaptation::SentBitsPerSecond() const {
  if (pictures_.size() < kFewestPictures) return 0;
  const std::optional<uint32_t> first = pictures_.front().sendTimeMicros;
  const std::optional<uint32_t> last = pictures_.back().sendTimeMicros;
  if (!first || !last || int32_t(*last - *first) <= 0) return 0;
  double bytes = 0;
  for (const PictureArrival& picture : pictures_) bytes += double(picture.bytes);
  return bytes * 8e6 / double(*last - *first);
}

void Adaptation::Note(const ArrivalCounters& counters, int64_t nowNs) {
  entries_.push_back({counters, nowNs});
  while (nowNs - entries_.front().timeNs > kRadioWindowNs) entries_.pop_front();
}

// What came late fills gaps, so that what is missing can become less.
Adaptation::Change Adaptation::Since(int64_t fromNs) const {
  const auto first = std::ranges::find_if(
      entries_, [fromNs](const Entry& entry) { return entry.timeNs >= fromNs; });
  if (first == entries_.end()) return {};
  const ArrivalCounters& from = first->counters;
  const ArrivalCounters& to = entries_.back().counters;
  const auto grown = [](uint64_t before, uint64_t after) {
    return double(std::max<int64_t>(int64_t(after - before), 0));
  };
  return {grown(from.datagrams, to.datagrams),
          grown(from.missing, to.missing),
          grown(from.gaps, to.gaps),
          grown(from.bytes, to.bytes),
          grown(from.framesWhole, to.framesWhole),
          grown(from.framesLost, to.framesLost),
          double(entries_.back().timeNs - first->timeNs) / 1e9};
}

int64_t Adaptation::KeyFrameTravelNs() const {
  if (carriesBitsPerSecond_ <= 0) return 0;
  return int64_t(2 * keyFrameBytes_ * 8e9 / carriesBitsPerSecond_);
}

// ---- Deciding --------------------------------------------------------------------------------

void Adaptation::Settle(int64_t nowNs) {
  changedNs_ = calmNs_ = nowNs;
  judgedFromNs_ = delaysFromNs_ = nowNs + kSettleNs;
  drainedToMs_ = StandingDelayMs();
  drainedNs_ = drainedToMs_ > kCongestedMs ? nowNs + kSettleNs : 0;
  drainPatienceNs_ = kSettleNs;
  delaysMs_.clear();
  trainRates_.clear();
}

Adaptation::Step Adaptation::Settle(const std::string& why, int64_t nowNs) {
  Settle(nowNs);
  return {Setting(), why + NameOf(Setting())};
}

Adaptation::Step Adaptation::Down(double factor, const std::string& why, int64_t nowNs) {
  const double weight = ladder_[rung_].weight;
  // What fails again soon after it was tried again is left alone for longer.
  if (metLimit_ && climbed_) memoryNs_ = std::min(memoryNs_ * 2, kLongestMemoryNs);
  metLimit_ = true;
  climbed_ = false;
  failedWeight_ = weight;
  failedUntilNs_ = nowNs + memoryNs_;
  while (rung_ > 0 && ladder_[rung_].weight > weight * factor) --rung_;
  radioFromNs_ = nowNs + kSettleNs;
  return Settle(why, nowNs);
}

// The key frames with which a connection, a size and a quality begin are no sign of too much as
// long as what they leave in the queue drains.
void Adaptation::ExpectQueue() {
  drainedToMs_ = std::numeric_limits<double>::max();
  drainedNs_ = delaysFromNs_;
}

// What stood in the queue when less was asked for takes its time.
bool Adaptation::Drains(double standingMs, int64_t nowNs) {
  if (standingMs < 0.9 * drainedToMs_) {
    drainedToMs_ = standingMs;
    drainedNs_ = nowNs;
  }
  return nowNs - drainedNs_ < drainPatienceNs_;
}

std::optional<Adaptation::Step> Adaptation::FleeCongestion(int64_t nowNs) {
  const Change last = Since(std::max(nowNs - kWindowNs, judgedFromNs_));
  const double sent = last.datagrams + last.missing;
  if (last.seconds <= 0 || sent <= 0) return std::nullopt;
  const bool runs = last.missing >= kFewestMissing && last.missing >= kRunOfFullNetwork * last.gaps;
  const double standing = StandingDelayMs();
  const bool late = standing > kCongestedMs && nowNs >= delaysFromNs_ && !Drains(standing, nowNs);
  const bool nothing = last.whole <= 0 && last.datagrams > 0 && last.seconds > 0.5;
  if (!nothing && !late && (!runs || last.lost <= 0)) return std::nullopt;
  calmNs_ = nowNs;
  if (rung_ == 0) return std::nullopt;
  if (nothing) return Down(0.3, "pictures don't come through: ", nowNs);
  const double bits = last.bytes * 8 / last.seconds;
  if (late) {
    carriesBitsPerSecond_ = bits;
    const double sentBits = SentBitsPerSecond();
    const double factor = sentBits > 0 ? std::clamp(0.75 * bits / sentBits, 0.2, 0.6) : 0.6;
    return Down(factor, "network carries " + Number(bits / 1e6) + " Mbit/s: ", nowNs);
  }
  return Down(std::clamp(0.75 * last.datagrams / sent, 0.3, 0.7),
              "network loses " + Number(100 * last.missing / sent) + " % at " + Number(bits / 1e6) +
                  " Mbit/s: ",
              nowNs);
}

double Adaptation::ArrivingShare(size_t rung, double lossShare) const {
  const double bytes = PictureBytes() * ladder_[rung].weight / ladder_[rung_].weight;
  return 1 - PictureLossShare(bytes, lossShare);
}

// The highest rung on which nearly as many pictures arrive as on the best.
size_t Adaptation::BestRungFor(double lossShare) const {
  double best = 0;
  for (size_t i = 0; i < ladder_.size(); ++i) best = std::max(best, ArrivingShare(i, lossShare));
  size_t chosen = ladder_.size() - 1;
  while (chosen > 0 && ArrivingShare(chosen, lossShare) < best - kFewer) --chosen;
  return chosen;
}

std::optional<Adaptation::Step> Adaptation::AnswerRadio(int64_t nowNs) {
  const Change last = Since(std::max(nowNs - kRadioWindowNs, radioFromNs_));
  const double sent = last.datagrams + last.missing;
  if (last.seconds < 0.8 || sent <= 0) return std::nullopt;
  const double share = last.missing / sent;
  const bool single = last.missing < kRunOfFullNetwork * last.gaps;
  if (share > kGoodRadio && single) radioBadNs_ = nowNs;
  const std::string why = "network loses " + Number(100 * share) + " % of the datagrams: ";
  if (!intra_ && !intraFixed_ && single && share >= kBadRadio && last.missing >= kFewestMissing) {
    intra_ = true;
    radioFromNs_ = nowNs;
    const double weight = ladder_[rung_].weight;
    while (metLimit_ && rung_ > 0 && ladder_[rung_].weight > weight / kIntraCost) --rung_;
    return Settle(why, nowNs);
  }
  if (intra_ && !intraFixed_ && nowNs - radioBadNs_ > kForgiveRadioNs) {
    intra_ = false;
    return Settle("network loses hardly anything any more: ", nowNs);
  }
  if (!intra_ || sent < kEnoughDatagrams || PictureBytes() <= 0) return std::nullopt;
  const size_t best = BestRungFor(share);
  if (best > rung_ && metLimit_) return std::nullopt;  // in single steps, as always
  const double gain = ArrivingShare(best, share) - ArrivingShare(rung_, share);
  if (gain < (best > rung_ ? kWorthLarger : kWorthSmaller)) return std::nullopt;
  rung_ = best;
  return Settle(why, nowNs);
}

// Whether the key frames of the next step would keep everything behind them waiting for too long,
// by what the last one of this took; with another size also its first, in the encoder's own
// quality.
bool Adaptation::KeyFrameHoldsUp() const {
  const Rung& now = ladder_[rung_];
  const Rung& next = ladder_[rung_ + 1];
  const auto lasts = [&](double weight) { return double(keyFrameNs_) * weight / now.weight; };
  if (lasts(next.weight) > kLongestKeyFrameNs) return true;
  return next.shortSide != now.shortSide &&
         lasts(WeightOf(next.shortSide, kEncodersQuality)) > kLongestFirstNs;
}

bool Adaptation::MayClimb(int64_t nowNs) const {
  if (rung_ + 1 >= ladder_.size()) return false;
  const int64_t wait = metLimit_ ? kClimbNs : kFirstClimbNs;
  if (nowNs - calmNs_ < wait || pictures_.empty()) return false;
  const double weight = ladder_[rung_ + 1].weight;
  if (nowNs < failedUntilNs_ && weight >= failedWeight_) return false;
  const double growth = weight / ladder_[rung_].weight;
  if (KeyFrameHoldsUp()) return false;
  const Change last = Since(std::max(nowNs - kWindowNs, changedNs_));
  if (last.whole <= 0) return false;
  if (trainRates_.size() >= kFewestTrains) {
    std::vector<double> rates(trainRates_.begin(), trainRates_.end());
    std::ranges::nth_element(rates, rates.begin() + ptrdiff_t(rates.size() / 2));
    if (last.bytes * 8 / last.seconds * growth > kHeadroom * rates[rates.size() / 2]) return false;
  }
  if (!intra_) return true;
  if (PictureBytes() <= 0) return false;
  const Change radio = Since(nowNs - kRadioWindowNs);
  const double share = radio.missing / std::max(radio.datagrams + radio.missing, 1.0);
  return BestRungFor(share) > rung_;
}

std::optional<Adaptation::Step> Adaptation::Climb(int64_t nowNs) {
  if (!MayClimb(nowNs)) return std::nullopt;
  climbed_ = true;
  const bool resized = ladder_[rung_ + 1].shortSide != ladder_[rung_].shortSide;
  ++rung_;
  Step step = Settle("network has room: ", nowNs);
  // What goes wrong from now on is this step's fault, but for a new size's first key frame.
  judgedFromNs_ = nowNs + (resized ? kResizeNs : 0);
  if (!resized) delaysFromNs_ = nowNs;
  ExpectQueue();
  drainPatienceNs_ = resized ? kSettleNs : kKeyFrameNs;
  return step;
}

// A host that stands, or is stepped through, tells nothing about the network.
void Adaptation::LeaveOutPause(int64_t nowNs) {
  const Change last = Since(nowNs - kWindowNs);
  if (last.whole + last.lost < kFewestPictures) {
    calmNs_ = nowNs;
    radioBadNs_ += nowNs - decidedNs_;
  }
  decidedNs_ = nowNs;
}

std::optional<Adaptation::Step> Adaptation::Decide(const ArrivalCounters& counters, int64_t nowNs) {
  Note(counters, nowNs);
  LeaveOutPause(nowNs);
  if (nowNs < judgedFromNs_) return std::nullopt;
  if (std::optional<Step> step = FleeCongestion(nowNs)) return step;
  if (std::optional<Step> step = AnswerRadio(nowNs)) return step;
  return Climb(nowNs);
}

}  // namespace Veldrift
