// The board: bus access, card scan, the board's own outputs, and the small routines shared by the whole
// controller.
#pragma once

#include <pthread.h>

#include "locks.h"
#include "public.h"

class CkOVA_MANAGER;

// Bits of a register byte.
constexpr unsigned char D0 = 0x01;
constexpr unsigned char D1 = 0x02;
constexpr unsigned char D2 = 0x04;
constexpr unsigned char D3 = 0x08;
constexpr unsigned char D4 = 0x10;
constexpr unsigned char D5 = 0x20;
constexpr unsigned char D6 = 0x40;
constexpr unsigned char D7 = 0x80;

constexpr int BASE = 0x0;
constexpr int MAXZXNUM = 1;
constexpr unsigned char DGDELAYTMR = 0x3f;  // delay register of a cylinder card outside setup and reset

// Bit numbers of OutLED.
constexpr unsigned char LED_POWER = 0;
constexpr unsigned char LED_ALARM = 1;
constexpr unsigned char LED_ZERO = 2;
constexpr unsigned char LED_STEP = 3;
constexpr unsigned char LED_RUN = 4;
constexpr unsigned char LED_STAT = 7;

// Modes of the board's counter.
constexpr unsigned char CFMODE_FREQ = 0;
constexpr unsigned char CFMODE_CNT = 1;

constexpr int MAXCARDNO = 12;  // entries of the card table, the CPU card in entry 0 included
constexpr int MAXCARDTYPE = 4;
constexpr unsigned char kCpuCardId = 0xA3;  // entry 0; the CPU card is never probed

// What the scan found; entry i describes kOVA_CardMan[i]. Written by the scan before the threads start.
struct CARDINFO {
  int CardNum;                      // entries in use, the CPU card included
  unsigned char SlotID[MAXCARDNO];  // physical slot: 0 the CPU card, 1 to 12 the plug-in slots
  unsigned char CardID[MAXCARDNO];  // as read from the card's type register
};

// A kind of plug-in card: the scan knows exactly the rows of CardType.
struct CARDTYPE {
  unsigned char CardID;
  char szCardName[50];
  CkOVA_MANAGER* (*Create)();
};

// The board object. InB and OutB are one system call each on the handle of the global Hardware and take no
// lock; whoever needs a slot selection and an access to stay together holds HardLock over both.
class HARDWARE {
 public:
  HARDWARE();
  ~HARDWARE();
  HARDWARE(const HARDWARE&) = delete;
  HARDWARE& operator=(const HARDWARE&) = delete;

  // Opens the first driver device that lets itself be opened and says so on the console. 1: open. 0: none.
  int OpenHard();
  void CloseHard();

  // Byte of a port (its low 8 bits are carried); 0xFF when the read fails.
  unsigned char InB(short port);
  // A failed write is not reported.
  void OutB(short port, unsigned char byte);

  // Fills the card table and Info. Called once, after the locks are made and before any thread starts.
  // The CPU card's task count; 0 without a driver (Info's CardNum is then left alone); -1 when Info is null.
  int ScanCard(CARDINFO* Info);

  // Single-bit outputs of the board. Only the low 3 bits of Bit count. The registers are also ports of
  // plug-in cards: a write reaches the card selected last, so the caller selects the slot and holds HardLock.
  // The same holds for the line motor and the counter below.
  void OutLED(unsigned char Bit, HILOW HiLow);
  // OutHC and OutExt share one shadow byte: each carries the bits set through the other.
  void OutHC(unsigned char Bit, HILOW HiLow);
  void OutExt(unsigned char Bit, HILOW HiLow);
  void OutRelay(unsigned char Bit, HILOW HiLow);  // no effect

  // Line motor: runs Distence * 2 / 5 + 290 steps, a negative distance counting as 0; SpeedLevel 1 to 3,
  // others none.
  void OutLineMotorPlusNoSW(long Distence, unsigned char Dir, unsigned char SpeedLevel);
  // As above, and waits until the motor has stopped, at most 60 s ("Line motor timeout" on the console).
  void OutLineMotorPlus(long Distence, unsigned char Dir, unsigned char SpeedLevel);
  void OutLineMotor(unsigned char Pos, unsigned char SpeedLevel);  // no effect

  // Distance of the line counter: its 32-bit count times 20 (cut to 32 bits) over 1000.
  int GetLineCount();
  // 1: two readings 500 us apart are equal, nothing moves. 0: they differ.
  int IsLineMove();
  void SetCountOrign(int Move, unsigned char Sense, unsigned char ZeroSide,
                     unsigned char SWLevel);  // no effect

  // Register map of the board. "-": no operation uses it.
  unsigned int LineC = 0;                    // -
  unsigned int SysAddr = 0;                  // W   slot select
  unsigned int StaAddr = 14;                 // -
  unsigned int OutExtAddr = 21;              // W   extension outputs
  unsigned int LEDAddr = 25;                 // W   LEDs, bits LED_*
  unsigned int DGDelayAddr = 10;             // -
  unsigned int StepAddr = 0;                 // -
  unsigned int StepStopAddr = 11;            // -
  unsigned int StepClrAddr = 8;              // -
  unsigned int StepStopEnAddr = 13;          // -
  unsigned int RelayAddr = 26;               // -
  unsigned int KeyAddr = 19;                 // -
  unsigned int CPUStatAddr = 1;              // -
  unsigned int PS2Addr = 2;                  // -
  unsigned int PS2ClrAddr = 1;               // -
  unsigned int VerAddr = 0;                  // -
  unsigned int TypeAddr = 1;                 // -
  unsigned int SubVerAddr = 3;               // -   version of the selected plug-in card
  unsigned int SubTypeAddr = 4;              // R   type of the selected plug-in card
  unsigned int OutHCAddr = 24;               // W   high-current outputs
  unsigned int LineClrRegAddr = 29;          // W   line motor clear: 1 then 0
  unsigned int LineAddr = 27;                // R   line motor status, bit 0: runs;  W six command bytes
  unsigned int OutBase[3] = {};              // -
  unsigned int InBase = 22;                  // -
  unsigned int InBaseAux = 23;               // -
  unsigned int FsLBase = 16;                 // R   line counter, bits 0 to 7
  unsigned int FsMBase = 17;                 // R   line counter, bits 8 to 15
  unsigned int FsHBase = 18;                 // R   line counter, bits 16 to 23
  unsigned int FsHHBase = 19;                // R   line counter, bits 24 to 31
  unsigned char OutLedReg = 0;               // shadow of the LED register
  unsigned char OutRelayReg = 0;             // -
  unsigned char OutHCReg = 0;                // shadow of the high-current and of the extension register
  unsigned char GOutReg = 0;                 // -
  unsigned char OutRegs[3] = {};             // -
  unsigned char StepMotorStopDirReg = 0xFF;  // -
  unsigned char CFModeReg = CFMODE_FREQ;     // -
  unsigned char CntCtrlReg = 0;              // -
  int MotorAlarmFlg = 0;                     // -
  int Hard_fd = -2;                          // handle of the driver device, negative when none is open
  int HardInstalled = 0;                     // 0: no device; 1, 2: which name of DeviceNames opened
  long LineOldPos = -1;                      // -

 private:
  void OutBit(unsigned int port, unsigned char& shadow, unsigned char bit, HILOW level);
};

// Constructed before main and first on the console; written by the main thread before the others start.
extern HARDWARE Hardware;
extern CARDINFO CardInfo;
extern const CARDTYPE CardType[MAXCARDTYPE];

// Byte access through Hardware. A port above 255 is refused with a line on the console; the read then yields
// 0xFF.
unsigned char inportb(unsigned short port);
void outportb(unsigned short port, unsigned char byte);

// Made by main. Order of taking: a card's own lock, then HardLock; no other two are ever held at once, but for the console's
// own, a leaf.
extern pthread_mutex_t HardLockOut;  // made, taken by nobody
extern pthread_mutex_t HardLockIn;   // made, taken by nobody
extern pthread_mutex_t HardLock;     // one slot selection with one transfer on the bus
extern pthread_mutex_t DispLock;     // one Wprintf line
inline LockRole HardRole;
inline LockRole DispRole;

// Holds HardLock to the end of its scope, and counts as waiting until it has it.
class SCOPED_CAPABILITY ScopedBus {
 public:
  ScopedBus() ACQUIRE(HardRole);
  ~ScopedBus() RELEASE();
  ScopedBus(const ScopedBus&) = delete;
  ScopedBus& operator=(const ScopedBus&) = delete;
};
// Between two polls without a pause: lets those first who wait for the bus. A mutex that is freed and taken again at once
// goes to nobody else, on two processors for milliseconds.
void GiveWayOnBus();

// A console line tagged with its task ("PLC3: "; 0 "PLCKey: ", 9 "PLCNet: "), under DispLock, in one write.
// The format carries the line feed. Always -1.
[[gnu::format(printf, 2, 3)]] int Wprintf(int TaskNo, const char* format, ...);
// A console line without tag and lock, in one write: start-up, bus and cards.
[[gnu::format(printf, 1, 2)]] void Console(const char* format, ...);

// Comparison by bytes, a to z folded to A to Z: 0 equal, else signed difference; a proper prefix is smaller.
// A null first text is smaller than any text and equal to null; a null second text gives 1.
int stricmp(const char* str1, const char* str2);
// Median of three over the buffer, in place; DatLen - 1. Below 3 samples nothing changes.
int MidValueFilter(unsigned long* DatBuf, long DatLen);
// Ascending, in place; DatLen. A NaN is moved by no comparison with it.
int Sort(float* DatBuf, long DatLen);
// Counts to Delay without a system call.
void FastDelay(int Delay);

// Prepares the start-up scripts of the working directory: line ends, modes, the copy in root's home.
// Always 1.
int ChangFileMod();
// Every carriage return of the file becomes a line feed. 1: done. 0: file or work file "tmp.txt" cannot be
// opened. Not to be called twice at the same time: one work file.
int CnvDos2UnixFile(const char* FileName);
// 0: copied. -1: one of the files cannot be opened.
int copyFile(const char* src, const char* des);
// Walks the tree below basePath; 1 only for a regular file of that name directly in basePath, else 0.
int FindFile(char* basePath, char* FileName);
