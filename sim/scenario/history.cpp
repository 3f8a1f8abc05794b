#include "scenario/history.h"

#include <cstdio>

#include "tool/trace_text.h"

namespace rack::scenario {

namespace {

constexpr std::size_t kKept = 400;
constexpr std::size_t kTold = 12;
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
    case JournalKind::ProgramMissing:
    case JournalKind::Restart:
      return true;
    default:
      return false;
  }
}

bool IsTask(int who) {
  return who >= 0 && who < kTaskRecords;
}

}  // namespace

bool IsAccess(JournalKind kind) {
  return kind == JournalKind::Read || kind == JournalKind::Write || kind == JournalKind::ReadFailed;
}

void History::See(const JournalRecord& record) {
  if (IsAccess(record.Kind) && record.Slot < kSlots && IsTask(record.Task)) {
    uses_[record.Slot][record.Task] = true;
  }
  if (IsTold(record.Kind)) Add({record.Time, record.Task, tool::EventText(machine_, record), false, 1});
}

// A task that waits prints the same line again and again: it is told once.
void History::SeeLine(Nanos time, int who, const std::string& line) {
  for (auto entry = entries_.rbegin(); entry != entries_.rend(); ++entry) {
    if (entry->who != who || !entry->printed) continue;
    if (entry->text != line) break;
    ++entry->times;
    return;
  }
  Add({time, who, line, true, 1});
}

void History::SeeEvent(Nanos time, const std::string& text) {
  Add({time, kUnknownTask, "scenario: " + text, false, 1});
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
      const bool about = IsState(happening->kind) || happening->kind == HappeningKind::MotorPulses;
      if (happening->who != task && !(about && uses)) continue;
      tasks[static_cast<std::size_t>(task)] = any = true;
    }
  }
  return any ? tasks : std::vector<bool>(kTaskRecords, true);
}

std::vector<std::string> History::Story(const std::vector<const Happening*>& happenings) const {
  const std::vector<bool> concerned = Concerned(happenings);
  std::deque<std::string> told;
  for (auto entry = entries_.rbegin(); entry != entries_.rend() && told.size() < kTold; ++entry) {
    if (IsTask(entry->who) && !concerned[static_cast<std::size_t>(entry->who)]) continue;
    char head[48];
    std::snprintf(head, sizeof head, "%10.3f  %-4s  ", static_cast<double>(entry->time) / 1e9,
                  tool::Who(static_cast<std::uint8_t>(entry->who)).c_str());
    const std::string again = entry->times > 1 ? " (" + std::to_string(entry->times) + " times)" : "";
    told.push_front(head + entry->text + again);
  }
  return {told.begin(), told.end()};
}

}  // namespace rack::scenario
