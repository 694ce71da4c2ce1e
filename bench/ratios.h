// Ratios between benchmarks of one run, printed behind the figures: machines are noisy, ratios
// within a run are not.
#pragma once

#include <string>

namespace Veldrift {

// The time of `numerator` over that of `denominator`, both named as the run prints them; `wanted`
// says in words what is to be reached. A name that didn't run (a filter) prints nothing.
struct Ratio {
  std::string what, numerator, denominator, wanted;
};

// Call it from a static initialiser.
int PrintRatio(const Ratio& ratio);

}  // namespace Veldrift
