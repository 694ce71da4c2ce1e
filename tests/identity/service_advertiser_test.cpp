#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "identity/dns_sd_service_advertiser.h"
#include "platform/system.h"
#include "tests/identity/scripted_responder.h"
#include "tests/identity/settings_fixture.h"
#include "tests/identity/watched_clock.h"
#include "tests/support/eventually.h"

namespace Veldrift {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kOurs = "Desk._veldrift._tcp.local";
constexpr const char* kOther = "Other._veldrift._tcp.local";

class ServiceAdvertiser : public SettingsFixture {
 protected:
  void SetUp() override {
    SettingsFixture::SetUp();
    advertiser = std::make_unique<DnsSdServiceAdvertiser>(
        std::make_unique<ScriptedResponder>(script), clock);
  }
  void TearDown() override {
    advertiser.reset();
    script->TakeHeld();
    EXPECT_EQ(script->Instances(), 0) << "instances that nobody freed";
    SettingsFixture::TearDown();
  }

  bool Start(const std::string& name = "Desk") {
    return advertiser->Start(47100, {"the-id", name, 1});
  }

  void Change(const std::function<void(ResponderScript::Behaviour&)>& change) {
    script->Change(change);
  }

  void Browsed(const std::vector<DnsRecord>& records, uint32_t status = 0) {
    script->Browse()(status, [&] { return records; });
  }
  void BrowsedNames(const std::vector<std::string>& names) {
    std::vector<DnsRecord> records;
    for (const std::string& name : names) records.push_back({kRecordTypePtr, name});
    Browsed(records);
  }
  void LoseUs() {
    BrowsedNames({kOther});
    BrowsedNames({kOther});
  }

  // Runs `call`, which waits for the responder, and lets its patience of so many `nanos` run out.
  void CallUntilPatienceIsOut(const std::function<void()>& call, int64_t nanos) {
    std::thread caller(call);
    clock.AwaitWaiterFor(nanos);
    clock.Advance(nanos);
    caller.join();
  }

  // Lets time pass and the heal thread, which ticks every 200 ms, see it.
  void LetPass(int64_t millis) {
    clock.AwaitWaiterFor(200 * kNanosPerMilli);
    clock.Advance(millis * kNanosPerMilli);
    clock.AwaitWaiterFor(200 * kNanosPerMilli);
  }

  static size_t Logged(const std::string& text) { return CountInPluginLog(":mdns:" + text); }

  WatchedClock clock;
  std::shared_ptr<ResponderScript> script = std::make_shared<ResponderScript>();
  std::unique_ptr<DnsSdServiceAdvertiser> advertiser;
};

// ---- What is published --------------------------------------------------------------------------

TEST_F(ServiceAdvertiser, PublishesTheServiceAndWatchesItsType) {
  ASSERT_TRUE(Start());
  EXPECT_TRUE(advertiser->IsRegistered());
  EXPECT_THAT(script->Calls(),
              ElementsAre("construct Desk._veldrift._tcp.local",
                          "register Desk._veldrift._tcp.local", "browse _veldrift._tcp.local"));
  const ServiceDescription service = script->Described();
  EXPECT_EQ(service.hostName, ServiceHostName(GetComputerName()));
  EXPECT_EQ(service.port, 47100);
  EXPECT_EQ(service.priority, 0);
  EXPECT_EQ(service.weight, 0);
  using Pair = std::pair<std::string, std::string>;
  EXPECT_THAT(service.txt, ElementsAre(Pair("ver", "4"), Pair("id", "the-id"), Pair("name", "Desk"),
                                       Pair("transmit", "1")));
  EXPECT_EQ(Logged("INFO] advertising :47100 id=the-id name=Desk transmit=1\r\n"), 1u);
  EXPECT_EQ(Logged("INFO] [bj] self-heal: started (read-only browse + register-only on loss)\r\n"),
            1u);
}

TEST_F(ServiceAdvertiser, TransmitIsOneForAnythingButZero) {
  ASSERT_TRUE(advertiser->Start(1, {"i", "n", -2}));
  EXPECT_EQ(script->Described().txt[3].second, "1");
  ASSERT_TRUE(advertiser->Start(1, {"i", "n", 0}));
  EXPECT_EQ(script->Described().txt[3].second, "0");
}

TEST_F(ServiceAdvertiser, CutsTheLabelAt40BytesAndNotTheTextRecord) {
  const std::string name = "0123456789012345678901234567890123456789X";
  ASSERT_TRUE(Start(name));
  EXPECT_EQ(script->Described().instanceName,
            "0123456789012345678901234567890123456789._veldrift._tcp.local");
  EXPECT_EQ(script->Described().txt[2].second, name);
  EXPECT_EQ(ServiceInstanceName(name.substr(0, 40)), script->Described().instanceName);
}

TEST_F(ServiceAdvertiser, ANamelessInstallationIsCalledOmbrette) {
  ASSERT_TRUE(Start(""));
  EXPECT_EQ(script->Described().instanceName, "Ombrette._veldrift._tcp.local");
  EXPECT_EQ(script->Described().txt[2].second, "");
}

TEST(ServiceNames, TheHostNameIsTheComputersInLowerCase) {
  EXPECT_EQ(ServiceHostName("EDIT-Suite7"), "edit-suite7.local");
  EXPECT_EQ(ServiceHostName(""), "localhost.local");
}

TEST_F(ServiceAdvertiser, StopEndsTheBrowseBeforeTheRegistration) {
  ASSERT_TRUE(Start());
  advertiser->Stop();
  EXPECT_FALSE(advertiser->IsRegistered());
  EXPECT_EQ(script->Instances(), 0);
  const auto calls = script->Calls();
  EXPECT_THAT(std::vector(calls.begin() + 3, calls.end()),
              ElementsAre("cancel", "deregister Desk._veldrift._tcp.local"));
  EXPECT_EQ(Logged("INFO] advertising stopped\r\n"), 1u);
  advertiser->Stop();
  advertiser.reset();
  EXPECT_EQ(script->Calls().back(), "gone");
  EXPECT_EQ(script->Count("deregister"), 1u);
  EXPECT_EQ(Logged("INFO] advertising stopped\r\n"), 1u);
}

TEST_F(ServiceAdvertiser, ASecondStartTakesTheFirstOnesPlace) {
  ASSERT_TRUE(Start("One"));
  ASSERT_TRUE(Start("Two"));
  EXPECT_THAT(
      script->Calls(),
      ElementsAre("construct One._veldrift._tcp.local", "register One._veldrift._tcp.local",
                  "browse _veldrift._tcp.local", "cancel", "deregister One._veldrift._tcp.local",
                  "construct Two._veldrift._tcp.local", "register Two._veldrift._tcp.local",
                  "browse _veldrift._tcp.local"));
  EXPECT_EQ(script->Instances(), 1);
}

// ---- What can go wrong --------------------------------------------------------------------------

TEST_F(ServiceAdvertiser, ARefusedInstanceIsLogged) {
  Change([](auto& now) { now.constructError = 87; });
  EXPECT_FALSE(Start());
  EXPECT_FALSE(advertiser->IsRegistered());
  EXPECT_EQ(Logged("ERROR] DnsServiceConstructInstance failed: err=87\r\n"), 1u);
  EXPECT_EQ(script->Count("register"), 0u);
}

TEST_F(ServiceAdvertiser, ARefusedRegistrationIsLoggedAndNothingIsLeft) {
  Change([](auto& now) { now.registerResult = 1717; });
  EXPECT_FALSE(Start());
  EXPECT_EQ(Logged("ERROR] DnsServiceRegister returned 1717 — registration refused\r\n"), 1u);
  EXPECT_EQ(script->Instances(), 0);
  EXPECT_EQ(script->Count("browse"), 0u);
  advertiser->Stop();
  EXPECT_EQ(script->Count("deregister"), 0u);
}

TEST_F(ServiceAdvertiser, AFailedRegistrationFreesBothInstances) {
  Change([](auto& now) {
    now.registerStatus = 9701;
    now.otherName = kOther;
  });
  EXPECT_FALSE(Start());
  EXPECT_EQ(Logged("ERROR] DnsServiceRegister callback status=9701\r\n"), 1u);
  EXPECT_EQ(script->Instances(), 0);
  EXPECT_FALSE(advertiser->IsRegistered());
}

TEST_F(ServiceAdvertiser, ARegistrationThatEndsTooLateDoesNoHarm) {
  Change([](auto& now) { now.holdRegistration = true; });
  bool started = true;
  CallUntilPatienceIsOut([&] { started = Start(); }, 5 * kNanosPerSecond);
  EXPECT_FALSE(started);
  EXPECT_EQ(Logged("ERROR] DnsServiceRegister callback timed out after 5s\r\n"), 1u);
  EXPECT_EQ(script->Instances(), 0);
  advertiser.reset();
  auto late = script->TakeHeld();
  ASSERT_EQ(late.size(), 1u);
  late[0](0, std::make_unique<ScriptedInstance>(script, kOther));
  late.clear();
  EXPECT_EQ(script->Instances(), 0) << "also what came too late is freed";
}

TEST_F(ServiceAdvertiser, ARegistrationMayTakeAlmostFiveSeconds) {
  Change([](auto& now) { now.holdRegistration = true; });
  bool started = false;
  std::thread caller([&] { started = Start(); });
  clock.AwaitWaiterFor(5 * kNanosPerSecond);
  clock.Advance(5 * kNanosPerSecond - 1);
  for (const auto& callback : script->TakeHeld()) callback(0, nullptr);
  caller.join();
  EXPECT_TRUE(started);
}

TEST_F(ServiceAdvertiser, ARefusedDeregistrationDoesNotStopTheTeardown) {
  ASSERT_TRUE(Start());
  Change([](auto& now) { now.deregisterResult = 5; });
  advertiser->Stop();
  EXPECT_EQ(Logged("INFO] DnsServiceDeRegister returned 5 — continuing teardown\r\n"), 1u);
  EXPECT_EQ(Logged("INFO] advertising stopped\r\n"), 1u);
  EXPECT_EQ(script->Instances(), 0);
}

TEST_F(ServiceAdvertiser, ALostDeregistrationIsWaitedForThreeSecondsAndNoWordIsLost) {
  ASSERT_TRUE(Start());
  Change([](auto& now) { now.holdDeregistration = true; });
  CallUntilPatienceIsOut([&] { advertiser->Stop(); }, 3 * kNanosPerSecond);
  EXPECT_EQ(Logged("ERROR"), 0u);
  EXPECT_EQ(Logged("INFO] advertising stopped\r\n"), 1u);
  advertiser.reset();
  for (const auto& callback : script->TakeHeld()) callback(0, nullptr);
}

TEST_F(ServiceAdvertiser, AnInstanceFromTheDeregistrationIsFreed) {
  ASSERT_TRUE(Start());
  Change([](auto& now) { now.otherName = kOther; });
  advertiser->Stop();
  EXPECT_EQ(script->Instances(), 0);
}

TEST_F(ServiceAdvertiser, WithoutABrowseTheRegistrationStands) {
  Change([](auto& now) { now.browseResult = 1460; });
  EXPECT_TRUE(Start());
  EXPECT_TRUE(advertiser->IsRegistered());
  EXPECT_EQ(Logged("ERROR] [bj] self-heal: DnsServiceBrowse failed s=1460 — self-heal off\r\n"),
            1u);
  advertiser->Stop();
  EXPECT_EQ(script->Count("cancel"), 0u);
  EXPECT_EQ(script->Count("deregister"), 1u);
}

TEST_F(ServiceAdvertiser, WithoutANameThereIsNothingToWatchFor) {
  Change([](auto& now) { now.nameless = true; });
  EXPECT_TRUE(Start());
  EXPECT_EQ(script->Count("browse"), 0u);
  EXPECT_EQ(Logged("INFO] [bj] self-heal: no instance name — skipping\r\n"), 1u);
}

// ---- New values ---------------------------------------------------------------------------------

TEST_F(ServiceAdvertiser, NewValuesNeedARegistration) {
  EXPECT_FALSE(advertiser->UpdateTxt({"the-id", "Desk", 0}));
  EXPECT_THAT(script->Calls(), IsEmpty());
  EXPECT_EQ(Logged("INFO] UpdateTxt: not registered — skipping\r\n"), 1u);
}

TEST_F(ServiceAdvertiser, NewValuesArePublishedAnew) {
  ASSERT_TRUE(Start());
  EXPECT_TRUE(advertiser->UpdateTxt({"the-id", "Bench", 0}));
  EXPECT_EQ(script->Described().txt[3].second, "0");
  EXPECT_EQ(script->Count("deregister Desk."), 1u);
  EXPECT_EQ(script->Count("register Bench."), 1u);
  EXPECT_EQ(script->Count("browse"), 1u) << "the browse goes on";
  for (int i = 0; i < 3; ++i) BrowsedNames({kOther, "Bench._veldrift._tcp.local"});
  EXPECT_EQ(Logged("INFO] [bj] self-heal: our instance ABSENT"), 0u);
}

// ---- Self-heal ----------------------------------------------------------------------------------

TEST_F(ServiceAdvertiser, IsPublishedAgainOneAndAHalfSecondsAfterItsLoss) {
  ASSERT_TRUE(Start());
  LoseUs();
  EXPECT_EQ(Logged("INFO] [bj] self-heal: our instance ABSENT — arming re-publish\r\n"), 1u);
  LetPass(1'499);
  EXPECT_EQ(script->Count("register"), 1u);
  LetPass(200);
  EXPECT_EQ(Logged("INFO] advertising :47100 id=the-id name=Desk transmit=1\r\n"), 2u);
  EXPECT_EQ(Logged("INFO] [bj] self-heal: re-publishing (register-only) id=the-id\r\n"), 1u);
  EXPECT_EQ(script->Count("deregister"), 0u) << "register-only";
  advertiser->Stop();
  EXPECT_EQ(script->Count("register"), 2u);
  EXPECT_EQ(script->Count("deregister Desk."), 1u);
}

TEST_F(ServiceAdvertiser, TriesAgainUntilItSucceeds) {
  ASSERT_TRUE(Start());
  Change([](auto& now) { now.registerResult = 1717; });
  LoseUs();
  LetPass(1'500);
  EXPECT_EQ(Logged("ERROR] [bj] self-heal: re-register failed\r\n"), 1u);
  EXPECT_FALSE(advertiser->IsRegistered());
  Change([](auto& now) { now.registerResult = kRequestPending; });
  LetPass(1'499);
  EXPECT_FALSE(advertiser->IsRegistered());
  LetPass(200);
  EXPECT_TRUE(advertiser->IsRegistered());
  EXPECT_EQ(Logged("INFO] [bj] self-heal: our instance ABSENT"), 1u);
  advertiser->Stop();
  EXPECT_EQ(script->Count("register"), 3u);
}

TEST_F(ServiceAdvertiser, StaysQuietWhenItIsSeenAgainByItself) {
  ASSERT_TRUE(Start());
  LoseUs();
  BrowsedNames({kOther, kOurs});
  EXPECT_EQ(Logged("INFO] [bj] self-heal: our instance back on the wire\r\n"), 1u);
  LetPass(10'000);
  EXPECT_EQ(script->Count("register"), 1u);
}

TEST_F(ServiceAdvertiser, ResultsThatProveNothingChangeNothing) {
  ASSERT_TRUE(Start());
  BrowsedNames({kOther});
  Browsed({});
  Browsed({{kRecordTypePtr, ""}, {16, ""}, {33, kOther}});
  Browsed({{kRecordTypePtr, kOther}}, kErrorCancelled);
  BrowsedNames({"DESK._Veldrift._tcp.local"});
  BrowsedNames({kOther});
  EXPECT_EQ(Logged("INFO] [bj] self-heal: our instance ABSENT"), 0u);
  BrowsedNames({kOther});
  EXPECT_EQ(Logged("INFO] [bj] self-heal: our instance ABSENT"), 1u);
}

TEST_F(ServiceAdvertiser, ANameMadeUniqueAtTheStartIsTheOneToWatchFor) {
  Change([](auto& now) { now.otherName = "Desk (2)._veldrift._tcp.local"; });
  ASSERT_TRUE(Start());
  EXPECT_EQ(script->Instances(), 1) << "the constructed one is freed";
  for (int i = 0; i < 3; ++i) BrowsedNames({kOurs, "Desk (2)._veldrift._tcp.local"});
  EXPECT_EQ(Logged("INFO] [bj] self-heal: our instance ABSENT"), 0u);
  advertiser->Stop();
  EXPECT_EQ(script->Count("deregister Desk (2)."), 1u);
}

TEST_F(ServiceAdvertiser, ANameMadeUniqueByARepublishIsAdopted) {
  ASSERT_TRUE(Start());
  Change([](auto& now) { now.otherName = "Desk (2)._veldrift._tcp.local"; });
  LoseUs();
  LetPass(1'600);
  EXPECT_EQ(Logged("INFO] [bj] self-heal: WinDNS uniquified our name — adopting it, self-heal "
                   "stays active\r\n"),
            1u);
  for (int i = 0; i < 5; ++i) BrowsedNames({"Desk (2)._veldrift._tcp.local"});
  LetPass(10'000);
  EXPECT_EQ(script->Count("register"), 2u);
}

TEST_F(ServiceAdvertiser, ACallbackAfterTheEndFindsNobody) {
  ASSERT_TRUE(Start());
  const BrowseCallback late = script->Browse();
  advertiser.reset();
  bool read = false;
  late(0, [&] {
    read = true;
    return std::vector<DnsRecord>{{kRecordTypePtr, kOther}};
  });
  late(kErrorCancelled, [&] {
    read = true;
    return std::vector<DnsRecord>{};
  });
  EXPECT_FALSE(read);
}

TEST_F(ServiceAdvertiser, WaitsHalfASecondForACallbackAndThenCancels) {
  ASSERT_TRUE(Start());
  const BrowseCallback callback = script->Browse();
  std::atomic<bool> inside = false, goOn = false;
  std::thread platform([&] {
    callback(0, [&] {
      inside = true;
      goOn.wait(false);
      return std::vector<DnsRecord>{{kRecordTypePtr, kOther}};
    });
  });
  EXPECT_TRUE(Eventually([&] { return inside.load(); }));
  const int64_t before = clock.NowNanos();
  advertiser.reset();
  EXPECT_EQ(clock.NowNanos() - before, 500 * kNanosPerMilli);
  EXPECT_EQ(script->Count("cancel"), 1u);
  goOn = true;
  goOn.notify_all();
  platform.join();  // after everybody has gone
}

TEST_F(ServiceAdvertiser, DoesNotWaitWhenNoCallbackRuns) {
  ASSERT_TRUE(Start());
  const int64_t before = clock.NowNanos();
  advertiser->Stop();
  EXPECT_EQ(clock.NowNanos(), before);
}

TEST_F(ServiceAdvertiser, CallbacksAndStopsFromAllSidesAreInOrder) {
  std::atomic<bool> done = false;
  ASSERT_TRUE(Start());
  std::thread platform([&] {
    while (!done) {
      BrowsedNames({kOther});
      BrowsedNames({kOurs});
      clock.Advance(kNanosPerMilli);
    }
  });
  for (int i = 0; i < 20; ++i) {
    EXPECT_TRUE(Start());
    EXPECT_TRUE(advertiser->UpdateTxt({"the-id", "Desk", i % 2}));
    advertiser->Stop();
  }
  done = true;
  platform.join();
}

}  // namespace
}  // namespace Veldrift
