#include "tests/transforms/module/traits.h"

#include <array>
#include <string_view>
#include <utility>

#include "tests/transforms/common/environment.h"

namespace Veldrift::Transforms {
namespace {

constexpr auto kDeviceRemoved = static_cast<HRESULT>(0x887A0005U);

template <class T, size_t Count>
bool Choose(std::string_view value, const std::array<std::pair<const char*, T>, Count>& choices,
            T& chosen) {
  for (const auto& [name, meaning] : choices) {
    if (value != name) continue;
    chosen = meaning;
    return true;
  }
  return false;
}

constexpr std::array<std::pair<const char*, bool>, 2> kYesNo = {{{"yes", true}, {"no", false}}};
constexpr std::array<std::pair<const char*, Header>, 3> kHeaders = {
    {{"record", Header::Record}, {"annexb", Header::AnnexB}, {"none", Header::None}}};
constexpr std::array<std::pair<const char*, Units>, 2> kUnits = {
    {{"annexb", Units::AnnexB}, {"lengths", Units::Lengths}}};
constexpr std::array<std::pair<const char*, Nv12>, 3> kNv12Places = {
    {{"first", Nv12::First}, {"later", Nv12::Later}, {"none", Nv12::None}}};

// "3@10": three, from frame 10.
bool ReadChanges(std::string_view value, Traits& traits) {
  const size_t at = value.find('@');
  if (at != std::string_view::npos && !ReadNumber(value.substr(at + 1), traits.changeAt)) {
    return false;
  }
  return ReadNumber(value.substr(0, at), traits.changes);
}

// "12" or "12=887A0020".
bool ReadDeath(std::string_view value, Traits& traits) {
  const size_t equals = value.find('=');
  traits.deathResult = kDeviceRemoved;
  if (equals != std::string_view::npos &&
      !ReadResult(value.substr(equals + 1), traits.deathResult)) {
    return false;
  }
  return ReadNumber(value.substr(0, equals), traits.dieAt);
}

// "1920x1088".
bool ReadLargest(std::string_view value, Traits& traits) {
  const size_t by = value.find('x');
  return by != std::string_view::npos && ReadNumber(value.substr(0, by), traits.maxWidth) &&
         ReadNumber(value.substr(by + 1), traits.maxHeight);
}

bool ReadFlags(std::string_view key, std::string_view value, Traits& traits, bool& known) {
  const std::array<std::pair<std::string_view, bool*>, 9> flags = {
      {{"d3d", &traits.acceptsD3d},
       {"d3d-aware", &traits.d3d11Aware},
       {"provides", &traits.providesSamples},
       {"late-header", &traits.headerAfterChange},
       {"sets-in-stream", &traits.setsInStream},
       {"clean-point", &traits.marksCleanPoint},
       {"times", &traits.timesOutputs},
       {"drains", &traits.drains},
       {"own-gop", &traits.ownGop}}};
  for (const auto& [name, flag] : flags) {
    if (key != name) continue;
    known = true;
    return Choose(value, kYesNo, *flag);
  }
  return false;
}

bool ReadNumbers(std::string_view key, std::string_view value, Traits& traits, bool& known) {
  const std::array<std::pair<std::string_view, int*>, 8> numbers = {
      {{"lead", &traits.leadBytes},
       {"refuse", &traits.refuseAt},
       {"stall", &traits.stallAt},
       {"delay", &traits.delay},
       {"credits", &traits.credits},
       {"threads", &traits.threads},
       {"pieces", &traits.pieces},
       {"output-size", &traits.outputSize}}};
  for (const auto& [name, number] : numbers) {
    if (key != name) continue;
    known = true;
    return ReadNumber(value, *number) && *number >= 0;
  }
  return false;
}

bool ReadWord(std::string_view word, Traits& traits) {
  const size_t equals = word.find('=');
  if (equals == std::string_view::npos) return false;
  const std::string_view key = word.substr(0, equals);
  const std::string_view value = word.substr(equals + 1);
  bool known = false;
  if (ReadFlags(key, value, traits, known) || ReadNumbers(key, value, traits, known)) return true;
  if (known) return false;
  if (key == "header") return Choose(value, kHeaders, traits.header);
  if (key == "units") return Choose(value, kUnits, traits.units);
  if (key == "nv12") return Choose(value, kNv12Places, traits.nv12);
  if (key == "changes") return ReadChanges(value, traits);
  if (key == "die") return ReadDeath(value, traits);
  if (key == "largest") return ReadLargest(value, traits);
  return key == "fail" && traits.failures.Add(value);
}

}  // namespace

bool ReadTraitsOf(const Kind& kind, const std::string& text, Traits& traits, std::string& unknown) {
  traits = {};
  traits.acceptsD3d = traits.d3d11Aware = kind.Hardware();
  traits.providesSamples = kind.family.async;
  for (const std::string& word : SplitWords(text)) {
    if (ReadWord(word, traits)) continue;
    unknown = word;
    return false;
  }
  return true;
}

}  // namespace Veldrift::Transforms
