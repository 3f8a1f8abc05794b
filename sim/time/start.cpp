// Puts the controller of the preloaded library under the time that its state asks for, before its first step.
#include <unistd.h>

#include <string>

#include "preload/next.h"
#include "preload/session.h"
#include "preload/time_source.h"
#include "time/fibre.h"
#include "time/fibre_switch.h"
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
  bool HoldsConsole() override { return InTurn() && rack::HoldsConsole(); }
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
  Session::Get()->WriteConsole();
  Session::Get()->Serve();
}

// What a real thread prints after its last turn, from a destructor, comes behind what it has printed before.
void TurnSession(bool last) {
  if (last) return Session::Get()->WriteConsole();
  Session::Get()->WriteConsoleInTime();
}

MachineDue WorkSession() {
  return Session::Get()->Work();
}

MachineDue WatchSession(const TriggerTable& triggers) {
  return Session::Get()->Watch(triggers);
}

void Tell(const std::string& text) {
  static Next next(calls::write);
  const std::string line = "velmo-rack: " + text + "\n";
  if (next(STDERR_FILENO, line.data(), line.size()) < 0) return;
}

// Why threads are no fibres: empty when they are, or are not to be. What they are is left in the state, and told where
// it was asked for or is not what is usual with this library.
std::string ChooseThreads(TimeControl& control) {
  const TimeSetup& setup = control.setup;
  std::string wrong = setup.threads == ThreadKind::Real ? "" : WhyNoFibres();
  const bool asFibres = setup.threads != ThreadKind::Real && wrong.empty();
  control.threads = asFibres ? ThreadKind::Fibres : ThreadKind::Real;
  const bool isUsual = asFibres == (RACK_HAS_FIBRES != 0);
  if (setup.tellsThreads == 0 || (setup.threads == ThreadKind::Possible && isUsual)) return wrong;
  Tell(asFibres ? "threads are fibres" : "threads are real ones" + (wrong.empty() ? "" : ": " + wrong));
  return wrong;
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
  const std::string wrong = ChooseThreads(state.time);
  const bool asFibres = state.time.threads == ThreadKind::Fibres;
  Engage({&state.time, state.live.now, &ServeSession, &WorkSession, &WatchSession, &TurnSession, asFibres});
  if (setup.threads == ThreadKind::Fibres && !asFibres)
    EndRun(kRefusedStatus, ("threads cannot be fibres: " + wrong).c_str());
}

// Ahead of what stdio has kept of its own.
[[gnu::destructor]] void EndTime() {
  if (Session* session = Session::Get()) session->WriteConsole();
}

}  // namespace
}  // namespace rack
