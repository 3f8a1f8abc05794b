// The CPU card of the board: slot 0, always entry 0 of the card table.
#pragma once

#include "kova_dig.h"

class CkOVA_CPU : public DigitalCard<CkOVA_CPU> {
 public:
  static constexpr char kName[] = "kOVA_CPU";

  ~CkOVA_CPU();

  // 1 shows error 1, other numbers none. Always 1.
  int CPUReport(int ErrorNo) override;
  // The CPU card is slot 0 whatever is asked for.
  void SetSlotID(unsigned char nSlotID) override;
  int GetTaskNum() override;
  int GetCPUSeting() override;
  // One poll: the function key if there is one, else the key latched; HKEY_NUL without any. HKEY_Dec goes
  // before a function key. A latched code is cleared on the card 10 ms after it was read.
  HKEY ReadHKey() override;

  unsigned short OutPort(int ChIdx) const;
  unsigned short InPort(int ChIdx) const;

  // Register map. Ports 0 to 2 mean one thing for reading and another for writing.
  unsigned int CPUAddr = 0;        // W   slot select
  unsigned int VerAddr = 0;        // R   version
  unsigned int TypeAddr = 1;       // R   type
  unsigned int PS2Addr = 2;        // R   keypad code latched last, 0 when none
  unsigned int CPUStatusAddr = 2;  // W   1: error 1
  unsigned int PS2ClrAddr = 1;     // W   0 clears the latched keypad code
  unsigned int DigInL8Addr = 3;    // R   inputs 0 to 7
  unsigned int DigInH8Addr = 4;    // R   inputs 8 to 15
  unsigned int DigOutL8Addr = 5;   // R W outputs 0 to 7
  unsigned int DigOutH8Addr = 6;   // R W outputs 8 to 15
  unsigned int SetAddr = 7;        // R   settings
  unsigned int TaskNumAddr = 8;    // R   task-count switch
  unsigned char SlotID = 0;

  // R   function keys: bit 3 RUN, 2 STEP, 1 ZERO, 0 CANCEL. 0: this board has none. Set by the scan.
  unsigned int FunctionPort = 0;
};

// Port of the function keys by "Velmo.conf"; 0 without one, or when the port cannot be one, with a console
// line then.
unsigned int ConfiguredFunctionPort();
