// Temporary point store: a copy of a point set parked outside the working memory and read back
// later.
//
// The extended circle fit transforms its working copy in place (SVD, rotation into the plane)
// and still needs the input coordinates afterwards; it parks them here instead of holding a
// second copy in memory.
//
// Backing. The copy goes to an anonymous temporary file: opened with O_TMPFILE where the system
// has it, otherwise made with mkstemp and unlinked at once, and read back through its open
// descriptor. The file never has a name (or only for the instants between mkstemp and unlink),
// so nothing can be left behind in the directory, not even by a process that is killed; the
// system frees the storage when the descriptor is closed. The file is made in $TMPDIR, then in
// /tmp when that gives none. When no file can be made in either, or writing it fails, the record
// keeps the copy in memory instead: the caller gets the same points back either way.
//
// File format: raw little-endian IEEE doubles, x y z per point, in point order, no header:
// exactly 3 n 8 bytes. The count is not stored in the file; the reader supplies it.
//
// Every SavePoints creates one record, pushed at the head of this thread's list; the matching
// RestorePoints releases it (and its file or memory), whatever it returns. A record that is
// neither restored nor discarded is released when its thread exits; callers with several exits
// hold it in a UniquePointFile so that it is released on every path.
#ifndef METROFIT_EXTENDED_POINT_STORE_H
#define METROFIT_EXTENDED_POINT_STORE_H

#include <cstdint>
#include <cstdio>
#include <memory>

#include "numeric/nvector.h"

namespace metrofit::numeric {

// One saved point set. prev/next link the records of the owning thread (head = newest, next
// towards older records). Exactly one of file and memory holds the copy.
struct TempPointFile {
  std::FILE* file;     // the anonymous file, or null when the copy is held in memory
  double* memory;      // 3 count doubles when no file could be used, else null
  std::int32_t count;  // points saved
  TempPointFile* prev;
  TempPointFile* next;
};

// Saves the points of `points` in a new anonymous file in $TMPDIR, or /tmp, or in memory (see
// above). Null when the set is absent or empty, or when no record or copy can be allocated.
TempPointFile* SavePoints(const PointSet* points);

// As SavePoints, but tries only `directory` (null: none) before keeping the copy in memory.
TempPointFile* SavePointsIn(const PointSet* points, const char* directory);

// Reads the record's copy back into `points` (its count says how many points to read), then
// releases the record with its file or memory. Returns 0 when all 3 count doubles were read, the
// number of doubles read when a short read returned some, and -1 otherwise: null record, record
// not in this thread's list (nothing is touched then), copy not readable, no or empty target.
std::int32_t RestorePoints(TempPointFile* record, PointSet* points);

// Releases a record of this thread without reading it; null or a record not in this thread's
// list is ignored.
void DiscardPointFile(TempPointFile* record);

// Owning handle: the record is discarded unless it was handed to RestorePoints (release()).
struct PointFileDiscarder {
  void operator()(TempPointFile* record) const { DiscardPointFile(record); }
};
using UniquePointFile = std::unique_ptr<TempPointFile, PointFileDiscarder>;

// Records of this thread that were saved and not yet restored or discarded.
std::int32_t PendingPointFileCount();
// Releases every pending record of this thread. Runs by itself when the thread exits.
void DiscardPendingPointFiles();

// Test seam, per thread: the directory tried when $TMPDIR gives no file (default /tmp; the text
// is copied); null or empty restores the default. Pointing it at a missing directory with $TMPDIR
// missing too leaves the in-memory copy as the only backing.
void OverrideFallbackTempDirectory(const char* directory);

// While one lives on a thread, that thread's copies stay in memory and no file is made (the
// points come back the same either way). The modern interface promises callers no files.
class InMemoryPointStore {
 public:
  InMemoryPointStore();
  ~InMemoryPointStore();
  InMemoryPointStore(const InMemoryPointStore&) = delete;
  InMemoryPointStore& operator=(const InMemoryPointStore&) = delete;

 private:
  bool previous_;
};

}  // namespace metrofit::numeric

#endif  // METROFIT_EXTENDED_POINT_STORE_H
