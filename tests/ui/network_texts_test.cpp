#include "ui/network_texts.h"

#include <gtest/gtest.h>

namespace Veldrift {
namespace {

using Entries = std::vector<NetworkInterfaceInfo>;

TEST(NetworkTexts, CablesComeBeforeRadioAndRadioBeforeTheRest) {
  const NetworkInterfaceInfo other{"Local Area Connection", "10.0.0.1"};
  const NetworkInterfaceInfo radio{"Wi-Fi 2", "10.0.0.2"};
  const NetworkInterfaceInfo cable{"Ethernet 3", "10.0.0.3"};
  const NetworkInterfaceInfo secondCable{"vEthernet (Default)", "10.0.0.4"};
  const NetworkInterfaceInfo small{"ethernet wi-fi", "10.0.0.5"};
  const std::pair<Entries, std::string> cases[] = {
      {{}, ""},
      {{other}, "10.0.0.1"},
      {{small, radio}, "10.0.0.2"},
      {{small, other}, "10.0.0.5"},
      {{radio, cable}, "10.0.0.3"},
      {{cable, radio}, "10.0.0.3"},
      {{other, radio, secondCable, cable}, "10.0.0.4"},
  };
  for (const auto& [entries, address] : cases) EXPECT_EQ(PickPrimaryAddress(entries), address);
}

TEST(NetworkTexts, WhereThereIsNothingTheDialogSaysSo) {
  const Entries two = {{"?", "10.0.0.1"}, {"Ethernet", "192.0.2.7"}};
  EXPECT_EQ(NetworkLine(two), "192.0.2.7");
  EXPECT_EQ(NetworkLine({}), "(no network)");
  EXPECT_EQ(InterfaceRow(two), "?: 10.0.0.1   Ethernet: 192.0.2.7");
  EXPECT_EQ(InterfaceRow({}), "(none)");
}

}  // namespace
}  // namespace Veldrift
