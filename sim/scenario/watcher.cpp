#include "scenario/watcher.h"

#include <cstdio>
#include <utility>

namespace rack::scenario {

namespace {

std::string LabelOf(const Happening& happening, const Snapshot& machine) {
  const std::string address = std::to_string(happening.entry) + "." + std::to_string(happening.channel);
  switch (happening.kind) {
    case HappeningKind::Level:
      return SignalText(machine, happening.signal, happening.entry, happening.channel);
    case HappeningKind::CylinderAt:
    case HappeningKind::CylinderAlarm:
      return "cylinder " + address;
    case HappeningKind::Counter:
      for (const CounterView& counter : machine.counters) {
        if (counter.link == happening.channel) return "counter " + counter.name;
      }
      return "counter";
    default:
      return "motor " + address;
  }
}

}  // namespace

Watcher::Watcher(const Happening& happening, const Snapshot& machine, FileNames files)
    : happening_(happening), files_(std::move(files)), label_(LabelOf(happening, machine)) {
  const auto channel = static_cast<std::size_t>(happening.channel);
  const auto entry = static_cast<std::size_t>(happening.entry);
  switch (happening.kind) {
    case HappeningKind::Level: {
      const CardView& card = machine.cards[entry];
      const std::uint32_t levels = happening.signal == SignalKind::Input ? card.inputs : card.outputs;
      value_ = levels >> channel & 1;
      break;
    }
    case HappeningKind::MotorAt:
      value_ = machine.cards[entry].motors[channel].position;
      break;
    case HappeningKind::MotorCount:
      value_ = machine.cards[entry].counts[channel];
      break;
    case HappeningKind::MotorPulses:
      known_ = false;
      break;
    case HappeningKind::CylinderAt:
    case HappeningKind::CylinderAlarm: {
      const CylinderView& cylinder = machine.cards[entry].cylinders[channel];
      const bool alarm = (cylinder.status & kCylinderAlarm) != 0;
      standing_ = (cylinder.status & kCylinderInPosition) != 0;
      alarm_ = alarm;
      value_ =
          happening.kind == HappeningKind::CylinderAlarm ? alarm : cylinder.thousandths / kCylinderPosition;
      break;
    }
    default:
      break;
  }
  if (happening.kind == HappeningKind::CylinderAlarm) happening_.low = happening_.high = 1;
}

void Watcher::Happened(Nanos time) {
  ++count_;
  last_ = time;
}

// A new value of what is watched. It happens when the value comes into the range, not while it stays there.
void Watcher::Take(Nanos time, std::int64_t value) {
  if (value != value_) since_ = time;
  const bool before = Holds();
  value_ = value;
  if (!before && Holds()) Happened(time);
}

void Watcher::SeeMotor(const JournalRecord& record) {
  const bool held = Holds();
  switch (record.kind) {
    case JournalKind::MotorMove:
      moving_ = record.value != 0;
      since_ = record.time;
      break;
    case JournalKind::MotorPosition:
      if (happening_.kind == HappeningKind::MotorAt) value_ = record.value;
      break;
    case JournalKind::MotorCount:
      if (happening_.kind == HappeningKind::MotorCount) value_ = record.value;
      break;
    case JournalKind::MotorPulses:
      if (happening_.kind != HappeningKind::MotorPulses) break;
      value_ = record.value;
      known_ = true;
      if (InRange(value_)) Happened(record.time);
      return;
    default:
      return;
  }
  if (!held && Holds()) Happened(record.time);
}

void Watcher::See(const JournalRecord& record) {
  switch (happening_.kind) {
    case HappeningKind::Level: {
      const bool input = record.kind == JournalKind::InputEdge;
      const bool output = record.kind == JournalKind::OutputChange || record.kind == JournalKind::RelayChange;
      const bool wanted = happening_.signal == SignalKind::Input ? input : output;
      if (wanted && Mine(record)) Take(record.time, record.value);
      break;
    }
    case HappeningKind::MotorMoves:
    case HappeningKind::MotorStands:
    case HappeningKind::MotorAt:
    case HappeningKind::MotorCount:
    case HappeningKind::MotorPulses:
      if (Mine(record)) SeeMotor(record);
      break;
    case HappeningKind::CylinderAt:
    case HappeningKind::CylinderAlarm: {
      if (record.kind != JournalKind::CylinderState || !Mine(record)) break;
      const bool before = Holds();
      standing_ = (record.value & kCylinderInPosition) != 0;
      alarm_ = (record.value & kCylinderAlarm) != 0;
      value_ = happening_.kind == HappeningKind::CylinderAlarm ? alarm_ : record.value >> 8 & 0xFF;
      since_ = record.time;
      if (!before && Holds()) Happened(record.time);
      break;
    }
    case HappeningKind::Counter:
      if (record.kind == JournalKind::CounterValue && record.port == happening_.channel) {
        Take(record.time, record.value);
      }
      break;
    case HappeningKind::KeyTaken:
      if (record.kind == JournalKind::KeyTaken && InRange(record.value)) Happened(record.time);
      break;
    case HappeningKind::Line:
      if (record.kind == JournalKind::ProgramLine && InRange(record.line) && record.task == happening_.who &&
          files_(record.file) == happening_.words) {
        Happened(record.time);
      }
      break;
    case HappeningKind::Restart:
      if (record.kind == JournalKind::Restart) Happened(record.time);
      break;
    default:
      break;
  }
}

void Watcher::SeeLine(Nanos time, int who, const std::string& line) {
  if (happening_.kind != HappeningKind::Prints) return;
  if (happening_.who != kAnyone && happening_.who != who) return;
  if (line.find(happening_.words) != std::string::npos) Happened(time);
}

void Watcher::SeeEvent(Nanos time, const std::string& name) {
  if (happening_.kind == HappeningKind::Event && happening_.words == name) Happened(time);
}

bool Watcher::Holds() const {
  switch (happening_.kind) {
    case HappeningKind::Level:
    case HappeningKind::CylinderAlarm:
    case HappeningKind::Counter:
      return InRange(value_);
    case HappeningKind::MotorMoves:
      return moving_;
    case HappeningKind::MotorStands:
      return !moving_;
    case HappeningKind::MotorAt:
    case HappeningKind::MotorCount:
      return !moving_ && InRange(value_);
    case HappeningKind::CylinderAt:
      return standing_ && InRange(value_);
    default:
      return false;
  }
}

std::string Watcher::Instead() const {
  const std::string value = std::to_string(value_);
  const std::string since = since_ == 0 ? "" : " since " + ClockText(since_);
  switch (happening_.kind) {
    case HappeningKind::Level:
      return label_ + (value_ != 0 ? " is on" : " is off") + since;
    case HappeningKind::MotorMoves:
    case HappeningKind::MotorStands:
      return label_ + (moving_ ? " moves" : " stands") + since;
    case HappeningKind::MotorAt:
      return label_ + (moving_ ? " moves" : " stands at " + value) + since;
    case HappeningKind::MotorCount:
      return label_ + (moving_ ? " moves" : " counts " + value) + since;
    case HappeningKind::MotorPulses:
      return known_ ? "the last move of " + label_ + " had " + value + " pulses"
                    : label_ + " has ended no move";
    case HappeningKind::CylinderAt:
      return label_ +
             (standing_ ? " stands at "
              : alarm_  ? " is in alarm at "
                        : " is on its way at ") +
             value + since;
    case HappeningKind::CylinderAlarm:
      return label_ + (value_ != 0 ? " is in alarm" + since : " is in no alarm");
    case HappeningKind::Counter:
      return label_ + " is " + value + since;
    default:
      return count_ == 0 ? "it did not happen" : "it happened last at " + ClockText(last_);
  }
}

std::string ClockText(Nanos time) {
  char text[40];
  std::snprintf(text, sizeof text, "%.3f s", static_cast<double>(time) / 1e9);
  return text;
}

}  // namespace rack::scenario
