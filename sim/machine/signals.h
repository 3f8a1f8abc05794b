// Signals as people give them to the tool: by name, or as "entry.channel" the way programs address them.
#pragma once

#include <string>
#include <string_view>

#include "machine/snapshot.h"

namespace rack {

// A signal that was found, or why none was.
struct SignalChoice {
  bool found = false;
  SignalKind kind = SignalKind::Input;
  int entry = 0;
  int channel = 0;
  std::string error;  // says what would have been right
};

// The signal of the given kind that the text means.
SignalChoice ChooseSignal(const Snapshot& snapshot, SignalKind kind, std::string_view text);

// A channel of a sort that has no names, such as a motor: "entry.channel".
SignalChoice ChooseChannel(const Snapshot& snapshot, ChannelSort sort, std::string_view text);

// The entry a card is meant by: its entry index, or its kind when the rack has one card of that kind.
SignalChoice ChooseCard(const Snapshot& snapshot, std::string_view text);

}  // namespace rack
