// What stands between a parsed line and its execution: the card of the entry, the label, the step gate.
#include "drvlib.h"
#include "kova_man.h"
#include "locks.h"
#include "synx.h"
#include "waits.h"

namespace {

constexpr int kNoCard = -1;
constexpr int kHold = 1;
constexpr int kGoOn = 0;

CkOVA_MANAGER* CardOfEntry(int slotIdx) {
  return slotIdx >= 0 && slotIdx < CardInfo.CardNum ? kOVA_CardMan[slotIdx] : nullptr;
}

using CardCommand = int (CkOVA_MANAGER::*)(int, void*);

int GiveToCard(CardCommand command, int slotIdx, int chIdx, void* parameter) {
  CkOVA_MANAGER* card = CardOfEntry(slotIdx);
  return card == nullptr ? kNoCard : (card->*command)(chIdx, parameter);
}

// No command beyond the table is gated.
bool IsGated(SYNXIDX cmdIdx) {
  return cmdIdx >= 0 && cmdIdx < SYNMAX && kSynxTraits[cmdIdx].Gate != StepGate::Open;
}

int Decide(HKEY key, int isStep, SYNXIDX cmdIdx) REQUIRES(SynxRole) {
  if (isStep == 0 || !IsGated(cmdIdx)) return kGoOn;
  if (key == HKEY_RUN || key == HKEY_STEP || key == HKEY_ZERO) return kGoOn;
  if (key < HKEY_1 || key > HKEY_0) PauseMicros(1);
  return kHold;
}

}  // namespace

int Task_LD(int SlotIdx, int ChIdx, void* pArgc) {
  return GiveToCard(&CkOVA_MANAGER::Cmd_LD, SlotIdx, ChIdx, pArgc);
}

int Task_OUT(int SlotIdx, int ChIdx, void* pArgc) {
  return GiveToCard(&CkOVA_MANAGER::Cmd_OUT, SlotIdx, ChIdx, pArgc);
}

int Task_MOT(int SlotIdx, int ChIdx, void* pArgc) {
  return GiveToCard(&CkOVA_MANAGER::Cmd_MOT, SlotIdx, ChIdx, pArgc);
}

int Task_LMOT(int SlotIdx, int ChIdx, void* pArgc) {
  return GiveToCard(&CkOVA_MANAGER::Cmd_LMOT, SlotIdx, ChIdx, pArgc);
}

int Task_DG(int SlotIdx, int ChIdx, void* pArgc) {
  return GiveToCard(&CkOVA_MANAGER::Cmd_DG, SlotIdx, ChIdx, pArgc);
}

int Task_LDG(int SlotIdx, int ChIdx, void* pArgc) {
  return GiveToCard(&CkOVA_MANAGER::Cmd_LDG, SlotIdx, ChIdx, pArgc);
}

int Task_ROW(int SlotIdx, int ChIdx, void* pArgc) {
  return GiveToCard(&CkOVA_MANAGER::Cmd_ROW, SlotIdx, ChIdx, pArgc);
}

int Task_ROCLR(int SlotIdx, int ChIdx, void* pArgc) {
  return GiveToCard(&CkOVA_MANAGER::Cmd_ROCLR, SlotIdx, ChIdx, pArgc);
}

int Task_IF(int SlotIdx, int ChIdx, void* pArgc, char* pOutParameter) {
  CkOVA_MANAGER* card = CardOfEntry(SlotIdx);
  return card == nullptr ? kNoCard : card->Cmd_IF(ChIdx, pArgc, pOutParameter);
}

int GoFileLine(FILE* Fptr, int LineIdx) {
  if (Fptr == nullptr) return 0;
  std::rewind(Fptr);
  char line[kMaxLine];
  while (std::fgets(line, sizeof line, Fptr) != nullptr) {
    int number = 0;
    if (IsLabel(line, &number) && number == LineIdx) return 1;
  }
  return 0;
}

int FilterStep(HKEY InKey, int IsStep, SYNXIDX* CmdIdx) {
  const ScopedLock lock(SynxLock, SynxRole);
  return Decide(InKey, IsStep, *CmdIdx);
}
