#include "machine/waveform.h"

#include <algorithm>
#include <set>
#include <utility>

#include "machine/faults.h"
#include "machine/key_names.h"

namespace rack {

namespace {

constexpr int kPlcTasks = 8;

// A channel of the CylinderState source that stands for the position; the plain channel is the status.
constexpr int kPositionOffset = 16;

std::string ScopeOf(const CardView& card) {
  return "slot" + std::to_string(card.slot) + "_" + KindName(card.kind);
}

std::string WireName(const Snapshot& snapshot, SignalKind kind, int entry, int channel, const char* word) {
  std::string plain = word + std::to_string(channel);
  if (!HasName(snapshot, kind, entry, channel)) return plain;
  return plain + "_" + SignalLabel(snapshot, kind, entry, channel);
}

// What a task executes; nothing yet when the snapshot does not show the task.
TaskView TaskOf(const Snapshot& snapshot, int task) {
  for (const TaskView& view : snapshot.tasks) {
    if (view.task == task) return view;
  }
  return {};
}

// Records of these kinds come when the value has changed, never to tell it again.
bool IsLevel(JournalKind kind) {
  return kind == JournalKind::InputEdge || kind == JournalKind::OutputChange ||
         kind == JournalKind::RelayChange || kind == JournalKind::MotorMove || kind == JournalKind::HardStop;
}

bool IsFault(JournalKind kind) {
  return kind == JournalKind::FaultBegins || kind == JournalKind::FaultEnds;
}

}  // namespace

Waveform::Waveform(std::ostream& out, const Snapshot& snapshot, FileNames files)
    : writer_(out), files_(std::move(files)), start_(snapshot.nowNanos) {
  for (const FaultRecord& fault : snapshot.faultRecords) {
    faults_.emplace(static_cast<int>(fault.kind), fault.slot, fault.channel);
  }
  for (std::size_t entry = 0; entry < snapshot.cards.size(); ++entry)
    AddCard(snapshot, static_cast<int>(entry));
  for (const CounterView& counter : snapshot.counters) {
    AddWire({JournalKind::CounterValue, 0, counter.link}, "counters", counter.name, 32, counter.count);
  }
  for (int task = 1; task <= kPlcTasks; ++task) {
    const TaskView view = TaskOf(snapshot, task);
    const std::string name = "plc" + std::to_string(task);
    programs_[task] = writer_.AddText("programs", name + "_file", view.file);
    values_.emplace_back();
    AddWire({JournalKind::ProgramLine, task, 0}, "programs", name + "_line", 32, view.line);
  }
  AddWire(kFaults, "faults", "active", 8, static_cast<std::int64_t>(faults_.size()));
  for (int kind = 1; kind <= kFaultKinds; ++kind) {
    AddWire(FaultsOf(kind), "faults", WordOf(static_cast<FaultKind>(kind)), 8, CountFaults(kind));
  }
}

void Waveform::AddWire(const Source& source, const std::string& scope, const std::string& name, int width,
                       std::int64_t value) {
  wires_[source] = writer_.AddWire(scope, name, width);
  values_.push_back(value);
}

void Waveform::AddKeypad(const CardView& cpu) {
  AddWire({JournalKind::Key, 0, 0}, "keypad", "code", 8, cpu.keyCode);
  for (int bit = 0; bit < kFunctionKeys; ++bit) {
    AddWire({JournalKind::FunctionKeys, 0, bit}, "keypad", FunctionKeyOfBit(bit)->name, 1,
            cpu.functionKeys >> bit & 1);
  }
}

void Waveform::AddCard(const Snapshot& snapshot, int entry) {
  const CardView& card = snapshot.cards[static_cast<std::size_t>(entry)];
  const std::string scope = ScopeOf(card);
  for (int channel = 0; channel < RowOf(card.kind).inputs; ++channel) {
    AddWire({JournalKind::InputEdge, card.slot, channel}, scope,
            WireName(snapshot, SignalKind::Input, entry, channel, "in"), 1, card.inputs >> channel & 1);
    AddWire({JournalKind::InputTaken, card.slot, channel}, scope,
            WireName(snapshot, SignalKind::Input, entry, channel, "in") + "_by_hand", 1,
            card.taken >> channel & 1);
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
    if (card.motors[i].hardStopLow || card.motors[i].hardStopHigh)
      AddWire({JournalKind::HardStop, card.slot, channel}, scope, name + "_at_stop", 1,
              card.motors[i].lostNow != 0 ? 1 : 0);
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

void Waveform::Begin() {
  writer_.Begin(values_, start_);
}

void Waveform::BeginBefore(const std::vector<JournalRecord>& past) {
  std::set<Source> told;
  std::set<FaultName> toldFaults;
  for (const JournalRecord& record : past) {
    ForEachValue(record, [&](const Source& source, std::int64_t value) {
      const auto wire = wires_.find(source);
      if (wire == wires_.end() || !told.insert(source).second) return;
      std::optional<std::int64_t>& before = values_[static_cast<std::size_t>(wire->second)];
      before.reset();
      if (IsLevel(record.kind)) before = value != 0 ? 0 : 1;
      if (record.kind == JournalKind::ProgramLine) writer_.SetStart(programs_[record.task], "");
    });
    if (IsFault(record.kind) && toldFaults.insert(FaultOf(record)).second) {
      SetFault(record, record.kind == JournalKind::FaultEnds);
    }
  }
  values_[static_cast<std::size_t>(wires_[kFaults])] = static_cast<std::int64_t>(faults_.size());
  for (int kind = 1; kind <= kFaultKinds; ++kind) {
    values_[static_cast<std::size_t>(wires_[FaultsOf(kind)])] = CountFaults(kind);
  }
  if (!past.empty()) start_ = past.front().time;
  Begin();
}

template <class Tell>
void Waveform::ForEachValue(const JournalRecord& record, Tell tell) {
  switch (record.kind) {
    case JournalKind::InputEdge:
    case JournalKind::OutputChange:
    case JournalKind::RelayChange:
    case JournalKind::MotorMove:
    case JournalKind::MotorCount:
    case JournalKind::HardStop:
      tell({record.kind, record.slot, record.port}, record.value);
      break;
    case JournalKind::CylinderState:
      tell({record.kind, record.slot, record.port}, record.value & 0xFF);
      tell({record.kind, record.slot, record.port + kPositionOffset}, record.value >> 8 & 0xFF);
      break;
    case JournalKind::CounterValue:
      tell({record.kind, 0, record.port}, record.value);
      break;
    case JournalKind::Key:
      tell({JournalKind::Key, 0, 0}, record.value);
      break;
    case JournalKind::KeyTaken:
      tell({JournalKind::Key, 0, 0}, 0);
      break;
    case JournalKind::FunctionKeys:
      for (int bit = 0; bit < kFunctionKeys; ++bit) tell({record.kind, 0, bit}, record.value >> bit & 1);
      break;
    case JournalKind::ProgramLine:
      tell({record.kind, record.task, 0}, record.line);
      break;
    case JournalKind::InputTaken:
      tell({JournalKind::InputTaken, record.slot, record.port}, 1);
      break;
    case JournalKind::InputGivenBack:
      tell({JournalKind::InputTaken, record.slot, record.port}, 0);
      break;
    case JournalKind::None:
    case JournalKind::Read:
    case JournalKind::ReadFailed:
    case JournalKind::Write:
    case JournalKind::FaultBegins:
    case JournalKind::FaultEnds:
    case JournalKind::Device:
    case JournalKind::ProgramEnd:
    case JournalKind::ProgramOpened:
    case JournalKind::ProgramMissing:
    case JournalKind::Sync:
    case JournalKind::Restart:
    case JournalKind::ConsoleText:
    case JournalKind::MotorPulses:
    case JournalKind::MotorPosition:
    case JournalKind::CardProtests:
    case JournalKind::Repeats:
      break;
  }
}

void Waveform::Set(const Source& source, std::int64_t value, Nanos time) {
  const auto wire = wires_.find(source);
  if (wire != wires_.end()) writer_.Change(wire->second, value, time);
}

Waveform::FaultName Waveform::FaultOf(const JournalRecord& record) {
  return {record.value, record.slot, record.port};
}

void Waveform::SetFault(const JournalRecord& record, bool active) {
  if (active) faults_.insert(FaultOf(record));
  if (!active) faults_.erase(FaultOf(record));
}

std::int64_t Waveform::CountFaults(int kind) const {
  return std::count_if(faults_.begin(), faults_.end(),
                       [&](const FaultName& fault) { return std::get<0>(fault) == kind; });
}

void Waveform::See(const JournalRecord& record) {
  if (record.kind == JournalKind::ProgramLine) {
    const auto wire = programs_.find(record.task);
    if (wire != programs_.end()) writer_.ChangeText(wire->second, files_(record.file), record.time);
  }
  ForEachValue(record, [&](const Source& source, std::int64_t value) { Set(source, value, record.time); });
  if (!IsFault(record.kind)) return;
  SetFault(record, record.kind == JournalKind::FaultBegins);
  Set(kFaults, static_cast<std::int64_t>(faults_.size()), record.time);
  Set(FaultsOf(record.value), CountFaults(record.value), record.time);
}

void Waveform::Lost(std::uint64_t records) {
  writer_.Remark(std::to_string(records) + " records lost here");
}

void Waveform::End(Nanos end) {
  writer_.End(end);
}

}  // namespace rack
