#include "machine/register_names.h"

namespace rack {

namespace {

// Access of a register that a row names.
enum class Way { Read, Write, Both };

struct Row {
  CardKind kind;
  std::uint8_t port;
  Way way;
  const char* name;
};

constexpr Row kRows[] = {
    {CardKind::Cpu, 0, Way::Read, "version"},
    {CardKind::Cpu, 0, Way::Write, "slot select"},
    {CardKind::Cpu, 1, Way::Read, "type"},
    {CardKind::Cpu, 1, Way::Write, "keypad clear"},
    {CardKind::Cpu, 2, Way::Read, "keypad code"},
    {CardKind::Cpu, 2, Way::Write, "status"},
    {CardKind::Cpu, 3, Way::Read, "inputs 0-7"},
    {CardKind::Cpu, 4, Way::Read, "inputs 8-15"},
    {CardKind::Cpu, 5, Way::Both, "outputs 0-7"},
    {CardKind::Cpu, 6, Way::Both, "outputs 8-15"},
    {CardKind::Cpu, 7, Way::Read, "settings"},
    {CardKind::Cpu, 8, Way::Read, "task count"},
    {CardKind::Io, 3, Way::Read, "version"},
    {CardKind::Io, 4, Way::Read, "type"},
    {CardKind::Io, 5, Way::Both, "outputs 0-7"},
    {CardKind::Io, 6, Way::Both, "outputs 8-15"},
    {CardKind::Io, 7, Way::Both, "relays 16-23"},
    {CardKind::Io, 8, Way::Read, "inputs 0-7"},
    {CardKind::Io, 9, Way::Read, "inputs 8-15"},
    {CardKind::Cylinder, 3, Way::Read, "version"},
    {CardKind::Cylinder, 4, Way::Read, "type"},
    {CardKind::Cylinder, 5, Way::Write, "channel select"},
    {CardKind::Cylinder, 5, Way::Read, "handshake"},
    {CardKind::Cylinder, 6, Way::Write, "command"},
    {CardKind::Cylinder, 6, Way::Read, "status"},
    {CardKind::Cylinder, 7, Way::Write, "delay"},
    {CardKind::Stepper, 3, Way::Read, "version"},
    {CardKind::Stepper, 4, Way::Read, "type"},
    {CardKind::Stepper, 7, Way::Write, "channel select"},
    {CardKind::Stepper, 8, Way::Write, "control"},
    {CardKind::Stepper, 9, Way::Write, "frequency"},
    {CardKind::Stepper, 10, Way::Write, "start steps 0-7"},
    {CardKind::Stepper, 11, Way::Write, "start steps 8-15"},
    {CardKind::Stepper, 12, Way::Write, "step count 0-7"},
    {CardKind::Stepper, 13, Way::Write, "step count 8-15"},
    {CardKind::Stepper, 14, Way::Write, "step count 16-23"},
    {CardKind::Stepper, 15, Way::Write, "step count 24-31"},
    {CardKind::Stepper, 16, Way::Write, "compensation 0-7"},
    {CardKind::Stepper, 17, Way::Write, "compensation 8-15"},
    {CardKind::Servo, 3, Way::Read, "version"},
    {CardKind::Servo, 4, Way::Read, "type"},
    {CardKind::Servo, 5, Way::Write, "channel select"},
    {CardKind::Servo, 8, Way::Write, "control"},
    {CardKind::Servo, 9, Way::Write, "frequency"},
    {CardKind::Servo, 12, Way::Write, "pulse count 0-7"},
    {CardKind::Servo, 13, Way::Write, "pulse count 8-15"},
    {CardKind::Servo, 14, Way::Write, "pulse count 16-23"},
    {CardKind::Servo, 15, Way::Write, "pulse count 24-31"},
};

// What the two motor cards have at the same ports.
struct MotorRow {
  std::uint8_t port;
  Way way;
  const char* name;
};
constexpr MotorRow kMotorRows[] = {
    {18, Way::Write, "generator clear"},
    {19, Way::Write, "encoder clear"},
    {20, Way::Read, "encoder 0-7"},
    {21, Way::Read, "encoder 8-15"},
    {22, Way::Read, "encoder 16-23"},
    {23, Way::Read, "encoder 24-31"},
    {24, Way::Read, "busy"},
    {24, Way::Write, "start"},
    {26, Way::Write, "stop count 0-7"},
    {27, Way::Write, "stop count 8-15"},
    {28, Way::Write, "stop count 16-23"},
    {29, Way::Write, "stop count 24-31"},
};

bool Covers(Way way, bool write) {
  return way == Way::Both || (way == Way::Write) == write;
}

struct GroupRow {
  CardKind card;
  std::uint8_t port;
  SignalGroup group;
};
constexpr GroupRow kGroups[] = {
    {CardKind::Cpu, 3, {SignalKind::Input, 0, 8}},  {CardKind::Cpu, 4, {SignalKind::Input, 8, 8}},
    {CardKind::Cpu, 5, {SignalKind::Output, 0, 8}}, {CardKind::Cpu, 6, {SignalKind::Output, 8, 8}},
    {CardKind::Io, 5, {SignalKind::Output, 0, 8}},  {CardKind::Io, 6, {SignalKind::Output, 8, 8}},
    {CardKind::Io, 7, {SignalKind::Output, 16, 8}}, {CardKind::Io, 8, {SignalKind::Input, 0, 8}},
    {CardKind::Io, 9, {SignalKind::Input, 8, 8}},
};

}  // namespace

std::string RegisterName(CardKind kind, std::uint8_t port, bool write) {
  for (const Row& row : kRows) {
    if (row.kind == kind && row.port == port && Covers(row.way, write)) return row.name;
  }
  if (kind == CardKind::Stepper || kind == CardKind::Servo) {
    for (const MotorRow& row : kMotorRows) {
      if (row.port == port && Covers(row.way, write)) return row.name;
    }
  }
  return port == 0 && write ? "slot select" : "port " + std::to_string(port);
}

SignalGroup SignalsOfPort(CardKind kind, std::uint8_t port) {
  for (const GroupRow& row : kGroups) {
    if (row.card == kind && row.port == port) return row.group;
  }
  return {SignalKind::Input, 0, 0};
}

}  // namespace rack
