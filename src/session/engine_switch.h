// The phone chooses another encoder engine: the pipeline is replaced whole, under running frames.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/mutex.h"
#include "session/pipeline_seat.h"
#include "session/session_services.h"
#include "session/stream_announcer.h"

namespace Veldrift {

// Threads: any; one switch at a time.
class EngineSwitch {
 public:
  EngineSwitch(const SessionServices& services, PipelineSeat& seat, StreamAnnouncer& announcer)
      : services_(services), seat_(seat), announcer_(announcer) {}

  // Seats the default encoder, the first of an instance. False if there is none.
  bool SeatDefaultEncoder();

  // Does nothing for the engine that was asked for last, as it came. One that can't be had falls
  // back on the default encoder, and keeps its name; without any encoder all stays as it is.
  void SwitchEncoderEngine(const std::string& id) VD_EXCLUDES(switchMutex_);

  std::string EngineId() const VD_EXCLUDES(switchMutex_);

  // Tells the phone which engines there are.
  void SendEncoderEngineList();

 private:
  std::unique_ptr<IHardwareEncoder> CreateEncoderFor(const std::string& id);

  const SessionServices& services_;
  PipelineSeat& seat_;
  StreamAnnouncer& announcer_;
  mutable Mutex switchMutex_;  // held for a whole switch
  std::string engineId_ VD_GUARDED_BY(switchMutex_) = "auto";
};

}  // namespace Veldrift
