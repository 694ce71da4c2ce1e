// How the setup window looks: its palette, its fonts, and which of them stands where. The tables
// know nothing of a system's calls.
//
// Threads: any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace Veldrift {

// ---- Colours
// -------------------------------------------------------------------------------------

struct Rgb {
  uint8_t red, green, blue;

  // 0x00BBGGRR, as cards keep it.
  constexpr uint32_t Bgr() const { return uint32_t(blue) << 16 | uint32_t(green) << 8 | red; }
  bool operator==(const Rgb&) const = default;
};

constexpr Rgb RgbOf(uint32_t bgr) { return {uint8_t(bgr), uint8_t(bgr >> 8), uint8_t(bgr >> 16)}; }

inline constexpr Rgb kWhite{255, 255, 255};
inline constexpr Rgb kWindowBackground{28, 28, 30};
inline constexpr Rgb kCardColour{44, 44, 46};
inline constexpr Rgb kEditBackground{58, 58, 62};
inline constexpr Rgb kPrimaryText{235, 235, 245};
inline constexpr Rgb kSecondaryText{155, 155, 165};
inline constexpr Rgb kMutedText{105, 105, 115};
inline constexpr Rgb kAccentBlue{10, 132, 255};
inline constexpr Rgb kAccentBluePressed{5, 112, 220};
inline constexpr Rgb kDangerRed{255, 69, 58};
inline constexpr Rgb kDangerRedPressed{210, 50, 40};
inline constexpr Rgb kCardBorder{64, 64, 68};
inline constexpr Rgb kSwitchOff{72, 72, 76};
inline constexpr Rgb kLiveDot{48, 209, 88};
inline constexpr Rgb kIdleDot{105, 105, 115};

// ---- Fonts
// ---------------------------------------------------------------------------------------

enum class FontRole : uint8_t {
  Title,
  Subtitle,
  Section,
  Body,
  BodyStrong,
  Small,
  Mono,
  Fine,
  Icon,
  Spare,
};

struct FontTraits {
  const char* face;
  int height;  // negative: of the characters, without the leading
  int weight;
};

inline constexpr std::array<FontTraits, 10> kFonts = {{{"Segoe UI", -22, 600},
                                                       {"Segoe UI", -13, 400},
                                                       {"Segoe UI", -11, 600},
                                                       {"Segoe UI", -14, 400},
                                                       {"Segoe UI", -14, 600},
                                                       {"Segoe UI", -12, 400},
                                                       {"Consolas", -12, 400},
                                                       {"Segoe UI", -11, 400},
                                                       {"Segoe Fluent Icons", -14, 400},
                                                       {"Segoe UI", -14, 400}}};

// ---- Texts of static controls
// --------------------------------------------------------------------

// The mark of a control that selects its colour. Everything of the panel has kPanelTag alone, by
// which it is found for showing and hiding.
inline constexpr int kNoTag = 0;
inline constexpr int kHeadingTag = 10;
inline constexpr int kLabelTag = 11;
inline constexpr int kPairedTag = 12;
inline constexpr int kIconTag = 13;
inline constexpr int kHintTag = 14;
inline constexpr int kNoPeersTag = 15;
inline constexpr int kWarningTag = 50;
inline constexpr int kPanelTag = 42;

// By the control's id, else by its tag.
Rgb StaticTextColour(int id, int tag);

// ---- Drawn buttons
// -------------------------------------------------------------------------------

enum class ButtonKind : uint8_t { Primary, Secondary, Danger, Quiet };

// Of a control that is drawn as a button.
ButtonKind KindOfButton(int id);

struct ButtonLook {
  Rgb text, fill, border;
};
ButtonLook LookOfButton(ButtonKind kind, bool pressed, bool enabled);

inline constexpr int kCardRadius = 10;
inline constexpr int kButtonRadius = 6;

}  // namespace Veldrift
