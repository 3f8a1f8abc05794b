// Every kind of happening, and what its watcher does.
#include "scenario/happening_row.h"
#include "scenario/happening_text.h"
#include "scenario/watcher.h"

namespace rack::scenario {

namespace {

using Text = HappeningText;

constexpr bool kOnCard = true;
constexpr bool kElsewhere = false;

// What the cards' registers and the journal hold.
constexpr NumberLimits kNoNumber = {};
constexpr NumberLimits kSteps = {INT32_MIN, INT32_MAX};
constexpr NumberLimits kPulses = {0, INT32_MAX};
constexpr NumberLimits kPositions = {0, 15};
constexpr NumberLimits kCounts = {0, INT32_MAX};

const CardView& CardOf(const Watched& watched, const Snapshot& machine) {
  return machine.cards[static_cast<std::size_t>(watched.what.entry)];
}

const MotorView& MotorOf(const Watched& watched, const Snapshot& machine) {
  return CardOf(watched, machine).motors[static_cast<std::size_t>(watched.what.channel)];
}

bool IsMine(const Watched& watched, const JournalRecord& record) {
  return record.slot == watched.what.slot && record.port == watched.what.channel;
}

bool IsInRange(const Watched& watched, std::int64_t value) {
  return value >= watched.what.low && value <= watched.what.high;
}

bool TakeValue(Watched& watched, const JournalRecord& record) {
  if (record.value != watched.value) watched.since = record.time;
  watched.value = record.value;
  return true;
}

std::string AddressLabel(const char* what, const Watched& watched) {
  return what + std::to_string(watched.what.entry) + "." + std::to_string(watched.what.channel);
}

std::string Since(const Watched& watched) {
  return watched.since == 0 ? "" : " since " + ClockText(watched.since);
}

bool HoldsInRange(const Watched& watched) {
  return IsInRange(watched, watched.value);
}

// What has no state.

void BeginNothing(Watched& /*watched*/, const Snapshot& /*machine*/) {}

std::string SayLast(const Watched& watched) {
  return watched.count == 0 ? "it did not happen" : "it happened last at " + ClockText(watched.last);
}

// Signals.

void BeginLevel(Watched& watched, const Snapshot& machine) {
  const Happening& what = watched.what;
  const CardView& card = CardOf(watched, machine);
  const std::uint32_t levels = what.signal == SignalKind::Input ? card.inputs : card.outputs;
  watched.label = SignalText(machine, what.signal, what.entry, what.channel);
  watched.value = levels >> what.channel & 1;
}

bool SeeLevel(Watched& watched, const JournalRecord& record) {
  const bool input = record.kind == JournalKind::InputEdge;
  const bool output = record.kind == JournalKind::OutputChange || record.kind == JournalKind::RelayChange;
  const bool wanted = watched.what.signal == SignalKind::Input ? input : output;
  return wanted && IsMine(watched, record) && TakeValue(watched, record);
}

std::string SayLevel(const Watched& watched) {
  return watched.label + (watched.value != 0 ? " is on" : " is off") + Since(watched);
}

// Motors.

void BeginMotor(Watched& watched, const Snapshot& /*machine*/) {
  watched.label = AddressLabel("motor ", watched);
}

void BeginPosition(Watched& watched, const Snapshot& machine) {
  BeginMotor(watched, machine);
  watched.value = MotorOf(watched, machine).position;
}

void BeginCount(Watched& watched, const Snapshot& machine) {
  BeginMotor(watched, machine);
  watched.value = CardOf(watched, machine).counts[static_cast<std::size_t>(watched.what.channel)];
}

void BeginPulses(Watched& watched, const Snapshot& machine) {
  BeginMotor(watched, machine);
  watched.known = false;
}

bool SeeMove(Watched& watched, const JournalRecord& record) {
  if (record.kind != JournalKind::MotorMove || !IsMine(watched, record)) return false;
  watched.moving = record.value != 0;
  watched.since = record.time;
  return true;
}

// A motor's value, which a record of this kind has.
bool SeeMotorValue(Watched& watched, const JournalRecord& record, JournalKind kind) {
  if (record.kind != kind || !IsMine(watched, record)) return SeeMove(watched, record);
  watched.value = record.value;
  return true;
}

bool SeeStart(Watched& watched, const JournalRecord& record) {
  return SeeMove(watched, record) && watched.moving;
}

bool SeePosition(Watched& watched, const JournalRecord& record) {
  return SeeMotorValue(watched, record, JournalKind::MotorPosition);
}

bool SeeCount(Watched& watched, const JournalRecord& record) {
  return SeeMotorValue(watched, record, JournalKind::MotorCount);
}

bool SeePulses(Watched& watched, const JournalRecord& record) {
  if (record.kind != JournalKind::MotorPulses || !IsMine(watched, record)) return false;
  watched.value = record.value;
  watched.known = true;
  return HoldsInRange(watched);
}

void BeginHardStop(Watched& watched, const Snapshot& machine) {
  BeginMotor(watched, machine);
  watched.known = false;
}

bool SeeHardStop(Watched& watched, const JournalRecord& record) {
  if (record.kind != JournalKind::HardStop || record.value == 0 || !IsMine(watched, record)) return false;
  watched.value = static_cast<std::int32_t>(record.line);
  watched.known = true;
  return true;
}

bool Moves(const Watched& watched) {
  return watched.moving;
}

bool Stands(const Watched& watched) {
  return !watched.moving;
}

bool StandsInRange(const Watched& watched) {
  return Stands(watched) && HoldsInRange(watched);
}

std::string SayMotor(const Watched& watched, const std::string& standing) {
  return watched.label + (watched.moving ? " moves" : standing) + Since(watched);
}

std::string SayMove(const Watched& watched) {
  return SayMotor(watched, " stands");
}

std::string SayPosition(const Watched& watched) {
  return SayMotor(watched, " stands at " + std::to_string(watched.value));
}

std::string SayCount(const Watched& watched) {
  return SayMotor(watched, " counts " + std::to_string(watched.value));
}

std::string SayPulses(const Watched& watched) {
  if (!watched.known) return watched.label + " has ended no move";
  return "the last move of " + watched.label + " had " + std::to_string(watched.value) + " pulses";
}

std::string SayHardStop(const Watched& watched) {
  if (!watched.known) return watched.label + " has hit no stop";
  return watched.label + " has hit its stop at " + std::to_string(watched.value);
}

// Cylinders.

void TakeStatus(Watched& watched, int status) {
  watched.standing = (status & kCylinderInPosition) != 0;
  watched.alarm = (status & kCylinderAlarm) != 0;
  watched.moving = (status & (kCylinderMoving | kCylinderResetting)) != 0;
}

void BeginCylinder(Watched& watched, const Snapshot& machine) {
  const CardView& card = CardOf(watched, machine);
  const CylinderView& cylinder = card.cylinders[static_cast<std::size_t>(watched.what.channel)];
  watched.label = AddressLabel("cylinder ", watched);
  TakeStatus(watched, cylinder.status);
  watched.value = cylinder.thousandths / kCylinderPosition;
}

bool SeeCylinder(Watched& watched, const JournalRecord& record) {
  if (record.kind != JournalKind::CylinderState || !IsMine(watched, record)) return false;
  TakeStatus(watched, record.value);
  watched.value = record.value >> 8 & 0xFF;
  watched.since = record.time;
  return true;
}

bool IsThere(const Watched& watched) {
  return watched.standing && HoldsInRange(watched);
}

bool IsInAlarm(const Watched& watched) {
  return watched.alarm;
}

std::string SayCylinder(const Watched& watched) {
  const char* const how = watched.standing ? " stands at "
                          : watched.alarm  ? " is in alarm at "
                          : watched.moving ? " is on its way at "
                                           : " stands short of its aim at ";
  return watched.label + how + std::to_string(watched.value) + Since(watched);
}

std::string SayAlarm(const Watched& watched) {
  return watched.label + (watched.alarm ? " is in alarm" + Since(watched) : " is in no alarm");
}

// Counters.

void BeginCounter(Watched& watched, const Snapshot& machine) {
  watched.label = "counter";
  for (const CounterView& counter : machine.counters) {
    if (counter.link == watched.what.channel) watched.label = "counter " + counter.name;
  }
}

bool SeeCounter(Watched& watched, const JournalRecord& record) {
  return record.kind == JournalKind::CounterValue && record.port == watched.what.channel &&
         TakeValue(watched, record);
}

std::string SayCounter(const Watched& watched) {
  return watched.label + " is " + std::to_string(watched.value) + Since(watched);
}

// The controller and the scenario.

bool SeeKey(Watched& watched, const JournalRecord& record) {
  return record.kind == JournalKind::KeyTaken && IsInRange(watched, record.value);
}

bool SeeProgramLine(Watched& watched, const JournalRecord& record) {
  return record.kind == JournalKind::ProgramLine && IsInRange(watched, record.line) &&
         record.task == watched.what.who && watched.files(record.file) == watched.what.words;
}

bool SeeRestart(Watched& /*watched*/, const JournalRecord& record) {
  return record.kind == JournalKind::Restart;
}

void BeginProtests(Watched& watched, const Snapshot& machine) {
  watched.machine = std::make_shared<Snapshot>(machine);
}

bool SeeProtest(Watched& watched, const JournalRecord& record) {
  if (record.kind != JournalKind::CardProtests || !IsInRange(watched, record.slot)) return false;
  watched.label = EventText(*watched.machine, record);
  const std::string file = watched.files(record.file);
  if (!file.empty()) watched.label += ", " + file + ":" + std::to_string(record.line);
  return true;
}

std::string SayProtest(const Watched& watched) {
  return watched.count == 0 ? "no card has protested" : watched.label;
}

bool SeePrinted(const Watched& watched, int who, const std::string& line) {
  const bool speaks = watched.what.who == kAnyone || watched.what.who == who;
  return speaks && line.find(watched.what.words) != std::string::npos;
}

bool SeeDone(const Watched& watched, const std::string& name) {
  return watched.what.words == name;
}

// clang-format off
constexpr HappeningRow kRows[] = {
  {HappeningKind::Level, "\"clamped on\"", &Text::EndsInLevel, "", "", kNoNumber,
   &Text::ReadLevel, kOnCard, BeginLevel, SeeLevel, HoldsInRange, SayLevel,
   {JournalKind::InputEdge, JournalKind::OutputChange, JournalKind::RelayChange}},
  {HappeningKind::MotorMoves, "", &Text::HasFirst, "motor", "moves", kNoNumber,
   &Text::ReadMotor, kOnCard, BeginMotor, SeeMove, Moves, SayMove,
   {JournalKind::MotorMove}},
  {HappeningKind::MotorStarts, "", &Text::HasFirst, "motor", "starts", kNoNumber,
   &Text::ReadMotor, kOnCard, BeginMotor, SeeStart, nullptr, SayMove,
   {JournalKind::MotorMove}},
  {HappeningKind::MotorStands, "", &Text::HasFirst, "motor", "stands", kNoNumber,
   &Text::ReadMotor, kOnCard, BeginMotor, SeeMove, Stands, SayMove,
   {JournalKind::MotorMove}},
  {HappeningKind::MotorAt, "\"motor 2.0 at 800\"", &Text::HasFirst, "motor", "at N", kSteps,
   &Text::ReadMotor, kOnCard, BeginPosition, SeePosition, StandsInRange, SayPosition,
   {JournalKind::MotorMove, JournalKind::MotorPosition}},
  {HappeningKind::MotorCount, "", &Text::HasFirst, "motor", "counts N", kSteps,
   &Text::ReadMotor, kOnCard, BeginCount, SeeCount, StandsInRange, SayCount,
   {JournalKind::MotorMove, JournalKind::MotorCount}},
  {HappeningKind::MotorHitsStop, "", &Text::HasFirst, "motor", "hits its stop", kNoNumber,
   &Text::ReadMotor, kOnCard, BeginHardStop, SeeHardStop, nullptr, SayHardStop,
   {JournalKind::HardStop}},
  {HappeningKind::MotorPulses, "", &Text::HasFirst, "motor", "pulses N", kPulses,
   &Text::ReadMotor, kOnCard, BeginPulses, SeePulses, nullptr, SayPulses,
   {JournalKind::MotorPulses}},
  {HappeningKind::CylinderAt, "", &Text::HasFirst, "cylinder", "at N", kPositions,
   &Text::ReadCylinder, kOnCard, BeginCylinder, SeeCylinder, IsThere, SayCylinder,
   {JournalKind::CylinderState}},
  {HappeningKind::CylinderAlarm, "\"cylinder 3.0 alarm\"", &Text::HasFirst, "cylinder", "alarm", kNoNumber,
   &Text::ReadCylinder, kOnCard, BeginCylinder, SeeCylinder, IsInAlarm, SayAlarm,
   {JournalKind::CylinderState}},
  {HappeningKind::Counter, "\"counter parts 5\"", &Text::HasFirst, "counter", "", kCounts,
   &Text::ReadCounter, kElsewhere, BeginCounter, SeeCounter, HoldsInRange, SayCounter,
   {JournalKind::CounterValue}},
  {HappeningKind::KeyTaken, "\"key Enter\"", &Text::HasFirst, "key", "", kNoNumber,
   &Text::ReadKey, kElsewhere, BeginNothing, SeeKey, nullptr, SayLast,
   {JournalKind::KeyTaken}},
  {HappeningKind::Line, "\"line plc1/FLOW.PLC:4\"", &Text::HasFirst, "line", "", kNoNumber,
   &Text::ReadLine, kElsewhere, BeginNothing, SeeProgramLine, nullptr, SayLast,
   {JournalKind::ProgramLine}},
  {HappeningKind::Prints, "\"plc1 prints TEXT\"", &Text::HasSecond, "prints", "", kNoNumber,
   &Text::ReadPrints, kElsewhere, BeginNothing, SeePrinted, nullptr, SayLast,
   {JournalKind::ConsoleText}},
  {HappeningKind::Restart, "\"restart\"", &Text::IsWord, "restart", "", kNoNumber,
   &Text::ReadNothing, kElsewhere, BeginNothing, SeeRestart, nullptr, SayLast,
   {JournalKind::Restart}},
  {HappeningKind::Protests, "\"a card protests\"", &Text::HasThird, "protests", "", kNoNumber,
   &Text::ReadProtests, kElsewhere, BeginProtests, SeeProtest, nullptr, SayProtest,
   {JournalKind::CardProtests}},
  {HappeningKind::Event, "the name of an event", &Text::IsEvent, "", "", kNoNumber,
   &Text::ReadEvent, kElsewhere, BeginNothing, SeeDone, nullptr, SayLast,
   {}},
};
// clang-format on
static_assert(AreRowsOf(kRows, &HappeningRow::kind, kHappeningKinds), "a row for each happening, in order");

}  // namespace

const HappeningRow& RowOf(HappeningKind kind) {
  return kRows[static_cast<std::size_t>(kind)];
}

bool IsState(HappeningKind kind) {
  return RowOf(kind).holds != nullptr;
}

void AddTriggers(const Happening& what, TriggerTable& triggers) {
  const auto placeOf = [](bool narrow, int place) {
    return narrow ? static_cast<std::uint8_t>(place) : kAnyPlace;
  };
  const HappeningRow& row = RowOf(what.kind);
  for (const JournalKind kind : row.kinds) {
    if (kind == JournalKind::None) continue;
    const bool line = kind == JournalKind::ProgramLine;
    triggers.Add({kind, placeOf(line, what.who), placeOf(row.onCard, what.slot),
                  placeOf(row.onCard || kind == JournalKind::CounterValue, what.channel),
                  line ? static_cast<std::uint32_t>(what.low) : 0,
                  line ? static_cast<std::uint32_t>(what.high) : 0});
  }
}

bool IsOnCard(HappeningKind kind) {
  return RowOf(kind).onCard;
}

}  // namespace rack::scenario
