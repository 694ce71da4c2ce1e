#include <gtest/gtest.h>

#include "identity/dns_sd_responder.h"
#include "identity/service_advertiser.h"

namespace Veldrift {
namespace {

// What goes over the wire is tested between network namespaces (tests/dns_sd). Nothing does here:
// the responder is silent until something is registered.

TEST(AvahiResponder, IsThere) { EXPECT_NE(CreateServiceAdvertiser(), nullptr); }

TEST(AvahiResponder, DoesNotBrowseBeforeItHasRegistered) {
  const auto responder = CreateDnsSdResponder();
  ASSERT_TRUE(responder);
  BrowseHandle handle = nullptr;
  const auto callback = [](uint32_t, const RecordReader&) {};
  EXPECT_NE(responder->Browse("_veldrift._tcp.local", callback, handle), kRequestPending);
  EXPECT_EQ(handle, nullptr);
}

TEST(AvahiResponder, MendsCharactersThatWereCut) {
  const auto responder = CreateDnsSdResponder();
  ASSERT_TRUE(responder);
  // What is given, what becomes of it.
  const std::pair<const char*, const char*> rows[] = {
      {"plain", "plain"},
      {"caf\xC3\xA9", "caf\xC3\xA9"},
      {"caf\xC3", "caf\xEF\xBF\xBD"},
      {"\xE2\x80\x94", "\xE2\x80\x94"},
      {"\xE2\x80", "\xEF\xBF\xBD"},
      {"\xF0\x9F\x8E.x", "\xEF\xBF\xBD.x"},
      {"\xFFx", "\xEF\xBF\xBDx"},
      {"a\xC3z", "a\xEF\xBF\xBDz"},
  };
  uint32_t error = 0;
  for (const auto& [given, mended] : rows) {
    const auto instance = responder->ConstructInstance({.instanceName = given}, error);
    ASSERT_TRUE(instance);
    EXPECT_EQ(instance->Name(), mended) << given;
  }
}

}  // namespace
}  // namespace Veldrift
