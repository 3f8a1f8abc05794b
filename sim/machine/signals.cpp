#include "machine/signals.h"

#include "rackfile/rackfile.h"
#include "toml/words.h"

namespace rack {

namespace {

ChannelSort SortOf(SignalKind kind) {
  return kind == SignalKind::Input ? ChannelSort::Input : ChannelSort::Output;
}

SignalChoice Refuse(std::string error) {
  SignalChoice choice;
  choice.error = std::move(error);
  return choice;
}

// "0 cpu, 2 io": the cards that have such channels.
std::string CardsWith(const Snapshot& snapshot, ChannelSort sort) {
  std::vector<std::string> cards;
  for (std::size_t entry = 0; entry < snapshot.cards.size(); ++entry) {
    const CardView& card = snapshot.cards[entry];
    if (RowOf(card.kind).Channels(sort) > 0)
      cards.push_back(std::to_string(entry) + " " + KindName(card.kind));
  }
  return cards.empty() ? "none" : Join(cards, ", ");
}

SignalChoice ChooseAddress(const Snapshot& snapshot, ChannelSort sort, std::string_view text, int entry,
                           int channel) {
  const std::string shown(text);
  const std::string what = WordOf(sort);
  if (entry < 0 || static_cast<std::size_t>(entry) >= snapshot.cards.size()) {
    return Refuse(shown + ": the card table has no entry " + std::to_string(entry) + " (entries 0 to " +
                  std::to_string(static_cast<int>(snapshot.cards.size()) - 1) + ")");
  }
  const CardView& card = snapshot.cards[static_cast<std::size_t>(entry)];
  const std::string where = "entry " + std::to_string(entry) + " (" + KindName(card.kind) + ")";
  const int count = RowOf(card.kind).Channels(sort);
  if (count == 0) {
    return Refuse(shown + ": " + where + " has no " + what +
                  "s; cards with them: " + CardsWith(snapshot, sort));
  }
  if (channel < 0 || channel >= count) {
    return Refuse(shown + ": " + where + " has the " + what + "s 0 to " + std::to_string(count - 1));
  }
  SignalChoice choice;
  choice.found = true;
  choice.entry = entry;
  choice.channel = channel;
  return choice;
}

struct Address {
  int entry;
  int channel;
};

std::optional<Address> AddressOf(std::string_view text) {
  Address address{};
  if (!ParseAddress(std::string(text), address.entry, address.channel)) return std::nullopt;
  return address;
}

std::vector<std::string> NamesOf(const Snapshot& snapshot, SignalKind kind) {
  std::vector<std::string> names;
  for (const NamedSignal& signal : snapshot.signals) {
    if (signal.kind == kind) names.push_back(signal.name);
  }
  return names;
}

}  // namespace

SignalChoice ChooseSignal(const Snapshot& snapshot, SignalKind kind, std::string_view text) {
  SignalChoice choice;
  choice.kind = kind;
  for (const NamedSignal& signal : snapshot.signals) {
    if (signal.kind != kind || signal.name != text) continue;
    choice.found = true;
    choice.entry = signal.entry;
    choice.channel = signal.channel;
    return choice;
  }
  if (const std::optional<Address> address = AddressOf(text)) {
    choice = ChooseAddress(snapshot, SortOf(kind), text, address->entry, address->channel);
    choice.kind = kind;
    return choice;
  }
  const std::vector<std::string> names = NamesOf(snapshot, kind);
  const std::string what = WordOf(SortOf(kind));
  std::string error = "no " + what + " is called \"" + std::string(text) + "\"" + Suggestion(text, names);
  error += names.empty() ? "; the rack file names none, give entry.channel such as 0.5"
                         : " (" + what + "s: " + Join(names, ", ") + ", or entry.channel such as 0.5)";
  return Refuse(error);
}

SignalChoice ChooseChannel(const Snapshot& snapshot, ChannelSort sort, std::string_view text) {
  const std::optional<Address> address = AddressOf(text);
  if (!address) {
    return Refuse("\"" + std::string(text) + "\" is no " + WordOf(sort) +
                  ": give entry.channel such as 2.1; cards with them: " + CardsWith(snapshot, sort));
  }
  return ChooseAddress(snapshot, sort, text, address->entry, address->channel);
}

SignalChoice ChooseCard(const Snapshot& snapshot, std::string_view text) {
  std::vector<std::string> cards;
  SignalChoice choice;
  int matches = 0;
  const std::optional<int> number = WholeNumber(text);
  for (std::size_t entry = 0; entry < snapshot.cards.size(); ++entry) {
    const char* name = KindName(snapshot.cards[entry].kind);
    cards.push_back(std::to_string(entry) + " " + name);
    const bool meant = number ? *number == static_cast<int>(entry) : Lower(text) == name;
    if (!meant) continue;
    ++matches;
    choice.entry = static_cast<int>(entry);
  }
  choice.found = matches == 1;
  if (choice.found) return choice;
  return Refuse("\"" + std::string(text) + "\" names " + (matches == 0 ? "no card" : "several cards") +
                ": give an entry of the card table (" + Join(cards, ", ") + ")");
}

}  // namespace rack
