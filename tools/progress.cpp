#include "progress.h"

#include <utility>

namespace metrofit::cli {

ProgressNotice::ProgressNotice(std::ostream& err, std::string line, std::chrono::milliseconds delay)
    : err_(err), line_(std::move(line)) {
  // No delay: announce before the work starts, without a watcher.
  if (delay.count() <= 0) {
    err_ << line_ << '\n' << std::flush;
    printed_ = true;
    return;
  }
  watcher_ = std::thread([this, delay] { Watch(delay); });
}

ProgressNotice::~ProgressNotice() {
  Stop();
}

bool ProgressNotice::Printed() {
  std::lock_guard<std::mutex> lock(mutex_);
  return printed_;
}

bool ProgressNotice::Stop() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopped_ = true;
  }
  wake_.notify_all();
  if (watcher_.joinable()) watcher_.join();
  return printed_;
}

void ProgressNotice::Watch(std::chrono::milliseconds delay) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (wake_.wait_for(lock, delay, [this] { return stopped_; })) return;
  // Written under the lock: Stop cannot return while the line is half written.
  err_ << line_ << '\n' << std::flush;
  printed_ = true;
}

}  // namespace metrofit::cli
