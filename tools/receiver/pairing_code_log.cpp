#include "tools/receiver/pairing_code_log.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "net/control_protocol.h"

namespace Veldrift {

namespace {

constexpr std::string_view kMarker = "pair: challenge=";

constexpr std::string_view kBetween = " for ";

// The rest of a line behind the marker, "123456 for NAME".
std::optional<PairingChallenge> ChallengeIn(std::string_view rest) {
  const std::string_view code = rest.substr(0, kPairingCodeDigits);
  rest.remove_prefix(code.size());
  const bool digits =
      code.size() == kPairingCodeDigits &&
      std::all_of(code.begin(), code.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
  if (!digits || !rest.starts_with(kBetween)) return std::nullopt;
  return PairingChallenge{std::string(code), std::string(rest.substr(kBetween.size()))};
}

}  // namespace

std::vector<PairingChallenge> ChallengesIn(const LogTail& log) {
  std::vector<PairingChallenge> challenges;
  for (const std::string& rest : log.AllBehind(kMarker)) {
    if (auto challenge = ChallengeIn(rest)) challenges.push_back(std::move(*challenge));
  }
  return challenges;
}

PairingCodeLog::PairingCodeLog(std::filesystem::path file, std::string phoneName)
    : log_(std::move(file)), phoneName_(std::move(phoneName)) {}

std::optional<std::string> PairingCodeLog::Find() const {
  std::optional<std::string> newest;
  for (PairingChallenge& challenge : ChallengesIn(log_)) {
    if (challenge.phoneName == phoneName_) newest = std::move(challenge.code);
  }
  return newest;
}

}  // namespace Veldrift
