#include "scenario/watcher.h"

#include <cstdio>
#include <utility>

namespace rack::scenario {

Watcher::Watcher(const Happening& happening, const Snapshot& machine, FileNames files)
    : row_(RowOf(happening.kind)) {
  watched_.what = happening;
  watched_.files = std::move(files);
  row_.begin(watched_, machine);
}

void Watcher::Happened(Nanos time) {
  ++watched_.count;
  watched_.last = time;
}

// What lasts happens when it comes to hold, not while it goes on holding.
void Watcher::See(const JournalRecord& record) {
  const auto* const sees = std::get_if<SeesRecord>(&row_.sees);
  if (sees == nullptr) return;
  const bool before = Holds();
  if (!(*sees)(watched_, record)) return;
  if (row_.holds == nullptr || (!before && Holds())) Happened(record.time);
}

void Watcher::SeeLine(Nanos time, int who, const std::string& line) {
  const auto* const sees = std::get_if<SeesLine>(&row_.sees);
  if (sees != nullptr && (*sees)(watched_, who, line)) Happened(time);
}

void Watcher::SeeEvent(Nanos time, const std::string& name) {
  const auto* const sees = std::get_if<SeesEvent>(&row_.sees);
  if (sees != nullptr && (*sees)(watched_, name)) Happened(time);
}

std::string ClockText(Nanos time) {
  char text[40];
  std::snprintf(text, sizeof text, "%.3f s", static_cast<double>(time) / 1e9);
  return text;
}

}  // namespace rack::scenario
