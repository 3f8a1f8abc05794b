#include "drvlib.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>

#include "console.h"
#include "em335x_drivers.h"
#include "waits.h"

namespace {

constexpr int kLastPort = 255;
constexpr int kLineMotorSeconds = 60;
constexpr unsigned char kLineMotorRuns = D0;
constexpr long long kLineMotorRestMillis = 1;
constexpr long long kLineMoveMicros = 500;

// Some milliseconds: a thread that is woken to take the bus may have to wait for a processor.
constexpr int kMostYields = 20000;
std::atomic<int> BusWaiters{0};

// Speed level of the line motor in its direction byte.
constexpr unsigned char kSpeedBits[] = {0x00, 0x40, 0x80, 0xC0};

unsigned char SpeedBits(unsigned char level) {
  return level < sizeof kSpeedBits ? kSpeedBits[level] : kSpeedBits[0];
}

unsigned short Port(unsigned int addr) {
  return static_cast<unsigned short>(addr);
}

}  // namespace

pthread_mutex_t HardLockOut;
pthread_mutex_t HardLockIn;
pthread_mutex_t HardLock;

ScopedBus::ScopedBus() {
  ++BusWaiters;
  pthread_mutex_lock(&HardLock);
  --BusWaiters;
}

ScopedBus::~ScopedBus() {
  pthread_mutex_unlock(&HardLock);
}

void GiveWayOnBus() {
  for (int i = 0; i < kMostYields && BusWaiters > 0; ++i) sched_yield();
}

HARDWARE Hardware;

HARDWARE::HARDWARE() {
  PrepareConsole();
  OpenHard();
}
HARDWARE::~HARDWARE() {
  CloseHard();
}

int HARDWARE::OpenHard() {
  Hard_fd = -2;
  HardInstalled = 0;
  for (int i = 0; i < SUPPORTDEVNUM && HardInstalled == 0; ++i) {
    Hard_fd = open(DeviceNames[i], O_RDWR);
    if (Hard_fd >= 0) HardInstalled = i + 1;
  }
  if (HardInstalled == 0) {
    Console("Velmo Load Driver Failed![%d] \n\n", Hard_fd);
    return 0;
  }
  Console("Load ISA Driver successfully![%d][%d]\n", Hard_fd, HardInstalled);
  return 1;
}

void HARDWARE::CloseHard() {
  close(Hard_fd);
}

unsigned char HARDWARE::InB(short port) {
  IsaRead exchange = {static_cast<unsigned char>(port)};
  if (read(Hardware.Hard_fd, &exchange, sizeof exchange) < 0) return 0xFF;
  return exchange.PortThenData;
}

void HARDWARE::OutB(short port, unsigned char byte) {
  const IsaWrite exchange = {byte, static_cast<unsigned char>(port)};
  (void)!write(Hardware.Hard_fd, &exchange, sizeof exchange);
}

unsigned char inportb(unsigned short port) {
  if (port > kLastPort) {
    Console("\ninportb error: %d\n", port);
    return 0xFF;
  }
  return Hardware.InB(static_cast<short>(port));
}

void outportb(unsigned short port, unsigned char byte) {
  if (port > kLastPort) {
    Console("\noutportb error: %d\n", port);
    return;
  }
  Hardware.OutB(static_cast<short>(port), byte);
}

void HARDWARE::OutBit(unsigned int port, unsigned char& shadow, unsigned char bit, HILOW level) {
  const unsigned char mask = static_cast<unsigned char>(1U << (bit & 7U));
  shadow = static_cast<unsigned char>(level == HI ? shadow | mask : shadow & ~mask);
  outportb(Port(port), shadow);
}

void HARDWARE::OutLED(unsigned char Bit, HILOW HiLow) {
  OutBit(LEDAddr, OutLedReg, Bit, HiLow);
}
void HARDWARE::OutHC(unsigned char Bit, HILOW HiLow) {
  OutBit(OutHCAddr, OutHCReg, Bit, HiLow);
}
void HARDWARE::OutExt(unsigned char Bit, HILOW HiLow) {
  OutBit(OutExtAddr, OutHCReg, Bit, HiLow);
}
void HARDWARE::OutRelay(unsigned char, HILOW) {}

void HARDWARE::OutLineMotorPlusNoSW(long Distence, unsigned char Dir, unsigned char SpeedLevel) {
  // 32-bit arithmetic on every machine: doubling wraps, the division truncates.
  const int distance = Distence < 0 ? 0 : static_cast<int>(Distence);
  const int doubled = static_cast<int>(static_cast<unsigned int>(distance) * 2U);
  const unsigned int steps = static_cast<unsigned int>(doubled / 5 + 290);

  outportb(Port(LineClrRegAddr), 1);
  outportb(Port(LineClrRegAddr), 0);
  const unsigned char command[] = {
      static_cast<unsigned char>(steps),
      static_cast<unsigned char>(steps >> 8),
      static_cast<unsigned char>(steps >> 16),
      0,
      0,
      static_cast<unsigned char>(Dir | SpeedBits(SpeedLevel)),
  };
  for (const unsigned char byte : command) outportb(Port(LineAddr), byte);
}

void HARDWARE::OutLineMotorPlus(long Distence, unsigned char Dir, unsigned char SpeedLevel) {
  OutLineMotorPlusNoSW(Distence, Dir, SpeedLevel);
  const bool stopped = PollUntil(RealSeconds(kLineMotorSeconds), kNoPause,
                                 [&] { return (inportb(Port(LineAddr)) & kLineMotorRuns) == 0; });
  if (!stopped) Console("Line motor timeout\n");
  PauseMillis(kLineMotorRestMillis);
}

void HARDWARE::OutLineMotor(unsigned char, unsigned char) {}

int HARDWARE::GetLineCount() {
  const unsigned int low = inportb(Port(FsLBase));
  const unsigned int middle = inportb(Port(FsMBase));
  const unsigned int high = inportb(Port(FsHBase));
  const unsigned int highest = inportb(Port(FsHHBase));
  const unsigned int count = (highest << 24) | (high << 16) | (middle << 8) | low;
  return static_cast<int>(count * 20U / 1000U);
}

int HARDWARE::IsLineMove() {
  const int first = GetLineCount();
  PauseMicros(kLineMoveMicros);
  return GetLineCount() == first ? 1 : 0;
}

void HARDWARE::SetCountOrign(int, unsigned char, unsigned char, unsigned char) {}
