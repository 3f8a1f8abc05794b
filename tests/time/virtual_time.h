// Virtual time for the threads of a test, from construction to the end of the scope.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "preload/next.h"
#include "time/scheduler.h"

// A log of several threads. Passing the turn orders what they do, but is no synchronization of theirs, as the
// thread sanitizer would say; this lock is, and costs no time.
class TurnLog {
 public:
  void Add(const std::string& text) {
    const std::lock_guard hold(mutex_);
    text_ += text;
  }
  std::string Take() {
    const std::lock_guard hold(mutex_);
    return std::exchange(text_, "");
  }
  char Last() {
    const std::lock_guard hold(mutex_);
    return text_.empty() ? '\0' : text_.back();
  }

 private:
  rack::OwnMutex mutex_;
  std::string text_;
};

class VirtualTime {
 public:
  // What the threads of the next ones are.
  static inline bool AsFibres = false;

  explicit VirtualTime(unsigned seed = 0) : own_(std::make_unique<rack::TimeControl>()), control(own_.get()) {
    control->setup.seed = seed;
    control->setup.accessNanos = 1000;
    rack::Engage({control, 0, nullptr, nullptr, nullptr, nullptr, AsFibres});
  }
  explicit VirtualTime(rack::TimeControl& shared) : control(&shared) {
    rack::Engage({control, 0, nullptr, nullptr, nullptr, nullptr, AsFibres});
  }
  ~VirtualTime() { rack::Disengage(); }
  VirtualTime(const VirtualTime&) = delete;
  VirtualTime& operator=(const VirtualTime&) = delete;

 private:
  std::unique_ptr<rack::TimeControl> own_;

 public:
  rack::TimeControl* const control;
};
