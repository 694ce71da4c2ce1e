#include "support/fault_line.h"

#include "support/crash_handler_system.h"
#include "support/log_line.h"

namespace Veldrift {

FixedText FormatFaultLine(const CalendarTime& time, const Fault& fault) {
  constexpr size_t kMostOfAName = 200;
  FixedText line;
  line.Add("[").AddTime(time, '-', ' ', ':').Add(".");
  line.AddDecimal(static_cast<uint64_t>(time.millisecond), 3).Add(" ");
  line.Add(kCrashLog.subsystem).Add(":").Add(kCrashLog.category).Add(":FAULT] ");
  line.Add("[VEH] fatal exception code=0x").AddUpperCaseHex(fault.code, 8);
  line.Add(" addr=").Add(fault.address.View());
  line.Add(" module=").Add(fault.module.substr(0, kMostOfAName));
  line.Add("+0x").AddHex(fault.offset).Add(" tid=").AddDecimal(fault.thread);
  MakePrintable(line.Characters());
  return line.Add("\r\n");
}

}  // namespace Veldrift
