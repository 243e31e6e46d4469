// HeadlessHost: the world of an editor session without a window, for the
// command-line tool and the benchmarks: a main queue run by hand on the
// calling thread, a background thread pool, the edit store over the support
// folder's Edits/ and a render engine over its LUTs/.
//
// settle() runs main-thread work and waits for the pool until neither has
// anything left to do, so a script can apply one operation, wait for what it
// started in the background, and go on. Timers (toast dismissal, the
// autosave's quiet period) run only once they are due on the system clock;
// closing the session flushes the sidecar anyway.
//
// Use from one thread. Sessions must be destroyed before the host.
#pragma once

#include <filesystem>
#include <memory>

#include "session/session_services.h"
#include "store/edit_store.h"
#include "store/manual_executor.h"
#include "store/thread_pool.h"

namespace vg {

class HeadlessHost {
 public:
  // threads 0: the machine's hardware threads.
  explicit HeadlessHost(std::filesystem::path supportFolder, unsigned threads = 0);
  ~HeadlessHost();
  HeadlessHost(const HeadlessHost&) = delete;
  HeadlessHost& operator=(const HeadlessHost&) = delete;

  SessionServices services(bool persist = true);
  void settle();

  ManualExecutor& main() { return main_; }
  ThreadPool& pool() { return pool_; }
  EditStore& store() { return store_; }
  const std::shared_ptr<RenderEngine>& engine() const { return engine_; }
  const std::filesystem::path& supportFolder() const { return supportFolder_; }

 private:
  std::filesystem::path supportFolder_;
  ManualExecutor main_;
  EditStore store_;
  std::shared_ptr<RenderEngine> engine_;
  // Declared last: destroyed first, so background work finishes while the
  // rest is still there.
  ThreadPool pool_;
};

}  // namespace vg
