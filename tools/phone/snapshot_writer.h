// Writes some of the decoded pictures as PNG files, with the colours that the stream says it has.
//
// Threads: Offer comes from the decoding thread and doesn't wait; the pictures are converted and
// written on a thread of the writer's own. Finish and the destructor belong to the owner.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>

#include "platform/mutex.h"
#include "tools/av/av_handles.h"

namespace Veldrift {

class SnapshotWriter {
 public:
  // `everySeconds`: from one picture to the next; 0: at growing distances, up to a minute.
  SnapshotWriter(std::filesystem::path folder, double everySeconds);
  ~SnapshotWriter() { Finish(); }
  SnapshotWriter(const SnapshotWriter&) = delete;
  SnapshotWriter& operator=(const SnapshotWriter&) = delete;

  // False, with a reason in Error, if the folder can't be made.
  bool Start();

  // Takes the picture if it is time for one; the first of all is.
  void Offer(const AVFrame& picture, int64_t nowNs);

  void Finish();

  int Written() const;
  std::string Error() const;

 private:
  void Run();
  bool Write(const AVFrame& picture, const std::filesystem::path& file);

  std::filesystem::path NextPath();

  const std::filesystem::path folder_;
  const int64_t everyNs_;
  int64_t nextNs_ = 0;  // the decoding thread's
  int64_t stepNs_ = 0;  // the decoding thread's
  int number_ = 0;      // the writer's thread's
  mutable Mutex mutex_;
  CondVar changed_;
  Picture waiting_ VD_GUARDED_BY(mutex_);
  bool finishing_ VD_GUARDED_BY(mutex_) = false;
  int written_ VD_GUARDED_BY(mutex_) = 0;
  std::string error_ VD_GUARDED_BY(mutex_);
  std::thread thread_;
};

// The picture as packed RGB, 8 bits a channel, by the matrix and range of its own signalling; where
// it says nothing, limited range and, by its size, BT.709 or BT.601. Null if it can't be converted.
Picture ToRgb(const AVFrame& picture);

}  // namespace Veldrift
