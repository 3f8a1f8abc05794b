// What each kind of card takes: one table per kind.
#pragma once

#include <vector>

#include "cards/card.h"
#include "motfields.h"
#include "synx.h"

namespace check {

// What becomes of a channel that the card does not have.
enum class Beyond {
  Refused,    // see CardCommand::outside
  LastGroup,  // counts on in the last group of eight; a negative one selects nothing
  LowByte     // cut to 8 bits, then as Refused
};

struct CardCommand {
  SYNXIDX command;
  int channels;  // 0 to channels - 1
  Beyond wrap;
  const char* outside;  // what happens then
};

struct CardType {
  rack::CardKind kind;
  const char* name;                     // with its article
  std::vector<CardCommand> commands;    // all others do nothing
  int motFieldLimit = 0;                // a field of so many characters is refused
  bool channelOfLastSelection = false;  // LMOT and ROCLR ask for the channel selected last
  std::vector<MOTIDX> motUnused = {};

  const CardCommand* Find(SYNXIDX command) const;
};

const CardType& CardTypeOf(rack::CardKind kind);

// The channel that is reached; -1 when there is none.
int ReachedChannel(const CardCommand& command, int chIdx);

// Largest value of a MOT field that arrives whole, and whether the field is a flag (or a few bits) that shares
// its register with others.
struct MotLimit {
  unsigned int largest;
  bool sharesByte;
};
MotLimit MotLimitOf(MOTIDX field);

// What a command does on a card that has no use for it; null for a command that goes to no card.
const char* WithoutCard(SYNXIDX command);

}  // namespace check
