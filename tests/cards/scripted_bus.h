// The ISA driver, the console, the clocks and the pauses as the card drivers see them, scripted and recorded.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// The driver's device: 1000 for the first name, 1001 for the second.
class ScriptedBus {
 public:
  static ScriptedBus& Get();

  // Both devices there, every register 0xFF, log and console empty.
  void Reset();

  // Successive answers of a register; the last one repeats.
  void Answer(int slot, int port, std::vector<int> values);
  // The register reads back what was written to it, from the given byte on.
  void ReadBack(int slot, int port, int value);
  int Written(int slot, int port);

  // "port<written" and "port>read" in hexadecimal (ports decimal), "~micros" for a pause, since the last
  // call.
  std::string Log();
  // The same without the slot selections, each of which must have gone ahead of its access.
  std::string Log(int slot);
  // What was written to standard output since the last call.
  std::string Console();
  std::string ConsoleAtStart() const { return StartText; }

  std::vector<bool> DeviceThere = {true, true};
  bool FailReads = false;
  bool Yield = false;        // give other threads the turn within each access
  int TicksPerAccess = 1;    // of clock()
  int SecondsPerAccess = 0;  // of real time
  std::function<std::optional<int>(int slot, int port)> OnRead;  // asked first

  // The intercepted calls.
  int Open(const std::string& path);
  long Read(unsigned char* exchange, size_t length);
  long Write(const unsigned char* exchange, size_t length);
  void Print(const char* text, size_t length);
  void Pause(long long micros);
  long Ticks();
  long SecondsAhead();

 private:
  void Note(const std::string& entry);

  std::recursive_mutex Lock;
  int Selected = 0;
  std::map<std::pair<int, int>, std::vector<int>> Answers;
  std::map<std::pair<int, int>, int> Latches;
  std::map<std::pair<int, int>, int> LastWritten;
  std::vector<std::string> Entries;
  std::string Text;
  std::string StartText;
  bool Started = false;
  long TickCount = 0;
  long SecondCount = 0;
};

// A test with a fresh bus and fresh locks.
class CardTest : public testing::Test {
 protected:
  CardTest();
  ScriptedBus& bus;
};
