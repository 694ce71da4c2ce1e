// What a test tells the sibling module to be, and what the module was asked.
#pragma once

#include <cstdint>

struct VdTestSibling {
  bool handsOutTable = true;
  bool hasInvoke = true;
  uint32_t version = 1;
  int32_t status = 0;          // what invoke answers
  void (*inside)() = nullptr;  // runs while invoke does

  int32_t calls = 0;
  int32_t lastOperation = -1;
};
