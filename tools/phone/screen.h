// What the user of the phone sees while it runs: a line of figures of the last seconds on standard
// output, and on standard error, at once, what should be known.
//
// Threads: the session's.
#pragma once

#include <cstdint>
#include <string>

#include "decoding_sink.h"
#include "recording_sink.h"
#include "tools/cli/status_line.h"
#include "tools/receiver/live_figures.h"
#include "tools/receiver/media_receiver.h"
#include "tools/receiver/phone_link.h"
#include "tools/receiver/session.h"

namespace Veldrift {

class Screen : public SessionObserver {
 public:
  // `quiet`: standard output carries something else. `recording` may be null.
  Screen(bool quiet, const MediaReceiver& receiver, const DecodingSink& decoding,
         const RecordingSink* recording, const PhoneLink& link);

  void Tell(const std::string& sentence) override;
  void Tick(int64_t nowNs, const std::string& waiting) override;
  void Woke(int64_t nowNs) override;
  void Clear() { status_.Clear(); }

 private:
  std::string Line(int64_t nowNs, const std::string& waiting) const;
  void LookForLoss();
  void LookForSilence(int64_t nowNs);
  void LookAtRecording();

  const MediaReceiver& receiver_;
  const DecodingSink& decoding_;
  const RecordingSink* const recording_;
  const PhoneLink& link_;
  StatusLine status_;
  LiveFigures figures_;
  AssemblerCounters video_;
  int64_t startNs_ = 0;
  int64_t lastDatagramNs_ = 0;
  uint64_t lastDatagrams_ = 0;
  bool toldLoss_ = false;
  bool toldSilence_ = false;
  bool toldLeftOut_ = false;
};

}  // namespace Veldrift
