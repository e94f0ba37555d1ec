// metrofit: fits a geometric feature to measured points from files. See `metrofit --help`.
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "app.h"

namespace {

// Set to a number of milliseconds, announces fits running longer than that even when standard
// error is not a terminal (for tests and logs).
constexpr char kProgressVariable[] = "METROFIT_PROGRESS_AFTER_MS";

metrofit::cli::Environment ReadEnvironment() {
  metrofit::cli::Environment environment;
  environment.progress = ::isatty(STDERR_FILENO) == 1;
  if (const char* after = std::getenv(kProgressVariable)) {
    char* end = nullptr;
    const long ms = std::strtol(after, &end, 10);
    if (end != after && *end == '\0' && ms >= 0) {
      environment.progress = true;
      environment.progress_delay = std::chrono::milliseconds(ms);
    }
  }
  return environment;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::vector<std::string> args(argv + 1, argv + argc);
    return metrofit::cli::Run(args, std::cin, std::cout, std::cerr, ReadEnvironment());
  } catch (const std::exception& e) {
    std::cerr << "metrofit: internal error: " << e.what() << '\n';
  } catch (...) {
    std::cerr << "metrofit: internal error\n";
  }
  return metrofit::cli::kExitInternal;
}
