// What every libFuzzer binary sets up once, before its first input (the
// replay run under CTest keeps the defaults):
// - one thread: the decoders hand colour conversion to the thread pool, which
//   then runs it on the calling thread, so a run is one process on one core
//   (a fuzz round leaves the other core to the rest of the machine) and a
//   crash replays the same way every time;
// - no log lines: the loader logs every file it refuses, which at thousands
//   of inputs a second costs more than a small decode and buries libFuzzer's
//   own report.
#include <tbb/global_control.h>

#include <string_view>

#include "model/log.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  static tbb::global_control oneThread(tbb::global_control::max_allowed_parallelism, 1);
  static vg::ScopedLogCapture quiet([](std::string_view) {});
  return 0;
}
