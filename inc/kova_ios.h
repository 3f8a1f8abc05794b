// Digital I/O card: 16 outputs, 8 relays (channels 16 to 23), 16 inputs.
#pragma once

#include "kova_dig.h"

class CkOVA_IOS : public DigitalCard<CkOVA_IOS> {
 public:
  static constexpr char kName[] = "kOVA_IOS";

  ~CkOVA_IOS();

  unsigned short OutPort(int ChIdx) const;
  unsigned short InPort(int ChIdx) const;

  // Register map.
  unsigned int CPUAddr = 0;      // W   slot select
  unsigned int VerAddr = 3;      // R   version
  unsigned int TypeAddr = 4;     // R   type
  unsigned int DigOutLAddr = 5;  // R W outputs 0 to 7
  unsigned int DigOutHAddr = 6;  // R W outputs 8 to 15
  unsigned int RelayAddr = 7;    // R W relays, channels 16 to 23
  unsigned int DigInLAddr = 8;   // R   inputs 0 to 7
  unsigned int DigInHAddr = 9;   // R   inputs 8 to 15
  unsigned char SlotID = 1;
};
