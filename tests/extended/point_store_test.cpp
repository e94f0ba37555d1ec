// Temporary point store: file format, record list, failure returns and the lifetime of files
// that failed fits leave behind (thread exit, process exit, fork).
#include "extended/point_store.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "ex_fit_test_util.h"
#include "extended/circle_fit_ex.h"
#include "extended/nvector.h"

namespace metrofit {
namespace {

using numeric::CreatePointSet;
using numeric::PendingPointFileCount;
using numeric::PointSet;
using numeric::RestorePoints;
using numeric::SavePoints;
using numeric::TempPointFile;
using numeric::UniquePointSet;
using testing::PrivateTempDir;

UniquePointSet MakeSet(std::int32_t n, double seed) {
  UniquePointSet s(CreatePointSet(n));
  for (std::int32_t i = 0; i < 3 * n; ++i) s->xyz[i] = seed * (i + 1) + 1.0 / (i + 3);
  return s;
}

bool BitEqual(double a, double b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

bool Exists(const char* path) {
  struct stat st;
  return stat(path, &st) == 0;
}

std::vector<unsigned char> ReadBytes(const char* path) {
  std::vector<unsigned char> bytes;
  std::FILE* f = std::fopen(path, "rb");
  if (f == nullptr) return bytes;
  int c;
  while ((c = std::fgetc(f)) != EOF) bytes.push_back(static_cast<unsigned char>(c));
  std::fclose(f);
  return bytes;
}

TEST(PointStore, RoundTripIsBitExactForEveryDouble) {
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
  EXPECT_EQ(tmp.FileCount(), 0u);
}

TEST(PointStore, FileIsRawLittleEndianDoublesThreePerPointWithoutHeader) {
  PrivateTempDir tmp;
  const UniquePointSet s = MakeSet(700, 0.37);  // more than one write block
  TempPointFile* r = SavePoints(s.get());
  ASSERT_NE(r, nullptr);
  const std::vector<unsigned char> bytes = ReadBytes(r->path);
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
}

TEST(PointStore, FileIsCreatedOwnerOnlyInTheTemporaryDirectory) {
  PrivateTempDir tmp;
  const UniquePointSet s = MakeSet(4, 1.5);
  TempPointFile* r = SavePoints(s.get());
  ASSERT_NE(r, nullptr);
  const std::string path = r->path;
  EXPECT_EQ(path.compare(0, tmp.path().size() + 1, tmp.path() + "/"), 0) << path;
  struct stat st;
  ASSERT_EQ(stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  EXPECT_EQ(tmp.FileCount(), 1u);
  UniquePointSet back(CreatePointSet(4));
  EXPECT_EQ(RestorePoints(r, back.get()), 0);
  EXPECT_FALSE(Exists(path.c_str()));
}

TEST(PointStore, TwoSavesOfTheSameSetGetDistinctFiles) {
  PrivateTempDir tmp;
  const UniquePointSet s = MakeSet(2, 3.0);
  TempPointFile* a = SavePoints(s.get());
  TempPointFile* b = SavePoints(s.get());
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  EXPECT_STRNE(a->path, b->path);
  EXPECT_EQ(tmp.FileCount(), 2u);
  UniquePointSet back(CreatePointSet(2));
  EXPECT_EQ(RestorePoints(a, back.get()), 0);
  EXPECT_EQ(RestorePoints(b, back.get()), 0);
  EXPECT_EQ(tmp.FileCount(), 0u);
}

TEST(PointStore, AbsentOrEmptySetSavesNothing) {
  PrivateTempDir tmp;
  UniquePointSet empty(CreatePointSet(0));
  const std::int64_t blocks = numeric::LiveBlockCount();
  EXPECT_EQ(SavePoints(nullptr), nullptr);
  EXPECT_EQ(SavePoints(empty.get()), nullptr);
  EXPECT_EQ(PendingPointFileCount(), 0);
  EXPECT_EQ(tmp.FileCount(), 0u);
  EXPECT_EQ(numeric::LiveBlockCount(), blocks);
}

TEST(PointStore, NewestRecordIsTheHeadAndAnyOrderRestores) {
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
  EXPECT_EQ(tmp.FileCount(), 0u);
}

TEST(PointStore, NullRecordAndEmptyListReturnMinusOne) {
  PrivateTempDir tmp;
  UniquePointSet back(CreatePointSet(1));
  EXPECT_EQ(RestorePoints(nullptr, back.get()), -1);
  TempPointFile stray{};
  EXPECT_EQ(RestorePoints(&stray, back.get()), -1);  // nothing saved on this thread
}

TEST(PointStore, RecordOfAnotherThreadIsNotFoundAndLeftAlone) {
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
    numeric::DiscardPendingPointFiles();
  });
  t.join();
  EXPECT_NE(theirs, nullptr);
  EXPECT_EQ(theirPendingBefore, 1);
  EXPECT_EQ(theirRestore, -1);
  EXPECT_TRUE(Exists(mine->path));
  UniquePointSet back(CreatePointSet(2));
  EXPECT_EQ(RestorePoints(mine, back.get()), 0);
  EXPECT_EQ(back->xyz[5], s->xyz[5]);
  EXPECT_EQ(tmp.FileCount(), 0u);
}

TEST(PointStore, NoOrEmptyTargetRemovesFileAndRecordAndReturnsMinusOne) {
  PrivateTempDir tmp;
  const std::int64_t blocks = numeric::LiveBlockCount();
  const UniquePointSet s = MakeSet(3, 1.25);
  UniquePointSet empty(CreatePointSet(0));
  TempPointFile* a = SavePoints(s.get());
  TempPointFile* b = SavePoints(s.get());
  ASSERT_TRUE(a && b);
  EXPECT_EQ(RestorePoints(a, nullptr), -1);
  EXPECT_EQ(RestorePoints(b, empty.get()), -1);
  EXPECT_EQ(PendingPointFileCount(), 0);
  EXPECT_EQ(tmp.FileCount(), 0u);
  empty.reset();
  EXPECT_EQ(numeric::LiveBlockCount(), blocks + 1);  // only the set s itself
}

TEST(PointStore, ShortFileReturnsTheNumberOfDoublesRead) {
  PrivateTempDir tmp;
  const UniquePointSet s = MakeSet(4, 2.5);
  TempPointFile* r = SavePoints(s.get());
  ASSERT_NE(r, nullptr);
  ASSERT_EQ(truncate(r->path, 5 * 8 + 3), 0);  // five whole doubles and part of a sixth
  UniquePointSet back(CreatePointSet(4));
  EXPECT_EQ(RestorePoints(r, back.get()), 5);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(back->xyz[i], s->xyz[i]);
  EXPECT_EQ(tmp.FileCount(), 0u);
  EXPECT_EQ(PendingPointFileCount(), 0);
}

TEST(PointStore, EmptyOrMissingFileReturnsMinusOneAndReleasesTheRecord) {
  PrivateTempDir tmp;
  const UniquePointSet s = MakeSet(4, 2.5);
  TempPointFile* emptied = SavePoints(s.get());
  TempPointFile* missing = SavePoints(s.get());
  ASSERT_TRUE(emptied && missing);
  ASSERT_EQ(truncate(emptied->path, 0), 0);
  ASSERT_EQ(std::remove(missing->path), 0);
  UniquePointSet back(CreatePointSet(4));
  EXPECT_EQ(RestorePoints(emptied, back.get()), -1);
  EXPECT_EQ(RestorePoints(missing, back.get()), -1);
  EXPECT_EQ(PendingPointFileCount(), 0);
  EXPECT_EQ(tmp.FileCount(), 0u);
}

TEST(PointStore, FailedRecordAllocationSavesNothing) {
  PrivateTempDir tmp;
  const UniquePointSet s = MakeSet(2, 1.0);
  const std::int64_t blocks = numeric::LiveBlockCount();
  numeric::FailAllocationAfter(0);
  EXPECT_EQ(SavePoints(s.get()), nullptr);
  numeric::FailAllocationAfter(-1);
  EXPECT_EQ(PendingPointFileCount(), 0);
  EXPECT_EQ(tmp.FileCount(), 0u);
  EXPECT_EQ(numeric::LiveBlockCount(), blocks);
}

TEST(PointStore, UnusableTemporaryDirectoryFailsCleanly) {
  PrivateTempDir tmp;
  const std::string missing = tmp.path() + "/does-not-exist";
  setenv("TMPDIR", missing.c_str(), 1);
  const UniquePointSet s = MakeSet(2, 1.0);
  const std::int64_t blocks = numeric::LiveBlockCount();
  EXPECT_EQ(SavePoints(s.get()), nullptr);
  EXPECT_EQ(PendingPointFileCount(), 0);
  EXPECT_EQ(numeric::LiveBlockCount(), blocks);
}

TEST(PointStore, TemporaryDirectoryTooLongForThePathFallsBackToTmp) {
  PrivateTempDir tmp;
  const std::string longDir = "/" + std::string(300, 'd');
  setenv("TMPDIR", longDir.c_str(), 1);
  const UniquePointSet s = MakeSet(2, 1.0);
  TempPointFile* r = SavePoints(s.get());
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(std::string(r->path).rfind("/tmp/", 0), 0u) << r->path;
  const std::string path = r->path;
  UniquePointSet back(CreatePointSet(2));
  EXPECT_EQ(RestorePoints(r, back.get()), 0);
  EXPECT_FALSE(Exists(path.c_str()));
}

TEST(PointStore, DiscardRemovesThisThreadsPendingFiles) {
  PrivateTempDir tmp;
  const std::int64_t blocks = numeric::LiveBlockCount();
  const UniquePointSet s = MakeSet(2, 1.0);
  ASSERT_NE(SavePoints(s.get()), nullptr);
  ASSERT_NE(SavePoints(s.get()), nullptr);
  EXPECT_EQ(tmp.FileCount(), 2u);
  numeric::DiscardPendingPointFiles();
  EXPECT_EQ(PendingPointFileCount(), 0);
  EXPECT_EQ(tmp.FileCount(), 0u);
  EXPECT_EQ(numeric::LiveBlockCount(), blocks + 1);  // only the set s itself
}

// ---------------------------------------------------------------------------------------------
// Files left behind by failed fits.
// ---------------------------------------------------------------------------------------------

// Runs FitCircleEx with every allocation failure in turn (a fresh set of points each time) and
// returns the number of files left pending on this thread.
int LeaveFilesByFailingCircleFits() {
  testing::Rng rng(17);
  const std::vector<KPt3<double>> pts =
      testing::ArcPoints(rng, 40, KPt3<double>(500, -300, 120),
                         testing::Unit(KPt3<double>(0.3, 0.2, 0.9)), 20.0, 1.5, 0.0);
  std::vector<double> dev(3 * pts.size());
  for (int k = 0; k < 200; ++k) {
    double record[kCircleRecordSize] = {0, 0, 0, 0, 0, 1, 0, 0};
    numeric::FailAllocationAfter(k);
    FitCircleEx(record, static_cast<std::int32_t>(pts.size()), pts.data(), dev.data());
    const bool pending = numeric::AllocationFailurePending();
    numeric::FailAllocationAfter(-1);
    if (pending) break;
  }
  return PendingPointFileCount();
}

TEST(PointStoreLifetime, ThreadExitRemovesTheFilesOfItsFailedFits) {
  PrivateTempDir tmp;
  int left = 0;
  std::size_t seen = 0;
  std::thread t([&] {
    left = LeaveFilesByFailingCircleFits();
    seen = tmp.FileCount();
  });
  t.join();
  EXPECT_GT(left, 0) << "no failure path left a file: the test proves nothing";
  EXPECT_EQ(seen, static_cast<std::size_t>(left));
  EXPECT_EQ(tmp.FileCount(), 0u);
}

// Exit codes of the child processes below.
constexpr int kChildOk = 0;
constexpr int kChildLeftNothing = 10;
constexpr int kChildPipeFailed = 11;

TEST(PointStoreLifetime, NormalProcessExitRemovesFilesOfFailedFitsOnAllThreads) {
  PrivateTempDir tmp;
  std::fflush(nullptr);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // Main thread: files pending at exit. A second thread leaves its own and is still blocked
    // when the process exits, so only the process-level cleanup can reach them.
    const int mainLeft = LeaveFilesByFailingCircleFits();
    int ready[2];
    int never[2];
    if (pipe(ready) != 0 || pipe(never) != 0) std::exit(kChildPipeFailed);
    std::thread([&ready, &never] {
      const char left = static_cast<char>(LeaveFilesByFailingCircleFits());
      if (write(ready[1], &left, 1) != 1) return;
      char c;
      while (read(never[0], &c, 1) != 0) {
      }
    }).detach();
    char threadLeft = 0;
    if (read(ready[0], &threadLeft, 1) != 1) std::exit(kChildPipeFailed);
    const bool both = mainLeft > 0 && threadLeft > 0 &&
                      tmp.FileCount() == static_cast<std::size_t>(mainLeft + threadLeft);
    std::exit(both ? kChildOk : kChildLeftNothing);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), kChildOk) << "the child could not leave files behind";
  EXPECT_EQ(tmp.FileCount(), 0u) << "temporary point files outlived the process";
}

TEST(PointStoreLifetime, ForkedChildLeavesTheParentsFilesAlone) {
  PrivateTempDir tmp;
  const UniquePointSet s = MakeSet(3, 4.0);
  TempPointFile* r = SavePoints(s.get());
  ASSERT_NE(r, nullptr);
  std::fflush(nullptr);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) std::exit(kChildOk);  // inherits the record in this thread's list
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_TRUE(Exists(r->path));
  UniquePointSet back(CreatePointSet(3));
  EXPECT_EQ(RestorePoints(r, back.get()), 0);
  EXPECT_EQ(back->xyz[8], s->xyz[8]);
  EXPECT_EQ(tmp.FileCount(), 0u);
}

}  // namespace
}  // namespace metrofit
