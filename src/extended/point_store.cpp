// Temporary point store; see point_store.h.
//
// Two lists hold every record. The thread list (head = newest) is what SavePoints and
// RestorePoints walk, exactly like a single list would within one thread; being per thread,
// fits on different threads never see each other's records. The registry is process-wide and
// locked: it only exists so that files left behind by failed fits are removed when their thread
// exits (thread-local destructor) or, for threads still running then, when the process exits
// (atexit handler).
//
// Record paths are written only under the registry lock (creation of the file, and the exit
// handler marking a file it has removed), and read by the owning thread only after it has taken
// the record out of the registry, so the two never race.
#include "extended/point_store.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>
#include <new>

#if defined(_WIN32)
#include <process.h>
#else
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace metrofit::numeric {
namespace {

// Return value of RestorePoints for every failure that read nothing.
constexpr std::int32_t kRestoreFailed = -1;
// A short read of more doubles than an int32 holds reports this many.
constexpr std::int32_t kMaxReportedCount = std::numeric_limits<std::int32_t>::max();
// Doubles per point in the file.
constexpr std::size_t kCoordinates = 3;
// Bytes of one stored double.
constexpr std::size_t kDoubleBytes = 8;
// Doubles converted per block between memory and file: a 4 KiB stack buffer, no allocation.
constexpr std::size_t kChunkDoubles = 512;

#if !defined(_WIN32)
// Directory used when TMPDIR is unset, empty or too long for a record's path.
constexpr const char* kDefaultTempDir = "/tmp";
// Unique part of every file name; mkstemp replaces the X characters.
constexpr const char* kNameTemplate = "/metrofit-pts-XXXXXX";
#endif

long CurrentProcess() {
#if defined(_WIN32)
  return static_cast<long>(_getpid());
#else
  return static_cast<long>(getpid());
#endif
}

// ---------------------------------------------------------------------------------------------
// Process-wide registry of live files.
// ---------------------------------------------------------------------------------------------

struct Registry {
  std::mutex mutex;
  TempPointFile* head = nullptr;
};

void RemoveRegisteredFiles();

#if !defined(_WIN32)
// fork() while another thread holds the lock would leave the child's copy locked for ever.
void LockRegistryForFork();
void UnlockRegistryAfterFork();
#endif

Registry* MakeRegistry(void* storage) {
  Registry* r = new (storage) Registry();
  std::atexit(RemoveRegisteredFiles);
#if !defined(_WIN32)
  pthread_atfork(LockRegistryForFork, UnlockRegistryAfterFork, UnlockRegistryAfterFork);
#endif
  return r;
}

// Never destroyed: threads that exit during process shutdown still unregister their records.
Registry& TheRegistry() {
  alignas(Registry) static unsigned char storage[sizeof(Registry)];
  static Registry* const registry = MakeRegistry(storage);
  return *registry;
}

#if !defined(_WIN32)
void LockRegistryForFork() {
  TheRegistry().mutex.lock();
}
void UnlockRegistryAfterFork() {
  TheRegistry().mutex.unlock();
}
#endif

// Caller holds the lock.
void LinkIntoRegistry(Registry& reg, TempPointFile* r) {
  r->registryPrev = nullptr;
  r->registryNext = reg.head;
  if (reg.head != nullptr) reg.head->registryPrev = r;
  reg.head = r;
}

// Caller holds the lock.
void UnlinkFromRegistry(Registry& reg, TempPointFile* r) {
  if (r->registryPrev != nullptr) r->registryPrev->registryNext = r->registryNext;
  if (r->registryNext != nullptr) r->registryNext->registryPrev = r->registryPrev;
  if (reg.head == r) reg.head = r->registryNext;
  r->registryPrev = r->registryNext = nullptr;
}

void Unregister(TempPointFile* r) {
  Registry& reg = TheRegistry();
  const std::lock_guard<std::mutex> lock(reg.mutex);
  UnlinkFromRegistry(reg, r);
}

// At exit: removes the files of this process's records that are still registered (those of
// threads still running; exited threads have removed their own). An emptied path tells the
// owning thread that its file is gone.
void RemoveRegisteredFiles() {
  Registry& reg = TheRegistry();
  const std::lock_guard<std::mutex> lock(reg.mutex);
  const long self = CurrentProcess();
  for (TempPointFile* r = reg.head; r != nullptr; r = r->registryNext) {
    if (r->owner != self || r->path[0] == '\0') continue;
    std::remove(r->path);
    r->path[0] = '\0';
  }
}

// ---------------------------------------------------------------------------------------------
// This thread's list.
// ---------------------------------------------------------------------------------------------

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
  void DiscardAll();
};

thread_local ThreadList t_list;

// True when r's file is this process's to remove: not removed yet by the exit handler, and not
// inherited through fork() (a child sees copies of its parent's records in the forking thread's
// list and in the registry; the files stay the parent's).
bool OwnsFile(const TempPointFile* r) {
  return r->path[0] != '\0' && r->owner == CurrentProcess();
}

// Takes the record out of the registry (the caller has unlinked it from the thread list),
// removes its file when it is ours and releases it.
void Retire(TempPointFile* r) {
  Unregister(r);
  if (OwnsFile(r)) std::remove(r->path);
  ReleaseBlock(r);
}

void ThreadList::DiscardAll() {
  while (head != nullptr) {
    TempPointFile* r = head;
    Unlink(r);
    Retire(r);
  }
}

// ---------------------------------------------------------------------------------------------
// File creation and byte order.
// ---------------------------------------------------------------------------------------------

// Creates the file under a fresh unique name written into r->path and registers r, both under
// the lock. Null when no file could be created.
std::FILE* CreateRegisteredFile(TempPointFile* r) {
  Registry& reg = TheRegistry();
  const std::lock_guard<std::mutex> lock(reg.mutex);
#if defined(_WIN32)
  if (tmpnam_s(r->path, kTempPathCapacity) != 0) return nullptr;
  std::FILE* f = nullptr;
  if (fopen_s(&f, r->path, "wb") != 0 || f == nullptr) return nullptr;
#else
  const char* dir = std::getenv("TMPDIR");
  const std::size_t room = kTempPathCapacity - std::strlen(kNameTemplate) - 1;
  if (dir == nullptr || dir[0] == '\0' || std::strlen(dir) > room) dir = kDefaultTempDir;
  std::snprintf(r->path, kTempPathCapacity, "%s%s", dir, kNameTemplate);
  const int fd = mkstemp(r->path);  // O_CREAT | O_EXCL, mode 0600
  if (fd < 0) {
    r->path[0] = '\0';
    return nullptr;
  }
  fchmod(fd, S_IRUSR | S_IWUSR);  // owner-only whatever the runtime's default
  std::FILE* f = fdopen(fd, "wb");
  if (f == nullptr) {
    close(fd);
    std::remove(r->path);
    r->path[0] = '\0';
    return nullptr;
  }
#endif
  LinkIntoRegistry(reg, r);
  return f;
}

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

// Number of whole doubles read.
std::size_t ReadDoubles(std::FILE* f, double* x, std::size_t n) {
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

}  // namespace

TempPointFile* SavePoints(const PointSet* points) {
  if (points == nullptr || points->count < 1) return nullptr;
  auto* r = static_cast<TempPointFile*>(AllocateBlock(sizeof(TempPointFile)));
  if (r == nullptr) return nullptr;
  std::memset(r->path, 0, sizeof r->path);
  r->registryPrev = r->registryNext = nullptr;
  r->owner = CurrentProcess();
  t_list.PushFront(r);

  std::FILE* f = CreateRegisteredFile(r);
  if (f == nullptr) {
    t_list.Unlink(r);
    ReleaseBlock(r);
    return nullptr;
  }
  const std::size_t n = kCoordinates * static_cast<std::size_t>(points->count);
  const bool written = WriteDoubles(f, points->xyz, n) == n;
  const bool closed = std::fclose(f) == 0;  // a failed flush loses data as surely as a short write
  if (!written || !closed) {
    t_list.Unlink(r);
    Retire(r);
    return nullptr;
  }
  return r;
}

std::int32_t RestorePoints(TempPointFile* record, PointSet* points) {
  if (record == nullptr || t_list.head == nullptr || !t_list.Contains(record))
    return kRestoreFailed;
  t_list.Unlink(record);
  Unregister(record);

  std::int32_t status = kRestoreFailed;
  std::FILE* f = record->path[0] != '\0' ? std::fopen(record->path, "rb") : nullptr;
  if (f != nullptr && points != nullptr && points->count > 0) {
    const std::size_t n = kCoordinates * static_cast<std::size_t>(points->count);
    const std::size_t got = ReadDoubles(f, points->xyz, n);
    if (got == n) {
      status = 0;
    } else if (got > 0) {
      status = got < static_cast<std::size_t>(kMaxReportedCount) ? static_cast<std::int32_t>(got)
                                                                 : kMaxReportedCount;
    }
  }
  if (f != nullptr) std::fclose(f);
  if (OwnsFile(record)) std::remove(record->path);
  ReleaseBlock(record);
  return status;
}

std::int32_t PendingPointFileCount() {
  std::int32_t n = 0;
  for (const TempPointFile* p = t_list.head; p != nullptr; p = p->next) ++n;
  return n;
}

void DiscardPendingPointFiles() {
  t_list.DiscardAll();
}

}  // namespace metrofit::numeric
