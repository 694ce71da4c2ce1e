// The log's line about a fatal fault, put together without allocating and without a lock: the fault
// may have happened inside the log, with the log's lock held, or in a broken heap. Each system's
// crash handler appends it to a file whose path was prepared at installation; it takes no part in
// the log's rotation.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/calendar.h"
#include "support/fixed_text.h"

namespace Veldrift {

struct Fault {
  uint64_t code;
  FixedText address;              // of the instruction, as the system's printf prints addresses
  std::string_view module = "?";  // the file name of what holds the instruction
  uint64_t offset = 0;            // in it
  uint64_t thread;
};

// "[time subsystem:crash:FAULT] [VEH] fatal exception code=0x%08lX addr=%p module=%s+0x%zx
// tid=%lu\r\n", as PluginLog would write it. A long module's name is cut.
FixedText FormatFaultLine(const CalendarTime& time, const Fault& fault);

}  // namespace Veldrift
