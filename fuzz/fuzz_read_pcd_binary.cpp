// Fuzz target: the point reader for binary PCD.
//
// Property (fuzz_reader.h): no crash, no sanitizer report, no hang, no exception but
// PointFileError, and every point returned finite.
// Input: the header without its DATA line, a NUL byte, the data.
#include <cstddef>
#include <cstdint>

#include "fuzz_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz_reader::CheckPcd(data, size, "binary");
  return 0;
}
