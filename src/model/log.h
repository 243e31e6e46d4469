// The system log: one line per event, written to stderr (journald picks it up
// when the application runs under systemd). Every layer above codec logs here.
//
// Thread-safe. Lines are written whole; the caller supplies the full text,
// including any "Verdantglass: " prefix its message requires.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vg {

void logLine(std::string_view line);

// Redirects log lines to a callback for the lifetime of the object (tests
// assert on exact lines this way). Nested captures restore the previous sink.
class ScopedLogCapture {
 public:
  explicit ScopedLogCapture(std::function<void(std::string_view)> sink);
  ScopedLogCapture();  // collects lines into lines()
  ~ScopedLogCapture();
  ScopedLogCapture(const ScopedLogCapture&) = delete;
  ScopedLogCapture& operator=(const ScopedLogCapture&) = delete;

  // Lines collected by the default-constructed capture, oldest first.
  std::vector<std::string> lines() const;

 private:
  std::function<void(std::string_view)> previous_;
  struct Collected;
  std::shared_ptr<Collected> collected_;
};

}  // namespace vg
