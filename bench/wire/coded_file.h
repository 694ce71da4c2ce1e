// What is played: access units cut from an Annex B file, or stand-ins of a stream's sizes.
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
  // A second of a stream of that rate, of bytes without meaning: a key frame of four times the
  // rest's size, and the rest a quarter around it.
  void Generate(double mbitsPerSecond, double fps);
  const std::vector<AccessUnit>& Units() const { return units_; }

 private:
  std::vector<AccessUnit> units_;
};

}  // namespace Veldrift
