// One run per data folder: the lock on the folder itself, who gets it, and that it goes with its
// holder, also when the holder is killed.
#include "platform/FolderLock.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "TestSupport.h"

namespace platform {
namespace {

TEST(FolderLock, OneHolderPerFolderAndTheLockGoesWithItsHolder) {
  tytest::TempDir data;
  auto first = FolderLock::Acquire(data.str());
  ASSERT_TRUE(first && first->Holds());
  EXPECT_EQ(FolderLock::Acquire(data.str()), nullptr);
  // Another folder is another lock.
  tytest::TempDir other;
  EXPECT_TRUE(FolderLock::Acquire(other.str())->Holds());
  first.reset();
  EXPECT_TRUE(FolderLock::Acquire(data.str())->Holds());
  // No lock file is left in the folder.
  EXPECT_TRUE(std::filesystem::is_empty(data.path()));
  // A folder that cannot be locked (missing, or a file) lets the run through, holding nothing.
  auto missing = FolderLock::Acquire(data.str() + "missing/");
  ASSERT_NE(missing, nullptr);
  EXPECT_FALSE(missing->Holds());
}

TEST(FolderLock, AHolderKilledWithSigkillReleasesIt) {
  tytest::TempDir data;
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t child = fork();
  if (child == 0) {
    auto lock = FolderLock::Acquire(data.str());
    const char held = lock && lock->Holds() ? 'y' : 'n';
    (void)!write(ready[1], &held, 1);
    for (;;) pause();
  }
  char held = 0;
  ASSERT_EQ(read(ready[0], &held, 1), 1);
  EXPECT_EQ(held, 'y');
  EXPECT_EQ(FolderLock::Acquire(data.str()), nullptr);
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  EXPECT_TRUE(FolderLock::Acquire(data.str())->Holds());
  close(ready[0]);
  close(ready[1]);
}

}  // namespace
}  // namespace platform
