// Where the preloaded library has its time from.
#pragma once

#include <cstddef>
#include <cstdint>

#include "cards/card.h"
#include "rack/triggers.h"

namespace rack {

// A program line that the controller has read and is about to execute.
struct DueLine {
  std::uint8_t task;
  std::uint32_t fileNumber;
  const char* file;
  std::uint32_t line;
  const char* text;
};

// A clock under control learns what the controller does, and may let it cost time or hold it. It is told
// outside of the library's locks.
class TimeSource {
 public:
  virtual ~TimeSource() = default;
  // On the scale of the controller's CLOCK_MONOTONIC.
  virtual Nanos Now() = 0;
  virtual void BusAccess() {}  // ahead of each
  // While the machine is watched, behind each call that may have moved it.
  virtual void MachineMoved(const MachineDue& /*due*/) {}
  virtual void LineDue(const DueLine& /*line*/) {}
  // How many of so many bytes the console takes at present.
  virtual std::size_t ConsoleTakes(std::size_t bytes) { return bytes; }
  // Whether a line that the console takes may be written later, together with those behind it.
  virtual bool HoldsConsole() { return false; }
  // Around each write to it. True: the write is to be made whole, however long that takes in real time.
  virtual bool ConsoleBegins() { return false; }
  virtual void ConsoleEnds() {}
  // Ahead of a read that is not the device's: its other end may keep it waiting.
  virtual void ReadFrom(int /*descriptor*/) {}
  // A system call that the controller, or a library of its, makes by its number: true when it was answered.
  virtual bool SystemCall(long /*number*/, const long (&/*arguments*/)[6], long& /*result*/) { return false; }
  // Whether numbers that differ from run to run are to be shown as fixed ones.
  virtual bool ShowsFixed() { return false; }
};

// The system's clock, until UseTimeSource puts another in its place (null: the system's again).
TimeSource& CurrentTime();
void UseTimeSource(TimeSource* clock);

}  // namespace rack
