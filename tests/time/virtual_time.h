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
    const std::lock_guard hold(Mutex);
    Text += text;
  }
  std::string Take() {
    const std::lock_guard hold(Mutex);
    return std::exchange(Text, "");
  }
  char Last() {
    const std::lock_guard hold(Mutex);
    return Text.empty() ? '\0' : Text.back();
  }

 private:
  rack::OwnMutex Mutex;
  std::string Text;
};

class VirtualTime {
 public:
  explicit VirtualTime(unsigned seed = 0) : Own(std::make_unique<rack::TimeControl>()), Control(Own.get()) {
    Control->Setup.Seed = seed;
    Control->Setup.AccessNanos = 1000;
    rack::Engage({Control, 0, nullptr, true});
  }
  explicit VirtualTime(rack::TimeControl& control) : Control(&control) {
    rack::Engage({Control, 0, nullptr, true});
  }
  ~VirtualTime() { rack::Disengage(); }
  VirtualTime(const VirtualTime&) = delete;
  VirtualTime& operator=(const VirtualTime&) = delete;

 private:
  std::unique_ptr<rack::TimeControl> Own;

 public:
  rack::TimeControl* const Control;
};
