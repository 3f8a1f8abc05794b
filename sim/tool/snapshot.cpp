#include "tool/snapshot.h"

#include <array>

namespace rack::tool {

namespace {

const NamedSignal* FindSignal(const Snapshot& snapshot, SignalKind kind, int entry, int channel) {
  for (const NamedSignal& signal : snapshot.signals) {
    if (signal.kind == kind && signal.entry == entry && signal.channel == channel) return &signal;
  }
  return nullptr;
}

std::string Address(int entry, int channel) {
  return std::to_string(entry) + "." + std::to_string(channel);
}

}  // namespace

const char* CardName(CardKind kind) {
  constexpr std::array<const char*, 6> kNames = {"empty", "cpu", "io", "stepper", "cylinder", "servo"};
  return kNames[static_cast<std::size_t>(kind)];
}

std::string SignalText(const Snapshot& snapshot, SignalKind kind, int entry, int channel) {
  const NamedSignal* signal = FindSignal(snapshot, kind, entry, channel);
  const std::string address = Address(entry, channel);
  return signal == nullptr ? address : signal->name + " (" + address + ")";
}

std::string SignalName(const Snapshot& snapshot, SignalKind kind, int entry, int channel) {
  const NamedSignal* signal = FindSignal(snapshot, kind, entry, channel);
  return signal == nullptr ? Address(entry, channel) : signal->name;
}

}  // namespace rack::tool
