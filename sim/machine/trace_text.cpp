#include "machine/trace_text.h"

#include <cstdio>

#include "machine/key_names.h"
#include "machine/register_names.h"
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

// The signals that a byte shows as on: " [clamp_closed 0.7]".
std::string SignalsOn(const Snapshot& snapshot, const JournalRecord& record) {
  const SignalGroup group = SignalsOfPort(KindOf(snapshot, record.Slot), record.Port);
  std::vector<std::string> on;
  for (int bit = 0; bit < group.count; ++bit) {
    if ((record.Value >> bit & 1) == 0) continue;
    on.push_back(SignalLabel(snapshot, group.kind, EntryOf(snapshot, record.Slot), group.firstChannel + bit));
  }
  return on.empty() ? "" : " [" + Join(on, " ") + "]";
}

std::string AccessText(const Snapshot& snapshot, const JournalRecord& record) {
  if (record.Kind == JournalKind::Write && record.Port == 0)
    return "slot select = " + std::to_string(record.Value);
  const bool write = record.Kind == JournalKind::Write;
  const std::string where = CardText(snapshot, record.Slot) + ": " +
                            RegisterName(KindOf(snapshot, record.Slot), record.Port, write);
  if (record.Kind == JournalKind::ReadFailed) return where + ": the read failed";
  const std::string value = std::to_string(record.Value) + " (" + Hex(record.Value) + ")";
  return where + (write ? " = " : " reads ") + value + SignalsOn(snapshot, record);
}

std::string SignalEvent(const Snapshot& snapshot, const JournalRecord& record, SignalKind kind) {
  const int entry = EntryOf(snapshot, record.Slot);
  return std::string(kind == SignalKind::Input ? "input " : "output ") +
         SignalText(snapshot, kind, entry, record.Port) + (record.Value != 0 ? " on" : " off");
}

std::string KeyText(std::int32_t code) {
  const std::optional<Key> key = KeyOfCode(static_cast<std::uint8_t>(code));
  return key ? key->name : Hex(code);
}

std::string ChannelEvent(const Snapshot& snapshot, const JournalRecord& record, const char* what) {
  return CardText(snapshot, record.Slot) + ": " + what + " " + std::to_string(record.Port);
}

std::string CounterName(const Snapshot& snapshot, const JournalRecord& record) {
  for (const CounterView& counter : snapshot.counters) {
    if (counter.link == record.Port) return counter.name;
  }
  return std::to_string(record.Port);
}

std::string Where(const FileNames& files, const JournalRecord& record) {
  const std::string file = files(record.File);
  return file.empty() ? "-" : file + ":" + std::to_string(record.Line);
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
  switch (record.Kind) {
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
      return "key " + KeyText(record.Value) + (record.Port == 1 ? " (held)" : "");
    case JournalKind::KeyTaken:
      return "key " + KeyText(record.Value) + " taken";
    case JournalKind::FunctionKeys:
      return "function keys " + Hex(record.Value);
    case JournalKind::MotorMove:
      return counted("motor") + (record.Value != 0 ? " starts" : " stands");
    case JournalKind::MotorCount:
      return counted("motor") + " count " + std::to_string(record.Value);
    case JournalKind::MotorPulses:
      return counted("motor") + " had " + std::to_string(record.Value) + " pulses";
    case JournalKind::MotorPosition:
      return counted("motor") + " at " + std::to_string(record.Value);
    case JournalKind::ConsoleText:
      return std::to_string(record.Value) + " bytes to the console";
    case JournalKind::CylinderState:
      return counted("cylinder") + " status " + Hex(record.Value & 0xFF) + ", position " +
             std::to_string(record.Value >> 8 & 0xFF);
    case JournalKind::CounterValue:
      return "counter " + CounterName(snapshot, record) + " " + std::to_string(record.Value);
    case JournalKind::FaultBegins:
      return "fault begins on " + CardText(snapshot, record.Slot);
    case JournalKind::FaultEnds:
      return "fault ends on " + CardText(snapshot, record.Slot);
    case JournalKind::Device:
      return record.Value != 0 ? "device opened" : "device closed";
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

std::string TraceLine(const Snapshot& snapshot, const FileNames& files, const JournalRecord& record) {
  char head[40];
  std::snprintf(head, sizeof head, "%12.6f  %-4s  ", static_cast<double>(record.Time) / 1e9,
                Who(record.Task).c_str());
  return head + Where(files, record) + "  " + EventText(snapshot, record);
}

const char* const kTraceHeader = "nanos,kind,task,file,line,slot,port,value,text";

std::string TraceRow(const Snapshot& snapshot, const FileNames& files, const JournalRecord& record) {
  const auto number = [](auto value) { return std::to_string(static_cast<long long>(value)) + ","; };
  return number(record.Time) + number(record.Kind) + Who(record.Task) + "," + Quoted(files(record.File)) +
         "," + number(record.Line) + number(record.Slot) + number(record.Port) + number(record.Value) +
         Quoted(EventText(snapshot, record));
}

}  // namespace rack
