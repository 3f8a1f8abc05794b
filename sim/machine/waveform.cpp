#include "machine/waveform.h"

#include <set>

namespace rack {

namespace {

constexpr int kFunctionKeyBits = 4;
constexpr const char* kFunctionKeyNames[kFunctionKeyBits] = {"CANCEL", "ZERO", "STEP", "RUN"};
constexpr int kPlcTasks = 8;

// A channel of the CylinderState source that stands for the position; the plain channel is the status.
constexpr int kPositionOffset = 16;

std::string ScopeOf(const CardView& card) {
  return "slot" + std::to_string(card.slot) + "_" + KindName(card.kind);
}

std::string WireName(const Snapshot& snapshot, SignalKind kind, int entry, int channel, const char* word) {
  const std::string label = SignalLabel(snapshot, kind, entry, channel);
  const std::string plain = word + std::to_string(channel);
  return label.find('.') == std::string::npos ? plain + "_" + label : plain;
}

}  // namespace

Waveform::Waveform(std::ostream& out, const Snapshot& snapshot) : writer_(out) {
  faults_ = static_cast<std::int64_t>(snapshot.faults.size());
  for (std::size_t entry = 0; entry < snapshot.cards.size(); ++entry)
    AddCard(snapshot, static_cast<int>(entry));
  for (const CounterView& counter : snapshot.counters) {
    AddWire({JournalKind::CounterValue, 0, counter.link}, "counters", counter.name, 32, counter.count);
  }
  for (int task = 1; task <= kPlcTasks; ++task) {
    AddWire({JournalKind::ProgramLine, task, 0}, "programs", "plc" + std::to_string(task) + "_line", 32, 0);
  }
  AddWire({JournalKind::FaultBegins, 0, 0}, "faults", "active", 8, faults_);
}

void Waveform::AddWire(const Source& source, const std::string& scope, const std::string& name, int width,
                       std::int64_t value) {
  wires_[source] = writer_.AddWire(scope, name, width);
  values_.push_back(value);
}

void Waveform::AddKeypad(const CardView& cpu) {
  AddWire({JournalKind::Key, 0, 0}, "keypad", "code", 8, cpu.keyCode);
  for (int bit = 0; bit < kFunctionKeyBits; ++bit) {
    AddWire({JournalKind::FunctionKeys, 0, bit}, "keypad", kFunctionKeyNames[bit], 1,
            cpu.functionKeys >> bit & 1);
  }
}

void Waveform::AddCard(const Snapshot& snapshot, int entry) {
  const CardView& card = snapshot.cards[static_cast<std::size_t>(entry)];
  const std::string scope = ScopeOf(card);
  for (int channel = 0; channel < RowOf(card.kind).inputs; ++channel) {
    AddWire({JournalKind::InputEdge, card.slot, channel}, scope,
            WireName(snapshot, SignalKind::Input, entry, channel, "in"), 1, card.inputs >> channel & 1);
  }
  for (int channel = 0; channel < RowOf(card.kind).outputs; ++channel) {
    const bool relay = channel >= kFirstRelay;
    AddWire({relay ? JournalKind::RelayChange : JournalKind::OutputChange, card.slot, channel}, scope,
            WireName(snapshot, SignalKind::Output, entry, channel, relay ? "relay" : "out"), 1,
            card.outputs >> channel & 1);
  }
  AddChannels(snapshot, entry, scope);
  if (card.kind == CardKind::Cpu) AddKeypad(card);
}

void Waveform::AddChannels(const Snapshot& snapshot, int entry, const std::string& scope) {
  const CardView& card = snapshot.cards[static_cast<std::size_t>(entry)];
  for (std::size_t i = 0; i < card.motors.size(); ++i) {
    const int channel = static_cast<int>(i);
    const std::string name = "motor" + std::to_string(channel);
    AddWire({JournalKind::MotorMove, card.slot, channel}, scope, name + "_moves", 1,
            card.motors[i].busy ? 1 : 0);
    AddWire({JournalKind::MotorCount, card.slot, channel}, scope, name + "_count", 32, card.counts[i]);
  }
  for (std::size_t i = card.motors.size(); i < card.counts.size(); ++i) {
    const int channel = static_cast<int>(i);
    AddWire({JournalKind::MotorCount, card.slot, channel}, scope, "count" + std::to_string(channel), 32,
            card.counts[i]);
  }
  for (std::size_t i = 0; i < card.cylinders.size(); ++i) {
    const int channel = static_cast<int>(i);
    const std::string name = "cylinder" + std::to_string(channel);
    const CylinderView& cylinder = card.cylinders[i];
    AddWire({JournalKind::CylinderState, card.slot, channel}, scope, name + "_status", 8, cylinder.status);
    AddWire({JournalKind::CylinderState, card.slot, channel + kPositionOffset}, scope, name + "_position", 8,
            cylinder.thousandths / kCylinderPosition);
  }
}

void Waveform::Begin(const std::vector<JournalRecord>& past, Nanos start) {
  // Of a level that changed, the first change tells what it was before; everything else starts at 0.
  std::set<Source> changed;
  for (const JournalRecord& record : past) {
    const Source source = {record.kind, record.slot, record.port};
    const auto wire = wires_.find(source);
    const bool level = record.kind == JournalKind::InputEdge || record.kind == JournalKind::OutputChange ||
                       record.kind == JournalKind::RelayChange;
    if (level && wire != wires_.end() && changed.insert(source).second) {
      values_[static_cast<std::size_t>(wire->second)] = record.value != 0 ? 0 : 1;
    }
  }
  if (!past.empty()) {
    for (const auto& [source, wire] : wires_) {
      const JournalKind kind = std::get<0>(source);
      const bool level = kind == JournalKind::InputEdge || kind == JournalKind::OutputChange ||
                         kind == JournalKind::RelayChange;
      if (!level) values_[static_cast<std::size_t>(wire)] = 0;
    }
    faults_ = 0;
  }
  writer_.Begin(values_, start);
}

void Waveform::Set(const Source& source, std::int64_t value, Nanos time) {
  const auto wire = wires_.find(source);
  if (wire != wires_.end()) writer_.Change(wire->second, value, time);
}

void Waveform::See(const JournalRecord& record) {
  switch (record.kind) {
    case JournalKind::InputEdge:
    case JournalKind::OutputChange:
    case JournalKind::RelayChange:
    case JournalKind::MotorMove:
    case JournalKind::MotorCount:
      Set({record.kind, record.slot, record.port}, record.value, record.time);
      break;
    case JournalKind::CylinderState:
      Set({record.kind, record.slot, record.port}, record.value & 0xFF, record.time);
      Set({record.kind, record.slot, record.port + kPositionOffset}, record.value >> 8 & 0xFF, record.time);
      break;
    case JournalKind::CounterValue:
      Set({record.kind, 0, record.port}, record.value, record.time);
      break;
    case JournalKind::Key:
      Set({JournalKind::Key, 0, 0}, record.value, record.time);
      break;
    case JournalKind::KeyTaken:
      Set({JournalKind::Key, 0, 0}, 0, record.time);
      break;
    case JournalKind::FunctionKeys:
      for (int bit = 0; bit < kFunctionKeyBits; ++bit)
        Set({record.kind, 0, bit}, record.value >> bit & 1, record.time);
      break;
    case JournalKind::ProgramLine:
      Set({record.kind, record.task, 0}, record.line, record.time);
      break;
    case JournalKind::FaultBegins:
    case JournalKind::FaultEnds:
      faults_ += record.kind == JournalKind::FaultBegins ? 1 : -1;
      Set({JournalKind::FaultBegins, 0, 0}, faults_, record.time);
      break;
    default:
      break;
  }
}

void Waveform::Lost(std::uint64_t records) {
  writer_.Remark(std::to_string(records) + " records lost here");
}

void Waveform::End(Nanos end) {
  writer_.End(end);
}

}  // namespace rack
