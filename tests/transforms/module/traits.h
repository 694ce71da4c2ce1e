// How one transform behaves, as the environment variables said when it was activated.
#pragma once

#include <windows.h>

#include <string>

#include "tests/transforms/common/call_failures.h"
#include "tests/transforms/common/kinds.h"

namespace Veldrift::Transforms {

enum class Header { Record, AnnexB, None };
enum class Units { AnnexB, Lengths };
enum class Nv12 { First, Later, None };

inline constexpr int kNever = -1;

// client/scenario.h says what each trait's word is and means.
struct Traits {
  bool acceptsD3d = false;
  bool d3d11Aware = false;
  bool providesSamples = false;
  Header header = Header::AnnexB;
  bool headerAfterChange = false;
  bool setsInStream = true;
  Units units = Units::AnnexB;
  int leadBytes = 0;
  bool marksCleanPoint = true;
  bool timesOutputs = true;
  int pieces = 1;
  int changes = 0;
  int changeAt = 0;
  int refuseAt = kNever;
  Nv12 nv12 = Nv12::First;
  int stallAt = kNever;
  int dieAt = kNever;
  HRESULT deathResult = S_OK;
  bool drains = true;
  bool ownGop = true;
  int delay = 0;
  int credits = 2;
  int threads = 0;
  int outputSize = kNever;  // kNever: as large as any output is
  int maxWidth = 8192;
  int maxHeight = 8192;
  CallFailures failures;
};

// What a kind does by itself, then what `text` says. False: a word isn't understood, and `unknown`
// is that word.
bool ReadTraitsOf(const Kind& kind, const std::string& text, Traits& traits, std::string& unknown);

}  // namespace Veldrift::Transforms
