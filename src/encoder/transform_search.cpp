#include "encoder/transform_search.h"

#include "encoder/engine_catalogue.h"
#include "encoder/hresult_name.h"
#include "encoder/transform_negotiation.h"
#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "encoder"};

struct SearchedClass {
  TransformClass kind;
  const char* name;
};
constexpr SearchedClass kClasses[] = {
    {TransformClass::HardwareSync, "HW-sync"},
    {TransformClass::HardwareAsync, "HW-async"},
    {TransformClass::Software, "SW"},
};

TransformFound Try(TransformCandidate& candidate, const TransformWanted& wanted,
                   const char* className, bool filtered) {
  TransformFound found;
  found.name = candidate.Name();
  if (filtered && !EngineMatches(candidate.Vendor(), wanted.engineId)) return found;
  int32_t error = 0;
  std::unique_ptr<EncoderTransform> transform = candidate.Activate(error);
  if (!transform) {
    PluginLog(kCategory, kLogInfo, "  [%s] activate \"%s\" failed %s", className,
              found.name.c_str(), HresultName(error).c_str());
    return found;
  }
  PluginLog(kCategory, kLogInfo, "trying %s MFT: \"%s\"%s", className, found.name.c_str(),
            filtered ? " (engine-filtered)" : "");
  const Negotiated settled =
      NegotiateTransform(*transform, wanted.format, className, wanted.allowAsynchronous);
  if (!settled.accepted) return found;
  found.asynchronous = settled.asynchronous;
  found.onGpu = settled.asynchronous || settled.tookDevice;
  found.transform = std::move(transform);
  PluginLog(kCategory, kLogInfo, "  -> using %s \"%s\" (hw-gpu=%d async=%d)", className,
            found.name.c_str(), found.onGpu, found.asynchronous);
  return found;
}

TransformFound SearchClass(TransformPlatform& platform, const TransformWanted& wanted,
                           const SearchedClass& searched, bool filtered) {
  for (const auto& candidate : platform.Find(searched.kind, wanted.format.codec)) {
    TransformFound found = Try(*candidate, wanted, searched.name, filtered);
    if (found.transform) return found;
  }
  return {};
}

TransformFound Pass(TransformPlatform& platform, const TransformWanted& wanted, bool filtered) {
  for (const SearchedClass& searched : kClasses) {
    TransformFound found = SearchClass(platform, wanted, searched, filtered);
    if (found.transform) return found;
  }
  return {};
}

}  // namespace

TransformFound FindTransform(TransformPlatform& platform, const TransformWanted& wanted) {
  if (!IsExplicitEngine(wanted.engineId)) return Pass(platform, wanted, false);
  TransformFound found = Pass(platform, wanted, true);
  if (found.transform) return found;
  PluginLog(kCategory, kLogInfo, "engine '%s' produced no usable MFT — relaxing to best-ranked",
            wanted.engineId.c_str());
  return Pass(platform, wanted, false);
}

}  // namespace Veldrift
