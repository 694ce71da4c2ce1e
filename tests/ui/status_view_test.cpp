#include "ui/status_view.h"

#include <gtest/gtest.h>

namespace Veldrift {
namespace {

TEST(StatusView, SaysWhatTheWindowSays) {
  InstallState install;
  install.identity = {"id-1", "Cutting room"};
  install.interfaces = {{"Ethernet", "192.0.2.7"}};
  install.discoverable = true;
  LiveState live;
  live.connected = live.running = true;
  live.phone = "192.0.2.9";
  live.encoderName = "x264 [SW]";
  live.settings.encoderMode = 2;
  live.encoder = {0, "Any", 1, GopClass::Long, true};
  EXPECT_EQ(StatusView(install, live, {{"p", "Red phone", "t", "2026-01-02T03:04:05Z"}}),
            "DEVICE\n"
            "Status            Streaming\n"
            "Name              Cutting room\n"
            "Discoverable      on\n"
            "HW encoder        off\n"
            "Encoder           x264 [SW]\n"
            "Instance ID       id-1\n"
            "Pairing URI       veldrift://pair?v=3&id=id-1&name=Cutting%20room\n"
            "\nTRUSTED IPHONES\n"
            "Red phone, paired 2026-01-02T03:04:05Z\n"
            "\nLIVE STREAM\n"
            "Status            Streaming\n"
            "iPhone            192.0.2.9\n"
            "Codec             —\n"
            "Bitrate           —\n"
            "Resolution        —\n"
            "GOP               —\n"
            "FEC parity        —\n"
            "\nREQUESTED BY IPHONE\n"
            "Bitrate ceiling   —\n"
            "Max resolution    —\n"
            "\nMANUAL STATE\n"
            "Engine            Any\n"
            "Codec             H.264\n"
            "GOP               Long-GOP\n"
            "\nNETWORK\n"
            "IP                192.0.2.7\n"
            "Interfaces        Ethernet: 192.0.2.7\n"
            "Ports             47100 control · 47101 video · 47102 audio\n"
            "\nADAPTATION\n"
            "Controller        —\n"
            "Last reason       —\n"
            "Phase             n/a (v1)\n"
            "Loss              —\n"
            "Backlog           —\n"
            "OWD trend         —\n"
            "Rate mode         VBR (peak-constrained)\n");
}

TEST(StatusView, WhatAPhoneCallsItselfStaysOnItsLine) {
  InstallState install;
  install.identity.name = "a\nStatus            Hacked";
  const std::string view =
      StatusView(install, {}, {{"p", "b\n\x1b[2J", "t", ""}, {"q", "\xff", "t", ""}});
  EXPECT_NE(view.find("\nName              a?Status            Hacked\n"), std::string::npos);
  EXPECT_NE(view.find("\nb??[2J\n?\n"), std::string::npos) << view;
}

}  // namespace
}  // namespace Veldrift
