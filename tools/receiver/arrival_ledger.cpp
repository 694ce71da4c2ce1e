#include "tools/receiver/arrival_ledger.h"

#include <algorithm>

#include "net/media_datagram.h"

namespace Veldrift {

namespace {

// Long after an assembler has given a frame up.
constexpr int64_t kSettledBehind = 512;

}  // namespace

int64_t ArrivalLedger::Place(uint16_t frameNumber) {
  const int64_t number =
      started_ ? newest_ + int16_t(uint16_t(frameNumber - uint16_t(newest_))) : frameNumber;
  newest_ = started_ ? std::max(newest_, number) : number;
  started_ = true;
  return number;
}

void ArrivalLedger::Note(std::span<const std::byte> bytes, bool dropped) {
  const std::optional<MediaDatagram> datagram = ParseDatagram(bytes);
  if (!datagram) return;
  const DatagramHeader& header = datagram->header;
  const int64_t number = Place(header.frameNumber);
  if (number <= newest_ - kSettledBehind) return;
  Entry& entry = open_[number];
  entry.frame.frameNumber = header.frameNumber;
  entry.frame.dataCount = header.fragmentCount - header.ParityCount();
  entry.frame.parityCount = header.ParityCount();
  entry.fragments.resize(header.fragmentCount);
  if (dropped) {
    ++entry.frame.dropped;
  } else if (!entry.fragments[header.fragmentIndex]) {
    entry.fragments[header.fragmentIndex] = true;
    ++entry.frame.came;
  }
  SettleOld();
}

void ArrivalLedger::Delivered(uint16_t frameNumber) {
  const int64_t number = Place(frameNumber);
  newestDelivered_ = std::max(newestDelivered_, number);
  if (number > newest_ - kSettledBehind) open_[number].delivered = true;
}

void ArrivalLedger::Settle(const Entry& entry) {
  if (!entry.delivered && lost_.size() < kMostKept) lost_.push_back(entry.frame);
}

void ArrivalLedger::BeginAnew() {
  for (const auto& [number, entry] : open_) {
    if (number < newestDelivered_) Settle(entry);
  }
  open_.clear();
  newestDelivered_ = -1;
  started_ = false;
}

void ArrivalLedger::SettleOld() {
  while (!open_.empty() && open_.begin()->first <= newest_ - kSettledBehind) {
    Settle(open_.begin()->second);
    open_.erase(open_.begin());
  }
}

std::vector<LostFrame> ArrivalLedger::Lost() const {
  std::vector<LostFrame> lost = lost_;
  for (const auto& [number, entry] : open_) {
    if (!entry.delivered && number < newestDelivered_) lost.push_back(entry.frame);
  }
  return lost;
}

}  // namespace Veldrift
