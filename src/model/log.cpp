#include "model/log.h"

#include <cstdio>
#include <mutex>

namespace vg {
namespace {

std::mutex& logMutex() {
  static std::mutex m;
  return m;
}

std::function<void(std::string_view)>& currentSink() {
  static std::function<void(std::string_view)> sink;
  return sink;
}

}  // namespace

void logLine(std::string_view line) {
  std::lock_guard lock(logMutex());
  if (auto& sink = currentSink()) {
    sink(line);
    return;
  }
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fputc('\n', stderr);
  std::fflush(stderr);
}

struct ScopedLogCapture::Collected {
  std::mutex mutex;
  std::vector<std::string> lines;
};

ScopedLogCapture::ScopedLogCapture(std::function<void(std::string_view)> sink) {
  std::lock_guard lock(logMutex());
  previous_ = std::move(currentSink());
  currentSink() = std::move(sink);
}

ScopedLogCapture::ScopedLogCapture() : collected_(std::make_shared<Collected>()) {
  std::lock_guard lock(logMutex());
  previous_ = std::move(currentSink());
  currentSink() = [c = collected_](std::string_view line) {
    std::lock_guard l(c->mutex);
    c->lines.emplace_back(line);
  };
}

ScopedLogCapture::~ScopedLogCapture() {
  std::lock_guard lock(logMutex());
  currentSink() = std::move(previous_);
}

std::vector<std::string> ScopedLogCapture::lines() const {
  if (!collected_) return {};
  std::lock_guard l(collected_->mutex);
  return collected_->lines;
}

}  // namespace vg
