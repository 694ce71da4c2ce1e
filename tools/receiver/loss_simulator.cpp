#include "tools/receiver/loss_simulator.h"

#include <utility>

namespace Veldrift {

namespace {

constexpr uint32_t kMaxOvertakers = 8;

}  // namespace

LossSimulator::LossSimulator(const LossSettings& settings, Sink sink)
    : settings_(settings), sink_(std::move(sink)), random_(settings.seed) {}

bool LossSimulator::Happens(double percent) {
  if (percent <= 0) return false;
  // The library's distributions differ from one implementation to the next; its generator doesn't.
  return double(random_()) < percent / 100 * 4294967296.0;
}

void LossSimulator::ReleaseDue() {
  for (size_t i = 0; i < held_.size();) {
    if (--held_[i].overtakers > 0) {
      ++i;
      continue;
    }
    const std::vector<std::byte> datagram = std::move(held_[i].datagram);
    held_.erase(held_.begin() + std::ptrdiff_t(i));
    sink_(datagram);
  }
}

void LossSimulator::Push(std::span<const std::byte> datagram) {
  if (Happens(settings_.dropPercent)) {
    ++dropped_;
    return;
  }
  if (Happens(settings_.reorderPercent)) {
    ++reordered_;
    held_.push_back({{datagram.begin(), datagram.end()}, 1 + uint32_t(random_()) % kMaxOvertakers});
    return;
  }
  sink_(datagram);
  ReleaseDue();
}

void LossSimulator::Flush() {
  std::vector<Held> held = std::move(held_);
  held_.clear();
  for (const Held& each : held) sink_(each.datagram);
}

}  // namespace Veldrift
