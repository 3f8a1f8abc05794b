#include "kova_cpu.h"

#include "readini.h"
#include "waits.h"

namespace {

constexpr long long kKeyClearMillis = 10;  // the card needs the pause between reading a code and clearing it

constexpr unsigned char kBreakCode = 0xF0;
constexpr unsigned char kExtendedCode = 0xE0;

// Make codes of the numeric keypad, PS/2 scan code set 2.
constexpr struct {
  unsigned char Code;
  HKEY Key;
} kKeyCodes[] = {
    {0x4A, HKEY_Slash}, {0x5A, HKEY_Enter}, {0x69, HKEY_1},    {0x6B, HKEY_4},
    {0x6C, HKEY_7},     {0x70, HKEY_0},     {0x72, HKEY_2},    {0x73, HKEY_5},
    {0x74, HKEY_6},     {0x75, HKEY_8},     {0x77, HKEY_Num},  {0x79, HKEY_Plus},
    {0x7A, HKEY_3},     {0x7B, HKEY_Dec},   {0x7C, HKEY_Star}, {0x7D, HKEY_9},
};

// Function keys, the first of several going before the others.
constexpr struct {
  unsigned char Bit;
  HKEY Key;
} kFunctionKeys[] = {{D3, HKEY_RUN}, {D2, HKEY_STEP}, {D1, HKEY_ZERO}, {D0, HKEY_CANCEL}};
constexpr unsigned char kNoFunctionBits = D7 | D6 | D5 | D4;

HKEY KeypadKey(unsigned char code) {
  for (const auto& row : kKeyCodes) {
    if (row.Code == code) return row.Key;
  }
  return HKEY_NUL;
}

// A bit that belongs to no function key means that the read failed (0xFF): a bus fault must not release step
// mode.
HKEY FunctionKey(unsigned char bits) {
  if ((bits & kNoFunctionBits) != 0) return HKEY_NUL;
  for (const auto& row : kFunctionKeys) {
    if ((bits & row.Bit) != 0) return row.Key;
  }
  return HKEY_NUL;
}

}  // namespace

CkOVA_CPU::~CkOVA_CPU() {
  Console("CPU: ~kOVA_CPU\n");
}

int CkOVA_CPU::CPUReport(int ErrorNo) {
  if (ErrorNo == 1) OutB(static_cast<unsigned short>(CPUStatusAddr), 1);
  return 1;
}

void CkOVA_CPU::SetSlotID(unsigned char) {
  SlotID = 0;
}

int CkOVA_CPU::GetTaskNum() {
  return InB(static_cast<unsigned short>(TaskNumAddr));
}
int CkOVA_CPU::GetCPUSeting() {
  return InB(static_cast<unsigned short>(SetAddr));
}

HKEY CkOVA_CPU::ReadHKey() {
  const unsigned char FunctionByte =
      FunctionPort == 0 ? static_cast<unsigned char>(0) : InB(static_cast<unsigned short>(FunctionPort));
  const unsigned char KeyByte = InB(static_cast<unsigned short>(PS2Addr));
  if (KeyByte != 0 && KeyByte != kBreakCode && KeyByte != kExtendedCode) {
    PauseMillis(kKeyClearMillis);
    OutB(static_cast<unsigned short>(PS2ClrAddr), 0);
  }
  const HKEY key = KeypadKey(KeyByte);
  const HKEY function = FunctionKey(FunctionByte);
  return key == HKEY_Dec || function == HKEY_NUL ? key : function;
}

unsigned short CkOVA_CPU::OutPort(int ChIdx) const {
  return static_cast<unsigned short>(ChIdx <= 7 ? DigOutL8Addr : DigOutH8Addr);
}

unsigned short CkOVA_CPU::InPort(int ChIdx) const {
  return static_cast<unsigned short>(ChIdx <= 7 ? DigInL8Addr : DigInH8Addr);
}

unsigned int ConfiguredFunctionPort() {
  char text[300] = "";
  if (ReadIni.GetField("Velmo.conf", "[KEYPAD]", "FunctionPort", 0, text) != 0) return 0;
  const long long port = ToWideNumber(text);
  if (port >= 9 && port <= 255) return static_cast<unsigned int>(port);
  Console("Velmo.conf: FunctionPort %lld refused, ports 9 to 255 are possible\n", port);
  return 0;
}
