// Where exceptions end: at the edge of a thread and of the module.
#pragma once

#include <exception>
#include <utility>

#include "support/plugin_log.h"

namespace Veldrift {

// Runs `body`; what it throws is logged once and goes no further. False if it threw.
template <typename Body>
bool RunGuarded(const LogCategory& category, const char* what, Body&& body) noexcept {
  try {
    std::forward<Body>(body)();
    return true;
  } catch (const std::exception& error) {
    PluginLog(category, kLogError, "%s ended by an exception: %s", what, error.what());
  } catch (...) {
    PluginLog(category, kLogError, "%s ended by an exception without a text", what);
  }
  return false;
}

}  // namespace Veldrift
