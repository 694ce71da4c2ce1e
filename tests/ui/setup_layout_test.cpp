#include "ui/setup_layout.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "ui/setup_look.h"

namespace Veldrift {
namespace {

bool Overlap(const Place& a, const Place& b) {
  return a.left < b.left + b.width && b.left < a.left + a.width && a.top < b.top + b.height &&
         b.top < a.top + a.height;
}

bool Inside(const Place& place, const Card& card) {
  return place.left >= card.left && place.top >= card.top &&
         place.left + place.width <= card.right && place.top + place.height <= card.bottom;
}

// Every place of the expanded window, apart from the hint, whose label moves.
std::vector<Place> Places() {
  std::vector<Place> places;
  for (const ControlTraits& control : MainControls()) {
    if (control.tag != kHintTag) places.push_back(control.place);
  }
  for (const PanelHeading& heading : PanelHeadings()) places.push_back(PlaceOf(heading));
  for (const PanelRow& row : PanelRows()) {
    const PanelRowPlaces rowPlaces = PlacesOf(row);
    places.insert(places.end(), {rowPlaces.icon, rowPlaces.label, rowPlaces.value});
  }
  return places;
}

TEST(SetupLayout, NothingStandsOnAnythingElse) {
  const std::vector<Place> places = Places();
  for (size_t i = 0; i < places.size(); ++i) {
    for (size_t k = i + 1; k < places.size(); ++k) {
      EXPECT_FALSE(Overlap(places[i], places[k]))
          << places[i].left << "," << places[i].top << " and " << places[k].left << ","
          << places[k].top;
    }
  }
  const auto cards = SetupCards();
  for (const PanelRow& row : PanelRows()) {
    const Card& card =
        cards[row.left < cards[kPanelRightCard].left ? kPanelLeftCard : kPanelRightCard];
    const PanelRowPlaces rowPlaces = PlacesOf(row);
    for (const Place& place : {rowPlaces.icon, rowPlaces.label, rowPlaces.value}) {
      EXPECT_TRUE(Inside(place, card)) << row.label;
    }
  }
}

TEST(SetupLayout, EachValueOfThePanelHasOneRowAndAnIdOfItsOwn) {
  std::set<int> ids;
  for (const PanelRow& row : PanelRows()) ids.insert(IdOf(row.value));
  std::set<int> expected;
  for (int id = 2101; id <= 2119; ++id) expected.insert(id);
  expected.insert({2137, 2138, 2139});
  EXPECT_EQ(ids, expected);
  EXPECT_EQ(PanelRows().size(), kPanelValues);
  EXPECT_EQ(IdOf(PanelValue::RateMode), 2119);
  EXPECT_EQ(IdOf(PanelValue::Ports), 2112);
}

TEST(SetupLayout, ARowIsIconLabelAndValue) {
  const PanelRowPlaces first = PlacesOf(PanelRows().front());
  EXPECT_EQ(first.icon, (Place{34, 574, 18, 18}));
  EXPECT_EQ(first.label, (Place{56, 574, 88, 18}));
  EXPECT_EQ(first.value, (Place{144, 574, 246, 18}));
  EXPECT_EQ(PlaceOf(PanelHeadings().front()), (Place{34, 552, 200, 18}));
}

TEST(SetupLayout, ThreePhonesFitTheirCardAndThirtyAreShown) {
  const Card card = SetupCards()[kPeersCard];
  const PeerRowPlaces first = PlacesOfPeerRow(card, 0);
  EXPECT_EQ(first.icon, (Place{270, 350, 22, 22}));
  EXPECT_EQ(first.name, (Place{300, 346, 406, 18}));
  EXPECT_EQ(first.paired, (Place{300, 364, 406, 16}));
  EXPECT_EQ(first.forget, (Place{716, 352, 70, 24}));
  EXPECT_TRUE(Inside(PlacesOfPeerRow(card, 2).forget, card));
  EXPECT_FALSE(Inside(PlacesOfPeerRow(card, 3).forget, card));
  EXPECT_EQ(PlacesOfPeerRow(card, 29).name.top, 346 + 29 * 40);
  EXPECT_EQ(NoPeersPlace(card), (Place{270, 348, 516, 18}));

  EXPECT_EQ(ForgetId(0), 2500);
  EXPECT_EQ(ForgetId(kMaxPeerRows - 1), 2790);
  EXPECT_EQ(RowOfForgetId(2500, 1), 0U);
  EXPECT_EQ(RowOfForgetId(2519, 2), 1U);
  EXPECT_EQ(RowOfForgetId(2790, 30), 29U);
  EXPECT_EQ(RowOfForgetId(2520, 2), std::nullopt);
  EXPECT_EQ(RowOfForgetId(2799, 30), 29U);
  EXPECT_EQ(RowOfForgetId(2800, 99), std::nullopt);
  EXPECT_EQ(RowOfForgetId(2499, 99), std::nullopt);
}

TEST(SetupLayout, ASwitchIsAPillWithAKnobAtItsEnd) {
  const SwitchPlaces off = PlacesInSwitch(516, 28, false, true);
  EXPECT_EQ(off.pill, (Place{470, 2, 44, 24}));
  EXPECT_EQ(off.knob, (Place{472, 4, 20, 20}));
  EXPECT_EQ(off.icon, (Place{2, 0, 22, 28}));
  EXPECT_EQ(off.text, (Place{28, 0, 434, 28}));
  EXPECT_EQ(off.focus, (Place{0, 0, 466, 28}));
  EXPECT_EQ(PlacesInSwitch(516, 28, true, true).knob, (Place{492, 4, 20, 20}));
  EXPECT_EQ(PlacesInSwitch(516, 28, true, false).text, (Place{2, 0, 460, 28}));
  EXPECT_EQ(DotPlace(14, 14), (Place{2, 2, 10, 10}));
}

TEST(SetupLook, TheIdComesBeforeTheTag) {
  struct Case {
    int id, tag;
    Rgb colour;
  };
  const Case cases[] = {
      {2001, kHeadingTag, kPrimaryText},
      {2203, 50, kPrimaryText},
      {2002, 12, kSecondaryText},
      {2202, kLabelTag, kMutedText},
      {2204, 0, kMutedText},
      {-1, 10, kSecondaryText},
      {-1, 11, kSecondaryText},
      {-1, 13, kSecondaryText},
      {-1, 12, kMutedText},
      {-1, 14, kMutedText},
      {-1, 15, kMutedText},
      {-1, 50, kDangerRed},
      {2101, kPanelTag, kPrimaryText},
      {-1, 0, kPrimaryText},
      {2201, 11, kSecondaryText},
  };
  for (const Case& each : cases) {
    EXPECT_EQ(StaticTextColour(each.id, each.tag), each.colour) << each.id << " " << each.tag;
  }
}

TEST(SetupLook, ADisabledButtonHasMutedText) {
  for (int id : {2004, 2012, 2018, 2500, 2790}) {
    const ButtonKind kind = KindOfButton(id);
    EXPECT_EQ(LookOfButton(kind, false, false).text, kMutedText);
    EXPECT_NE(LookOfButton(kind, true, true).fill, LookOfButton(kind, false, true).fill);
    EXPECT_NE(LookOfButton(kind, false, true).text, kMutedText);
  }
  EXPECT_EQ(KindOfButton(2004), ButtonKind::Primary);
  EXPECT_EQ(KindOfButton(2012), ButtonKind::Secondary);
  EXPECT_EQ(KindOfButton(2018), ButtonKind::Quiet);
  EXPECT_EQ(KindOfButton(2500), ButtonKind::Danger);
  EXPECT_EQ(LookOfButton(ButtonKind::Danger, false, true).border, kDangerRed);
  EXPECT_EQ(LookOfButton(ButtonKind::Quiet, false, true).border, (Rgb{80, 80, 84}));
}

}  // namespace
}  // namespace Veldrift
