#include "machine/trace_text.h"

#include <algorithm>
#include <cstdio>

#include "machine/faults.h"
#include "machine/key_names.h"
#include "toml/characters.h"
#include "toml/words.h"

namespace rack {

namespace {

int EntryOf(const Snapshot& snapshot, int slot) {
  for (std::size_t entry = 0; entry < snapshot.cards.size(); ++entry) {
    if (snapshot.cards[entry].slot == slot) return static_cast<int>(entry);
  }
  return -1;
}

CardKind KindOf(const Snapshot& snapshot, int slot) {
  const int entry = EntryOf(snapshot, slot);
  return entry < 0 ? CardKind::None : snapshot.cards[static_cast<std::size_t>(entry)].kind;
}

std::string CardText(const Snapshot& snapshot, int slot) {
  return "slot " + std::to_string(slot) + " " + KindName(KindOf(snapshot, slot));
}

std::string Hex(std::int32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%02X", static_cast<unsigned>(value));
  return text;
}

// The register that an access reaches; null for a port that the card does not use.
const RegisterName* RegisterOf(const Snapshot& snapshot, const JournalRecord& record) {
  const Access access = record.kind == JournalKind::Write ? Access::Write : Access::Read;
  for (const RegisterName& row : RowOf(KindOf(snapshot, record.slot)).registers()) {
    if (row.port == record.port && (row.access == Access::Both || row.access == access)) return &row;
  }
  return nullptr;
}

// The signals that a byte shows as on: " [clamp_closed 0.7]".
std::string SignalsOn(const Snapshot& snapshot, const JournalRecord& record, const RegisterName& shown) {
  constexpr int kBits = 8;
  if (shown.signals == SignalKind::None) return "";
  std::vector<std::string> on;
  for (int bit = 0; bit < kBits; ++bit) {
    if ((record.value >> bit & 1) == 0) continue;
    on.push_back(
        SignalLabel(snapshot, shown.signals, EntryOf(snapshot, record.slot), shown.firstChannel + bit));
  }
  return on.empty() ? "" : " [" + Join(on, " ") + "]";
}

std::string AccessText(const Snapshot& snapshot, const JournalRecord& record) {
  if (record.kind == JournalKind::Write && record.port == 0)
    return "slot select = " + std::to_string(record.value);
  const bool write = record.kind == JournalKind::Write;
  const RegisterName* const row = RegisterOf(snapshot, record);
  const std::string where = CardText(snapshot, record.slot) + ": " +
                            (row != nullptr ? row->name : "port " + std::to_string(record.port));
  if (record.kind == JournalKind::ReadFailed) return where + ": the read failed";
  const std::string value = std::to_string(record.value) + " (" + Hex(record.value) + ")";
  return where + (write ? " = " : " reads ") + value +
         (row != nullptr ? SignalsOn(snapshot, record, *row) : "");
}

std::string SignalEvent(const Snapshot& snapshot, const JournalRecord& record, SignalKind kind) {
  const int entry = EntryOf(snapshot, record.slot);
  return std::string(kind == SignalKind::Input ? "input " : "output ") +
         SignalText(snapshot, kind, entry, record.port) + (record.value != 0 ? " on" : " off");
}

// How long it lasts is not in its record.
FaultRecord FaultOf(const JournalRecord& record) {
  FaultRecord fault{};
  fault.kind = static_cast<FaultKind>(record.value);
  fault.slot = record.slot;
  fault.channel = record.port;
  fault.value = static_cast<std::int32_t>(record.line);
  fault.begin = record.time;
  return fault;
}

std::string KeyText(std::int32_t code) {
  const std::optional<Key> key = KeyOfCode(static_cast<std::uint8_t>(code));
  return key ? key->name : Hex(code);
}

std::string ChannelEvent(const Snapshot& snapshot, const JournalRecord& record, const char* what) {
  return CardText(snapshot, record.slot) + ": " + what + " " + std::to_string(record.port);
}

std::string CounterName(const Snapshot& snapshot, const JournalRecord& record) {
  for (const CounterView& counter : snapshot.counters) {
    if (counter.link == record.port) return counter.name;
  }
  return std::to_string(record.port);
}

// "card 2", by the number that programs use; a card beyond the card table by its slot.
std::string CardName(const Snapshot& snapshot, int slot) {
  const int entry = EntryOf(snapshot, slot);
  return entry < 0 ? "the card in slot " + std::to_string(slot) : "card " + std::to_string(entry);
}

// "register 24 (start)".
std::string RegisterText(const Snapshot& snapshot, const JournalRecord& record) {
  for (const RegisterName& row : RowOf(KindOf(snapshot, record.slot)).registers()) {
    const bool reads = ProtestIn(record.value) == Protest::NotWritable;
    const bool shown = row.access == Access::Both || (row.access == Access::Read) == reads;
    if (row.port == record.port && shown)
      return "register " + std::to_string(row.port) + " (" + row.name + ")";
  }
  return "register " + std::to_string(record.port);
}

std::string ProtestText(const Snapshot& snapshot, const JournalRecord& record) {
  const std::string card = CardName(snapshot, record.slot);
  const std::string value = std::to_string(record.value & 0xFF);
  switch (ProtestIn(record.value)) {
    case Protest::NoRegister:
      return card + " has no register " + std::to_string(record.port);
    case Protest::NotReadable:
      return card + " has nothing to read at " + RegisterText(snapshot, record);
    case Protest::NotWritable:
      return card + " has nothing to write at " + RegisterText(snapshot, record);
    case Protest::NoChannel:
      return card + " has no channel " + value;
    case Protest::NoneSelected:
      return card + " has no channel selected for " + RegisterText(snapshot, record);
    case Protest::BadValue:
      return card + " does not take " + value + " at " + RegisterText(snapshot, record);
    case Protest::CommandHeld:
      return card + " still holds the last command when " + Hex(record.value & 0xFF) + " comes";
    case Protest::GeneratorHeld:
      return card + " is to start a motor whose generator is held clear";
    case Protest::None:
      break;
  }
  return card + " protests";
}

std::string HardStopText(const JournalRecord& record) {
  const std::string number = std::to_string(static_cast<std::int32_t>(record.line));
  return record.value != 0 ? " hits its stop at " + number : " has lost " + number + " steps at its stop";
}

std::string Where(const FileNames& files, const JournalRecord& record) {
  const std::string file = files(record.file);
  return file.empty() ? "-" : file + ":" + std::to_string(record.line);
}

// "87,381".
std::string Thousands(std::uint32_t number) {
  std::string digits = std::to_string(number);
  for (int place = static_cast<int>(digits.size()) - 3; place > 0; place -= 3) {
    digits.insert(static_cast<std::size_t>(place), ",");
  }
  return digits;
}

std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
  return quoted + "\"";
}

}  // namespace

std::string Who(std::uint8_t task) {
  if (task == 0) return "key";
  if (task <= 8) return "plc" + std::to_string(task);
  if (task == 9) return "net";
  return task == kMainThread ? "main" : "-";
}

std::string EventText(const Snapshot& snapshot, const JournalRecord& record) {
  const auto counted = [&](const char* what) { return ChannelEvent(snapshot, record, what); };
  switch (record.kind) {
    case JournalKind::Read:
    case JournalKind::ReadFailed:
    case JournalKind::Write:
      return AccessText(snapshot, record);
    case JournalKind::InputEdge:
      return SignalEvent(snapshot, record, SignalKind::Input);
    case JournalKind::OutputChange:
    case JournalKind::RelayChange:
      return SignalEvent(snapshot, record, SignalKind::Output);
    case JournalKind::Key:
      return "key " + KeyText(record.value) + (record.port == 1 ? " (held)" : "");
    case JournalKind::KeyTaken:
      return "key " + KeyText(record.value) + " taken";
    case JournalKind::FunctionKeys:
      return "function keys " + Hex(record.value);
    case JournalKind::MotorMove:
      return counted("motor") + (record.value != 0 ? " starts" : " stands");
    case JournalKind::MotorCount:
      return counted("motor") + " count " + std::to_string(record.value);
    case JournalKind::MotorPulses:
      return counted("motor") + " had " + std::to_string(record.value) + " pulses";
    case JournalKind::MotorPosition:
      return counted("motor") + " at " + std::to_string(record.value);
    case JournalKind::ConsoleText:
      return std::to_string(record.value) + " bytes to the console";
    case JournalKind::CylinderState:
      return counted("cylinder") + " status " + Hex(record.value & 0xFF) + ", position " +
             std::to_string(record.value >> 8 & 0xFF);
    case JournalKind::CounterValue:
      return "counter " + CounterName(snapshot, record) + " " + std::to_string(record.value);
    case JournalKind::FaultBegins:
      return "fault: " + FaultText(snapshot, FaultOf(record), record.time);
    case JournalKind::FaultEnds:
      return "fault over: " + FaultText(snapshot, FaultOf(record), record.time);
    case JournalKind::InputTaken:
      return SignalEvent(snapshot, record, SignalKind::Input) + " by hand";
    case JournalKind::InputGivenBack:
      return "input " + SignalText(snapshot, SignalKind::Input, EntryOf(snapshot, record.slot), record.port) +
             " left to the machine again";
    case JournalKind::HardStop:
      return counted("motor") + HardStopText(record);
    case JournalKind::CardProtests:
      return ProtestText(snapshot, record);
    case JournalKind::Repeats:
      return "the last accesses of this task again";
    case JournalKind::Device:
      return record.value != 0 ? "device opened" : "device closed";
    case JournalKind::ProgramLine:
      return "line read";
    case JournalKind::ProgramEnd:
      return "end of the file read";
    case JournalKind::ProgramOpened:
      return "program opened";
    case JournalKind::ProgramMissing:
      return "program could not be opened";
    case JournalKind::Sync:
      return "file systems flushed";
    case JournalKind::Restart:
      return "restart asked for";
    case JournalKind::None:
      break;
  }
  return "unknown record";
}

PollRounds RoundsOf(const JournalRecord& record) {
  const auto accesses = static_cast<std::uint32_t>(record.value);
  const std::uint32_t period = std::max<std::uint32_t>(record.slot, 1);
  return {accesses / period, accesses % period, record.time - record.file};
}

void Tracer::See(const JournalRecord& record) {
  const bool selectsSlot = record.kind == JournalKind::Write && record.port == 0;
  if (IsAccess(record.kind) && !selectsSlot) accesses_[record.task] = record;
}

JournalRecord Tracer::Subject(const JournalRecord& record) const {
  if (record.kind != JournalKind::Repeats) return record;
  const auto access = accesses_.find(record.task);
  if (access != accesses_.end()) return access->second;
  JournalRecord unknown{};
  unknown.task = record.task;
  return unknown;
}

std::string Tracer::TextOf(const JournalRecord& record) const {
  if (record.kind != JournalKind::Repeats) return EventText(snapshot_, record);
  const JournalRecord access = Subject(record);
  const PollRounds poll = RoundsOf(record);
  const std::string what =
      access.kind == JournalKind::None ? "accesses from before this recording" : EventText(snapshot_, access);
  const std::string times = poll.rounds != 0 ? "x " + Thousands(poll.rounds) : "part of a round";
  char until[32];
  std::snprintf(until, sizeof until, " until %.3f s", static_cast<double>(poll.last) / 1e9);
  return "again: " + what + "  " + times + until;
}

std::string Tracer::Line(const JournalRecord& record) const {
  char head[40];
  std::snprintf(head, sizeof head, "%12.6f  %-4s  ", static_cast<double>(record.time) / 1e9,
                Who(record.task).c_str());
  return Printable(head + Where(files_, Subject(record)) + "  " + TextOf(record));
}

const char* Tracer::Header() {
  return "nanos,kind,task,file,line,slot,port,value,text,repeats,period,until";
}

std::string Tracer::Row(const JournalRecord& record) const {
  const auto number = [](auto value) { return std::to_string(static_cast<long long>(value)) + ","; };
  const JournalRecord subject = Subject(record);
  std::string row = number(record.time) + WordOf(record.kind) + "," + Who(record.task) + "," +
                    Quoted(files_(subject.file)) + "," + number(subject.file == 0 ? 0 : subject.line) +
                    number(subject.slot) + number(subject.port) + number(subject.value) +
                    Quoted(TextOf(record)) + ",";
  row = Printable(row);
  if (record.kind != JournalKind::Repeats) return row + ",,";
  const PollRounds poll = RoundsOf(record);
  return row + number(poll.rounds) + number(record.slot) + std::to_string(poll.last);
}

}  // namespace rack
