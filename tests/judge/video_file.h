// What another reader of a recording or a snapshot finds in it: everything is opened and decoded by
// the media library, never by the stand-ins' own code.
//
// Threads: plain data.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace Veldrift {

struct VideoFile {
  std::string error;  // empty: opened, read to its end and decoded without a complaint
  std::string codec;
  int width = 0;
  int height = 0;
  int pictures = 0;
  bool saysBt709Limited = false;  // of every decoded picture
  double videoSeconds = 0;        // the end of the last picture, at 30 pictures a second
  std::vector<double> times;      // of each picture, in seconds
  std::vector<uint32_t> stamps;   // in the order of decoding
  // Of a picture from what was painted; nothing is known of pictures without a stamp.
  double worstDifference = 0;  // mean levels a channel
  double worstPatch = 0;       // levels by which the mean of an eighth by an eighth is off
  double worstPsnr = 99;       // of the luma, in dB

  int soundRate = 0;
  int soundChannels = 0;
  double soundSeconds = 0;
  double soundLevel = 0;  // root mean square

  std::vector<double> flashes;  // where they begin, in seconds
  std::vector<double> clicks;
};

VideoFile ReadVideoFile(const std::filesystem::path& path);

// How far the click is from its flash, in seconds, at the worst of the flashes that have sound
// around them; and how many flashes those are. A flash without any click is a second off.
struct Sync {
  double worst = 0;
  size_t flashes = 0;
};
Sync MeasureSync(const VideoFile& file);

struct ImageSize {
  int width = 0;
  int height = 0;
  bool operator==(const ImageSize&) const = default;
};

// Of each PNG in the folder, decoded; {0, 0} for one that can't be.
std::vector<ImageSize> ReadPngs(const std::filesystem::path& folder);

}  // namespace Veldrift
