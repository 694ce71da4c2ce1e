#include "tools/host/setup_view.h"

#include <gtest/gtest.h>

#include <fstream>

#include "tests/support/scratch.h"

namespace Veldrift {
namespace {

constexpr char kSeen[] = "DEVICE\nStatus Ready\n\nSTREAM\nCodec A\nRate B\n";

TEST(SetupView, ShowsTheWholeOnceAndThenWhatChanges) {
  const struct {
    const char* seen;
    const char* text;
    const char* changes;
  } cases[] = {
      {"", kSeen, kSeen},
      {kSeen, kSeen, ""},
      {kSeen, "DEVICE\nStatus Gone\n\nSTREAM\nCodec A\nRate C\n",
       "DEVICE: Status Gone\nSTREAM: Rate C\n"},
      {kSeen, "DEVICE\nStatus Ready\n\nSTREAM\nCodec A\n",
       "DEVICE\nStatus Ready\n\nSTREAM\nCodec A\n"},
  };
  for (const auto& each : cases) EXPECT_EQ(ChangesOf(each.seen, each.text), each.changes);
}

TEST(SetupView, ReadsTheModulesFileAndNoEarlierOne) {
  const ScratchFolder folder;
  const std::filesystem::path path = folder.Path() / "status.txt";
  const auto write = [&](const char* text) { std::ofstream(path, std::ios::binary) << text; };
  write("DEVICE\nfrom yesterday\n");
  SetupView view(path);
  EXPECT_EQ(view.Take(), "");
  EXPECT_FALSE(view.Shown());
  write(kSeen);
  EXPECT_EQ(view.Take(), kSeen);
  EXPECT_EQ(view.Take(), "");
  std::filesystem::remove(path);
  EXPECT_EQ(view.Take(), "");
  EXPECT_TRUE(view.Shown());
}

}  // namespace
}  // namespace Veldrift
