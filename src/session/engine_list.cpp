#include "session/engine_list.h"

#include <algorithm>

#include "support/plugin_log.h"

namespace Veldrift {

namespace {

constexpr LogCategory kLog{kLogSubsystem, "transmit"};
constexpr size_t kLongest = 255;

void AppendText(std::vector<std::byte>& out, const std::string& text) {
  const size_t length = std::min(text.size(), kLongest);
  out.push_back(std::byte(length));
  for (size_t i = 0; i < length; ++i) out.push_back(std::byte(text[i]));
}

}  // namespace

std::vector<std::byte> EncodeEngineList(const std::vector<EngineEntry>& engines) {
  const size_t count = std::min(engines.size(), kLongest);
  std::vector<std::byte> list{std::byte(count)};
  for (size_t i = 0; i < count; ++i) {
    AppendText(list, engines[i].id);
    AppendText(list, engines[i].label);
    AppendText(list, engines[i].note);
  }
  if (list.size() > kLongest) {
    PluginLog(kLog, kLogError, "SendEncoderEngineList: inner payload %zu > 255 B — truncating",
              list.size());
    list.resize(kLongest);
  }
  list.insert(list.begin(), std::byte(list.size()));
  return list;
}

}  // namespace Veldrift
