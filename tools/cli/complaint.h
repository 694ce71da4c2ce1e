// How the stand-ins say what is wrong: one sentence on stderr behind the program's name.
#pragma once

#include <cstdio>
#include <string>

namespace Veldrift {

// Answers `exit`.
inline int Complain(const char* program, int exit, const std::string& sentence) {
  std::fprintf(stderr, "%s: %s\n", program, sentence.c_str());
  return exit;
}

}  // namespace Veldrift
