// The platform's media layer, started while somebody needs it.
#pragma once

#include "encoder/mf/com_scope.h"
#include "encoder/mf/mf_libraries.h"

namespace Veldrift {

// One hold on the media layer and on COM. The first hold of a process starts the layer and the last
// one stops it. COM's multithreaded apartment stays open meanwhile, so that every thread may
// configure an encoder, whatever the host has done about COM there.
//
// Threads: any; making and ending one may wait for the layer to start or stop.
class MediaLayer {
 public:
  explicit MediaLayer(const MfLibraries& libraries);
  ~MediaLayer();
  MediaLayer(const MediaLayer&) = delete;
  MediaLayer& operator=(const MediaLayer&) = delete;

  bool Started() const { return started_; }

 private:
  const MfLibraries& libraries_;
  CO_MTA_USAGE_COOKIE apartment_ = nullptr;
  bool started_ = false;
};

// A start and a stop of the layer of their own, which the platform counts, for a question that no
// encoder asks.
class MediaLayerVisit {
 public:
  explicit MediaLayerVisit(const MfLibraries& libraries);
  ~MediaLayerVisit();
  MediaLayerVisit(const MediaLayerVisit&) = delete;
  MediaLayerVisit& operator=(const MediaLayerVisit&) = delete;

 private:
  const MfLibraries& libraries_;
  CO_MTA_USAGE_COOKIE apartment_ = nullptr;
  bool started_ = false;
};

}  // namespace Veldrift
