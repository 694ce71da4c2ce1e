// Where everything stands in the setup window, in client pixels: tables of the cards and controls,
// and the arithmetic of what depends on a size or a number of rows. Nothing scales.
//
// Threads: any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "ui/setup_look.h"
#include "ui/setup_texts.h"

namespace Veldrift {

struct Place {
  int left, top, width, height;

  bool operator==(const Place&) const = default;
};

// ---- The window
// ----------------------------------------------------------------------------------

inline constexpr int kWindowWidth = 820;  // outer; the heights come from the client's
inline constexpr int kWindowHeight = 780;
inline constexpr int kHintTopCollapsed = 538;
inline constexpr int kHintTopExpanded = 1010;
inline constexpr int kBelowHintTop = 56;
inline constexpr int kQrSide = 200;
inline constexpr int kTickMs = 500;

// ---- Controls' ids
// -------------------------------------------------------------------------------

inline constexpr int kNoId = -1;
inline constexpr int kTitleId = 2001;
inline constexpr int kSubtitleId = 2002;
inline constexpr int kNameEditId = 2003;
inline constexpr int kSaveId = 2004;
inline constexpr int kDiscoverableId = 2008;
inline constexpr int kCloseId = 2012;
inline constexpr int kEncoderSwitchId = 2016;
inline constexpr int kDisclosureId = 2018;
inline constexpr int kStatusDotId = 2200;
inline constexpr int kStatusTextId = 2201;
inline constexpr int kEncoderLineId = 2202;
inline constexpr int kNetworkLineId = 2203;  // coloured, but not made any more
inline constexpr int kInstanceLineId = 2204;
inline constexpr int kQrPictureId = 2205;
inline constexpr int kFirstForgetId = 2500;
inline constexpr int kLastForgetId = 2799;

// ---- Cards
// ---------------------------------------------------------------------------------------

struct Card {
  int32_t left, top, right, bottom;  // none of it is painted unless right is greater than left
  uint32_t colour;                   // 0x00BBGGRR
  uint16_t bordered;
};

enum CardIndex : size_t { kQrCard, kDeviceCard, kPeersCard, kPanelLeftCard, kPanelRightCard };
inline constexpr size_t kCards = 5;
std::array<Card, kCards> SetupCards();

// ---- Controls
// ------------------------------------------------------------------------------------

enum class ControlKind : uint8_t { Static, Bitmap, Dot, Edit, Button, Switch };

struct ControlTraits {
  ControlKind kind;
  int id;
  Place place;
  FontRole font;
  int tag;
  const char* text;    // UTF-8
  char16_t icon = 0;   // of a switch, in the icon font
  bool clips = false;  // ends in an ellipsis where the text is too long
};

// Those that are always there, in the order in which they are made, which is Tab's.
std::span<const ControlTraits> MainControls();

inline constexpr char kDisclosureClosed[] = "▶  Advanced info";
inline constexpr char kDisclosureOpen[] = "▼  Advanced info";

// ---- The panel
// -----------------------------------------------------------------------------------

struct PanelHeading {
  int left, top;
  const char* text;
};
std::span<const PanelHeading> PanelHeadings();
Place PlaceOf(const PanelHeading& heading);

struct PanelRow {
  int left, top;
  const char* label;
  PanelValue value;
  char16_t icon;
};
std::span<const PanelRow> PanelRows();

struct PanelRowPlaces {
  Place icon, label, value;
};
PanelRowPlaces PlacesOf(const PanelRow& row);

constexpr int IdOf(PanelValue value) {
  const int index = int(value);
  return value < PanelValue::Engine ? 2101 + index : 2137 + index - int(PanelValue::Engine);
}

// ---- The trusted phones
// --------------------------------------------------------------------------

// More aren't shown. The list doesn't scroll: three fit their card, the others run on below it.
inline constexpr size_t kMaxPeerRows = 30;
inline constexpr char16_t kPeerIcon = 0xE8EA;

struct PeerRowPlaces {
  Place icon, name, paired, forget;
};
PeerRowPlaces PlacesOfPeerRow(const Card& card, size_t row);
Place NoPeersPlace(const Card& card);

constexpr int ForgetId(size_t row) { return kFirstForgetId + 10 * int(row); }
// The row of one of so many that a Forget button's id stands for.
std::optional<size_t> RowOfForgetId(int id, size_t rows);

// ---- A switch, and the dot, in their own pixels
// ----------------------------------------------------

struct SwitchPlaces {
  Place pill;  // its radius is half its height
  Place knob;
  Place icon;
  Place text;
  Place focus;
};
SwitchPlaces PlacesInSwitch(int width, int height, bool checked, bool hasIcon);

Place DotPlace(int width, int height);

}  // namespace Veldrift
