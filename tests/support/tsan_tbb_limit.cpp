// oneTBB is not built for ThreadSanitizer: TSan cannot see how a task passes
// from the thread that made it to the worker that runs it, and reports every
// such handoff as a data race. Under TSan the test binaries that compile
// this file (those that run editor sessions) therefore keep oneTBB's
// parallel work on the thread that asks for it (one thread for the whole
// process). The threads the session itself works with (the background pool
// and the main queue) are still checked.
#include "model/sanitizers.h"
#include "render/parallel.h"

#ifdef VG_THREAD_SANITIZER
namespace {
const vg::ScopedThreadLimit oneTBBThread(1);
}  // namespace
#endif
