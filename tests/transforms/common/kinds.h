// The encoders of the test prefix: what is registered, what the list of encoders shows of each, and
// which class identifier stands for it. Read by the module, the shim, the registration and the
// tests.
#pragma once

#include <windows.h>

#include <array>
#include <cstddef>

namespace Veldrift::Transforms {

// A maker's encoder, for either codec.
struct Family {
  const char* name;       // as variables and traces say it
  const wchar_t* label;   // in the friendly name
  const wchar_t* vendor;  // null: software, which names no vendor
  bool async;
};

struct Kind {
  GUID clsid;
  Family family;
  bool hevc;

  constexpr bool Hardware() const { return family.vendor != nullptr; }
};

inline constexpr size_t kFamilyCount = 9;
inline constexpr std::array<Family, kFamilyCount> kFamilies = {{
    {"nvidia", L"Scripted NVIDIA", L"VEN_10DE", false},
    {"nvidia-async", L"Scripted NVIDIA asynchronous", L"VEN_10DE", true},
    {"intel", L"Scripted Intel", L"VEN_8086", false},
    {"intel-async", L"Scripted Intel asynchronous", L"VEN_8086", true},
    {"amd", L"Scripted AMD", L"VEN_1002", false},
    {"amd-async", L"Scripted AMD asynchronous", L"VEN_1002", true},
    {"other", L"Scripted stranger", L"VEN_F00D", false},
    {"other-async", L"Scripted stranger asynchronous", L"VEN_F00D", true},
    {"software", L"Scripted software", nullptr, false},
}};

// The platform lists encoders in the order of their identifiers, so this is the order of the list:
// the families above, each H.264 before HEVC.
constexpr Kind KindAt(size_t place) {
  const auto number = static_cast<unsigned>(place);
  return {{0x5c1a0100U + number, 0x2f7e, 0x4d15, {0x9b, 0x60, 0x7a, 0x51, 0xe2, 0x0c, 0x44, 0x90}},
          kFamilies[place / 2],
          place % 2 == 1};
}

inline constexpr size_t kKindCount = kFamilyCount * 2;

inline constexpr auto kKinds = [] {
  std::array<Kind, kKindCount> kinds{};
  for (size_t place = 0; place < kKindCount; ++place) kinds[place] = KindAt(place);
  return kinds;
}();

// Null if it isn't one of ours.
inline const Kind* FindKind(const GUID& clsid) {
  for (const Kind& kind : kKinds) {
    if (IsEqualGUID(kind.clsid, clsid)) return &kind;
  }
  return nullptr;
}

}  // namespace Veldrift::Transforms
