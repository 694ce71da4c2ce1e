#include "encoder/mf/media_layer.h"

#include "platform/mutex.h"
#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "encoder"};

// The version that the layer is asked for, and the two ways to start it.
constexpr ULONG kMediaVersion = 0x20070;
constexpr DWORD kWithoutSockets = 1;
constexpr DWORD kFull = 0;

// Count and start are one step: nobody uses the layer before the first start has returned.
Mutex holdsMutex;
int holds VD_GUARDED_BY(holdsMutex) = 0;

bool TakeHold(const MediaApi& media) {
  MutexLock lock(holdsMutex);
  if (holds == 0) {
    if (const HRESULT result = media.startup(kMediaVersion, kWithoutSockets); FAILED(result)) {
      PluginLog(kCategory, kLogError, "MFStartup failed: 0x%08lx", static_cast<ULONG>(result));
      return false;
    }
  }
  ++holds;
  return true;
}

void GiveHoldBack(const MediaApi& media) {
  MutexLock lock(holdsMutex);
  if (--holds == 0) media.shutdown();
}

CO_MTA_USAGE_COOKIE OpenApartment() {
  CO_MTA_USAGE_COOKIE cookie = nullptr;
  return SUCCEEDED(CoIncrementMTAUsage(&cookie)) ? cookie : nullptr;
}

void CloseApartment(CO_MTA_USAGE_COOKIE cookie) {
  if (cookie != nullptr) CoDecrementMTAUsage(cookie);
}

}  // namespace

MediaLayer::MediaLayer(const MfLibraries& libraries) : libraries_(libraries) {
  if (!libraries_.media) return;  // told when the libraries were loaded
  apartment_ = OpenApartment();
  started_ = TakeHold(*libraries_.media);
}

MediaLayer::~MediaLayer() {
  if (started_) GiveHoldBack(*libraries_.media);
  CloseApartment(apartment_);
}

MediaLayerVisit::MediaLayerVisit(const MfLibraries& libraries) : libraries_(libraries) {
  if (!libraries_.media) return;
  apartment_ = OpenApartment();
  started_ = SUCCEEDED(libraries_.media->startup(kMediaVersion, kFull));
}

MediaLayerVisit::~MediaLayerVisit() {
  if (started_) libraries_.media->shutdown();
  CloseApartment(apartment_);
}

}  // namespace Veldrift
