// Lets the start of a thread fail, as in a process that can't have any more: one of the program's
// own on Windows, anybody's elsewhere. Not beside a sanitizer, which has a pthread_create of its
// own. For test files with this name in theirs.
#pragma once

namespace Veldrift {

// The next thread that is started can't be had.
void RefuseNextThread();

}  // namespace Veldrift
