// Temporary point store; see point_store.h.
//
// Records live in a per-thread list (head = newest), which SavePoints and RestorePoints walk
// exactly like a single list would within one thread; being per thread, fits on different
// threads never see each other's records. Nothing is process-wide: an anonymous file needs no
// clean-up at exit, and a forked child only holds its own duplicates of the descriptors.
#include "extended/point_store.h"

#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

#if !defined(_WIN32)
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace metrofit::numeric {
namespace {

// Return value of RestorePoints for every failure that read nothing.
constexpr std::int32_t kRestoreFailed = -1;
// A short read of more doubles than an int32 holds reports this many.
constexpr std::int32_t kMaxReportedCount = std::numeric_limits<std::int32_t>::max();
// Doubles per point.
constexpr std::size_t kCoordinates = 3;
// Bytes of one stored double.
constexpr std::size_t kDoubleBytes = 8;
// Doubles converted per block between memory and file: a 4 KiB stack buffer, no allocation.
constexpr std::size_t kChunkDoubles = 512;

#if !defined(_WIN32)
// Directory tried when $TMPDIR is unset, empty or gives no file.
constexpr const char* kDefaultTempDir = "/tmp";
// Name of the short-lived link of a file made by mkstemp; the X characters become unique.
constexpr const char* kNameTemplate = "/metrofit-pts-XXXXXX";
// Room for a directory and the template (PATH_MAX on Linux); a longer directory is skipped.
constexpr std::size_t kPathCapacity = 4096;
// Owner read and write only, for the file as long as it is reachable at all.
constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;
#endif

// Test override of kDefaultTempDir (a copy of the caller's text); empty: no override.
thread_local std::string t_fallbackDir;
// Set while an InMemoryPointStore lives on this thread: no file is made.
thread_local bool t_inMemory = false;

// ---------------------------------------------------------------------------------------------
// This thread's list.
// ---------------------------------------------------------------------------------------------

// Closes the file or frees the copy, then the record.
void Release(TempPointFile* r) {
  if (r->file != nullptr) std::fclose(r->file);
  ReleaseBlock(r->memory);
  ReleaseBlock(r);
}

class ThreadList {
 public:
  ThreadList() = default;
  ThreadList(const ThreadList&) = delete;
  ThreadList& operator=(const ThreadList&) = delete;
  ~ThreadList() { DiscardAll(); }

  TempPointFile* head = nullptr;

  void PushFront(TempPointFile* r) {
    r->prev = nullptr;
    r->next = head;
    if (head != nullptr) head->prev = r;
    head = r;
  }
  void Unlink(TempPointFile* r) {
    if (r->prev != nullptr) r->prev->next = r->next;
    if (r->next != nullptr) r->next->prev = r->prev;
    if (head == r) head = r->next;
    r->prev = r->next = nullptr;
  }
  bool Contains(const TempPointFile* r) const {
    for (const TempPointFile* p = head; p != nullptr; p = p->next)
      if (p == r) return true;
    return false;
  }
  void DiscardAll() {
    while (head != nullptr) {
      TempPointFile* r = head;
      Unlink(r);
      Release(r);
    }
  }
};

thread_local ThreadList t_list;

// ---------------------------------------------------------------------------------------------
// Anonymous files.
// ---------------------------------------------------------------------------------------------

#if defined(_WIN32)
// The runtime's temporary file, deleted when it is closed; its directory is the runtime's.
std::FILE* OpenAnonymousFile(const char* /*directory*/) {
  std::FILE* f = nullptr;
  return tmpfile_s(&f) == 0 ? f : nullptr;
}
#else
// Descriptor of a new file in dir that has no name, or -1.
int OpenUnnamedFile(const char* dir) {
#if defined(O_TMPFILE)
  const int anonymous = open(dir, O_TMPFILE | O_RDWR | O_CLOEXEC, kOwnerOnly);
  if (anonymous >= 0) return anonymous;
    // A filesystem without O_TMPFILE refuses it (EOPNOTSUPP, EISDIR on old kernels): the named
    // route below still works there; a missing directory fails there too.
#endif
  char path[kPathCapacity];
  const int length = std::snprintf(path, sizeof path, "%s%s", dir, kNameTemplate);
  if (length < 0 || static_cast<std::size_t>(length) >= sizeof path) return -1;
  const int fd = mkstemp(path);  // O_CREAT | O_EXCL
  if (fd < 0) return -1;
  fchmod(fd, kOwnerOnly);  // whatever the runtime's default mode
  // The name goes at once: from here on a killed process cannot leave it behind.
  if (unlink(path) != 0) {
    close(fd);
    return -1;
  }
  fcntl(fd, F_SETFD, FD_CLOEXEC);  // a program started by exec must not keep the storage alive
  return fd;
}

std::FILE* OpenAnonymousFile(const char* dir) {
  if (dir == nullptr || dir[0] == '\0') return nullptr;
  const int fd = OpenUnnamedFile(dir);
  if (fd < 0) return nullptr;
  std::FILE* f = fdopen(fd, "w+b");
  if (f == nullptr) close(fd);
  return f;
}
#endif

// Bytes of v, least significant first, whatever the host's byte order.
void EncodeLittleEndian(double v, unsigned char* out) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &v, sizeof bits);
  for (std::size_t k = 0; k < kDoubleBytes; ++k)
    out[k] = static_cast<unsigned char>(bits >> (8 * k));
}

double DecodeLittleEndian(const unsigned char* in) {
  std::uint64_t bits = 0;
  for (std::size_t k = 0; k < kDoubleBytes; ++k)
    bits |= static_cast<std::uint64_t>(in[k]) << (8 * k);
  double v = 0.0;
  std::memcpy(&v, &bits, sizeof v);
  return v;
}

// Number of doubles written.
std::size_t WriteDoubles(std::FILE* f, const double* x, std::size_t n) {
  unsigned char buffer[kChunkDoubles * kDoubleBytes];
  std::size_t done = 0;
  while (done < n) {
    const std::size_t chunk = n - done < kChunkDoubles ? n - done : kChunkDoubles;
    for (std::size_t i = 0; i < chunk; ++i)
      EncodeLittleEndian(x[done + i], buffer + i * kDoubleBytes);
    const std::size_t written = std::fwrite(buffer, kDoubleBytes, chunk, f);
    done += written;
    if (written != chunk) break;
  }
  return done;
}

// Number of whole doubles read from the start of the file.
std::size_t ReadDoubles(std::FILE* f, double* x, std::size_t n) {
  if (std::fseek(f, 0, SEEK_SET) != 0) return 0;
  unsigned char buffer[kChunkDoubles * kDoubleBytes];
  std::size_t done = 0;
  while (done < n) {
    const std::size_t chunk = n - done < kChunkDoubles ? n - done : kChunkDoubles;
    const std::size_t got = std::fread(buffer, kDoubleBytes, chunk, f);
    for (std::size_t i = 0; i < got; ++i)
      x[done + i] = DecodeLittleEndian(buffer + i * kDoubleBytes);
    done += got;
    if (got != chunk) break;
  }
  return done;
}

// The set written to a new anonymous file in dir; null when none can be made or the write
// fails (the file then goes with its descriptor).
std::FILE* WriteAnonymousFile(const PointSet& points, const char* dir) {
  std::FILE* f = OpenAnonymousFile(dir);
  if (f == nullptr) return nullptr;
  const std::size_t n = kCoordinates * static_cast<std::size_t>(points.count);
  // A failed flush loses data as surely as a short write.
  if (WriteDoubles(f, points.xyz, n) != n || std::fflush(f) != 0) {
    std::fclose(f);
    return nullptr;
  }
  return f;
}

// The set copied into a new block; null when out of memory.
double* CopyToMemory(const PointSet& points) {
  const std::size_t n = kCoordinates * static_cast<std::size_t>(points.count);
  auto* copy = static_cast<double*>(AllocateBlock(n * sizeof(double)));
  if (copy != nullptr) std::memcpy(copy, points.xyz, n * sizeof(double));
  return copy;
}

// Saves into a file in the first directory that gives one, else into memory.
TempPointFile* Save(const PointSet* points, const char* first, const char* second) {
  if (points == nullptr || points->count < 1) return nullptr;
  auto* r = static_cast<TempPointFile*>(AllocateBlock(sizeof(TempPointFile)));
  if (r == nullptr) return nullptr;
  r->count = points->count;
  r->file = t_inMemory ? nullptr : WriteAnonymousFile(*points, first);
  if (r->file == nullptr && second != nullptr && !t_inMemory) {
    r->file = WriteAnonymousFile(*points, second);
  }
  r->memory = r->file == nullptr ? CopyToMemory(*points) : nullptr;
  if (r->file == nullptr && r->memory == nullptr) {
    ReleaseBlock(r);
    return nullptr;
  }
  t_list.PushFront(r);
  return r;
}

}  // namespace

TempPointFile* SavePoints(const PointSet* points) {
#if defined(_WIN32)
  return Save(points, nullptr, nullptr);
#else
  const char* fallback = t_fallbackDir.empty() ? kDefaultTempDir : t_fallbackDir.c_str();
  return Save(points, std::getenv("TMPDIR"), fallback);
#endif
}

TempPointFile* SavePointsIn(const PointSet* points, const char* directory) {
  return Save(points, directory, nullptr);
}

std::int32_t RestorePoints(TempPointFile* record, PointSet* points) {
  if (record == nullptr || !t_list.Contains(record)) return kRestoreFailed;
  t_list.Unlink(record);

  std::int32_t status = kRestoreFailed;
  if (points != nullptr && points->count > 0) {
    const std::size_t n = kCoordinates * static_cast<std::size_t>(points->count);
    std::size_t got = 0;
    if (record->file != nullptr) {
      got = ReadDoubles(record->file, points->xyz, n);
    } else {
      // The same count as the file would give: as many doubles as were saved, at most n.
      const std::size_t saved = kCoordinates * static_cast<std::size_t>(record->count);
      got = saved < n ? saved : n;
      std::memcpy(points->xyz, record->memory, got * sizeof(double));
    }
    if (got == n) {
      status = 0;
    } else if (got > 0) {
      status = got < static_cast<std::size_t>(kMaxReportedCount) ? static_cast<std::int32_t>(got)
                                                                 : kMaxReportedCount;
    }
  }
  Release(record);
  return status;
}

void DiscardPointFile(TempPointFile* record) {
  if (record == nullptr || !t_list.Contains(record)) return;
  t_list.Unlink(record);
  Release(record);
}

std::int32_t PendingPointFileCount() {
  std::int32_t n = 0;
  for (const TempPointFile* p = t_list.head; p != nullptr; p = p->next) ++n;
  return n;
}

void DiscardPendingPointFiles() {
  t_list.DiscardAll();
}

InMemoryPointStore::InMemoryPointStore() : previous_(t_inMemory) {
  t_inMemory = true;
}

InMemoryPointStore::~InMemoryPointStore() {
  t_inMemory = previous_;
}

void OverrideFallbackTempDirectory(const char* directory) {
  t_fallbackDir = directory != nullptr ? directory : "";
}

}  // namespace metrofit::numeric
