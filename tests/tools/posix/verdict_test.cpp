// What a run comes to: whatever went wrong in it reaches the exit code and the sentence.
#include "tools/phone/verdict.h"

#include <gtest/gtest.h>

#include <functional>

namespace Veldrift {
namespace {

struct Case {
  const char* name;
  std::function<void(Findings&, Expectations&)> change;
  PhoneExit exit;
  const char* sentence;  // a part of it
};

Findings GoodRun() {
  Findings findings;
  findings.session.end = SessionEnd::TimeUp;
  findings.session.endNs = 10 * kNanosPerSecond;
  findings.video.framesWhole = findings.decoder.decoded = 300;
  findings.video.datagrams = 3'000;
  findings.audio.framesWhole = 400;
  return findings;
}

void Lose(Findings& f, SessionEnd end) {
  f.session.end = end;
  f.session.sentence = "what was told";
  f.session.interruptionCount = 1;
}

const Case kCases[] = {
    {"good", [](Findings&, Expectations&) {}, kExitGood, ""},
    {"stopped by the user, who had no plan",
     [](Findings& f, Expectations&) { f.session.end = SessionEnd::Stopped; }, kExitGood, ""},
    {"stopped before its time",
     [](Findings& f, Expectations& e) {
       f.session.end = SessionEnd::Stopped;
       e.seconds = 60;
     },
     kExitInterrupted, "interrupted after 10.0 of 60.0 s"},
    {"lost", [](Findings& f, Expectations&) { Lose(f, SessionEnd::Lost); }, kExitLost,
     "what was told"},
    {"lost for a time",
     [](Findings& f, Expectations&) {
       f.session.interruptionCount = 2;
       f.session.interruptedNs = 3'200 * kNanosPerMilli;
     },
     kExitLost, "lost 2 times, for 3.2 s"},
    {"turned away on coming back",
     [](Findings& f, Expectations&) {
       Lose(f, SessionEnd::TurnedAway);
       f.session.link = LinkResult::Refused;
     },
     kExitRefused, "what was told"},
    {"never there",
     [](Findings& f, Expectations&) {
       Lose(f, SessionEnd::NeverOpened);
       f.session.link = LinkResult::NoAnswer;
     },
     kExitCantConnect, "what was told"},
    {"a full disk", [](Findings& f, Expectations&) { Lose(f, SessionEnd::SinkFailed); },
     kExitFailed, "what was told"},
    {"a file that couldn't be finished",
     [](Findings& f, Expectations&) { f.fileError = "can't write x"; }, kExitFailed,
     "can't write x"},
    {"a recording with holes", [](Findings& f, Expectations&) { f.leftOutOfRecording = 3; },
     kExitFailed, "3 frames were left out"},
    {"nonsense on the control connection",
     [](Findings& f, Expectations&) { Lose(f, SessionEnd::Broken); }, kExitBroken,
     "violation of the protocol: what was told"},
    {"nonsense in the media, whatever else was",
     [](Findings& f, Expectations&) {
       Lose(f, SessionEnd::Lost);
       f.audio.violationTexts = {"odd"};
     },
     kExitBroken, "violation of the protocol: odd"},
    {"a picture that can't be decoded",
     [](Findings& f, Expectations&) {
       f.decoder.failed = 1;
       f.decoder.firstFailure = "frame 7";
     },
     kExitBroken, "broken stream: frame 7"},
    {"a picture out of order", [](Findings& f, Expectations&) { f.wrongPicture = "frame 8"; },
     kExitBroken, "broken stream: frame 8"},
    {"nothing came",
     [](Findings& f, Expectations&) {
       f.decoder.decoded = 0;
       f.video = {};
     },
     kExitNoPicture, "not one datagram"},
    {"a network that carries too little",
     [](Findings& f, Expectations&) {
       f.decoder.decoded = 0;
       f.video.missingDatagrams = 7'000;
     },
     kExitNoPicture, "loses 70 per cent of what is sent; ask for less, by --mode quality"},
    {"half is lost", [](Findings& f, Expectations&) { f.video.framesLost = 300; }, kExitGood, ""},
    {"more than half",
     [](Findings& f, Expectations&) {
       f.video.framesLost = 300;
       f.decoder.skipped = 10;
     },
     kExitPoor, "51.7 per cent"},
    {"more than was allowed",
     [](Findings& f, Expectations& e) {
       f.video.framesLost = 10;
       e.mostLostPercent = 1;
     },
     kExitPoor, "3.2 per cent of the pictures were lost, of which --most-lost allows 1"},
    {"no sound, and none was wanted", [](Findings& f, Expectations&) { f.audio.framesWhole = 0; },
     kExitGood, ""},
    {"no sound",
     [](Findings& f, Expectations& e) {
       f.audio.framesWhole = 0;
       e.sound = true;
     },
     kExitPoor, "no sound arrived"},
};

TEST(Verdict, WhateverWentWrongReachesIt) {
  for (const Case& given : kCases) {
    SCOPED_TRACE(given.name);
    Findings findings = GoodRun();
    Expectations expected;
    given.change(findings, expected);
    const Verdict verdict = Judge(findings, expected);
    EXPECT_EQ(verdict.exit, given.exit);
    EXPECT_NE(verdict.sentence.find(given.sentence), std::string::npos) << verdict.sentence;
    EXPECT_EQ(verdict.sentence.empty(), given.exit == kExitGood);
  }
}

}  // namespace
}  // namespace Veldrift
