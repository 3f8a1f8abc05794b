#include "kova_ios.h"

CkOVA_IOS::~CkOVA_IOS() {
  Console("IOS: ~kOVA_IOS\n");
}

unsigned short CkOVA_IOS::OutPort(int ChIdx) const {
  if (ChIdx <= 7) return static_cast<unsigned short>(DigOutLAddr);
  return static_cast<unsigned short>(ChIdx <= 15 ? DigOutHAddr : RelayAddr);
}

unsigned short CkOVA_IOS::InPort(int ChIdx) const {
  return static_cast<unsigned short>(ChIdx <= 7 ? DigInLAddr : DigInHAddr);
}
