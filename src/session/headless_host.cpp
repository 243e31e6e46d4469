#include "session/headless_host.h"

namespace vg {

HeadlessHost::HeadlessHost(std::filesystem::path supportFolder, unsigned threads)
    : supportFolder_(std::move(supportFolder)),
      main_(SystemClock::shared()),
      store_(supportFolder_ / "Edits"),
      engine_(std::make_shared<RenderEngine>(supportFolder_ / "LUTs")),
      pool_("vg.session.bg", threads) {}

HeadlessHost::~HeadlessHost() {
  pool_.waitIdle();
  main_.runReady();
}

SessionServices HeadlessHost::services(bool persist) {
  return SessionServices{main_, pool_, SystemClock::shared(), store_, engine_, supportFolder_, {}, persist};
}

void HeadlessHost::settle() {
  for (;;) {
    pool_.waitIdle();
    // Nothing ran on the main thread: nothing new went to the pool either.
    if (main_.runReady() == 0) return;
  }
}

}  // namespace vg
