#include "log_findings.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace Veldrift {

namespace {

constexpr size_t kMostErrors = 5;
constexpr std::array<std::string_view, 2> kErrorLevels = {"ERROR", "FAULT"};
constexpr std::string_view kStall = "encoder stall: ";
constexpr std::string_view kAdapter = "D3D11 device on adapter: ";
constexpr std::string_view kResident = "[BigOne] GPU-resident status: ";
// Where no adapter was used: the device, or the library that makes it.
constexpr std::array<std::string_view, 2> kNoAdapter = {"D3D11CreateDevice failed ", "not there: "};
constexpr std::array<std::string_view, 2> kLatches = {"latching CPU fallback", "GPU FALLBACK"};
constexpr std::array<std::string_view, 2> kNoEncoder = {
    "encoder Configure failed (", "TransmitInstance: encoder factory returned null"};

std::string Unquoted(std::string_view text) {
  if (text.size() < 2 || text.front() != '"' || text.back() != '"') return std::string(text);
  return std::string(text.substr(1, text.size() - 2));
}

}  // namespace

void LogFindings::Note(const LogEntry& entry) {
  const std::string_view message = entry.message;
  const auto begins = [&](std::string_view head) { return message.starts_with(head); };
  const auto contains = [&](std::string_view part) { return message.find(part) != message.npos; };
  if (begins(kAdapter)) adapter = Unquoted(message.substr(kAdapter.size()));
  if (begins(kResident)) resident = message.substr(kResident.size());
  if (std::ranges::any_of(kNoAdapter, begins)) noAdapter = message;
  if (std::ranges::any_of(kLatches, contains)) latches.emplace_back(message);
  if (std::ranges::any_of(kNoEncoder, begins)) noEncoder = true;
  if (begins(kStall)) ++stalls;
  if (std::ranges::find(kErrorLevels, entry.level) == kErrorLevels.end()) return;
  if (++errorCount <= kMostErrors) errors.push_back(entry.category + ": " + entry.message);
}

}  // namespace Veldrift
