// A machine of its own: a directory with programs, and the controller as it is shipped on the simulated rack.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "machine/machine.h"
#include "rack/journal.h"
#include "rack/requests.h"
#include "rack/time_control.h"

// Whether the condition comes true in real time, within a limit that only a broken controller reaches. Looks again
// after each pause.
bool Eventually(const std::function<bool()>& condition,
                std::chrono::microseconds pause = std::chrono::milliseconds(3));

// A port of UDP that nobody uses.
int FreePort();

class TestMachine {
 public:
  // Makes the directory with a rack file and a Velmo.conf whose port is free. In virtual time the machine stands
  // while the test looks and acts, and goes on in what waits. Real time is for tests of what is real: sockets,
  // pipes, threads that run at once, the processor's time.
  explicit TestMachine(const std::string& rack = "", rack::TimeMode mode = rack::TimeMode::Virtual);
  // Stops the controller and removes the directory.
  ~TestMachine();
  TestMachine(const TestMachine&) = delete;
  TestMachine& operator=(const TestMachine&) = delete;

  // A file of the machine's directory, its directory made as needed.
  void Write(const std::string& name, const std::string& text) const;
  std::string Read(const std::string& name) const;
  std::filesystem::path Path(const std::string& name) const { return directory_ / name; }

  // Starts `velmo-rack run OPTIONS DIR` and waits until the controller has come to the rack.
  void Start(std::vector<std::string> options = {});
  // Starts it with standard output on a pipe, and yields the reading end.
  int StartOnPipe();
  // The same with a socket, which the controller must not wait for either.
  int StartOnSocket();
  // As Start, and then waits until a task's log has come so far that it contains the text.
  void StartUntil(const std::string& text, std::vector<std::string> options = {});
  // Stops the controller and waits for its end.
  void Stop();
  // Waits for the run to end by itself; its exit status.
  int WaitForEnd();

  // Console text so far; process and thread numbers, directory and handle of the device are replaced by words.
  std::string Console() const;
  // What the controller and the tool have written to standard error.
  std::string Errors() const { return Read("../errors"); }
  // The lines of one task without their prefix, from its start of work on.
  std::string Log(int task = 1) const;
  // The whole console from the start of work of task 1 on, without the start lines of the other threads and the
  // lines of the keypad.
  std::string FullLog() const;
  // Lines of the console that begin so, without that beginning.
  std::string LinesWith(const std::string& prefix) const;
  // Lets the machine run until the condition comes true, within a limit that only a broken controller reaches.
  bool Await(const std::function<bool()>& condition);
  // Waits until the log of a task contains a text. False, and a failure, when it never does.
  bool WaitForLog(const std::string& text, int task = 1);
  bool WaitForConsole(const std::string& text);

  // Everything in the journal so far.
  const std::vector<rack::JournalRecord>& Journal();
  // The bus accesses of a task: "#5" selects slot 5, "7<02" writes, "20>05" reads; port decimal, byte hex.
  std::string Bus(int task = 1);
  // Bus accesses while the board is scanned.
  std::string ScanBus() { return Bus(rack::kMainThread); }

  // Presses a key for a moment and waits until the controller has taken it.
  void Tap(int code);
  // As Tap, and then waits until all tasks have had time to see it and it has left the mailbox.
  void Press(int code);
  // Holds function keys down for a time and waits until they are up again.
  void HoldFunctionKeys(int bits, int millis);
  void SetInput(int slot, int channel, bool on);
  void Fault(rack::FaultKind kind, int slot, int channel = 0, int value = 0);
  void EndFaults();
  // Waits until the keypad has been polled twice from now on.
  void AwaitPolls();

  const rack::RackLive& Live() { return view_.Live(); }
  // Everything in the rack at this moment.
  rack::Snapshot Picture() { return view_.Take(); }
  pid_t Controller();
  // Processor time of the controller so far, in seconds.
  double ProcessorSeconds();

 private:
  int StartOn(const int (&ends)[2]);
  pid_t Launch(std::vector<std::string> options, int output);
  void Attach();
  // Virtual time: waits until the machine stands after a command, lets it run for a stride. False: it has ended.
  bool StandsAfter(std::uint32_t command);
  bool GoOn();
  void KeepJournal();
  void Unfold(const rack::JournalRecord& poll);
  void Ask(const rack::Request& request);
  std::vector<std::string> ConsoleLines() const;
  std::size_t Polls();

  std::filesystem::path directory_;
  pid_t tool_ = -1;
  rack::TimeMode mode_;
  rack::Nanos stood_ = 0;  // virtual time: up to where it has run
  rack::Machine view_;
  std::optional<rack::JournalReader> reader_;
  std::vector<rack::JournalRecord> records_;
  std::map<int, std::vector<rack::JournalRecord>> accesses_;  // of each task
  std::uint64_t lost_ = 0;
};

// Scan codes of the keypad, as the card latches them.
constexpr int kEnter = 0x5A;
constexpr int kDec = 0x7B;
constexpr int kPlus = 0x79;
constexpr int kNum = 0x77;
constexpr int kSix = 0x74;

// The log line of a command.
std::string Line(const std::string& keyword, int slot, int channel, const std::string& parameter,
                 const std::string& file = "RESET.PLC", const std::string& comment = "");
// The same for a line that repeats the one before.
std::string Again(const std::string& keyword, int slot, int channel, const std::string& parameter,
                  const std::string& file = "RESET.PLC", const std::string& comment = "");

// Equal lines that follow each other become one, whatever their ends.
std::string Collapsed(const std::string& log);
// Without the lines that contain the text.
std::string Without(const std::string& log, const std::string& text);
// How often a text stands in another.
int CountOf(const std::string& text, const std::string& part);
