// A PLC task with its program files, on a hostile bus, for a while: "== plc1/FLOW.PLC" and its like begin a file, "== keys"
// what the keypad task leaves in the mailbox, "== bus" what the bus answers.
#include <cstdint>

#include "console.h"
#include "drvlib.h"
#include "fuzz.h"
#include "hostile_board.h"
#include "kova_asda.h"
#include "kova_cpu.h"
#include "kova_cymstr.h"
#include "kova_ios.h"
#include "kova_stmtr.h"
#include "plctask.h"
#include "synx.h"

namespace {

constexpr int kTask = 1;
constexpr long kCalls = 600;  // pauses, bus accesses and lines of the console until the task is left

// One card of each kind, in the slots behind the CPU card.
struct Rack {
  Rack() {
    CkOVA_MANAGER* const cards[] = {&cpu, &io, &steppers, &cylinders, &servos};
    for (CkOVA_MANAGER* card : cards) {
      const int entry = CardInfo.CardNum++;
      kOVA_CardMan[entry] = card;
      CardInfo.SlotID[entry] = static_cast<unsigned char>(entry);
      card->SetSlotID(static_cast<unsigned char>(entry));
    }
  }
  ~Rack() {
    for (CkOVA_MANAGER*& card : kOVA_CardMan) card = nullptr;
    CardInfo = {};
  }
  Rack(const Rack&) = delete;
  Rack& operator=(const Rack&) = delete;

  CkOVA_CPU cpu;
  CkOVA_IOS io;
  CkOVA_STMTR steppers;
  CkOVA_CYMSTR cylinders;
  CkOVA_ASDA servos;
};

void RunTask(fuzz::HostileBoard& board) {
  try {
    TaskPLC(kTask);
  } catch (const fuzz::RunOver&) {
  }
  board.left = INT32_MAX;
  fuzz::Require(OfferConsole(), "a console that takes everything leaves nothing");
  for (pthread_mutex_t* lock : {&FileLock, &HardLock, &DispLock, &SynxLock}) {
    fuzz::Require(pthread_mutex_trylock(lock) == 0, "no lock is left behind");
    pthread_mutex_unlock(lock);
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  for (pthread_mutex_t* lock : {&HardLock, &DispLock, &FileLock, &SynxLock})
    pthread_mutex_init(lock, nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Scratch scratch;
  fuzz::Bytes keys;
  fuzz::HostileBoard board;
  board.left = kCalls;
  for (const fuzz::InputFile& file : fuzz::FilesOf(fuzz::TextOf(data, size), "plc1/RESET.PLC")) {
    if (file.name == "keys") keys = fuzz::Bytes(file.text);
    if (file.name == "bus") board.bus = fuzz::Bytes(file.text);
    if (fuzz::IsProgramName(file.name)) fuzz::Scratch::Write(file.name, file.text);
  }
  board.onPause = [&] { GlobeHKey[kTask] = static_cast<HKEY>(keys.Byte() % (HKEY_Enter + 1)); };
  const Rack rack;
  RunTask(board);
  GlobeHKey[kTask] = HKEY_NUL;
  return 0;
}
