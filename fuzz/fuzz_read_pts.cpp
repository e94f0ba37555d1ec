// Fuzz target: the point reader for PTS.
//
// Property (fuzz_reader.h): no crash, no sanitizer report, no hang, no exception but
// PointFileError, and every point returned finite.
// Input: the file.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz_reader::Check(std::string_view(reinterpret_cast<const char*>(data), size),
                     fuzz_reader::PointFormat::kPts);
  return 0;
}
