// Virtual time for the threads of a test, from construction to the end of the scope.
#pragma once

#include <memory>

#include "time/scheduler.h"

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
