#include "ui/setup_layout.h"

namespace Veldrift {
namespace {

constexpr int kLeftColumn = 34;
constexpr int kRightColumn = 430;
constexpr int kRowWidth = 356;
constexpr int kRowHeight = 18;
constexpr int kLabelColumn = 110;
constexpr int kLabelLeft = 22;

constexpr std::array<ControlTraits, 18> kMainControls = {{
    {ControlKind::Static, kTitleId, {20, 20, 780, 30}, FontRole::Title, kNoTag, "Ombrette"},
    {ControlKind::Static,
     kSubtitleId,
     {20, 54, 780, 20},
     FontRole::Subtitle,
     kNoTag,
     "Scan the QR code with the Ombrette iOS app to connect."},
    {ControlKind::Bitmap, kQrPictureId, {32, 94, kQrSide, kQrSide}, FontRole::Body, kNoTag, ""},
    {ControlKind::Static, kNoId, {270, 96, 516, 18}, FontRole::Section, kHeadingTag, "DEVICE"},
    {ControlKind::Dot, kStatusDotId, {270, 118, 14, 14}, FontRole::Body, kNoTag, ""},
    {ControlKind::Static, kStatusTextId, {288, 116, 498, 18}, FontRole::Body, kLabelTag, "Idle"},
    {ControlKind::Static, kNoId, {270, 150, 18, 18}, FontRole::Icon, kIconTag, "\uE770"},
    {ControlKind::Static, kNoId, {292, 150, 70, 18}, FontRole::Small, kLabelTag, "Name"},
    {ControlKind::Edit, kNameEditId, {362, 146, 342, 26}, FontRole::Body, kNoTag, ""},
    {ControlKind::Button, kSaveId, {708, 146, 78, 26}, FontRole::Body, kNoTag, "Save"},
    {ControlKind::Switch,
     kDiscoverableId,
     {270, 178, 516, 28},
     FontRole::Body,
     kNoTag,
     "Discoverable on network",
     0xE701},
    {ControlKind::Switch,
     kEncoderSwitchId,
     {270, 210, 516, 28},
     FontRole::Body,
     kNoTag,
     "Use NVIDIA / Intel HW HEVC encoder",
     0xE950},
    {ControlKind::Static,
     kEncoderLineId,
     {270, 242, 516, 36},
     FontRole::Fine,
     kNoTag,
     "Active encoder: —"},
    {ControlKind::Static,
     kNoId,
     {270, 320, 516, 18},
     FontRole::Section,
     kHeadingTag,
     "TRUSTED IPHONES"},
    {ControlKind::Static, kInstanceLineId, {20, 478, 780, 16}, FontRole::Fine, kNoTag, ""},
    {ControlKind::Button,
     kDisclosureId,
     {20, 502, 180, 28},
     FontRole::Body,
     kNoTag,
     kDisclosureClosed},
    {ControlKind::Button, kCloseId, {700, 502, 100, 28}, FontRole::Body, kNoTag, "Close"},
    {ControlKind::Static,
     kNoId,
     {20, kHintTopExpanded, 780, 36},
     FontRole::Fine,
     kHintTag,
     "Streaming starts automatically when you play back in Premiere.\nEnable or disable this "
     "device from Preferences → Playback → Video Device."},
}};

constexpr std::array<PanelHeading, 5> kHeadings = {{
    {kLeftColumn, 552, "LIVE STREAM"},
    {kLeftColumn, 734, "REQUESTED BY IPHONE"},
    {kLeftColumn, 804, "MANUAL STATE"},
    {kRightColumn, 552, "NETWORK"},
    {kRightColumn, 640, "ADAPTATION"},
}};

constexpr std::array<PanelRow, kPanelValues> kRows = {{
    {kLeftColumn, 574, "Status", PanelValue::Status, 0xF5B0},
    {kLeftColumn, 596, "iPhone", PanelValue::Phone, 0xE8EA},
    {kLeftColumn, 618, "Codec", PanelValue::Codec, 0xE8D6},
    {kLeftColumn, 640, "Bitrate", PanelValue::Bitrate, 0xF0E4},
    {kLeftColumn, 662, "Resolution", PanelValue::Resolution, 0xE740},
    {kLeftColumn, 684, "GOP", PanelValue::Gop, 0xE714},
    {kLeftColumn, 706, "FEC parity", PanelValue::FecParity, 0xE72E},
    {kLeftColumn, 754, "Bitrate ceiling", PanelValue::BitrateCeiling, 0xE74A},
    {kLeftColumn, 776, "Max resolution", PanelValue::MaxResolution, 0xE740},
    {kLeftColumn, 824, "Engine", PanelValue::Engine, 0xE950},
    {kLeftColumn, 846, "Codec", PanelValue::EngineCodec, 0xE8D6},
    {kLeftColumn, 868, "GOP", PanelValue::EngineGop, 0xE714},
    {kRightColumn, 574, "IP", PanelValue::Address, 0xE968},
    {kRightColumn, 596, "Interfaces", PanelValue::Interfaces, 0xEC27},
    {kRightColumn, 618, "Ports", PanelValue::Ports, 0xE8AB},
    {kRightColumn, 660, "Controller", PanelValue::Controller, 0xE9D9},
    {kRightColumn, 682, "Last reason", PanelValue::LastReason, 0xE946},
    {kRightColumn, 704, "Phase", PanelValue::Phase, 0xE91F},
    {kRightColumn, 726, "Loss", PanelValue::Loss, 0xE7BA},
    {kRightColumn, 748, "Backlog", PanelValue::Backlog, 0xE7B8},
    {kRightColumn, 770, "OWD trend", PanelValue::OwdTrend, 0xE916},
    {kRightColumn, 792, "Rate mode", PanelValue::RateMode, 0xEC48},
}};

}  // namespace

std::array<Card, kCards> SetupCards() {
  return {{{20, 82, 244, 306, kWhite.Bgr(), 1},
           {256, 82, 800, 294, kCardColour.Bgr(), 1},
           {256, 306, 800, 466, kCardColour.Bgr(), 1},
           {20, 538, 404, 998, kCardColour.Bgr(), 1},
           {416, 538, 800, 998, kCardColour.Bgr(), 1}}};
}

std::span<const ControlTraits> MainControls() { return kMainControls; }

std::span<const PanelHeading> PanelHeadings() { return kHeadings; }

Place PlaceOf(const PanelHeading& heading) { return {heading.left, heading.top, 200, kRowHeight}; }

std::span<const PanelRow> PanelRows() { return kRows; }

PanelRowPlaces PlacesOf(const PanelRow& row) {
  return {{row.left, row.top, kRowHeight, kRowHeight},
          {row.left + kLabelLeft, row.top, kLabelColumn - kLabelLeft, kRowHeight},
          {row.left + kLabelColumn, row.top, kRowWidth - kLabelColumn, kRowHeight}};
}

PeerRowPlaces PlacesOfPeerRow(const Card& card, size_t row) {
  const int top = card.top + 38 + 40 * int(row);
  const int textWidth = card.right - card.left - 138;
  return {{card.left + 14, top + 6, 22, 22},
          {card.left + 44, top + 2, textWidth, 18},
          {card.left + 44, top + 20, textWidth, 16},
          {card.right - 84, top + 8, 70, 24}};
}

Place NoPeersPlace(const Card& card) {
  return {card.left + 14, card.top + 42, card.right - card.left - 28, 18};
}

std::optional<size_t> RowOfForgetId(int id, size_t rows) {
  if (id < kFirstForgetId || id > kLastForgetId) return std::nullopt;
  const size_t row = size_t(id - kFirstForgetId) / 10;
  return row < rows ? std::optional(row) : std::nullopt;
}

SwitchPlaces PlacesInSwitch(int width, int height, bool checked, bool hasIcon) {
  constexpr int kPillWidth = 44, kPillHeight = 24, kKnob = 20, kInset = 2;
  const Place pill{width - kInset - kPillWidth, (height - kPillHeight) / 2, kPillWidth,
                   kPillHeight};
  const int knobLeft = checked ? pill.left + kPillWidth - kInset - kKnob : pill.left + kInset;
  const int textLeft = hasIcon ? 28 : 2;
  return {pill,
          {knobLeft, pill.top + kInset, kKnob, kKnob},
          {2, 0, 22, height},
          {textLeft, 0, pill.left - 8 - textLeft, height},
          {0, 0, pill.left - 4, height}};
}

Place DotPlace(int width, int height) {
  constexpr int kDiameter = 10;
  return {(width - kDiameter) / 2, (height - kDiameter) / 2, kDiameter, kDiameter};
}

}  // namespace Veldrift
