// Fuzz target: the point reader for whitespace text (.xyz .txt .asc).
//
// Property (fuzz_reader.h): no crash, no sanitizer report, no hang, no exception but
// PointFileError, and every point returned finite.
// Input: a flag byte (decimal comma, columns; see TextOptions), then the file.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  fuzz_reader::Check(std::string_view(reinterpret_cast<const char*>(data) + 1, size - 1),
                     fuzz_reader::PointFormat::kText, fuzz_reader::TextOptions(data[0]));
  return 0;
}
