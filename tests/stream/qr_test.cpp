// The host stand-in's screen for pairing: what it draws is read and means this installation.
#include <gtest/gtest.h>

#include "identity/json_text.h"
#include "platform/file.h"
#include "tests/scan/qr_scanner.h"
#include "tests/stream/stage.h"
#include "tests/support/terminal_picture.h"
#include "tools/phone/phone_exit.h"
#include "tools/receiver/pairing_uri_reader.h"

namespace Veldrift {
namespace {

std::string Joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

// The value of the one line that starts with `prefix`.
std::string Behind(const std::vector<std::string>& lines, const std::string& prefix) {
  std::string found;
  for (const std::string& line : lines) {
    if (!line.starts_with(prefix)) continue;
    EXPECT_EQ(found, "") << "twice: " << prefix;
    found = line.substr(prefix.size());
  }
  return found;
}

TEST(QrOption, TheCodeOnTheScreenLeadsToThisInstallationAndTheDigitsFollow) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost({"--size", "640x360", "--qr"}));
  StandIn& phone = stage.StartPhone("a", {"--seconds", "1"});
  EXPECT_EQ(phone.Wait(), kExitGood) << testing::PrintToString(phone.Complaints());
  ASSERT_TRUE(Eventually([&] {
    return Joined(stage.Host().Complaints()).find("pairing code ") != std::string::npos;
  }));
  stage.Host().Interrupt();
  EXPECT_EQ(stage.Host().Wait(), 0);
  EXPECT_EQ(stage.Host().Summary().value("undisposed", -1), 0) << "the summary is disturbed";

  const std::vector<std::string> shown = stage.Host().Complaints();
  const std::optional<std::string> uri = ScanQr(ShowOnTerminal(Joined(shown), 6, Screen::Paper));
  ASSERT_TRUE(uri.has_value()) << Joined(shown);
  EXPECT_EQ("veldrift://" + Behind(shown, "veldrift://"), *uri);
  const auto identity = ParsePairingUri(*uri);
  ASSERT_TRUE(identity.has_value()) << *uri;
  const std::string file =
      ReadWholeFile(stage.Home() / "settings" / "Veldrift" / "install.json").value_or("no file");
  EXPECT_EQ(identity->id, ExtractJsonString(file, "id"));
  EXPECT_EQ(identity->name, ExtractJsonString(file, "name"));

  const std::string digits = Behind(shown, "veldrift-host: pairing code ");
  EXPECT_EQ(stage.CountInHostLog("pair: challenge=" + digits), 1u) << digits;
  EXPECT_TRUE(digits.ends_with(" for Phone a")) << digits;
}

}  // namespace
}  // namespace Veldrift
