// The phone's commands, as one instance obeys them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "session/engine_switch.h"
#include "session/host_suites.h"
#include "session/pipeline_seat.h"
#include "session/shared_transport.h"
#include "session/stream_announcer.h"
#include "session/video_path.h"

namespace Veldrift {

// Settings change here directly, and are remembered for later instances; the frame path picks up
// the rest on the next frame.
//
// Threads: the control read thread, one command at a time; the host's thread replays remembered
// settings.
class PhoneCommands {
 public:
  PhoneCommands(SharedTransport& transport, const HostSuites& suites, PipelineSeat& seat,
                StreamAnnouncer& announcer, VideoPath& video, EngineSwitch& engineSwitch)
      : transport_(transport),
        suites_(suites),
        seat_(seat),
        announcer_(announcer),
        video_(video),
        engineSwitch_(engineSwitch) {}

  // A command that is too short does nothing, and is acknowledged all the same.
  void HandleControlCommand(uint8_t opcode, std::span<const std::byte> payload);

 private:
  void RunCommand(uint8_t opcode, std::span<const std::byte> payload);
  void SetGopMode(uint8_t mode);
  void SetCodec(uint8_t codec);
  void SetMaxResolution(uint16_t shortSideCap);
  void SetEncoderMode(uint8_t mode, uint8_t quality);
  void SetEncoderEngine(std::span<const std::byte> payload);
  void ApplySettingsSnapshot(std::span<const std::byte> payload);

  SharedTransport& transport_;
  const HostSuites& suites_;
  PipelineSeat& seat_;
  StreamAnnouncer& announcer_;
  VideoPath& video_;
  EngineSwitch& engineSwitch_;
};

}  // namespace Veldrift
