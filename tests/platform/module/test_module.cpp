// A library for the tests of loading: it tells where it would look for the user's settings.
#include <cstdio>

#include "platform/file.h"
#include "platform/system.h"

extern "C" __attribute__((visibility("default"))) void vd_test_roaming_folder(char* text,
                                                                              size_t size) {
  std::snprintf(text, size, "%s", Veldrift::PathText(Veldrift::FindRoamingFolder()).c_str());
}
