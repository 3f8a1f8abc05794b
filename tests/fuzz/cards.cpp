// The cards on a hostile bus: program lines up to an empty one, "@NUMBER slot channel value" for what no command calls;
// behind it what the bus answers, the scan first.
#include <cstdio>
#include <cstring>
#include <functional>
#include <new>
#include <vector>

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

using fuzz::Require;

constexpr int kMostCommands = 12;

// The cards of one scan, which the controller itself keeps for ever.
class ScannedCards {
 public:
  ScannedCards() { Hardware.ScanCard(&CardInfo); }
  ~ScannedCards() {
    for (int entry = 0; entry < MAXCARDNO; ++entry) Delete(CardInfo.CardID[entry], kOVA_CardMan[entry]);
    for (CkOVA_MANAGER*& card : kOVA_CardMan) card = nullptr;
    CardInfo = {};
  }
  ScannedCards(const ScannedCards&) = delete;
  ScannedCards& operator=(const ScannedCards&) = delete;

 private:
  template <class Card>
  static void Delete(CkOVA_MANAGER* card) {
    Card* const whole = static_cast<Card*>(card);
    whole->Card::~Card();
    ::operator delete(whole);
  }
  static void Delete(unsigned char id, CkOVA_MANAGER* card) {
    switch (id) {
      case 0x81:
        return Delete<CkOVA_STMTR>(card);
      case 0x82:
        return Delete<CkOVA_CYMSTR>(card);
      case 0x83:
        return Delete<CkOVA_IOS>(card);
      case 0x84:
        return Delete<CkOVA_ASDA>(card);
      case kCpuCardId:
        return Delete<CkOVA_CPU>(card);
      default:
        Require(card == nullptr, "an entry that is not listed has no card");
    }
  }
};

void CheckResult(int result) {
  Require(result >= -1 && result <= 1, "a command is done, not done, or has failed");
  Require(pthread_mutex_trylock(&HardLock) == 0, "the bus is free behind a command");
  pthread_mutex_unlock(&HardLock);
}

void RunCommand(SYNXIDX command, int slot, int channel, char* parameter) {
  switch (command) {
    case SYN_LD:
      return CheckResult(Task_LD(slot, channel, parameter));
    case SYN_OUT:
      return CheckResult(Task_OUT(slot, channel, parameter));
    case SYN_DG:
      return CheckResult(Task_DG(slot, channel, parameter));
    case SYN_LDG:
      return CheckResult(Task_LDG(slot, channel, nullptr));
    case SYN_MOT:
      return CheckResult(Task_MOT(slot, channel, parameter));
    case SYN_LMOT:
      return CheckResult(Task_LMOT(slot, channel, nullptr));
    case SYN_ROW:
      return CheckResult(Task_ROW(slot, channel, parameter));
    case SYN_ROCLR:
      return CheckResult(Task_ROCLR(slot, channel, nullptr));
    case SYN_IF: {
      fuzz::ExactText block(parameter, kMaxParam);
      return CheckResult(Task_IF(slot, channel, parameter, block.Get()));
    }
    default:
      return;
  }
}

void TryCylinders(CkOVA_CYMSTR& card, int number, int channel, unsigned char value) {
  const auto byte = static_cast<unsigned char>(channel);
  const std::function<void()> calls[] = {
      [&] { card.AddValidDGCh(channel); }, [&] { card.FindDGAlarm(); },
      [&] { card.ClearCurDGAlarm(); },     [&] { card.ClearAllDGAlarm(); },
      [&] { card.RePosDGPos(); },          [&] { card.DGPos.SetDGPos(channel, value); },
      [&] { card.IsMotRunEnd(byte); },     [&] { card.OutDG(byte, value); },
  };
  calls[static_cast<unsigned>(number) % (sizeof calls / sizeof calls[0])]();
}

void TryMotors(CkOVA_STMTR& steppers, CkOVA_ASDA& servos, int channel, unsigned char value) {
  const auto byte = static_cast<unsigned char>(channel);
  steppers.GetCount(channel);
  steppers.ClearCount(channel);
  steppers.SetMotorParamter(byte, value, value, value, value, value);
  steppers.SetMotorRunParamter(byte, value, value, static_cast<unsigned>(channel), value, value);
  servos.GetCount(channel);
  servos.SetMotorParamter(byte, value, value, value, value, value, value);
  servos.SetMotorRunParamter(byte, value, static_cast<unsigned>(channel), value);
  servos.GetHardVer();
}

void TryBoard(int channel, unsigned char value) {
  Hardware.OutLED(value, HI);
  Hardware.OutHC(value, LOW);
  Hardware.OutExt(value, HI);
  Hardware.OutLineMotorPlus(channel, value, value);
  Hardware.GetLineCount();
  Hardware.IsLineMove();
  inportb(static_cast<unsigned short>(channel));
  outportb(static_cast<unsigned short>(channel), value);
}

// The cards of the direct calls stand in slot 5, whatever the scan has found.
void CallDirectly(const char* line, fuzz::HostileBoard& board) {
  int number = 0;
  int channel = 0;
  int value = 0;
  std::sscanf(line, "@%d %d %d", &number, &channel, &value);
  board.slot = 5;
  CkOVA_CYMSTR cylinders;
  CkOVA_STMTR steppers;
  CkOVA_ASDA servos;
  CkOVA_MANAGER* const cards[] = {&cylinders, &steppers, &servos};
  for (CkOVA_MANAGER* card : cards) card->SetSlotID(5);
  for (int i = 0; i < 3; ++i) TryCylinders(cylinders, number + i, channel, static_cast<unsigned char>(value));
  TryMotors(steppers, servos, channel, static_cast<unsigned char>(value));
  board.slot = -1;
  TryBoard(channel, static_cast<unsigned char>(value));
}

void RunLine(const std::string& line, fuzz::HostileBoard& board) {
  if (line[0] == '@') return CallDirectly(line.c_str(), board);
  fuzz::ExactText parameter("", kMaxParam);
  fuzz::ExactText comment("", kMaxParam);
  int slot = 0;
  int channel = 0;
  const SYNXIDX command = SynxClass.Explain(line.c_str(), &slot, &channel, parameter.Get(), comment.Get());
  board.slot = slot >= 0 && slot < CardInfo.CardNum ? CardInfo.SlotID[slot] : -1;
  RunCommand(command, slot, channel, parameter.Get());
  board.slot = -1;
}

void TryLines(fuzz::Bytes lines, fuzz::HostileBoard& board) {
  std::vector<std::string> commands;
  for (;;) {
    commands.push_back(lines.Line());
    if (commands.back().empty() || commands.size() == kMostCommands) break;
  }
  board.bus = fuzz::Bytes(lines.Rest());
  const ScannedCards cards;
  for (const std::string& command : commands) {
    if (!command.empty()) RunLine(command, board);
  }
  const HKEY key = kOVA_CardMan[0]->ReadHKey();
  Require(key >= HKEY_NUL && key <= HKEY_Enter, "a key is one of the keypad");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  for (pthread_mutex_t* lock : {&HardLock, &DispLock, &FileLock}) pthread_mutex_init(lock, nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::HostileBoard board;
  try {
    TryLines(fuzz::Bytes(fuzz::TextOf(data, size)), board);
  } catch (const fuzz::RunOver&) {
    Require(false, "each command ends");
  }
  return 0;
}
