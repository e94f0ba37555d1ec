// metrofit: fits a geometric feature to measured points from a file. See `metrofit --help`.
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "app.h"

int main(int argc, char** argv) {
  try {
    const std::vector<std::string> args(argv + 1, argv + argc);
    return metrofit::cli::Run(args, std::cin, std::cout, std::cerr);
  } catch (const std::exception& e) {
    std::cerr << "metrofit: internal error: " << e.what() << '\n';
  } catch (...) {
    std::cerr << "metrofit: internal error\n";
  }
  return metrofit::cli::kExitInternal;
}
