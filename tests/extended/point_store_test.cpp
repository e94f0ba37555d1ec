// Temporary point store: file format, record list, failure returns, where the copy lives (an
// anonymous file in $TMPDIR or /tmp, else memory), and that no fit leaves anything behind: not
// on failure, not on success, not when the process is killed in the middle.
#include "extended/point_store.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "ex_fit_test_util.h"
#include "extended/circle_fit_ex.h"
#include "numeric/nvector.h"
#include "support/known_solution.h"

namespace metrofit {
namespace {

using numeric::CreatePointSet;
using numeric::PendingPointFileCount;
using numeric::PointSet;
using numeric::RestorePoints;
using numeric::SavePoints;
using numeric::SavePointsIn;
using numeric::TempPointFile;
using numeric::UniquePointSet;
using testing::PrivateTempDir;
using testing::Pt;

UniquePointSet MakeSet(std::int32_t n, double seed) {
  UniquePointSet s(CreatePointSet(n));
  for (std::int32_t i = 0; i < 3 * n; ++i) s->xyz[i] = seed * (i + 1) + 1.0 / (i + 3);
  return s;
}

bool BitEqual(double a, double b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

bool SameCoordinates(const PointSet& a, const PointSet& b) {
  if (a.count != b.count) return false;
  for (std::int32_t i = 0; i < 3 * a.count; ++i)
    if (!BitEqual(a.xyz[i], b.xyz[i])) return false;
  return true;
}

int Descriptor(const TempPointFile* r) {
  return fileno(r->file);
}

// Every byte of the record's file, read through its descriptor.
std::vector<unsigned char> FileBytes(const TempPointFile* r) {
  std::vector<unsigned char> bytes;
  unsigned char buffer[4096];
  off_t at = 0;
  for (;;) {
    const ssize_t got = pread(Descriptor(r), buffer, sizeof buffer, at);
    if (got <= 0) break;
    bytes.insert(bytes.end(), buffer, buffer + got);
    at += got;
  }
  return bytes;
}

// What /proc shows a descriptor of process `pid` pointing at ("" when unreadable).
std::string DescriptorTarget(const std::string& pid, const std::string& fd) {
  char target[4096];
  const std::string link = "/proc/" + pid + "/fd/" + fd;
  const ssize_t n = readlink(link.c_str(), target, sizeof target - 1);
  return n > 0 ? std::string(target, static_cast<std::size_t>(n)) : std::string();
}

std::string FileLocation(const TempPointFile* r) {
  return DescriptorTarget("self", std::to_string(Descriptor(r)));
}

bool StartsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

// Open descriptors of this process (the listing's own is counted every time alike).
std::size_t OpenDescriptorCount() {
  return testing::ListDirectory("/proc/self/fd").size();
}

// Everything a saved copy can hold on to: names in the directory, descriptors, records and
// blocks of this thread. Two snapshots must be equal around code that leaves nothing behind.
struct Holdings {
  std::size_t names = 0;
  std::size_t descriptors = 0;
  std::int32_t records = 0;
  std::int64_t blocks = 0;
};

Holdings Snapshot(const PrivateTempDir& tmp) {
  return {tmp.FileCount(), OpenDescriptorCount(), PendingPointFileCount(),
          numeric::LiveBlockCount()};
}

void ExpectSameHoldings(const Holdings& before, const Holdings& after) {
  EXPECT_EQ(after.names, before.names) << "names left in the temporary directory";
  EXPECT_EQ(after.descriptors, before.descriptors) << "descriptors left open";
  EXPECT_EQ(after.records, before.records) << "point-store records left pending";
  EXPECT_EQ(after.blocks, before.blocks) << "blocks left allocated";
}

// A test that fails half-way may leave records on this thread; they must not fail the next.
class PointStore : public ::testing::Test {
 protected:
  void TearDown() override { numeric::DiscardPendingPointFiles(); }
};
using PointStoreLifetime = PointStore;

// A missing directory below the private one.
std::string MissingDir(const PrivateTempDir& tmp) {
  return tmp.path() + "/does-not-exist";
}

// ---------------------------------------------------------------------------------------------
// Format and list.
// ---------------------------------------------------------------------------------------------

TEST_F(PointStore, RoundTripIsBitExactForEveryDouble) {
  PrivateTempDir tmp;
  const double unusual[] = {0.0,
                            -0.0,
                            1.0,
                            -512.125,
                            std::numeric_limits<double>::denorm_min(),
                            std::numeric_limits<double>::max(),
                            -std::numeric_limits<double>::infinity(),
                            std::numeric_limits<double>::quiet_NaN(),
                            499.99999999999994};
  UniquePointSet s(CreatePointSet(3));
  for (int i = 0; i < 9; ++i) s->xyz[i] = unusual[i];
  TempPointFile* r = SavePoints(s.get());
  ASSERT_NE(r, nullptr);
  UniquePointSet back(CreatePointSet(3));
  EXPECT_EQ(RestorePoints(r, back.get()), 0);
  for (int i = 0; i < 9; ++i) EXPECT_TRUE(BitEqual(back->xyz[i], unusual[i])) << i;
}

TEST_F(PointStore, FileIsRawLittleEndianDoublesThreePerPointWithoutHeader) {
  PrivateTempDir tmp;
  const UniquePointSet s = MakeSet(700, 0.37);  // more than one write block
  TempPointFile* r = SavePoints(s.get());
  ASSERT_NE(r, nullptr);
  ASSERT_NE(r->file, nullptr);
  const std::vector<unsigned char> bytes = FileBytes(r);
  ASSERT_EQ(bytes.size(), 700u * 3u * 8u);
  for (std::size_t i = 0; i < 700u * 3u; ++i) {
    std::uint64_t bits = 0;
    for (int k = 0; k < 8; ++k) bits |= static_cast<std::uint64_t>(bytes[8 * i + k]) << (8 * k);
    double v;
    std::memcpy(&v, &bits, sizeof v);
    ASSERT_TRUE(BitEqual(v, s->xyz[i])) << "double " << i;
  }
  UniquePointSet back(CreatePointSet(700));
  EXPECT_EQ(RestorePoints(r, back.get()), 0);
  EXPECT_TRUE(SameCoordinates(*back, *s));
}

TEST_F(PointStore, FileIsOwnerOnlyInTheTemporaryDirectoryAndHasNoName) {
  PrivateTempDir tmp;
  const std::size_t descriptors = OpenDescriptorCount();
  const UniquePointSet s = MakeSet(4, 1.5);
  TempPointFile* r = SavePoints(s.get());
  ASSERT_NE(r, nullptr);
  ASSERT_NE(r->file, nullptr);
  EXPECT_EQ(r->memory, nullptr);
  // The descriptor points into $TMPDIR, at a file without any link: nothing to leave behind.
  EXPECT_TRUE(StartsWith(FileLocation(r), tmp.path() + "/")) << FileLocation(r);
  struct stat st;
  ASSERT_EQ(fstat(Descriptor(r), &st), 0);
  EXPECT_EQ(st.st_nlink, 0u);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  EXPECT_EQ(tmp.FileCount(), 0u);
  EXPECT_EQ(OpenDescriptorCount(), descriptors + 1);
  UniquePointSet back(CreatePointSet(4));
  EXPECT_EQ(RestorePoints(r, back.get()), 0);
  EXPECT_EQ(OpenDescriptorCount(), descriptors);
}

TEST_F(PointStore, TwoSavesOfTheSameSetGetDistinctFiles) {
  PrivateTempDir tmp;
  const UniquePointSet s = MakeSet(2, 3.0);
  TempPointFile* a = SavePoints(s.get());
  TempPointFile* b = SavePoints(s.get());
  ASSERT_TRUE(a && b && a->file && b->file);
  struct stat sa;
  struct stat sb;
  ASSERT_EQ(fstat(Descriptor(a), &sa), 0);
  ASSERT_EQ(fstat(Descriptor(b), &sb), 0);
  EXPECT_NE(sa.st_ino, sb.st_ino);
  UniquePointSet back(CreatePointSet(2));
  EXPECT_EQ(RestorePoints(a, back.get()), 0);
  EXPECT_EQ(RestorePoints(b, back.get()), 0);
  EXPECT_EQ(PendingPointFileCount(), 0);
}

TEST_F(PointStore, AbsentOrEmptySetSavesNothing) {
  PrivateTempDir tmp;
  UniquePointSet empty(CreatePointSet(0));
  const Holdings before = Snapshot(tmp);
  EXPECT_EQ(SavePoints(nullptr), nullptr);
  EXPECT_EQ(SavePoints(empty.get()), nullptr);
  EXPECT_EQ(SavePointsIn(empty.get(), nullptr), nullptr);
  ExpectSameHoldings(before, Snapshot(tmp));
}

TEST_F(PointStore, NewestRecordIsTheHeadAndAnyOrderRestores) {
  PrivateTempDir tmp;
  const UniquePointSet s1 = MakeSet(3, 1.0);
  const UniquePointSet s2 = MakeSet(3, 2.0);
  const UniquePointSet s3 = MakeSet(3, 3.0);
  TempPointFile* r1 = SavePoints(s1.get());
  TempPointFile* r2 = SavePoints(s2.get());
  TempPointFile* r3 = SavePoints(s3.get());
  ASSERT_TRUE(r1 && r2 && r3);
  EXPECT_EQ(r3->next, r2);
  EXPECT_EQ(r2->next, r1);
  EXPECT_EQ(r1->prev, r2);
  EXPECT_EQ(r3->prev, nullptr);
  EXPECT_EQ(PendingPointFileCount(), 3);

  UniquePointSet back(CreatePointSet(3));
  EXPECT_EQ(RestorePoints(r2, back.get()), 0);  // from the middle
  EXPECT_EQ(back->xyz[4], s2->xyz[4]);
  EXPECT_EQ(r3->next, r1);
  EXPECT_EQ(RestorePoints(r3, back.get()), 0);  // the head
  EXPECT_EQ(back->xyz[4], s3->xyz[4]);
  EXPECT_EQ(RestorePoints(r1, back.get()), 0);  // the last one
  EXPECT_EQ(back->xyz[4], s1->xyz[4]);
  EXPECT_EQ(PendingPointFileCount(), 0);
}

TEST_F(PointStore, NullRecordAndEmptyListReturnMinusOne) {
  PrivateTempDir tmp;
  UniquePointSet back(CreatePointSet(1));
  EXPECT_EQ(RestorePoints(nullptr, back.get()), -1);
  TempPointFile stray{};
  EXPECT_EQ(RestorePoints(&stray, back.get()), -1);  // nothing saved on this thread
  numeric::DiscardPointFile(&stray);                 // ignored as well
  numeric::DiscardPointFile(nullptr);
}

TEST_F(PointStore, RecordOfAnotherThreadIsNotFoundAndLeftAlone) {
  PrivateTempDir tmp;
  const UniquePointSet s = MakeSet(2, 5.0);
  TempPointFile* mine = SavePoints(s.get());
  ASSERT_NE(mine, nullptr);
  TempPointFile* theirs = nullptr;
  std::int32_t theirRestore = 0;
  std::int32_t theirPendingBefore = 0;
  std::thread t([&] {
    theirs = SavePoints(s.get());
    theirPendingBefore = PendingPointFileCount();
    UniquePointSet back(CreatePointSet(2));
    theirRestore = RestorePoints(mine, back.get());  // not in this thread's list
    numeric::DiscardPointFile(mine);                 // not this thread's either
    numeric::DiscardPendingPointFiles();
  });
  t.join();
  EXPECT_NE(theirs, nullptr);
  EXPECT_EQ(theirPendingBefore, 1);
  EXPECT_EQ(theirRestore, -1);
  UniquePointSet back(CreatePointSet(2));
  EXPECT_EQ(RestorePoints(mine, back.get()), 0);
  EXPECT_EQ(back->xyz[5], s->xyz[5]);
}

TEST_F(PointStore, NoOrEmptyTargetReleasesTheRecordAndReturnsMinusOne) {
  PrivateTempDir tmp;
  const UniquePointSet s = MakeSet(3, 1.25);
  UniquePointSet empty(CreatePointSet(0));
  const Holdings before = Snapshot(tmp);
  TempPointFile* a = SavePoints(s.get());
  TempPointFile* b = SavePointsIn(s.get(), nullptr);  // in memory
  ASSERT_TRUE(a && b);
  EXPECT_EQ(RestorePoints(a, nullptr), -1);
  EXPECT_EQ(RestorePoints(b, empty.get()), -1);
  ExpectSameHoldings(before, Snapshot(tmp));
}

TEST_F(PointStore, ShortFileReturnsTheNumberOfDoublesRead) {
  PrivateTempDir tmp;
  const UniquePointSet s = MakeSet(4, 2.5);
  TempPointFile* r = SavePoints(s.get());
  ASSERT_NE(r, nullptr);
  ASSERT_NE(r->file, nullptr);
  ASSERT_EQ(ftruncate(Descriptor(r), 5 * 8 + 3), 0);  // five whole doubles and part of a sixth
  UniquePointSet back(CreatePointSet(4));
  EXPECT_EQ(RestorePoints(r, back.get()), 5);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(back->xyz[i], s->xyz[i]);
  EXPECT_EQ(PendingPointFileCount(), 0);
}

TEST_F(PointStore, EmptiedFileReturnsMinusOneAndReleasesTheRecord) {
  PrivateTempDir tmp;
  const UniquePointSet s = MakeSet(4, 2.5);
  const Holdings before = Snapshot(tmp);
  TempPointFile* emptied = SavePoints(s.get());
  ASSERT_TRUE(emptied && emptied->file);
  ASSERT_EQ(ftruncate(Descriptor(emptied), 0), 0);
  UniquePointSet back(CreatePointSet(4));
  const Holdings withTarget = Snapshot(tmp);
  EXPECT_EQ(RestorePoints(emptied, back.get()), -1);
  EXPECT_EQ(PendingPointFileCount(), 0);
  EXPECT_EQ(OpenDescriptorCount(), before.descriptors);
  EXPECT_EQ(numeric::LiveBlockCount(), withTarget.blocks - 1);  // the record went
}

TEST_F(PointStore, FailedRecordAllocationSavesNothing) {
  PrivateTempDir tmp;
  const UniquePointSet s = MakeSet(2, 1.0);
  const Holdings before = Snapshot(tmp);
  numeric::FailAllocationAfter(0);
  EXPECT_EQ(SavePoints(s.get()), nullptr);
  numeric::FailAllocationAfter(-1);
  ExpectSameHoldings(before, Snapshot(tmp));
}

TEST_F(PointStore, DiscardReleasesOneRecordAndHandleReleasesOnScopeExit) {
  PrivateTempDir tmp;
  const UniquePointSet s = MakeSet(3, 1.0);
  const Holdings before = Snapshot(tmp);
  TempPointFile* kept = SavePoints(s.get());
  TempPointFile* dropped = SavePoints(s.get());
  ASSERT_TRUE(kept && dropped);
  numeric::DiscardPointFile(dropped);
  EXPECT_EQ(PendingPointFileCount(), 1);
  EXPECT_EQ(kept->next, nullptr);
  { const numeric::UniquePointFile held(SavePoints(s.get())); }
  EXPECT_EQ(PendingPointFileCount(), 1);
  UniquePointSet back(CreatePointSet(3));
  EXPECT_EQ(RestorePoints(kept, back.get()), 0);
  back.reset();
  ExpectSameHoldings(before, Snapshot(tmp));
}

TEST_F(PointStore, DiscardRemovesThisThreadsPendingRecords) {
  PrivateTempDir tmp;
  const UniquePointSet s = MakeSet(2, 1.0);
  const Holdings before = Snapshot(tmp);
  ASSERT_NE(SavePoints(s.get()), nullptr);
  ASSERT_NE(SavePointsIn(s.get(), nullptr), nullptr);
  EXPECT_EQ(PendingPointFileCount(), 2);
  numeric::DiscardPendingPointFiles();
  ExpectSameHoldings(before, Snapshot(tmp));
}

TEST_F(PointStore, ThreadExitReleasesTheRecordsItNeverRestored) {
  PrivateTempDir tmp;
  const UniquePointSet s = MakeSet(2, 1.0);
  const std::size_t descriptors = OpenDescriptorCount();
  std::size_t whileRunning = 0;
  std::thread t([&] {
    SavePoints(s.get());
    SavePoints(s.get());
    whileRunning = OpenDescriptorCount();
  });
  t.join();
  EXPECT_EQ(whileRunning, descriptors + 2);
  EXPECT_EQ(OpenDescriptorCount(), descriptors);
}

// ---------------------------------------------------------------------------------------------
// Where the copy lives.
// ---------------------------------------------------------------------------------------------

// With TMPDIR set to `dir`, a save lands in a file in /tmp and reads back unchanged.
void ExpectSavedInTmp(const std::string& dir) {
  setenv("TMPDIR", dir.c_str(), 1);
  const UniquePointSet s = MakeSet(2, 1.0);
  TempPointFile* r = SavePoints(s.get());
  ASSERT_NE(r, nullptr);
  ASSERT_NE(r->file, nullptr);
  EXPECT_TRUE(StartsWith(FileLocation(r), "/tmp/")) << FileLocation(r);
  UniquePointSet back(CreatePointSet(2));
  EXPECT_EQ(RestorePoints(r, back.get()), 0);
  EXPECT_TRUE(SameCoordinates(*back, *s));
}

TEST_F(PointStore, MissingTemporaryDirectoryFallsBackToTmp) {
  PrivateTempDir tmp;
  ExpectSavedInTmp(MissingDir(tmp));
}

TEST_F(PointStore, TemporaryDirectoryTooLongForAPathFallsBackToTmp) {
  PrivateTempDir tmp;
  ExpectSavedInTmp("/" + std::string(5000, 'd'));
}

TEST_F(PointStore, DirectoryThatGivesNoFileKeepsTheCopyInMemory) {
  PrivateTempDir tmp;
  const UniquePointSet s = MakeSet(700, -0.73);
  const Holdings before = Snapshot(tmp);
  TempPointFile* r = SavePointsIn(s.get(), MissingDir(tmp).c_str());
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(r->file, nullptr);
  ASSERT_NE(r->memory, nullptr);
  EXPECT_EQ(OpenDescriptorCount(), before.descriptors);
  UniquePointSet back(CreatePointSet(700));
  const std::int64_t blocks = numeric::LiveBlockCount();
  EXPECT_EQ(RestorePoints(r, back.get()), 0);
  EXPECT_TRUE(SameCoordinates(*back, *s));
  EXPECT_EQ(numeric::LiveBlockCount(), blocks - 2);  // the record and its copy
}

TEST_F(PointStore, NoUsableDirectoryKeepsTheCopyInMemoryThroughSavePoints) {
  PrivateTempDir tmp;
  setenv("TMPDIR", MissingDir(tmp).c_str(), 1);
  numeric::OverrideFallbackTempDirectory(MissingDir(tmp).c_str());
  const UniquePointSet s = MakeSet(5, 2.0);
  TempPointFile* r = SavePoints(s.get());
  numeric::OverrideFallbackTempDirectory(nullptr);
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(r->file, nullptr);
  UniquePointSet back(CreatePointSet(5));
  EXPECT_EQ(RestorePoints(r, back.get()), 0);
  EXPECT_TRUE(SameCoordinates(*back, *s));
}

TEST_F(PointStore, InMemoryCopyReadIntoALargerSetReturnsTheNumberOfDoublesRead) {
  PrivateTempDir tmp;
  const UniquePointSet s = MakeSet(2, 4.0);
  TempPointFile* r = SavePointsIn(s.get(), nullptr);
  ASSERT_TRUE(r && r->memory);
  UniquePointSet back(CreatePointSet(3));
  EXPECT_EQ(RestorePoints(r, back.get()), 6);  // as a file of two points would
  for (int i = 0; i < 6; ++i) EXPECT_EQ(back->xyz[i], s->xyz[i]);
}

TEST_F(PointStore, FailedCopyAllocationWithoutADirectorySavesNothing) {
  PrivateTempDir tmp;
  const UniquePointSet s = MakeSet(2, 1.0);
  const Holdings before = Snapshot(tmp);
  numeric::FailAllocationAfter(1);  // the record succeeds, its in-memory copy fails
  EXPECT_EQ(SavePointsIn(s.get(), MissingDir(tmp).c_str()), nullptr);
  const bool pending = numeric::AllocationFailurePending();
  numeric::FailAllocationAfter(-1);
  EXPECT_FALSE(pending);
  ExpectSameHoldings(before, Snapshot(tmp));
}

// Exit codes of the child processes below.
constexpr int kChildOk = 0;
constexpr int kChildFailed = 10;

int WaitForExitCode(pid_t child) {
  int status = 0;
  if (waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

TEST_F(PointStore, FailedWriteKeepsTheCopyInMemory) {
  // A file size limit of a few bytes makes every write of the file fail (EFBIG); the limit and
  // the ignored SIGXFSZ are set in a child so the test process keeps its own.
  PrivateTempDir tmp;
  const UniquePointSet s = MakeSet(700, 0.11);
  std::fflush(nullptr);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit tiny{64, 64};
    if (setrlimit(RLIMIT_FSIZE, &tiny) != 0) _exit(kChildFailed);
    TempPointFile* r = SavePoints(s.get());
    const bool inMemory = r != nullptr && r->file == nullptr && r->memory != nullptr;
    UniquePointSet back(CreatePointSet(700));
    const bool same = r != nullptr && RestorePoints(r, back.get()) == 0 &&
                      SameCoordinates(*back, *s) && tmp.FileCount() == 0;
    _exit(inMemory && same ? kChildOk : kChildFailed);
  }
  EXPECT_EQ(WaitForExitCode(child), kChildOk);
  EXPECT_EQ(tmp.FileCount(), 0u);
}

TEST_F(PointStore, ForkedChildReadingItsCopyLeavesTheParentsFileIntact) {
  // Parent and child share the file's descriptor (and its offset) after fork; each read starts
  // from the beginning of the file, so the child's read does not disturb the parent's.
  PrivateTempDir tmp;
  const UniquePointSet s = MakeSet(3, 4.0);
  TempPointFile* r = SavePoints(s.get());
  ASSERT_TRUE(r && r->file);
  std::fflush(nullptr);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    UniquePointSet back(CreatePointSet(3));
    const bool same = RestorePoints(r, back.get()) == 0 && SameCoordinates(*back, *s);
    std::exit(same ? kChildOk : kChildFailed);  // normal exit: the child's records are released
  }
  EXPECT_EQ(WaitForExitCode(child), kChildOk);
  UniquePointSet back(CreatePointSet(3));
  EXPECT_EQ(RestorePoints(r, back.get()), 0);
  EXPECT_TRUE(SameCoordinates(*back, *s));
}

// ---------------------------------------------------------------------------------------------
// Fits leave nothing behind.
// ---------------------------------------------------------------------------------------------

// An arc at measuring-machine scale; with `poison` one coordinate is NaN.
std::vector<Pt> Arc(std::uint64_t seed, bool poison) {
  testing::Rng rng(seed);
  std::vector<Pt> pts = testing::ArcPoints(rng, 12, Pt(500, -300, 120),
                                           testing::Unit(Pt(0.3, 0.2, 0.9)), 20.0, 1.5, 1e-3);
  if (poison) pts[5].y = std::numeric_limits<double>::quiet_NaN();
  return pts;
}

// Points on a torus 300 mm from the origin with a tilted axis.
std::vector<Pt> Torus(std::uint64_t seed) {
  testing::GeneratorOptions o;
  o.pointCount = 60;
  o.radius = 20.0;
  o.minorRadius = 4.0;
  o.centreOffset = 300.0;
  o.axisTilt = 0.4;
  o.noiseMicrometres = 1.0;
  o.seed = seed;
  return testing::GenerateKnownSolution(testing::Shape::kTorus, o).points;
}

std::int32_t RunCircleEx(const std::vector<Pt>& pts, CFitResult* out = nullptr) {
  CFitInput in;
  in.m_points = pts;
  CFitResult local;
  return KFitCircleEx(in, out != nullptr ? *out : local);
}

std::int32_t RunTorus(const std::vector<Pt>& pts) {
  CFitInput in;
  in.m_points = pts;
  CFitResult out;
  return KFitTorus(in, out);
}

TEST_F(PointStoreLifetime, NaNCoordinateFailsTheCircleFitAfterItsFirstSave) {
  // What the tests below rely on: with a NaN coordinate the fit gets past its first save and
  // fails in the plane's decomposition, a path that used to leave the saved file behind.
  PrivateTempDir tmp;
  const std::vector<Pt> pts = Arc(41, true);
  double record[kCircleRecordSize] = {0, 0, 0, 0, 0, 1, 0, 0};
  std::vector<double> dev(3 * pts.size());
  EXPECT_EQ(FitCircleEx(record, static_cast<std::int32_t>(pts.size()), pts.data(), dev.data()),
            ExtendedStatus::kCircleNumericFailure);
}

// Runs `fit` on the points `times` times; every run must fail and leave nothing behind.
void ExpectFailingFitsLeaveNothing(std::int32_t (*fit)(const std::vector<Pt>&),
                                   const std::vector<Pt>& pts, int times,
                                   const PrivateTempDir& tmp) {
  const Holdings before = Snapshot(tmp);
  int failed = 0;
  for (int i = 0; i < times; ++i) failed += fit(pts) == 0 ? 1 : 0;
  EXPECT_EQ(failed, times);
  ExpectSameHoldings(before, Snapshot(tmp));
}

TEST_F(PointStoreLifetime, ThousandFailingCircleFitsLeaveNothing) {
  PrivateTempDir tmp;
  ExpectFailingFitsLeaveNothing([](const std::vector<Pt>& p) { return RunCircleEx(p); },
                                Arc(42, true), 1000, tmp);
}

TEST_F(PointStoreLifetime, FailingTorusFitsLeaveNothing) {
  // Each failing torus fit runs three extended circle fits.
  PrivateTempDir tmp;
  std::vector<Pt> pts = Torus(43);
  pts[7].z = std::numeric_limits<double>::quiet_NaN();
  ExpectFailingFitsLeaveNothing(RunTorus, pts, 20, tmp);
}

TEST_F(PointStoreLifetime, SuccessfulCircleAndTorusFitsLeaveNothing) {
  PrivateTempDir tmp;
  const Holdings before = Snapshot(tmp);
  for (std::uint64_t seed = 0; seed < 20; ++seed) EXPECT_EQ(RunCircleEx(Arc(100 + seed, false)), 1);
  for (std::uint64_t seed = 0; seed < 3; ++seed) EXPECT_EQ(RunTorus(Torus(200 + seed)), 1);
  ExpectSameHoldings(before, Snapshot(tmp));
}

// Whether process `pid` holds a descriptor of a file in `dir`.
bool HoldsFileIn(pid_t pid, const std::string& dir) {
  const std::string id = std::to_string(pid);
  for (const std::string& fd : testing::ListDirectory("/proc/" + id + "/fd"))
    if (StartsWith(DescriptorTarget(id, fd), dir + "/")) return true;
  return false;
}

TEST_F(PointStoreLifetime, ProcessKilledDuringFitsLeavesNothing) {
  PrivateTempDir tmp;
  const std::vector<Pt> good = Arc(44, false);
  const std::vector<Pt> bad = Arc(45, true);
  std::fflush(nullptr);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    for (;;) {  // until killed; TMPDIR names the private directory
      RunCircleEx(good);
      RunCircleEx(bad);
    }
  }
  // Kill it at a moment when it is known to hold a file in the directory.
  constexpr auto kPatience = std::chrono::seconds(20);
  const auto until = std::chrono::steady_clock::now() + kPatience;
  bool caught = false;
  while (!caught && std::chrono::steady_clock::now() < until)
    caught = HoldsFileIn(child, tmp.path());
  kill(child, SIGKILL);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
  EXPECT_TRUE(caught) << "the child never held a file in the temporary directory";
  EXPECT_EQ(tmp.FileCount(), 0u) << "a killed process left temporary point files";
}

void ExpectSameCircle(const CFitResult& a, const CFitResult& b) {
  EXPECT_EQ(a.m_valid, b.m_valid);
  EXPECT_TRUE(BitEqual(a.m_size1.x, b.m_size1.x)) << a.m_size1.x << " " << b.m_size1.x;
  EXPECT_TRUE(BitEqual(a.m_center.x, b.m_center.x) && BitEqual(a.m_center.y, b.m_center.y) &&
              BitEqual(a.m_center.z, b.m_center.z));
  EXPECT_TRUE(BitEqual(a.m_axis.x, b.m_axis.x) && BitEqual(a.m_axis.y, b.m_axis.y) &&
              BitEqual(a.m_axis.z, b.m_axis.z));
  EXPECT_TRUE(BitEqual(a.m_formError, b.m_formError));
}

TEST_F(PointStoreLifetime, MissingTemporaryDirectoryGivesTheSameCircle) {
  // Regression: with TMPDIR naming a missing directory the extended circle fit failed (valid 0,
  // the fallback radius). It now saves in /tmp, or in memory when that gives no file either.
  PrivateTempDir tmp;
  const std::vector<Pt> pts = Arc(46, false);
  CFitResult normal;
  ASSERT_EQ(RunCircleEx(pts, &normal), 1);

  setenv("TMPDIR", MissingDir(tmp).c_str(), 1);
  CFitResult viaTmp;
  EXPECT_EQ(RunCircleEx(pts, &viaTmp), 1);
  ExpectSameCircle(viaTmp, normal);

  const Holdings before = Snapshot(tmp);
  numeric::OverrideFallbackTempDirectory(MissingDir(tmp).c_str());
  CFitResult inMemory;
  const std::int32_t ret = RunCircleEx(pts, &inMemory);
  numeric::OverrideFallbackTempDirectory(nullptr);
  EXPECT_EQ(ret, 1);
  ExpectSameCircle(inMemory, normal);
  ExpectSameHoldings(before, Snapshot(tmp));
}

}  // namespace
}  // namespace metrofit

namespace metrofit::numeric {
namespace {

// Inside an InMemoryPointStore scope the copy stays in memory, and only on that thread; the
// scope nests and restores the file-backed store when it ends.
TEST(PointStoreInMemory, ScopeKeepsCopiesOffDiskAndEnds) {
  UniquePointSet s(CreatePointSet(2));
  for (int i = 0; i < 6; ++i) s->xyz[i] = 500.0 + i;
  {
    const InMemoryPointStore outer;
    { const InMemoryPointStore inner; }
    TempPointFile* r = SavePoints(s.get());
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r->file, nullptr);
    EXPECT_NE(r->memory, nullptr);
    UniquePointSet back(CreatePointSet(2));
    EXPECT_EQ(RestorePoints(r, back.get()), 0);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(back->xyz[i], s->xyz[i]);
  }
  TempPointFile* r = SavePoints(s.get());
  ASSERT_NE(r, nullptr);
  EXPECT_NE(r->file, nullptr) << "the scope must end with its owner";
  DiscardPointFile(r);
}

}  // namespace
}  // namespace metrofit::numeric
