// The ISA driver, the console, the clocks and the pauses as the card drivers see them, scripted and recorded.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/scratch.h"

using SlotPort = std::pair<int, int>;

struct ScriptedBus {
  // Successive answers of a register, the last one repeats; without any 0xFF.
  void Answer(int slot, int port, std::vector<int> values) { answers[{slot, port}] = std::move(values); }
  // "port<written" and "port>read" (ports decimal, bytes hexadecimal), "~micros" for a pause, since the last
  // call.
  std::string Log();
  // The same without the slot selections, each of which must have gone ahead of its access.
  std::string Log(int slot);
  // What was written to standard output since the last call.
  std::string Console() { return std::exchange(text, ""); }

  std::vector<bool> deviceThere = {true, true};  // handle 1000 for the first name, 1001 for the second
  int readResult = 1;                            // of each read; below 1 it yields no byte
  bool yield = false;                            // give other threads the turn within each access
  int ticksPerAccess = 1;                        // of clock()
  int secondsPerAccess = 0;                      // of real time
  std::function<std::optional<int>(int slot, int port)> onRead;  // asked first
  std::function<void()> onPause;
  std::map<SlotPort, std::vector<int>> answers;
  std::map<SlotPort, int> written;
  std::vector<std::string> entries;
  std::string text;
  int selected = 0;
};

// What the console showed before the first test.
const std::string& ConsoleAtStart();

// A test with a fresh bus, fresh locks and a working directory of its own.
class CardTest : public ScratchTest {
 protected:
  CardTest();
  ScriptedBus& bus;
};
