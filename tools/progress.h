// A notice on standard error for a fit that takes a while: a watcher thread prints it once a
// delay has passed, so quick fits stay silent.
#ifndef METROFIT_TOOLS_PROGRESS_H
#define METROFIT_TOOLS_PROGRESS_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>

namespace metrofit::cli {

class ProgressNotice {
 public:
  // Prints `line` and a newline on `err` after `delay`, unless Stop comes first; at once for
  // a delay of zero.
  ProgressNotice(std::ostream& err, std::string line, std::chrono::milliseconds delay);
  ~ProgressNotice();
  ProgressNotice(const ProgressNotice&) = delete;
  ProgressNotice& operator=(const ProgressNotice&) = delete;

  // True once the line is printed; safe while the watch goes on.
  bool Printed();

  // Ends the watch; after it returns nothing more is printed. True when the line was printed.
  bool Stop();

 private:
  void Watch(std::chrono::milliseconds delay);

  std::ostream& err_;
  const std::string line_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool stopped_ = false;
  bool printed_ = false;
  std::thread watcher_;
};

}  // namespace metrofit::cli

#endif  // METROFIT_TOOLS_PROGRESS_H
