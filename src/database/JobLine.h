// A line of jobs from one thread (the producer) to one writer thread that runs them in the order
// they were given. The database hands it the records of its write-only tables, so that
// building and appending them overlaps the hit analysis on the other processor.
//
// The line is a ring of fixed slots: the producer fills the next free slot in place (no copy,
// no allocation) and pushes it. Pushed jobs reach the writer in groups (every kGroup jobs, and
// at Drain), so that a writer that keeps up and sleeps is woken once per group, not per job.
// The producer waits only when the ring is full, or when it asks to (WaitFor, Drain). Nothing
// here throws once started; a job whose runner throws is abandoned silently (the runner catches
// and reports its own failures).
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace database {

template <class Job>
class JobLine {
 public:
  using Runner = std::function<void(Job&)>;

  // Jobs released to the writer at once; the ring holds kSlots jobs (a power of two). Waking a
  // sleeping thread costs far more than a job (on the virtual machines measured, a signal
  // between processors and a wake-up of the idle one): with groups of 32 a scan spent a tenth
  // of its time on it, with groups of 4,096 nothing measurable. Larger groups gained no more.
  static constexpr uint64_t kGroup = 4096;
  static constexpr uint64_t kSlots = 16384;
  // How many slots ahead of the one being filled the producer fetches.
  static constexpr uint64_t kFetchAhead = 4;

  using LookAhead = std::function<void(const Job&)>;
  // How many jobs ahead of the one running the look-ahead is shown.
  static constexpr uint64_t kAhead = 8;

  // Starts the writer thread; every job pushed later runs through `run` on it. `ahead`, when
  // given, is shown each job (on the writer thread, before it runs) while the job kAhead places
  // before it runs, so that it can fetch what the job will read: a record written long before
  // has left the processor's caches.
  // Throws std::system_error when no thread can be started (nothing is then left running).
  explicit JobLine(Runner run, LookAhead ahead = nullptr)
      : run_(std::move(run)), ahead_(std::move(ahead)), slots_(new Job[kSlots]) {
    writer_ = std::thread([this] { WriterLoop(); });
  }
  // Runs every job pushed, then ends the writer thread.
  ~JobLine() {
    Drain();
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      stop_.store(true, std::memory_order_seq_cst);
    }
    work_.notify_one();
    writer_.join();
  }
  JobLine(const JobLine&) = delete;
  JobLine& operator=(const JobLine&) = delete;

  // The slot of the next job, to be filled and then pushed. When the ring is full it waits until
  // a group's worth of slots is free: waiting for one slot at a time would wake this thread
  // once per job. Producer only.
  Job& Slot() {
    if (pushed_ - done_.load(std::memory_order_acquire) >= kSlots) {
      Release();
      WaitDone(pushed_ - kSlots + kGroup);
    }
    // The ring is larger than the processor's caches: the slot a few jobs on is fetched for
    // writing now, so that filling it then does not wait for memory.
    const Job& ahead = slots_[(pushed_ + kFetchAhead) & (kSlots - 1)];
    const char* later = reinterpret_cast<const char*>(&ahead);
    for (size_t at = 0; at < sizeof(Job); at += 64) __builtin_prefetch(later + at, 1);
    return slots_[pushed_ & (kSlots - 1)];
  }
  // The job filled in Slot() is complete. Producer only.
  void Push() {
    ++pushed_;
    if (pushed_ - released_.load(std::memory_order_relaxed) >= kGroup) Release();
  }
  // The number of jobs pushed so far: the job filled in Slot() is job Pushed() + 1.
  // Producer only.
  uint64_t Pushed() const { return pushed_; }
  // Returns when the first `count` jobs pushed (REQUIRES: count <= Pushed()) have run; what
  // they wrote is then visible to the producer. Later jobs may still be running.
  // Producer only.
  void WaitFor(uint64_t count) {
    if (count == 0 || done_.load(std::memory_order_acquire) >= count) return;
    Release();
    WaitDone(count);
  }
  // Returns when every job pushed has run; what the jobs wrote is then visible to the producer.
  // Producer only.
  void Drain() { WaitFor(pushed_); }
  // True on the writer thread.
  bool OnWriter() const { return std::this_thread::get_id() == writer_.get_id(); }

 private:
  // Hands the pushed jobs to the writer and wakes it when it sleeps. The two sequentially
  // consistent accesses on each side (released_ then sleeping_ here, sleeping_ then released_ in
  // the writer) mean that either the writer sees the new jobs before it sleeps, or this sees it
  // asleep and wakes it.
  void Release() {
    if (released_.load(std::memory_order_relaxed) == pushed_) return;
    released_.store(pushed_, std::memory_order_seq_cst);
    if (sleeping_.load(std::memory_order_seq_cst)) {
      const std::lock_guard<std::mutex> lock(mutex_);
      work_.notify_one();
    }
  }

  // Waits until `target` (>= 1) jobs have run: the same hand-shake as Release, the other way
  // round, and the writer wakes this thread only once the target is reached.
  void WaitDone(uint64_t target) {
    if (done_.load(std::memory_order_acquire) >= target) return;
    std::unique_lock<std::mutex> lock(mutex_);
    waitingFor_.store(target, std::memory_order_seq_cst);
    progress_.wait(lock, [&] { return done_.load(std::memory_order_seq_cst) >= target; });
    waitingFor_.store(0, std::memory_order_relaxed);
  }

  void WriterLoop() {
    uint64_t done = 0;
    for (;;) {
      const uint64_t released = released_.load(std::memory_order_acquire);
      while (done < released) {
        try {
          if (ahead_ && done + kAhead < released) ahead_(slots_[(done + kAhead) & (kSlots - 1)]);
          run_(slots_[done & (kSlots - 1)]);
        } catch (...) {
        }
        done_.store(++done, std::memory_order_seq_cst);
        const uint64_t waiting = waitingFor_.load(std::memory_order_seq_cst);
        if (waiting != 0 && done >= waiting) {
          const std::lock_guard<std::mutex> lock(mutex_);
          progress_.notify_one();
        }
      }
      std::unique_lock<std::mutex> lock(mutex_);
      sleeping_.store(true, std::memory_order_seq_cst);
      work_.wait(lock, [&] {
        return released_.load(std::memory_order_seq_cst) != done ||
               stop_.load(std::memory_order_seq_cst);
      });
      sleeping_.store(false, std::memory_order_relaxed);
      if (released_.load(std::memory_order_acquire) == done && stop_.load()) return;
    }
  }

  Runner run_;
  LookAhead ahead_;
  std::unique_ptr<Job[]> slots_;
  uint64_t pushed_ = 0;                  // producer only
  std::atomic<uint64_t> released_{0};    // written by the producer
  std::atomic<uint64_t> done_{0};        // written by the writer
  std::atomic<bool> sleeping_{false};    // the writer waits for work
  std::atomic<uint64_t> waitingFor_{0};  // the producer waits for this many jobs done (0: not)
  std::atomic<bool> stop_{false};
  std::mutex mutex_;
  std::condition_variable work_;      // the writer waits here for jobs
  std::condition_variable progress_;  // the producer waits here for jobs to finish
  std::thread writer_;
};

}  // namespace database
