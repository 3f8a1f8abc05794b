#include "cli/display.h"

#include <algorithm>
#include <cstdio>

#include "machine/key_names.h"
#include "machine/why.h"
#include "toml/characters.h"
#include "toml/words.h"

namespace rack::cli {

namespace {

// Levels as a row, lowest channel first, a blank after every eighth: "#..#.... ........".
std::string LevelRow(std::uint32_t levels, int first, int count) {
  std::string row;
  for (int i = 0; i < count; ++i) {
    if (i != 0 && i % 8 == 0) row += ' ';
    row += (levels >> (first + i) & 1) != 0 ? '#' : '.';
  }
  return row;
}

// The signals of a row that have a name or are on: "clamp_closed (0.5) on, 0.7 on".
std::string SignalList(const Snapshot& snapshot, SignalKind kind, int entry, std::uint32_t levels, int first,
                       int count, std::uint32_t forced) {
  std::vector<std::string> signals;
  for (int channel = first; channel < first + count; ++channel) {
    const std::string text = SignalText(snapshot, kind, entry, channel);
    const bool on = (levels >> channel & 1) != 0;
    const bool held = (forced >> channel & 1) != 0;
    const bool named = text.find('(') != std::string::npos;
    if (named || on || held) signals.push_back(text + (on ? " on" : " off") + (held ? " (forced)" : ""));
  }
  return Join(signals, ", ");
}

void AddLevels(std::string& text, const char* what, const std::string& row, const std::string& list) {
  char head[24];
  std::snprintf(head, sizeof head, "  %-9s", what);
  text += head + row + (list.empty() ? "" : "  ") + list + "\n";
}

void AddKeys(std::string& text, const CardView& card) {
  if (card.keyCode != 0) {
    const std::optional<Key> key = KeyOfCode(card.keyCode);
    text += std::string("  key      ") + (key ? key->name : "unknown") + "\n";
  }
  if (card.functionKeys != 0)
    text += "  function keys " + LevelRow(card.functionKeys, 0, kFunctionKeys) + "\n";
}

void AddMotors(std::string& text, const CardView& card) {
  for (std::size_t i = 0; i < card.motors.size(); ++i) {
    const MotorView& motor = card.motors[i];
    char line[120];
    std::snprintf(line, sizeof line, "  motor %zu  %-6s position %lld, count %lld", i,
                  motor.busy ? "moves" : "stands", static_cast<long long>(motor.position),
                  static_cast<long long>(card.counts[i]));
    text += line;
    if (motor.busy && motor.endsInNanos >= 0) text += ", ends in " + Seconds(motor.endsInNanos);
    if (motor.busy && motor.endsInNanos < 0) text += ", never ends";
    const std::string held = HeldBy(motor);
    text += held.empty() ? "\n" : ", " + held + "\n";
  }
}

// Counters that no motor drives.
void AddCounts(std::string& text, const CardView& card) {
  for (std::size_t i = card.motors.size(); i < card.counts.size(); ++i) {
    text += "  counter " + std::to_string(i) + "  " + std::to_string(card.counts[i]) + "\n";
  }
}

void AddCylinders(std::string& text, const CardView& card) {
  for (std::size_t i = 0; i < card.cylinders.size(); ++i) {
    const CylinderView& cylinder = card.cylinders[i];
    char line[120];
    std::snprintf(line, sizeof line, "  cylinder %zu  at %d.%03d, to %d, status 0x%02X%s%s\n", i,
                  cylinder.thousandths / kCylinderPosition, cylinder.thousandths % kCylinderPosition,
                  cylinder.target, cylinder.status, (cylinder.status & kCylinderAlarm) != 0 ? " (alarm)" : "",
                  cylinder.jammed ? " (jammed)" : "");
    text += line;
  }
}

void AddCard(std::string& text, const Snapshot& snapshot, int entry) {
  const CardView& card = snapshot.cards[static_cast<std::size_t>(entry)];
  text += "entry " + std::to_string(entry) + ", slot " + std::to_string(card.slot) + ", " +
          KindName(card.kind) + (card.pulled ? " (pulled)\n" : "\n");
  if (const int inputs = RowOf(card.kind).inputs; inputs > 0) {
    AddLevels(text, "inputs", LevelRow(card.inputs, 0, inputs),
              SignalList(snapshot, SignalKind::Input, entry, card.inputs, 0, inputs, card.forced));
  }
  if (const int outputs = RowOf(card.kind).outputs; outputs > 0) {
    const int plain = std::min(outputs, kFirstRelay);
    const int relays = outputs - plain;
    AddLevels(text, "outputs", LevelRow(card.outputs, 0, plain),
              SignalList(snapshot, SignalKind::Output, entry, card.outputs, 0, plain, 0));
    if (relays > 0) {
      AddLevels(text, "relays", LevelRow(card.outputs, kFirstRelay, relays),
                SignalList(snapshot, SignalKind::Output, entry, card.outputs, kFirstRelay, relays, 0));
    }
  }
  AddKeys(text, card);
  AddMotors(text, card);
  AddCounts(text, card);
  AddCylinders(text, card);
}

// "time stands, task 1 before plc1/RESET.PLC:13  EXIT; go, step or until lets it go on".
void AddStanding(std::string& text, const StandingView& at) {
  if (!at.stands) return;
  text += "time stands";
  if (at.task != 0) {
    text += ", task " + std::to_string(at.task) + " before " + at.file + ":" + std::to_string(at.line) +
            "  " + at.text;
  }
  text += "; go, step or until lets it go on\n";
}

}  // namespace

std::string TextOf(const Snapshot& snapshot) {
  std::string text =
      snapshot.running ? "running, process " + std::to_string(snapshot.process) : "not running";
  text += ", " + Seconds(snapshot.nowNanos) + " since power-on, restarts " +
          std::to_string(snapshot.restarts) + ", syncs " + std::to_string(snapshot.syncs) + "\n";
  if (!snapshot.broken.empty()) text += "time could not go on: " + snapshot.broken + "\n";
  if (!snapshot.waitsFor.empty()) text += "time stands: waits for " + snapshot.waitsFor + "\n";
  if (snapshot.noDriver) text += "the board has no driver: no card is found, and no task starts\n";
  AddStanding(text, snapshot.standing);
  for (std::size_t entry = 0; entry < snapshot.cards.size(); ++entry) {
    AddCard(text, snapshot, static_cast<int>(entry));
  }
  for (const CounterView& counter : snapshot.counters) {
    text += "counter " + counter.name + ": " + std::to_string(counter.count) +
            (counter.goal != 0 ? " of " + std::to_string(counter.goal) : "") + "\n";
  }
  for (const std::string& fault : snapshot.faults) text += "fault: " + fault + "\n";
  for (const ProtestView& protest : snapshot.protests) {
    const std::string place =
        protest.file.empty() ? "" : " " + protest.file + ":" + std::to_string(protest.line);
    text += "protest: " + protest.text + ", " + protest.who + place + " at " + Seconds(protest.atNanos) +
            (protest.count > 1 ? ", the last of " + std::to_string(protest.count) : "") + "\n";
  }
  for (const TaskView& task : snapshot.tasks) {
    text += "task " + std::to_string(task.task) + (task.stepMode ? " (step mode)" : "");
    if (!task.file.empty()) text += "  " + task.file + ":" + std::to_string(task.line) + "  " + task.text;
    text += "\n  " + WhyStanding(snapshot, task) + "\n";
  }
  // Program lines and file names hold whatever bytes their files do.
  return PrintableLines(text);
}

}  // namespace rack::cli
