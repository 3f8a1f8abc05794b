#include "rack/triggers.h"

#include <algorithm>

namespace rack {
namespace {

bool IsPlace(std::uint8_t wanted, std::uint8_t place) {
  return wanted == kAnyPlace || wanted == place;
}

}  // namespace

bool Trigger::Fits(const JournalRecord& record) const {
  if (kind == JournalKind::None) return !IsAccess(record.kind) && record.kind != JournalKind::Repeats;
  if (kind != record.kind || !IsPlace(task, record.task)) return false;
  if (!IsPlace(slot, record.slot) || !IsPlace(port, record.port)) return false;
  return firstLine == 0 || (record.line >= firstLine && record.line <= lastLine);
}

bool TriggerTable::Fits(const JournalRecord& record) const {
  return std::any_of(rows, rows + std::min(count, kMaxTriggers),
                     [&](const Trigger& trigger) { return trigger.Fits(record); });
}

bool Trigger::operator==(const Trigger& other) const {
  return kind == other.kind && task == other.task && slot == other.slot && port == other.port &&
         firstLine == other.firstLine && lastLine == other.lastLine;
}

void TriggerTable::Add(const Trigger& trigger) {
  const Trigger* const end = rows + std::min(count, kMaxTriggers);
  if (std::find(static_cast<const Trigger*>(rows), end, trigger) != end) return;
  if (count < kMaxTriggers) {
    rows[count++] = trigger;
    return;
  }
  rows[0] = {JournalKind::None, kAnyPlace, kAnyPlace, kAnyPlace, 0, 0};
}

}  // namespace rack
