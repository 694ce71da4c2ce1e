#include <gtest/gtest.h>

#include "identity/service_advertiser.h"
#include "tests/support/scratch.h"
#include "tools/platform/module_loader.h"

namespace Veldrift {
namespace {

// Wine is a system without the functions, Windows 10 one with them.
TEST(DnsApiResponder, WhereTheSystemHasNoneThereIsNoAdvertiserAndTheLogSaysSo) {
  std::string error;
  const auto library = LoadModule("C:\\windows\\system32\\dnsapi.dll", error);
  const bool there = library && library->FindSymbol("DnsServiceRegister") != nullptr;
  EXPECT_EQ(CreateServiceAdvertiser() != nullptr, there) << error;
  EXPECT_EQ(CreateServiceAdvertiser() != nullptr, there);
  EXPECT_EQ(CountInPluginLog(" — mDNS off\r\n"), there ? 0u : 1u) << ReadPluginLog();
}

}  // namespace
}  // namespace Veldrift
