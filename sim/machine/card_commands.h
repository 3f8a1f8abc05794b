// What the controller makes of each command on each kind of card.
#pragma once

#include "cards/card_kinds.h"
#include "motfields.h"
#include "synx.h"

namespace rack {

// What becomes of a channel that the card does not have.
enum class Beyond {
  Refused,    // see CardCommand::outside
  LastGroup,  // counts on in the last group of eight; a negative one selects nothing
  LowByte     // cut to 8 bits, then as Refused
};

struct CardCommand {
  SYNXIDX command;
  ChannelSort about;  // its channels are those of this sort
  Beyond wrap;
  const char* outside;  // what happens on a channel that is reached by nothing
  // Channels beyond the card's own, up to this one, of which the card's driver reads 0; 0: none.
  int readsZeroBelow = 0;
};

struct CardCommands {
  CardKind kind;
  const char* name;              // with its article
  RowsOf<CardCommand> commands;  // all others do nothing
  int motFieldLimit = 0;         // a field of so many characters is refused
  RowsOf<MotIdx> motUnused = {};
  // The card has one channel select: these write it, those are answered for the channel written last.
  RowsOf<SYNXIDX> selecting = {};
  RowsOf<SYNXIDX> askingLast = {};

  const CardCommand* Find(SYNXIDX command) const;
  bool LeavesUnused(MotIdx field) const;
  bool Selects(SYNXIDX command) const;
  bool AsksLastSelected(SYNXIDX command) const;
  constexpr int Channels(const CardCommand& command) const { return RowOf(kind).Channels(command.about); }
  // The channel that is reached; -1 when there is none.
  int Reached(const CardCommand& command, int chIdx) const;
};

const CardCommands& CommandsOf(CardKind kind);

}  // namespace rack
