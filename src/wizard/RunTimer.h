// The run timer: the seconds-since-midnight clock that times a scan for its summary. Injected, so
// a test can fix the elapsed time of a run.
//
// The clock restarts at midnight on purpose: a run that passes midnight gets a negative elapsed
// time, and the summary shows it as computed, without correction.
#pragma once

namespace wizard {

class RunTimer {
 public:
  virtual ~RunTimer() = default;
  // Seconds since local midnight, fractions included, in single precision.
  virtual float Seconds() const = 0;
};

// The machine's local clock; one system call per reading.
class SystemRunTimer final : public RunTimer {
 public:
  float Seconds() const override;
};

// A timer that stands where a test puts it, or that moves on by a fixed step at every reading (so
// the second reading of a run is `step` seconds after the first).
class FixedRunTimer final : public RunTimer {
 public:
  explicit FixedRunTimer(float start = 0, float step = 0) : now_(start), step_(step) {}
  float Seconds() const override {
    float t = now_;
    now_ += step_;
    return t;
  }
  void Set(float seconds) { now_ = seconds; }

 private:
  mutable float now_;
  float step_;
};

}  // namespace wizard
