// What a run comes to: the session's own end first, then what arrived, held against what was asked
// for.
#pragma once

#include <cstdint>
#include <string>

#include "phone_exit.h"
#include "tools/receiver/frame_assembler.h"
#include "tools/receiver/session.h"
#include "video_decoder.h"

namespace Veldrift {

// What is expected of a run besides pictures in order and right.
struct Expectations {
  double seconds = 0;           // how long it was to last; 0: until it is ended
  double mostLostPercent = 50;  // of the pictures
  bool sound = false;           // some must come
};

struct Findings {
  SessionResult session;
  AssemblerCounters video;
  AssemblerCounters audio;
  DecoderCounters decoder;
  std::string wrongPicture;  // the first picture that was out of order or not what it should be
  std::string controlViolation;
  std::string fileError;
  size_t leftOutOfRecording = 0;  // frames
};

struct Verdict {
  PhoneExit exit = kExitGood;
  std::string sentence;  // what is wrong; empty: nothing
};

Verdict Judge(const Findings& findings, const Expectations& expected);

PhoneExit ExitOf(LinkResult result);

// Of the pictures that were sent to the phone, as far as it knows, in per cent: lost on the way, or
// of no use since one before them was.
double LostPercent(const AssemblerCounters& video, const DecoderCounters& decoder);

// What to do about a network that loses `percent` of the datagrams.
std::string NetworkAdvice(double percent);

}  // namespace Veldrift
