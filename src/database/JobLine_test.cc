// The line of jobs to the record writer: order, back-pressure and hand-over of results.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <thread>
#include <vector>

#include "database/JobLine.h"

namespace {

struct NumberJob {
  uint64_t value = 0;
};

}  // namespace

TEST(JobLine, JobsRunInTheirOrderThroughAFullRingAndDrainShowsWhatTheyDid) {
  std::vector<uint64_t> seen;  // written by the writer only, read after Drain
  bool onWriter = true;
  uint64_t slowEvery = 0;
  database::JobLine<NumberJob>* self = nullptr;
  database::JobLine<NumberJob> line([&](NumberJob& job) {
    onWriter = onWriter && self->OnWriter();
    seen.push_back(job.value);
    // Now and then a slow job, so that the producer finds the ring full and must wait.
    if (slowEvery != 0 && job.value % slowEvery == 0)
      std::this_thread::sleep_for(std::chrono::microseconds(200));
  });
  self = &line;
  EXPECT_FALSE(line.OnWriter());
  slowEvery = 3000;
  const uint64_t total = database::JobLine<NumberJob>::kSlots * 10 + 7;
  for (uint64_t i = 0; i < total; ++i) {
    line.Slot().value = i;
    line.Push();
  }
  line.Drain();
  ASSERT_EQ(seen.size(), total);
  for (uint64_t i = 0; i < total; ++i) ASSERT_EQ(seen[i], i);
  EXPECT_TRUE(onWriter);
  // A few jobs, fewer than a group: Drain still hands them over and waits for them.
  line.Slot().value = 1'000'000;
  line.Push();
  line.Drain();
  EXPECT_EQ(seen.back(), 1'000'000u);
}

TEST(JobLine, EndingTheLineRunsEveryJobPushed) {
  std::vector<uint64_t> seen;
  {
    database::JobLine<NumberJob> line([&](NumberJob& job) {
      if (job.value == 3) throw std::runtime_error("a failing job does not stop the line");
      seen.push_back(job.value);
    });
    for (uint64_t i = 0; i < 5; ++i) {
      line.Slot().value = i;
      line.Push();
    }
  }
  EXPECT_EQ(seen, (std::vector<uint64_t>{0, 1, 2, 4}));
}

TEST(JobLine, WaitForReturnsOnceTheGivenJobsHaveRunWhileLaterOnesStillWait) {
  std::vector<uint64_t> seen;
  std::atomic<bool> go{false};
  database::JobLine<NumberJob> line([&](NumberJob& job) {
    // Job 5 holds the writer until the test lets it go, before it records anything.
    while (job.value == 5 && !go.load()) std::this_thread::sleep_for(std::chrono::microseconds(50));
    seen.push_back(job.value);
  });
  line.WaitFor(0);  // nothing asked for: returns at once
  for (uint64_t i = 0; i < 10; ++i) {
    line.Slot().value = i;
    line.Push();
  }
  EXPECT_EQ(line.Pushed(), 10u);
  // Fewer jobs than a group were pushed: WaitFor hands them over itself.
  line.WaitFor(5);
  EXPECT_EQ(seen, (std::vector<uint64_t>{0, 1, 2, 3, 4}));
  go = true;
  line.Drain();
  EXPECT_EQ(seen.size(), 10u);
}
