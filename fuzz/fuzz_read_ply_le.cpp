// Fuzz target: the point reader for binary little-endian PLY.
//
// Property (fuzz_reader.h): no crash, no sanitizer report, no hang, no exception but
// PointFileError, and every point returned finite.
// Input: the file after its "ply" and "format binary_little_endian 1.0" lines.
#include <cstddef>
#include <cstdint>

#include "fuzz_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz_reader::CheckPly(data, size, "binary_little_endian");
  return 0;
}
