// Puts the controller of the preloaded library under the time that its state asks for, before its first step.
#include "preload/session.h"
#include "preload/time_source.h"
#include "time/scheduler.h"
#include "time/shown_time.h"
#include "time/system_calls.h"

namespace rack {
namespace {

class VirtualTime final : public TimeSource {
 public:
  Nanos Now() override { return kVirtualPowerOn + VirtualNow(); }
  void BusAccess() override {
    if (InTurn()) SpendAccess();
  }
  void MachineMoved(const MachineDue& due) override {
    if (InTurn()) rack::MachineMoved(due);
  }
  void LineDue(const DueLine& line) override {
    if (InTurn()) rack::LineDue(line.task, line.fileNumber, line.file, line.line, line.text);
  }
  std::size_t ConsoleTakes(std::size_t bytes) override {
    return InTurn() ? rack::ConsoleTakes(bytes) : bytes;
  }
  bool ConsoleBegins() override {
    rack::ConsoleBegins();
    return true;
  }
  void ConsoleEnds() override { rack::ConsoleEnds(); }
  void ReadFrom(int descriptor) override {
    if (InTurn()) RefuseIfItWaits(descriptor);
  }
  bool SystemCall(long number, const long (&arguments)[6], long& result) override {
    return InTurn() && AnswerSystemCall(number, arguments, result);
  }
  bool ShowsFixed() override { return true; }
};

class ScaledTime final : public TimeSource {
 public:
  explicit ScaledTime(RackState& state) : state_(state) {}
  // Also right for a controller that was started again later than the machine was switched on.
  Nanos Now() override {
    return state_.powerOn + PassedTime(state_.time.setup, state_.powerOn, RealMonotonic());
  }
  bool SystemCall(long number, const long (&arguments)[6], long& result) override {
    return ScaleSystemCall(number, arguments, result);
  }

 private:
  RackState& state_;
};

void ServeSession() {
  Session::Get()->Serve();
}

MachineDue WorkSession() {
  return Session::Get()->Work();
}

MachineDue WatchSession(const TriggerTable& triggers) {
  return Session::Get()->Watch(triggers);
}

// Neither clock is ever destroyed: the controller's last calls come after the library's destructors.
[[gnu::constructor]] void StartTime() {
  Session* session = Session::Get();
  if (session == nullptr) return;
  RackState& state = session->Shared();
  const TimeSetup& setup = state.time.setup;
  if (setup.mode == TimeMode::Scaled) {
    UseTimeSource(new ScaledTime(state));
    ScaleTime(setup.factorMillis / 1000.0);
  }
  if (setup.mode != TimeMode::Virtual) return;
  session->Attach();
  UseTimeSource(new VirtualTime);
  Engage({&state.time, state.live.now, &ServeSession, &WorkSession, &WatchSession, true});
}

}  // namespace
}  // namespace rack
