// One line that is rewritten in place on a terminal; elsewhere a plain line now and then.
//
// Threads: one thread uses it.
#pragma once

#include <cstdint>
#include <string>

namespace Veldrift {

class StatusLine {
 public:
  // `quiet`: nothing is shown, because standard output carries something else.
  explicit StatusLine(bool quiet);
  ~StatusLine() { Clear(); }

  // Shows `text` if it is time for it.
  void Show(const std::string& text, int64_t nowNs);

  // Takes the line off the terminal.
  void Clear();

 private:
  const bool quiet_;
  const bool terminal_;
  int64_t nextNs_ = 0;
  bool shown_ = false;
};

}  // namespace Veldrift
