// Digital inputs and outputs, as the CPU card and the I/O card have them.
#pragma once

#include "kova_man.h"
#include "numbers.h"

// Bit of a channel in its register byte; a negative channel has none.
inline unsigned char ChannelBit(int ChIdx) {
  return ChIdx < 0 ? static_cast<unsigned char>(0) : static_cast<unsigned char>(1 << (ChIdx % 8));
}

// The parameter of IF, "level&name if equal&name otherwise".
struct IfFields {
  int Level;
  char szFun0[kMaxName];  // if the input has the level
  char szFun1[kMaxName];  // otherwise
};

// false: text null, a field missing, or a name that does not fit.
bool ReadIfFields(const char* text, IfFields* fields);
// Copies the block name into out (kMaxName bytes). 0: the name is "NUL" in any letter case, no block. Else 1.
int PassBlockName(const char* name, char* out);

// OUT, LD and IF of a card, whose OutPort(ChIdx) and InPort(ChIdx) say which register a channel stands in.
// Output registers read back the byte last written; the driver keeps no copy.
template <class Card>
class DigitalCard : public CardBody<Card> {
 public:
  // Level of an input; LOW for a negative channel.
  HILOW DigIn(int ChIdx) {
    const unsigned char Byte = this->InB(this->Self().InPort(ChIdx));
    return (Byte & ChannelBit(ChIdx)) != 0 ? HI : LOW;
  }

  // pArgc: 1 switches on, any other number off. A negative channel writes its byte back unchanged.
  int Cmd_OUT(int ChIdx, void* pArgc) override {
    if (pArgc == nullptr) return 0;
    const int HiLow = ToNumber<int>(static_cast<const char*>(pArgc));
    const unsigned short port = this->Self().OutPort(ChIdx);
    const unsigned char SwBit = ChannelBit(ChIdx);

    const ScopedLock hold(this->CardLock);
    ChangeBit(port, SwBit, HiLow == 1);
    return 1;
  }

  // pArgc: the wanted level; any but 0 and 1 is never met.
  int Cmd_LD(int ChIdx, void* pArgc) override {
    if (pArgc == nullptr) return 0;
    return DigIn(ChIdx) == ToNumber<int>(static_cast<const char*>(pArgc)) ? 1 : 0;
  }

  // Tested in this order: 0 for a channel outside 0 to 15, for missing fields and for a name of kMaxName
  // characters or more; -1 without an output buffer; 0 for the name NUL.
  int Cmd_IF(int ChIdx, void* pArgc, char* pOutParameter) override {
    IfFields fields;
    if (ChIdx < 0 || ChIdx > 15) return 0;
    if (!ReadIfFields(static_cast<const char*>(pArgc), &fields)) return 0;
    if (pOutParameter == nullptr) return -1;
    return PassBlockName(DigIn(ChIdx) == fields.Level ? fields.szFun0 : fields.szFun1, pOutParameter);
  }

 private:
  void ChangeBit(unsigned short port, unsigned char bit, bool on) REQUIRES(this->CardLock) {
    const unsigned char OutReg = this->InB(port);
    this->OutB(port, static_cast<unsigned char>(on ? OutReg | bit : OutReg & ~bit));
  }
};
