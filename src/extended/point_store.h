// Temporary point store: a copy of a point set parked in a file and read back later.
//
// The extended circle fit transforms its working copy in place (SVD, rotation into the plane)
// and still needs the input coordinates afterwards; it parks them here instead of holding a
// second copy in memory.
//
// File format: raw little-endian IEEE doubles, x y z per point, in point order, no header:
// exactly 3 n 8 bytes. The count is not stored; the reader supplies it.
//
// Every SavePoints creates one file and one record, pushed at the head of this thread's list;
// the matching RestorePoints removes both, whatever it returns. A record that is never restored
// (a fit that failed between the save and the restore) keeps its file until the thread exits or
// the process ends normally, whichever comes first; a process-wide registry of the live files
// makes sure that none outlives the process.
//
// Files are created in $TMPDIR (or the system temporary directory) under a unique name with
// owner-only permissions (mkstemp on POSIX).
#ifndef METROFIT_EXTENDED_POINT_STORE_H
#define METROFIT_EXTENDED_POINT_STORE_H

#include <cstdint>

#include "extended/nvector.h"

namespace metrofit::numeric {

// Capacity of a record's path, terminating zero included.
constexpr int kTempPathCapacity = 256;

// One saved point set. prev/next link the records of the owning thread (head = newest, next
// towards older records); the registry fields belong to the process-wide list of live files.
struct TempPointFile {
  char path[kTempPathCapacity];
  TempPointFile* prev;
  TempPointFile* next;
  TempPointFile* registryPrev;
  TempPointFile* registryNext;
  long owner;  // process that created the file: a forked child never removes its parent's files
};

// Writes the points of `points` to a new temporary file. Null when the set is absent or empty,
// or when the record, the file or the write fails (a partly written file is removed).
TempPointFile* SavePoints(const PointSet* points);

// Reads record's file back into `points` (its count says how many points to read), then removes
// the file and releases the record. Returns 0 when all 3 count doubles were read, the number of
// doubles read when a short read returned some, and -1 otherwise: null record, record not in
// this thread's list (nothing is touched then), file not readable, no or empty target.
std::int32_t RestorePoints(TempPointFile* record, PointSet* points);

// Records of this thread that were saved and not yet restored.
std::int32_t PendingPointFileCount();
// Removes the files and releases the records of this thread that were never restored. Runs by
// itself when the thread exits; exposed so a long-running thread can reclaim them earlier.
void DiscardPendingPointFiles();

}  // namespace metrofit::numeric

#endif  // METROFIT_EXTENDED_POINT_STORE_H
