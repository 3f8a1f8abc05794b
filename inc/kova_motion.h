// What the stepper and the servo card have in common: encoder counters, pulse counts, control bits, ROW and
// ROCLR.
#pragma once

#include <ctime>

#include "kova_man.h"
#include "motfields.h"
#include "numbers.h"

// Four byte registers of a 32-bit value.
struct CountPorts {
  unsigned short Bits0;
  unsigned short Bits8;
  unsigned short Bits16;
  unsigned short Bits24;
};

// Value of an encoder counter, read lowest byte first; the card counts in offset binary, 0x80000000 is 0.
long ReadEncoder(CkOVA_MANAGER& card, const CountPorts& ports);
// The card takes counts highest byte first.
void WriteCount(CkOVA_MANAGER& card, const CountPorts& ports, unsigned int count);
// Writes two bytes to one register, one after the other.
void Strobe(CkOVA_MANAGER& card, unsigned short port, unsigned char first, unsigned char second);

// The control byte: bit 7 direction, 6 stop sensor, 5 force, 3 count stop, 2 external stop. A flag other than 0 or 1 is not masked: it reaches the bits above its own or is cut off.
unsigned char MotorControl(unsigned char MotorDir, unsigned char STOPDir, unsigned char Force,
                           unsigned char EnCntStop, unsigned char EnExStop);

constexpr int kClearedChannels = 8;      // channels of ROW, ROCLR and InitHardware on both cards
constexpr clock_t kStartTicks = 10;      // for a card to show a started move
constexpr unsigned char kMoveRuns = D0;  // of the busy register

// Counters and their commands, of a card with kChannels channels, whose ChannelPort() selects the channel and
// whose ClearPort() clears its generator.
template <class Card>
class MotionCard : public CardBody<Card> {
 public:
  // Clears generator and counter of eight channels on both cards.
  void InitHardware() override {
    const ScopedLock hold(this->CardLock);
    for (int ChIdx = 0; ChIdx < kClearedChannels; ++ChIdx) {
      SelectChannel(ChIdx);
      Strobe(*this, this->Self().ClearPort(), 0xFF, 0x00);
      Strobe(*this, this->Self().EnCodeClrAddr, 0xFF, 0x00);
    }
  }

  // Signed encoder count; 0 and no bus access for a channel the card does not have.
  long GetCount(int ChIdx) {
    if (!HasChannel(ChIdx)) return 0;
    const Card& card = this->Self();
    const ScopedLock hold(this->CardLock);
    SelectChannel(ChIdx);
    return ReadEncoder(*this, {card.EnCode08Addr, card.EnCodeL8Addr, card.EnCodeM8Addr, card.EnCodeH8Addr});
  }

  // Selects no channel: the card clears the counter that its last selection left.
  void ClearCount(int ChIdx) {
    if (!HasChannel(ChIdx)) return;
    const ScopedLock hold(this->CardLock);
    ClearSelected();
  }

  // pArgc: the count whose magnitude must have been reached. 0 without it and for a channel outside 0 to 7.
  int Cmd_ROW(int ChIdx, void* pArgc) override {
    if (pArgc == nullptr || !IsRowChannel(ChIdx)) return 0;
    const int wanted = ToNumber<int>(static_cast<const char*>(pArgc));
    const long long count = GetCount(ChIdx);
    const long long magnitude = count < 0 ? -count : count;
    return magnitude >= wanted ? 1 : 0;
  }

  int Cmd_ROCLR(int ChIdx, void*) override {
    if (!IsRowChannel(ChIdx)) return 0;
    ClearCount(ChIdx);
    return 1;
  }

 private:
  // What follows the selection of a channel belongs to it as long as the lock is held.
  void SelectChannel(int ChIdx) REQUIRES(this->CardLock) {
    this->OutB(this->Self().ChannelPort(), static_cast<unsigned char>(ChIdx));
  }
  void ClearSelected() REQUIRES(this->CardLock) { Strobe(*this, this->Self().EnCodeClrAddr, 1, 0); }

  static bool HasChannel(int ChIdx) { return ChIdx >= 0 && ChIdx < Card::kChannels; }
  static bool IsRowChannel(int ChIdx) { return ChIdx >= 0 && ChIdx < kClearedChannels; }
};
