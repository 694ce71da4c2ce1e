// Lets the start of a thread fail, as in a process that can't have any more. Only on POSIX, and not
// beside a sanitizer, which has a pthread_create of its own.
#pragma once

namespace Veldrift {

// The next thread that anybody in this process starts can't be had.
void RefuseNextThread();

}  // namespace Veldrift
