// The advertiser over the system's calls, which a table of the test's own takes the place of: Wine
// hasn't any.
#include "identity/win32/dns_api_responder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "identity/dns_sd_service_advertiser.h"
#include "tests/identity/settings_fixture.h"
#include "tests/identity/watched_clock.h"
#include "tests/support/eventually.h"
#include "tools/platform/module_loader.h"

namespace Veldrift {
namespace {

using testing::ElementsAre;

// What stands behind the table, whose functions have no argument to carry it: what the advertiser
// asked for, what was handed out and not given back, and what the "system" still owes.
struct DnsScript {
  // ---- What a test sets
  DWORD registerResult = kRequestPending;
  DWORD registerStatus = ERROR_SUCCESS;
  DWORD deregisterResult = kRequestPending;
  bool callsBackLate = false;  // registrations only: their callbacks wait in `owed`
  std::wstring uniquified;     // not empty: callbacks bring an instance of this name
  bool sameInstance = false;   // callbacks bring the request's own instance
  bool constructFails = false;

  // ---- What it sees
  std::vector<std::string> calls;
  std::vector<std::string> txt;
  std::set<const DNS_SERVICE_INSTANCE*> instances;  // not freed yet
  int wronglyFreed = 0;
  std::vector<PDNS_SERVICE_REGISTER_REQUEST> owed;
  const DNS_SERVICE_BROWSE_REQUEST* browse = nullptr;
  int records = 0;  // lists not freed yet

  std::vector<std::unique_ptr<std::wstring>> names;  // live as long as the script

  DNS_SERVICE_INSTANCE* Make(const std::wstring& name) {
    auto* const made = new DNS_SERVICE_INSTANCE{};
    names.push_back(std::make_unique<std::wstring>(name));
    made->pszInstanceName = names.back()->data();
    instances.insert(made);
    return made;
  }

  void Answer(PDNS_SERVICE_REGISTER_REQUEST request, DWORD status) {
    DNS_SERVICE_INSTANCE* result = nullptr;
    if (!uniquified.empty()) result = Make(uniquified);
    if (sameInstance) result = request->pServiceInstance;
    request->pRegisterCompletionCallback(status, request->pQueryContext, result);
  }
};
DnsScript* script = nullptr;

std::string NameOf(const DNS_SERVICE_INSTANCE* instance) {
  // What was freed has no name to read.
  if (!script->instances.contains(instance)) return "(freed)";
  return NarrowText(instance->pszInstanceName);
}

DNS_SERVICE_INSTANCE* WINAPI Construct(PCWSTR name, PCWSTR host, PIP4_ADDRESS, PIP6_ADDRESS,
                                       WORD port, WORD, WORD, DWORD count, PCWSTR* keys,
                                       PCWSTR* values) {
  if (script->constructFails) {
    SetLastError(ERROR_OUTOFMEMORY);
    return nullptr;
  }
  script->calls.push_back("construct " + NarrowText(name) + ":" + std::to_string(port));
  EXPECT_TRUE(std::wstring_view(host).ends_with(L".local"));
  for (DWORD i = 0; i < count; ++i) {
    script->txt.push_back(NarrowText(keys[i]) + "=" + NarrowText(values[i]));
  }
  return script->Make(name);
}

VOID WINAPI FreeInstance(DNS_SERVICE_INSTANCE* instance) {
  if (script->instances.erase(instance) == 0) {
    ++script->wronglyFreed;
  } else {
    delete instance;
  }
}

DWORD WINAPI Register(PDNS_SERVICE_REGISTER_REQUEST request, PDNS_SERVICE_CANCEL) {
  script->calls.push_back("register " + NameOf(request->pServiceInstance));
  EXPECT_EQ(request->Version, 1u);
  if (script->registerResult != kRequestPending) return script->registerResult;
  if (script->callsBackLate) {
    script->owed.push_back(request);
  } else {
    // On a thread of the system's, and before this call is back.
    std::thread([&] { script->Answer(request, script->registerStatus); }).join();
  }
  return kRequestPending;
}

DWORD WINAPI Deregister(PDNS_SERVICE_REGISTER_REQUEST request, PDNS_SERVICE_CANCEL) {
  script->calls.push_back("deregister " + NameOf(request->pServiceInstance));
  if (script->deregisterResult != kRequestPending) return script->deregisterResult;
  script->Answer(request, ERROR_SUCCESS);
  return kRequestPending;
}

DNS_STATUS WINAPI Browse(PDNS_SERVICE_BROWSE_REQUEST request, PDNS_SERVICE_CANCEL) {
  script->calls.push_back("browse " + NarrowText(request->QueryName));
  script->browse = request;
  return kRequestPending;
}

DNS_STATUS WINAPI BrowseCancel(PDNS_SERVICE_CANCEL) {
  script->calls.push_back("cancel");
  return ERROR_SUCCESS;
}

VOID WINAPI FreeRecords(PVOID records, DNS_FREE_TYPE type) {
  EXPECT_EQ(type, DnsFreeRecordList);
  for (auto* record = static_cast<DNS_RECORDW*>(records); record != nullptr;) {
    DNS_RECORDW* const next = record->pNext;
    delete record;
    record = next;
  }
  --script->records;
}

constexpr DnsApi kTable = {&Construct, &FreeInstance, &Register,   &Deregister,
                           &Browse,    &BrowseCancel, &FreeRecords};

constexpr const char* kOurs = "Desk._veldrift._tcp.local";
constexpr wchar_t kOther[] = L"Other._veldrift._tcp.local";

class DnsApiAdvertiser : public SettingsFixture {
 protected:
  void SetUp() override {
    SettingsFixture::SetUp();
    script = &script_;
    advertiser = std::make_unique<DnsSdServiceAdvertiser>(MakeDnsApiResponder(kTable), clock);
  }
  void TearDown() override {
    advertiser.reset();
    EXPECT_TRUE(script_.instances.empty()) << script_.instances.size() << " nobody freed";
    EXPECT_EQ(script_.wronglyFreed, 0);
    EXPECT_EQ(script_.records, 0);
    SettingsFixture::TearDown();
  }

  bool Start() { return advertiser->Start(47100, {"the-id", "Desk", 1}); }

  // A start that waits for a callback which doesn't come.
  void StartInVain() {
    script_.callsBackLate = true;
    std::thread caller([&] { EXPECT_FALSE(Start()); });
    clock.AwaitWaiterFor(5 * kNanosPerSecond);
    clock.Advance(5 * kNanosPerSecond);
    caller.join();
    ASSERT_EQ(script_.owed.size(), 1u);
  }
  void PayLate(DWORD status = ERROR_SUCCESS) {
    for (auto* const request : std::exchange(script_.owed, {})) script_.Answer(request, status);
  }

  // One browse result with a record of another type before the PTR record.
  static void Browsed(const wchar_t* name, DWORD status = ERROR_SUCCESS) {
    auto* const pointer = new DNS_RECORDW{};
    pointer->wType = DNS_TYPE_PTR;
    pointer->Data.PTR.pNameHost = const_cast<wchar_t*>(name);
    auto* const text = new DNS_RECORDW{};
    text->wType = DNS_TYPE_TEXT;
    text->pNext = pointer;
    ++script->records;
    script->browse->pBrowseCallback(status, script->browse->pQueryContext,
                                    reinterpret_cast<DNS_RECORD*>(text));
  }

  size_t Calls(const std::string& start) const {
    size_t count = 0;
    for (const std::string& call : script_.calls) count += call.starts_with(start) ? 1 : 0;
    return count;
  }

  WatchedClock clock;
  DnsScript script_;
  std::unique_ptr<DnsSdServiceAdvertiser> advertiser;
};

TEST_F(DnsApiAdvertiser, PublishesWatchesAndTakesBack) {
  ASSERT_TRUE(Start());
  EXPECT_TRUE(advertiser->IsRegistered());
  EXPECT_THAT(script_.txt, ElementsAre("ver=4", "id=the-id", "name=Desk", "transmit=1"));
  advertiser->Stop();
  EXPECT_THAT(
      script_.calls,
      ElementsAre(std::string("construct ") + kOurs + ":47100", std::string("register ") + kOurs,
                  "browse _veldrift._tcp.local", "cancel", std::string("deregister ") + kOurs));
  EXPECT_FALSE(advertiser->IsRegistered());
}

// Each comes with an instance of its own, or with the request's: freed once, whichever it is.
TEST_F(DnsApiAdvertiser, TheInstanceOfACallbackIsTakenOver) {
  script_.uniquified = L"Desk (2)._veldrift._tcp.local";
  ASSERT_TRUE(Start());
  EXPECT_EQ(script_.instances.size(), 1u) << "the constructed one is freed";
  advertiser->Stop();
  EXPECT_EQ(script_.calls.back(), "deregister Desk (2)._veldrift._tcp.local");
}

TEST_F(DnsApiAdvertiser, TheRequestsOwnInstanceInACallbackIsNoOther) {
  script_.sameInstance = true;
  ASSERT_TRUE(Start());
  advertiser->Stop();
  EXPECT_EQ(script_.calls.back(), std::string("deregister ") + kOurs);
}

TEST_F(DnsApiAdvertiser, WhatTheSystemRefusesLeavesNothingBehind) {
  script_.registerResult = ERROR_ACCESS_DENIED;
  EXPECT_FALSE(Start());
  EXPECT_TRUE(script_.instances.empty());
  script_.registerResult = kRequestPending;
  script_.registerStatus = ERROR_TIMEOUT;
  script_.uniquified = kOther;  // an instance comes with the failure too
  EXPECT_FALSE(Start());
  EXPECT_TRUE(script_.instances.empty());
  script_.constructFails = true;
  EXPECT_FALSE(Start());
  EXPECT_EQ(Calls("browse"), 0u);
  EXPECT_EQ(Calls("deregister"), 0u);
}

TEST_F(DnsApiAdvertiser, ADeregistrationThatIsRefusedFreesItsInstance) {
  ASSERT_TRUE(Start());
  script_.deregisterResult = ERROR_ACCESS_DENIED;
  advertiser->Stop();
  EXPECT_TRUE(script_.instances.empty());
}

TEST_F(DnsApiAdvertiser, ARegistrationThatComesAfterFiveSecondsIsTakenBack) {
  for (const bool gone : {false, true}) {
    SCOPED_TRACE(gone);
    script_.calls.clear();
    StartInVain();
    EXPECT_FALSE(advertiser->IsRegistered());
    if (gone) advertiser.reset();
    EXPECT_EQ(script_.instances.size(), 1u) << "the request still names it";
    PayLate();
    EXPECT_EQ(script_.calls.back(), std::string("deregister ") + kOurs);
    EXPECT_TRUE(script_.instances.empty());
  }
}

TEST_F(DnsApiAdvertiser, AFailureThatComesAfterFiveSecondsNeedsNothing) {
  StartInVain();
  script_.uniquified = kOther;
  PayLate(ERROR_TIMEOUT);
  EXPECT_EQ(Calls("deregister"), 0u);
}

TEST_F(DnsApiAdvertiser, WhatVanishesFromTheWireIsPublishedAgain) {
  ASSERT_TRUE(Start());
  Browsed(kOther);
  Browsed(kOther);
  script_.uniquified = L"Desk (2)._veldrift._tcp.local";
  clock.AwaitWaiterFor(200 * kNanosPerMilli);
  clock.Advance(1'500 * kNanosPerMilli);
  ASSERT_TRUE(Eventually([] { return CountInPluginLog("WinDNS uniquified our name") > 0; }));
  EXPECT_EQ(Calls("register"), 2u);
  EXPECT_EQ(Calls("deregister"), 0u);
  advertiser->Stop();
  EXPECT_EQ(script_.calls.back(), "deregister Desk (2)._veldrift._tcp.local");
}

TEST_F(DnsApiAdvertiser, BrowseResultsAreFreedAlsoWhenNobodyWantsThemAnyMore) {
  ASSERT_TRUE(Start());
  Browsed(kOther);
  EXPECT_EQ(script_.records, 0);
  advertiser.reset();
  Browsed(kOther, ERROR_CANCELLED);
  Browsed(kOther);
  script_.browse->pBrowseCallback(ERROR_CANCELLED, script_.browse->pQueryContext, nullptr);
  EXPECT_EQ(script_.records, 0);
}

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
