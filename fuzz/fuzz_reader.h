// Shared part of the point-file reader targets (fuzz_read_*.cpp).
//
// Property of every reader target: no crash, no sanitizer report, no hang, no exception other
// than the readers' own PointFileError (a std::bad_alloc from a declared count, say, is a
// finding); and every point returned is three finite coordinates. A broken promise ends the
// run with __builtin_trap after naming it on stderr.
#ifndef METROFIT_FUZZ_FUZZ_READER_H
#define METROFIT_FUZZ_FUZZ_READER_H

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "point_reader.h"

namespace fuzz_reader {

using metrofit::io::PointFormat;
using metrofit::io::ReadOptions;

// Reads `bytes` as `format` and checks the property; `name` stands for the source in messages.
inline void Check(std::string_view bytes, PointFormat format, const ReadOptions& base = {}) {
  ReadOptions options = base;
  options.format = format;
  metrofit::io::PointCloud cloud;
  try {
    cloud = metrofit::io::ParsePoints(bytes, "fuzz-input", options);
  } catch (const metrofit::io::PointFileError&) {
    return;  // refused with a message: what a reader should do with bad bytes
  }
  if (cloud.xyz.size() % 3 != 0) {
    std::fprintf(stderr, "fuzz_read: %zu coordinates, not whole points\n", cloud.xyz.size());
    __builtin_trap();
  }
  for (std::size_t i = 0; i < cloud.xyz.size(); ++i) {
    if (!std::isfinite(cloud.xyz[i])) {
      std::fprintf(stderr, "fuzz_read: point %zu has the non-finite coordinate %g\n", i / 3,
                   cloud.xyz[i]);
      __builtin_trap();
    }
  }
}

// Text and CSV: the first byte chooses the decimal mark (bit 0) and, through bits 1-3, columns
// for x y z (0: the default; otherwise three distinct columns out of the first eight).
inline ReadOptions TextOptions(std::uint8_t flags) {
  static const int kColumnSets[7][3] = {{1, 2, 3}, {2, 3, 4}, {3, 2, 1}, {4, 5, 6},
                                        {1, 3, 5}, {6, 7, 8}, {8, 1, 4}};
  ReadOptions options;
  options.decimal_comma = (flags & 1) != 0;
  const int set = (flags >> 1) & 7;
  if (set > 0) options.columns.assign(kColumnSets[set - 1], kColumnSets[set - 1] + 3);
  return options;
}

// PLY in one encoding: the target writes the magic and format lines, the input is the rest of
// the header and the data.
inline void CheckPly(const std::uint8_t* data, std::size_t size, const char* encoding) {
  std::string file = std::string("ply\nformat ") + encoding + " 1.0\n";
  file.append(reinterpret_cast<const char*>(data), size);
  Check(file, PointFormat::kPly);
}

// PCD in one encoding: the input is the header up to its first NUL byte, then the data; the
// target puts the DATA line of its encoding between them.
inline void CheckPcd(const std::uint8_t* data, std::size_t size, const char* encoding) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::size_t split = input.find('\0');
  std::string file(input.substr(0, split));
  file += std::string("DATA ") + encoding + "\n";
  if (split != std::string_view::npos) file.append(input.substr(split + 1));
  Check(file, PointFormat::kPcd);
}

}  // namespace fuzz_reader

#endif  // METROFIT_FUZZ_FUZZ_READER_H
