// The interface of a card, the card table, and what all cards share: slot selection, identity and the card's
// lock.
#pragma once

#include <pthread.h>

#include <cstring>

#include "drvlib.h"
#include "locks.h"
#include "public.h"

// A card of the rack. Any number of threads may call any operation of one card.
// Command operations return 1 for done or condition met, 0 for not done, not met or parameter missing, -1 for
// a failure that the card found. ChIdx is the channel as written in the program line, pArgc its parameter
// text or null. A command that a card does not know gets the default body.
class CkOVA_MANAGER {
 public:
  CkOVA_MANAGER() = default;
  // Not virtual: cards live until the process ends and are never deleted through this class.
  ~CkOVA_MANAGER();
  CkOVA_MANAGER(const CkOVA_MANAGER&) = delete;
  CkOVA_MANAGER& operator=(const CkOVA_MANAGER&) = delete;

  // Shows error ErrorNo on the CPU card.
  virtual int CPUReport(int ErrorNo);
  // The scan calls SetSlotID with the physical slot, then InitHardware, once per plug-in card.
  virtual void SetSlotID(unsigned char nSlotID);
  virtual void InitHardware();
  virtual int GetHardVer();
  virtual int GetHardType();
  // The card's constant name; also copied into TypeName (12 bytes are enough for any card) unless that is
  // null.
  virtual char* GetHardTypeName(char* TypeName);
  virtual int GetTaskNum();
  virtual int GetCPUSeting();
  virtual HKEY ReadHKey();
  // One register of this card: slot selection and transfer together under HardLock.
  virtual unsigned char InB(unsigned short port);
  virtual void OutB(unsigned short port, unsigned char byte);
  virtual int Cmd_OUT(int ChIdx, void* pArgc);
  virtual int Cmd_LD(int ChIdx, void* pArgc);
  virtual int Cmd_MOT(int ChIdx, void* pArgc);
  virtual int Cmd_LMOT(int ChIdx, void* pArgc);
  virtual int Cmd_DG(int ChIdx, void* pArgc);
  virtual int Cmd_LDG(int ChIdx, void* pArgc);
  virtual int Cmd_ROW(int ChIdx, void* pArgc);
  virtual int Cmd_ROCLR(int ChIdx, void* pArgc);
  // 1: pOutParameter (kMaxName bytes) holds the name of the block to call. Below 1: no block.
  virtual int Cmd_IF(int ChIdx, void* pArgc, char* pOutParameter);

  unsigned int CPUAddr = 0;
  unsigned int VerAddr = 0;
  unsigned int TypeAddr = 1;
  unsigned char SlotID = 0;
};

// The cards found, by entry index (the slot index of program lines): entry 0 the CPU card, then the plug-in
// cards in rising slot order. Filled by the scan before the threads start.
extern CkOVA_MANAGER* kOVA_CardMan[MAXCARDNO];

// Slot selection and identity of a card, from the card's own CPUAddr, VerAddr, TypeAddr, SlotID and kName.
template <class Card>
class CardBody : public CkOVA_MANAGER {
 public:
  // Written by the scan before the threads start.
  void SetSlotID(unsigned char nSlotID) override { Self().SlotID = nSlotID; }
  void InitHardware() override {}
  int GetHardVer() override { return InB(static_cast<unsigned short>(Self().VerAddr)); }
  int GetHardType() override { return InB(static_cast<unsigned short>(Self().TypeAddr)); }

  char* GetHardTypeName(char* TypeName) override {
    if (TypeName != nullptr) std::memcpy(TypeName, Card::kName, sizeof Card::kName);
    return const_cast<char*>(Card::kName);
  }

  // Every access selects the slot again, so no card depends on what was selected before.
  unsigned char InB(unsigned short port) override {
    const ScopedBus bus;
    SelectSlot();
    return inportb(port);
  }
  void OutB(unsigned short port, unsigned char byte) override {
    const ScopedBus bus;
    SelectSlot();
    outportb(port, byte);
  }

 protected:
  Card& Self() { return static_cast<Card&>(*this); }

  // Held over accesses of this card that belong together, always taken before HardLock; never held over a
  // pause or over a wait for hardware to finish.
  OwnLock CardLock;

 private:
  void SelectSlot() REQUIRES(HardRole) {
    outportb(static_cast<unsigned short>(Self().CPUAddr), Self().SlotID);
  }
};
