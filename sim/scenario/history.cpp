#include "scenario/history.h"

#include <algorithm>
#include <cstdio>

#include "machine/trace_text.h"
#include "toml/words.h"

namespace rack::scenario {

namespace {

constexpr std::size_t kKept = 4000;
constexpr std::size_t kTold = 12;
constexpr std::size_t kPlaceEnd = 30;  // column
constexpr int kRepeated = 3;           // lines of a pass that waits
constexpr int kKeypadTask = 0;

// What is told of the machine: not the bus accesses, nor what the console says in better words.
bool IsTold(JournalKind kind) {
  switch (kind) {
    case JournalKind::InputEdge:
    case JournalKind::OutputChange:
    case JournalKind::RelayChange:
    case JournalKind::Key:
    case JournalKind::KeyTaken:
    case JournalKind::FunctionKeys:
    case JournalKind::MotorMove:
    case JournalKind::MotorPulses:
    case JournalKind::MotorPosition:
    case JournalKind::CylinderState:
    case JournalKind::CounterValue:
    case JournalKind::FaultBegins:
    case JournalKind::FaultEnds:
    case JournalKind::CardProtests:
    case JournalKind::HardStop:
    case JournalKind::ProgramMissing:
    case JournalKind::Restart:
      return true;
    case JournalKind::None:
    case JournalKind::Read:
    case JournalKind::ReadFailed:
    case JournalKind::Write:
    case JournalKind::MotorCount:
    case JournalKind::Device:
    case JournalKind::ProgramLine:
    case JournalKind::ProgramEnd:
    case JournalKind::ProgramOpened:
    case JournalKind::Sync:
    case JournalKind::ConsoleText:
    case JournalKind::InputTaken:  // by the scenario, whose event is told
    case JournalKind::InputGivenBack:
    case JournalKind::Repeats:
      break;
  }
  return false;
}

bool IsTask(int who) {
  return who >= 0 && who < kTaskRecords;
}

}  // namespace

std::string History::PlaceOf(int who) const {
  const bool reads = IsTask(who) && read_[static_cast<std::size_t>(who)].file != 0;
  if (!reads) return Who(static_cast<std::uint8_t>(who));
  const LineRead& read = read_[static_cast<std::size_t>(who)];
  return files_(read.file) + ":" + std::to_string(read.line);
}

std::vector<std::string> History::Standing(Nanos now) const {
  std::vector<std::string> lines;
  for (int task = 0; task < kTaskRecords; ++task) {
    const LineRead& read = read_[static_cast<std::size_t>(task)];
    if (read.file == 0) continue;
    const std::string text = texts_ ? texts_(files_(read.file), read.line) : "";
    lines.push_back("task " + std::to_string(task) + " " + PlaceOf(task) + (text.empty() ? "" : " " + text) +
                    ", for " + Seconds(now - read.time));
  }
  return lines;
}

void History::See(const JournalRecord& record) {
  if (record.kind == JournalKind::ProgramLine && IsTask(record.task)) {
    read_[record.task] = {record.file, record.line, record.time};
  }
  if (IsAccess(record.kind) && record.slot < kSlots && IsTask(record.task)) {
    uses_[record.slot][record.task] = true;
  }
  if (IsTold(record.kind))
    Add({record.time, record.task, PlaceOf(record.task), EventText(machine_, record), false, 1, record.time});
}

// A task that waits prints the same few lines again and again: each is told once.
void History::SeeLine(Nanos time, int who, const std::string& line) {
  int looked = 0;
  for (auto entry = entries_.rbegin(); entry != entries_.rend() && looked < kRepeated; ++entry) {
    if (entry->who != who || !entry->printed) continue;
    ++looked;
    if (entry->text != line) continue;
    ++entry->times;
    entry->last = time;
    return;
  }
  Add({time, who, PlaceOf(who), line, true, 1, time});
}

void History::SeeEvent(Nanos time, const std::string& text) {
  Add({time, kUnknownTask, PlaceOf(kUnknownTask), "scenario: " + text, false, 1, time});
}

void History::Add(const Entry& entry) {
  entries_.push_back(entry);
  if (entries_.size() > kKept) entries_.pop_front();
}

std::vector<bool> History::Concerned(const std::vector<const Happening*>& happenings) const {
  std::vector<bool> tasks(kTaskRecords, false);
  bool any = false;
  for (const Happening* happening : happenings) {
    for (int task = 0; task < kTaskRecords; ++task) {
      // The keypad's task polls the CPU card all the time.
      const bool uses = task != kKeypadTask &&
                        uses_[static_cast<std::size_t>(happening->slot)][static_cast<std::size_t>(task)];
      if (happening->who != task && !(IsOnCard(happening->kind) && uses)) continue;
      tasks[static_cast<std::size_t>(task)] = any = true;
    }
  }
  return any ? tasks : std::vector<bool>(kTaskRecords, true);
}

// A line that is still being repeated counts as new, however long ago it came first.
std::vector<std::string> History::Story(const std::vector<const Happening*>& happenings) const {
  const std::vector<bool> concerned = Concerned(happenings);
  std::vector<const Entry*> told;
  for (const Entry& entry : entries_) {
    if (!IsTask(entry.who) || concerned[static_cast<std::size_t>(entry.who)]) told.push_back(&entry);
  }
  std::stable_sort(told.begin(), told.end(),
                   [](const Entry* a, const Entry* b) { return a->last < b->last; });
  if (told.size() > kTold) told.erase(told.begin(), told.end() - kTold);
  std::stable_sort(told.begin(), told.end(),
                   [](const Entry* a, const Entry* b) { return a->time < b->time; });
  std::vector<std::string> lines;
  lines.reserve(told.size());
  for (const Entry* entry : told) lines.push_back(Line(*entry));
  return lines;
}

std::string History::Line(const Entry& entry) {
  char text[64];
  std::snprintf(text, sizeof text, "%-9.3f  ", static_cast<double>(entry.time) / 1e9);
  std::string line = text + entry.place;
  line.resize(std::max(line.size(), kPlaceEnd), ' ');
  line += "  " + entry.text;
  if (entry.times == 1) return line;
  std::snprintf(text, sizeof text, " (%d times until %.3f)", entry.times,
                static_cast<double>(entry.last) / 1e9);
  return line + text;
}

}  // namespace rack::scenario
