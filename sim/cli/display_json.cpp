#include <cstdio>
#include <nlohmann/json.hpp>

#include "cli/display.h"
#include "machine/drives.h"
#include "machine/why.h"
#include "toml/characters.h"

namespace rack::cli {

namespace {

using Json = nlohmann::ordered_json;

Json Levels(const Snapshot& snapshot, SignalKind kind, int entry, std::uint32_t levels, int count,
            std::uint32_t forced) {
  Json list = Json::array();
  for (int channel = 0; channel < count; ++channel) {
    Json signal = {{"channel", channel}, {"on", (levels >> channel & 1) != 0}};
    const std::string label = SignalLabel(snapshot, kind, entry, channel);
    const bool named = label.find('.') == std::string::npos;
    if (named) signal["name"] = label;
    if ((forced >> channel & 1) != 0) signal["forced"] = true;
    if (named && kind == SignalKind::Input) signal["waits_for"] = WhyNoChange(snapshot, entry, channel);
    list.push_back(signal);
  }
  return list;
}

Json Card(const Snapshot& snapshot, int entry) {
  const CardView& card = snapshot.cards[static_cast<std::size_t>(entry)];
  Json json = {{"entry", entry}, {"slot", card.slot}, {"kind", KindName(card.kind)}, {"pulled", card.pulled}};
  if (const int inputs = RowOf(card.kind).inputs; inputs > 0) {
    json["inputs"] = Levels(snapshot, SignalKind::Input, entry, card.inputs, inputs, card.forced);
  }
  if (const int outputs = RowOf(card.kind).outputs; outputs > 0) {
    json["outputs"] = Levels(snapshot, SignalKind::Output, entry, card.outputs, outputs, 0);
  }
  if (card.kind == CardKind::Cpu) {
    json["key_code"] = card.keyCode;
    json["function_keys"] = card.functionKeys;
  }
  for (std::size_t i = 0; i < card.motors.size(); ++i) {
    const MotorView& motor = card.motors[i];
    json["motors"].push_back({{"busy", motor.busy},
                              {"position", motor.position},
                              {"count", card.counts[i]},
                              {"blocked", motor.blocked},
                              {"lost_at_stop", motor.lostNow}});
  }
  for (std::size_t i = card.motors.size(); i < card.counts.size(); ++i) {
    json["counters"].push_back(card.counts[i]);
  }
  for (const CylinderView& cylinder : card.cylinders) {
    json["cylinders"].push_back({{"position", cylinder.thousandths / double{kCylinderPosition}},
                                 {"target", cylinder.target},
                                 {"status", cylinder.status},
                                 {"alarm", (cylinder.status & kCylinderAlarm) != 0},
                                 {"jammed", cylinder.jammed}});
  }
  return json;
}

const char* ModeWord(TimeMode mode) {
  switch (mode) {
    case TimeMode::Scaled:
      return "scaled";
    case TimeMode::Virtual:
      return "virtual";
    case TimeMode::Real:
      break;
  }
  return "real";
}

Json Time(const Snapshot& snapshot) {
  const StandingView& at = snapshot.standing;
  Json json = {
      {"mode", ModeWord(snapshot.timeMode)}, {"stands", at.stands}, {"could_not_go_on", snapshot.broken}};
  if (snapshot.timeMode == TimeMode::Virtual) json["threads"] = snapshot.asFibres ? "fibres" : "real";
  if (!at.stands) return json;
  if (at.task != 0)
    json["before"] = {{"task", at.task}, {"file", at.file}, {"line", at.line}, {"text", at.text}};
  json["released_by"] = {"go", "step", "until"};
  return json;
}

Json Task(const Snapshot& snapshot, const TaskView& task) {
  return {{"task", task.task},
          {"file", task.file},
          {"line", task.line},
          {"text", task.text},
          {"main", task.mainFile},
          {"block", task.blockFile},
          {"step_mode", task.stepMode},
          {"stands_seconds", static_cast<double>(task.standsNanos) / 1e9},
          {"why", WhyStanding(snapshot, task)}};
}

// Beyond ASCII there are characters too that a terminal obeys: they stand in texts only, and are written as numbers.
std::string Escaped(const std::string& json) {
  std::string escaped;
  for (std::size_t at = 0; at < json.size();) {
    const Character character = CharacterAt(json, at);
    if (character.code != '\n' && IsControl(character.code)) {
      char number[16];
      std::snprintf(number, sizeof number, "\\u%04x", static_cast<unsigned>(character.code));
      escaped += number;
    } else {
      escaped.append(json, at, character.size);
    }
    at += character.size;
  }
  return escaped;
}

}  // namespace

std::string JsonOf(const Snapshot& snapshot) {
  Json json = {{"running", snapshot.running},
               {"process", snapshot.process},
               {"seconds", static_cast<double>(snapshot.nowNanos) / 1e9},
               {"waits_for", snapshot.waitsFor},
               {"time", Time(snapshot)},
               {"restarts", snapshot.restarts},
               {"syncs", snapshot.syncs},
               {"cards", Json::array()},
               {"tasks", Json::array()},
               {"counters", Json::array()},
               {"faults", snapshot.faults},
               {"protests", Json::array()}};
  for (std::size_t entry = 0; entry < snapshot.cards.size(); ++entry) {
    json["cards"].push_back(Card(snapshot, static_cast<int>(entry)));
  }
  for (const TaskView& task : snapshot.tasks) json["tasks"].push_back(Task(snapshot, task));
  for (const ProtestView& protest : snapshot.protests) {
    json["protests"].push_back({{"entry", protest.entry},
                                {"count", protest.count},
                                {"seconds", static_cast<double>(protest.atNanos) / 1e9},
                                {"task", protest.who},
                                {"file", protest.file},
                                {"line", protest.line},
                                {"text", protest.text}});
  }
  for (const CounterView& counter : snapshot.counters) {
    json["counters"].push_back({{"name", counter.name}, {"count", counter.count}, {"goal", counter.goal}});
  }
  // Program texts may hold any byte: what is no UTF-8 is replaced.
  return Escaped(json.dump(2, ' ', false, Json::error_handler_t::replace)) + "\n";
}

}  // namespace rack::cli
