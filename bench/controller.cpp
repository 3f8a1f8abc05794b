// What the controller costs by itself, without a machine: the lines of a program, and the search for a label.
//   bench-controller lines DIRECTORY [alone]
//     Runs task 1 of the directory up to its second "ROCLR: 2, 0, 0", with an I/O card in entry 1, a stepper card in entry 3
//     and a cylinder card in entry 4. Prints the system calls, and how much longer the lines took than these calls alone,
//     made again in a bare loop (not with alone).
//   bench-controller search FILE LABEL COUNT
//     Prints how much longer the searches took than reading the file as often in blocks.
//   bench-controller polled
//     Prints how long the bus accesses of one task take, in microseconds, half and all but one in a hundred: alone, then
//     while another task waits for the end of a cylinder's reset.
// The console goes to standard output, the figures to standard error.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <thread>
#include <vector>

#include "drvlib.h"
#include "kova_cymstr.h"
#include "kova_ios.h"
#include "kova_man.h"
#include "kova_stmtr.h"
#include "plctask.h"
#include "synx.h"

namespace {

std::atomic<unsigned char> answer{0xFF};  // of the bus to each read

struct Calls {
  long long deviceReads;
  long long deviceWrites;
  long long consoleWrites;
  long long consoleBytes;
};
Calls calls;           // made so far by the only thread of a program's lines
bool counted = false;  // whether they are counted

long long Nanos() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000000000LL + now.tv_nsec;
}

// The same system calls without anything around them.
long long BareNanos(const Calls& made) {
  static char text[4096];
  const size_t length =
      made.consoleWrites == 0 ? 0 : static_cast<size_t>(made.consoleBytes / made.consoleWrites);
  const long long begin = Nanos();
  for (long long i = 0; i < made.consoleWrites; ++i) syscall(SYS_write, STDOUT_FILENO, text, length);
  for (long long i = 0; i < made.deviceWrites; ++i) syscall(SYS_write, Hardware.Hard_fd, text, 2);
  for (long long i = 0; i < made.deviceReads; ++i) syscall(SYS_read, Hardware.Hard_fd, text, 1);
  return Nanos() - begin;
}

// Measures from its first ROCLR to its second, with which the program ends.
class Stopwatch : public CkOVA_MANAGER {
 public:
  explicit Stopwatch(bool alone) : alone_(alone) {}

  int Cmd_ROCLR(int, void*) override {
    if (begin_ == 0) {
      before_ = calls;
      begin_ = Nanos();
      return 1;
    }
    const long long nanos = Nanos() - begin_;
    const Calls made = {calls.deviceReads - before_.deviceReads, calls.deviceWrites - before_.deviceWrites,
                        calls.consoleWrites - before_.consoleWrites,
                        calls.consoleBytes - before_.consoleBytes};
    std::fprintf(stderr, "%lld", made.deviceReads + made.deviceWrites + made.consoleWrites);
    if (!alone_)
      std::fprintf(stderr, " %.3f", static_cast<double>(nanos) / static_cast<double>(BareNanos(made)));
    std::fprintf(stderr, "\n");
    _exit(0);
  }

 private:
  bool alone_;
  long long begin_ = 0;
  Calls before_ = {};
};

int Lines(const char* directory, bool alone) {
  if (chdir(directory) != 0) return 2;
  counted = true;
  static CkOVA_IOS io;
  static Stopwatch stopwatch(alone);
  static CkOVA_STMTR stepper;
  static CkOVA_CYMSTR cylinder;
  CkOVA_MANAGER* const cards[] = {&io, &stopwatch, &stepper, &cylinder};
  CardInfo.CardNum = 1;
  for (CkOVA_MANAGER* const card : cards) {
    card->SetSlotID(static_cast<unsigned char>(CardInfo.CardNum));
    kOVA_CardMan[CardInfo.CardNum++] = card;
  }
  TaskPLC(1);
  return 1;
}

int Search(const char* path, int label, int count) {
  FILE* const file = std::fopen(path, "rt");
  if (file == nullptr) return 2;
  const long long begin = Nanos();
  for (int i = 0; i < count; ++i) {
    if (GoFileLine(file, label) != 1) return 1;
  }
  const long long between = Nanos();
  char block[4096];
  for (int i = 0; i < count; ++i) {
    lseek(fileno(file), 0, SEEK_SET);
    while (read(fileno(file), block, sizeof block) > 0) {
    }
  }
  std::fprintf(stderr, "%.2f\n",
               static_cast<double>(between - begin) / static_cast<double>(Nanos() - between));
  return 0;
}

void PrintAccesses(CkOVA_IOS& io) {
  constexpr int kAccesses = 4000;
  std::vector<long long> nanos;
  for (int i = 0; i < kAccesses; ++i) {
    usleep(200);
    const long long begin = Nanos();
    io.InB(22);
    nanos.push_back(Nanos() - begin);
  }
  std::sort(nanos.begin(), nanos.end());
  std::fprintf(stderr, "%.1f %.1f\n", static_cast<double>(nanos[kAccesses / 2]) / 1000,
               static_cast<double>(nanos[kAccesses * 99 / 100]) / 1000);
}

int Polled() {
  constexpr unsigned char kResetting = 0x08;
  static CkOVA_IOS io;
  static CkOVA_CYMSTR cylinder;
  PrintAccesses(io);
  answer = kResetting;
  std::thread reset([] { cylinder.WaitResetEnd(0); });
  PrintAccesses(io);
  answer = 0;
  reset.join();
  return 0;
}

}  // namespace

// The controller's own calls: the bus is /dev/zero, but for what is read: all bits set, as of a card that is done, or what
// is measured.
ssize_t read(int descriptor, void* data, size_t size) {
  const ssize_t count = syscall(SYS_read, descriptor, data, size);
  if (descriptor != Hardware.Hard_fd) return count;
  if (counted) ++calls.deviceReads;
  std::memset(data, answer, size);
  return count;
}

ssize_t write(int descriptor, const void* data, size_t size) {
  if (!counted) return syscall(SYS_write, descriptor, data, size);
  if (descriptor == Hardware.Hard_fd) {
    ++calls.deviceWrites;
  } else {
    ++calls.consoleWrites;
    calls.consoleBytes += static_cast<long long>(size);
  }
  return syscall(SYS_write, descriptor, data, size);
}

int main(int count, char** words) {
  Hardware.Hard_fd = open("/dev/zero", O_RDWR);
  if (count >= 3 && std::strcmp(words[1], "lines") == 0) return Lines(words[2], count > 3);
  if (count == 2 && std::strcmp(words[1], "polled") == 0) return Polled();
  if (count == 5 && std::strcmp(words[1], "search") == 0) {
    return Search(words[2], std::atoi(words[3]), std::atoi(words[4]));
  }
  return 2;
}
