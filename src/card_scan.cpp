// The scan of the rack: which card stands in which slot. The kinds of cards that it knows.
#include <cstdlib>
#include <new>

#include "console.h"
#include "drvlib.h"
#include "kova_asda.h"
#include "kova_cpu.h"
#include "kova_cymstr.h"
#include "kova_ios.h"
#include "kova_man.h"
#include "kova_stmtr.h"

namespace {

constexpr int kSlots = 12;
constexpr int kSettlingReads = 10;  // of the CPU card's type, ahead of the first value that counts

template <class Card>
CkOVA_MANAGER* Create() {
  return new (std::nothrow) Card;
}

}  // namespace

// clang-format off
constexpr CARDTYPE CardType[MAXCARDTYPE] = {
    {0x81, "kOVA-STMTR", &Create<CkOVA_STMTR>},
    {0x82, "kOVA-CYMTR", &Create<CkOVA_CYMSTR>},
    {0x83, "kOVA-IOS1", &Create<CkOVA_IOS>},
    {0x84, "kOVA-ASDA", &Create<CkOVA_ASDA>},
};
// clang-format on

namespace {

// By code and name: a sanitizer's build cannot compare the address of a function while it compiles.
constexpr bool NoRowIsEmpty() {
  for (const CARDTYPE& row : CardType) {
    if (row.CardID == 0 || row.szCardName[0] == '\0') return false;
  }
  return true;
}
static_assert(NoRowIsEmpty(), "one row for each of the MAXCARDTYPE kinds");

const CARDTYPE* FindCardType(unsigned char cardId) {
  for (const CARDTYPE& row : CardType) {
    if (row.CardID == cardId) return &row;
  }
  return nullptr;
}

// What the scan found, an empty line after it.
void PrintCards(const CARDINFO& info) {
  for (int i = 0; i < info.CardNum; ++i) {
    Console("CardID: 0x%x SlotID: %d Type: %s\n", info.CardID[i], info.SlotID[i],
            kOVA_CardMan[i]->GetHardTypeName(nullptr));
  }
  Console("\n");
}

}  // namespace

CARDINFO CardInfo = {};

int HARDWARE::ScanCard(CARDINFO* Info) {
  if (Info == nullptr) return -1;

  CkOVA_CPU* cpu = new (std::nothrow) CkOVA_CPU;
  if (cpu == nullptr) {
    PrintError("CPU card cannot be made");
    std::exit(EXIT_FAILURE);
  }
  cpu->FunctionPort = ConfiguredFunctionPort();
  kOVA_CardMan[0] = cpu;
  for (int i = 0; i < kSettlingReads; ++i) cpu->GetHardType();
  const int TaskNum = cpu->GetTaskNum();
  Info->CardID[0] = kCpuCardId;
  Info->SlotID[0] = 0;

  if (HardInstalled < 1) {
    cpu->CPUReport(1);
    Console("No Hardware Installed!\n");
    return 0;
  }

  int entries = 1;
  for (unsigned char slot = 1; slot <= kSlots; ++slot) {
    Hardware.OutB(static_cast<short>(SysAddr), slot);
    const unsigned char id = Hardware.InB(static_cast<short>(SubTypeAddr));
    const CARDTYPE* type = FindCardType(id);
    if (type == nullptr) continue;
    if (entries == MAXCARDNO) {
      Console("Card table full: slot %d ignored\n", slot);
      continue;
    }
    CkOVA_MANAGER* card = type->Create();
    if (card == nullptr) {
      Console("No memory: slot %d ignored\n", slot);
      continue;
    }
    kOVA_CardMan[entries] = card;
    Info->CardID[entries] = id;
    Info->SlotID[entries] = slot;
    card->SetSlotID(slot);
    card->InitHardware();
    entries++;
  }
  Info->CardNum = entries;
  PrintCards(*Info);
  return TaskNum;
}
