#include "progress.h"

#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <thread>

namespace {

using metrofit::cli::ProgressNotice;
using std::chrono::milliseconds;

// How long the test waits for the watcher before it calls the notice lost; generous, since the
// machine may be busy.
constexpr auto kPatience = std::chrono::seconds(30);

TEST(CliProgress, QuickWorkStaysSilent) {
  std::ostringstream err;
  ProgressNotice notice(err, "fitting a.txt (10 points)...", std::chrono::hours(1));
  EXPECT_FALSE(notice.Stop());
  EXPECT_EQ(err.str(), "");
}

TEST(CliProgress, NoDelayAnnouncesAtOnce) {
  std::ostringstream err;
  ProgressNotice notice(err, "fitting a.txt (10 points)...", milliseconds(0));
  EXPECT_EQ(err.str(), "fitting a.txt (10 points)...\n");
  EXPECT_TRUE(notice.Stop());
}

TEST(CliProgress, WorkOutlastingTheDelayIsAnnouncedOnce) {
  std::ostringstream err;
  ProgressNotice notice(err, "fitting big.txt (1000000 points)...", milliseconds(20));
  const auto give_up = std::chrono::steady_clock::now() + kPatience;
  while (!notice.Printed() && std::chrono::steady_clock::now() < give_up) {
    std::this_thread::sleep_for(milliseconds(10));
  }
  EXPECT_TRUE(notice.Stop());
  EXPECT_EQ(err.str(), "fitting big.txt (1000000 points)...\n");
  // Stopping again changes nothing.
  EXPECT_TRUE(notice.Stop());
  EXPECT_EQ(err.str(), "fitting big.txt (1000000 points)...\n");
}

}  // namespace
