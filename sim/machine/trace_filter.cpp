#include "machine/trace_filter.h"

#include <algorithm>

#include "machine/signals.h"
#include "machine/trace_text.h"
#include "toml/times.h"
#include "toml/words.h"

namespace rack {

namespace {

const std::vector<std::string> kTasks = {"1", "2", "3", "4", "5", "6", "7", "8", "key", "net", "main"};

// Whether the record's slot is that of a card that has to do with it.
bool IsOnCard(JournalKind kind) {
  switch (kind) {
    case JournalKind::Read:
    case JournalKind::ReadFailed:
    case JournalKind::Write:
    case JournalKind::InputEdge:
    case JournalKind::OutputChange:
    case JournalKind::RelayChange:
    case JournalKind::Key:
    case JournalKind::KeyTaken:
    case JournalKind::FunctionKeys:
    case JournalKind::MotorMove:
    case JournalKind::MotorCount:
    case JournalKind::MotorPulses:
    case JournalKind::MotorPosition:
    case JournalKind::CylinderState:
    case JournalKind::FaultBegins:
    case JournalKind::FaultEnds:
    case JournalKind::CardProtests:
    case JournalKind::InputTaken:
    case JournalKind::InputGivenBack:
    case JournalKind::HardStop:
      return true;
    case JournalKind::None:
    case JournalKind::CounterValue:
    case JournalKind::Device:
    case JournalKind::ProgramLine:
    case JournalKind::ProgramEnd:
    case JournalKind::ProgramOpened:
    case JournalKind::ProgramMissing:
    case JournalKind::Sync:
    case JournalKind::Restart:
    case JournalKind::ConsoleText:
    case JournalKind::Repeats:
      break;
  }
  return false;
}

bool IsOfInput(const JournalRecord& record) {
  const bool stuck = (record.kind == JournalKind::FaultBegins || record.kind == JournalKind::FaultEnds) &&
                     record.value == static_cast<std::int32_t>(FaultKind::InputStuck);
  return stuck || record.kind == JournalKind::InputEdge || record.kind == JournalKind::InputTaken ||
         record.kind == JournalKind::InputGivenBack;
}

bool IsOfOutput(const JournalRecord& record) {
  return record.kind == JournalKind::OutputChange || record.kind == JournalKind::RelayChange;
}

std::string ReadTime(const std::string& word, Nanos& time) {
  if (word.empty()) return "";
  const std::optional<Nanos> given = CommandTime(word);
  if (!given) return InQuotes(word) + " is no time: such as 500ms, 2s or 1min";
  time = *given;
  return "";
}

}  // namespace

std::string TraceFilter::ChooseSignal(const Snapshot& machine, const std::string& word) {
  const SignalChoice input = rack::ChooseSignal(machine, SignalKind::Input, word);
  const SignalChoice output = rack::ChooseSignal(machine, SignalKind::Output, word);
  if (!input.found && !output.found) {
    std::vector<std::string> names;
    for (const NamedSignal& signal : machine.signals) names.push_back(signal.name);
    return "no signal is called " + InQuotes(word) + Suggestion(word, names);
  }
  const SignalChoice& found = input.found ? input : output;
  signals_.push_back(
      {input.found, output.found, machine.cards[static_cast<std::size_t>(found.entry)].slot, found.channel});
  return "";
}

std::string TraceFilter::Choose(const Snapshot& machine, const TraceWords& words) {
  if (!words.task.empty()) {
    if (!IsOneOf(words.task, kTasks))
      return "there is no task " + InQuotes(words.task) + ": " + Join(kTasks, ", ");
    task_ = WholeNumber(words.task) ? "plc" + words.task : words.task;
  }
  for (const std::string& word : words.signals) {
    std::string wrong = ChooseSignal(machine, word);
    if (!wrong.empty()) return wrong;
  }
  for (const std::string& word : words.entries) {
    const SignalChoice card = ChooseCard(machine, word);
    if (!card.found) return card.error;
    slots_.insert(machine.cards[static_cast<std::size_t>(card.entry)].slot);
  }
  for (const std::string& word : words.kinds) {
    const JournalKind kind = KindOfWord(word);
    if (kind == JournalKind::None) {
      return "there is no kind of record " + InQuotes(word) + Suggestion(word, KindWords()) +
             " (kinds: " + Join(KindWords(), ", ") + ")";
    }
    kinds_.insert(kind);
  }
  std::string wrong = ReadTime(words.from, from_);
  if (wrong.empty()) wrong = ReadTime(words.to, to_);
  return wrong;
}

bool TraceFilter::IsOfSignals(const JournalRecord& record) const {
  return std::any_of(signals_.begin(), signals_.end(), [&](const Signal& signal) {
    const bool sort = (signal.input && IsOfInput(record)) || (signal.output && IsOfOutput(record));
    return sort && signal.slot == record.slot && signal.channel == record.port;
  });
}

bool TraceFilter::Shows(const JournalRecord& record, const JournalRecord& subject) const {
  if (record.time < from_ || record.time > to_) return false;
  if (task_ && Who(record.task) != *task_) return false;
  if (!signals_.empty() && !IsOfSignals(record)) return false;
  if (!slots_.empty() && (!IsOnCard(subject.kind) || slots_.count(subject.slot) == 0)) return false;
  if (kinds_.empty()) return record.kind != JournalKind::ConsoleText;
  return kinds_.count(record.kind) != 0 || kinds_.count(subject.kind) != 0;
}

}  // namespace rack
