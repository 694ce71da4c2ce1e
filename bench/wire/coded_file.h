// An Annex B file, cut into access units.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Veldrift {

struct AccessUnit {
  std::vector<uint8_t> bytes;
  bool keyFrame = false;
};

class CodedFile {
 public:
  // Reads the whole file. False, with a sentence in `error`, if there is no video in it.
  bool Open(const std::string& path, std::string& error);
  const std::vector<AccessUnit>& Units() const { return units_; }

 private:
  std::vector<AccessUnit> units_;
};

}  // namespace Veldrift
