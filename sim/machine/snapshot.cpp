#include "machine/snapshot.h"

namespace rack {

namespace {

const NamedSignal* Named(const Snapshot& snapshot, SignalKind kind, int entry, int channel) {
  for (const NamedSignal& signal : snapshot.signals) {
    if (signal.kind == kind && signal.entry == entry && signal.channel == channel) return &signal;
  }
  return nullptr;
}

std::string Address(int entry, int channel) {
  return std::to_string(entry) + "." + std::to_string(channel);
}

}  // namespace

std::string SignalText(const Snapshot& snapshot, SignalKind kind, int entry, int channel) {
  const NamedSignal* signal = Named(snapshot, kind, entry, channel);
  const std::string address = Address(entry, channel);
  return signal == nullptr ? address : signal->name + " (" + address + ")";
}

bool HasName(const Snapshot& snapshot, SignalKind kind, int entry, int channel) {
  return Named(snapshot, kind, entry, channel) != nullptr;
}

std::string HeldBy(const MotorView& motor) {
  if (motor.blocked) return "blocked";
  return motor.lostNow == 0 ? "" : "against its stop, " + std::to_string(motor.lostNow) + " steps lost";
}

std::string PlaceText(const CylinderView& cylinder) {
  const int tenth = cylinder.thousandths % kCylinderPosition / 100;
  return std::to_string(cylinder.thousandths / kCylinderPosition) +
         (tenth == 0 ? "" : "." + std::to_string(tenth));
}

std::string SignalLabel(const Snapshot& snapshot, SignalKind kind, int entry, int channel) {
  const NamedSignal* signal = Named(snapshot, kind, entry, channel);
  return signal == nullptr ? Address(entry, channel) : signal->name;
}

}  // namespace rack
