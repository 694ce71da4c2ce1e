// Faults by single instructions, which neither a compiler nor a sanitizer sees through.
#pragma once

namespace Veldrift {

// Six bytes long: a handler that steps over it can rely on that.
constexpr int kStoreLength = 6;
inline void StoreAtAddressEight() { asm volatile("movl $1, (%0)" ::"a"(8LL) : "memory"); }
inline void ExecuteNonsense() { asm volatile("ud2"); }
inline void DivideByZero() { asm volatile("cltd\n\tidivl %0" ::"r"(0), "a"(1) : "edx", "cc"); }

}  // namespace Veldrift
