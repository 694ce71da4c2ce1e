// What the process remembers of the phone, and shows of itself: plain copies, made under no lock of
// the reader's.
#pragma once

#include <cstdint>
#include <string>

// The phone's choices, for instances that come later and for the setup window. -1 and 0 as noted:
// not chosen yet.
struct ClientSettings {
  int32_t quality = -1;      // per cent
  int32_t shortSideCap = 0;  // pixels; 0 is no limit
  int32_t codec = -1;        // 0 HEVC, 1 H.264
  int32_t gopSize = 0;       // frames
  int32_t encoderMode = -1;  // 0 Bitrate, 1 Quality, 2 VBR
  bool hasClientSettings = false;
  int32_t hardFrameCap = 0;  // its command is retired: stays 0
  int32_t gopMode = -1;      // 0 all-intra, 1 short, 2 automatic (retired), 3 long
};

// Once filled from the phone's reports, which are retired: all zero but for one constant. The
// setup window reads it in these names and signs.
struct ClientTelemetry {
  uint8_t valid = 0;
  uint8_t controllerKind = 0;   // 0 legacy, 1 and 2 the unified one's versions
  uint8_t controllerPhase = 0;  // 0 normal, 1 settling, 2 probing
  uint32_t targetRate = 0;      // bits per second
  uint16_t shortSide = 0;       // pixels
  int32_t level = 0;
  int32_t gop = 0;  // frames
  uint8_t gopAuto = 0;
  uint16_t fecPerMille = 100;
  uint8_t lastReason = 0;
  double lossPercent = 0;
  double backlog = 0;  // a fraction of 1
  int32_t owdTrendMicros = 0;
};

enum class GopClass : int32_t { AllIntra = 0, Short = 1, Long = 3 };

struct EncoderStatus {
  uint8_t legacyEngineByte = 0;
  std::string description;
  uint8_t codec = 0;  // 1 for H.264
  GopClass gopClass = GopClass::AllIntra;
  bool valid = false;  // something was published
};
