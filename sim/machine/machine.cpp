#include "machine/machine.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>

#include "machine/faults.h"
#include "machine/key_names.h"
#include "machine/standstill.h"
#include "numbers.h"
#include "rack/rack.h"
#include "readini.h"
#include "synx.h"

namespace rack {

namespace {

constexpr int kLookMillis = 2;
constexpr Nanos kAnswerLimit = 5 * kSecond;

std::string FromEnvironment() {
  const char* directory = std::getenv("VELMO_MACHINE");
  return directory == nullptr || *directory == '\0' ? "." : directory;
}

// What the controller's side answers to a request it cannot do.
const char* RefusalText(RequestResult result) {
  switch (result) {
    case RequestResult::NoSuchCard:
      return "there is no such card in that slot";
    case RequestResult::NoSuchChannel:
      return "the card has no such channel";
    case RequestResult::NoFunctionKeys:
      return "the CPU card has no function keys: the rack file gives it none";
    case RequestResult::TooManyFaults:
      return "too many faults at once: clear some first";
    case RequestResult::NoSuchFault:
      return "there is no such fault";
    case RequestResult::BadValue:
      return "the value is out of range";
    case RequestResult::Pending:
    case RequestResult::Done:
      break;
  }
  return "not done";
}

std::string Trimmed(const char* text) {
  constexpr const char* kBlank = " \t\r\n";
  const std::string whole(text);
  const std::size_t first = whole.find_first_not_of(kBlank);
  if (first == std::string::npos) return "";
  return whole.substr(first, whole.find_last_not_of(kBlank) - first + 1);
}

std::string FileName(const RackLive& live, std::uint32_t number) {
  if (number == kOtherProgramFile) return "(beyond " + std::to_string(kMaxProgramFiles) + " program files)";
  return number == 0 || number > kMaxProgramFiles ? "" : live.programFiles[number - 1];
}

std::int64_t UntilEnd(const PulseChannel& channel, Nanos now) {
  const std::optional<Nanos> end = channel.MoveEnd();
  return end ? *end - now : -1;
}

void ViewMotors(CardState& card, Nanos now, CardView& view) {
  for (int i = 0; i < MotorCount(card); ++i) {
    const PulseChannelState& state = *MotorChannel(card, i);
    const PulseChannel channel(*MotorChannel(card, i));
    MotorView motor;
    motor.busy = channel.Busy(now);
    motor.blocked = state.blocked != 0;
    motor.position = channel.PositionAt(now);
    motor.endsInNanos = motor.busy ? UntilEnd(channel, now) : -1;
    motor.rate = state.moveRate;
    if (state.hardStopLow != -kNoHardStop) motor.hardStopLow = state.hardStopLow;
    if (state.hardStopHigh != kNoHardStop) motor.hardStopHigh = state.hardStopHigh;
    motor.lostNow = motor.busy ? channel.LostAt(now) - state.lostBefore : 0;
    view.motors.push_back(motor);
  }
}

void ViewCylinders(CardState& card, Nanos now, CardView& view) {
  for (int i = 0; i < CylinderCount(card); ++i) {
    CylinderCardState& state = *Cylinders(card);
    const CylinderCard model(state);
    view.cylinders.push_back(
        {model.PlaceAt(i, now), model.Target(i), model.Status(i, now), state.channels[i].jammed != 0});
  }
}

CardView ViewCard(RackLive& live, int slot, Nanos now) {
  CardState& card = live.cards[slot];
  const InputLevels& inputs = live.inputs[slot];
  CardView view;
  view.kind = card.kind;
  view.slot = slot;
  view.inputs = inputs.Shown();
  view.natural = inputs.natural;
  view.forced = static_cast<std::uint16_t>(inputs.setMask | inputs.stuckMask);
  view.taken = inputs.setMask;
  view.outputs = OutputLevels(card);
  view.selectedChannel = SelectedChannel(card);
  ViewMotors(card, now, view);
  for (int i = 0; i < RowOf(card.kind).counters; ++i) view.counts.push_back(CountOf(card, i, now));
  ViewCylinders(card, now, view);
  if (card.kind != CardKind::Cpu) return view;
  view.keyCode = card.cpu.keyCode;
  view.functionKeys = card.cpu.functionKeys;
  view.hasFunctionKeys = card.cpu.functionPort != 0;
  return view;
}

// The pause of the G_ST line read last. A negative one leaves the pause as it was.
std::int64_t PauseOf(const TaskRecord& record, std::int64_t usual) {
  ExplainedLine line;
  ExplainLine(record.pauseText, &line);
  if (line.CmdIdx != SYN_G_ST || line.SlotIdx.Value < 0) return usual;
  return std::int64_t{line.SlotIdx.Value} * kMillisecond;
}

TaskView ViewTask(const RackLive& live, int number, Nanos now) {
  const TaskRecord& record = live.tasks[number];
  TaskView task;
  task.task = number;
  task.mainFile = FileName(live, record.mainFile);
  task.blockFile = FileName(live, record.blockFile);
  task.file = FileName(live, record.file);
  task.line = static_cast<int>(record.line);
  task.text = Trimmed(record.text);
  task.standsNanos = now - record.lineSince;
  task.endReads = record.endReads;
  task.labelMissing = record.searchFailed != 0;
  if (record.failedOpens != 0 && record.failedAt >= record.lineSince) task.missingFile = record.failedPath;
  if (record.lastAccess != 0) task.accessNanos = now - record.lastAccess;
  task.pauseNanos = PauseOf(record, task.pauseNanos);
  return task;
}

void ViewSignals(const RackImage& image, Snapshot& snapshot) {
  for (const SignalName& signal : image.signals) {
    if (signal.name[0] == '\0') return;
    const SignalKind kind = signal.output != 0 ? SignalKind::Output : SignalKind::Input;
    snapshot.signals.push_back({signal.name, kind, signal.entry, signal.channel});
  }
}

void ViewCounters(const RackImage& image, const PlantState& plant, Snapshot& snapshot) {
  for (std::uint32_t i = 0; i < plant.linkCount && i < kMaxLinks; ++i) {
    if (plant.links[i].then != Effect::Count) continue;
    const std::string name =
        image.linkNames[i][0] != '\0' ? image.linkNames[i] : "counter " + std::to_string(i);
    snapshot.counters.push_back({static_cast<int>(i), name, plant.states[i].count, plant.links[i].goal});
  }
}

// A card beyond the card table is none that a program can reach.
void ViewProtests(const RackImage& image, const RackLive& live, Snapshot& snapshot) {
  for (std::uint32_t entry = 0; entry < image.entryCount; ++entry) {
    const std::uint8_t slot = image.entrySlot[entry];
    const ProtestRecord& last = live.protests[slot];
    if (last.count == 0) continue;
    ProtestView view;
    view.entry = static_cast<int>(entry);
    view.count = last.count;
    view.atNanos = last.at;
    view.who = Who(last.task);
    view.file = FileName(live, last.file);
    view.line = static_cast<int>(last.line);
    const JournalRecord record = {
        last.at, JournalKind::CardProtests, last.task, slot, last.port, last.value, last.line, last.file};
    view.text = EventText(snapshot, record);
    snapshot.protests.push_back(view);
  }
}

// Whether the process has ended, and only its number is still kept for its parent.
bool IsZombie(std::int32_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string text;
  std::getline(file, text);
  // The name of the program stands in brackets and may hold some itself.
  const std::size_t name = text.rfind(") ");
  return name != std::string::npos && name + 2 < text.size() &&
         (text[name + 2] == 'Z' || text[name + 2] == 'X');
}

void ViewPlant(const PlantState& plant, Snapshot& snapshot) {
  for (std::uint32_t i = 0; i < plant.linkCount && i < kMaxLinks; ++i)
    snapshot.links.push_back({plant.links[i], plant.states[i]});
  for (std::size_t entry = 0; entry < snapshot.cards.size(); ++entry)
    snapshot.cards[entry].switchedOn = plant.manual[entry];
}

// ", held by task 2 (plc2/ALARM.PLC:3)".
std::string HolderText(const RackLive& live, std::uint32_t holder) {
  if (holder == kHolderEnded) return ", held by a thread that has ended";
  if (holder == kHolderThreads) return ", held by the main thread";
  if (holder > kHolderThreads) return ", held by thread " + std::to_string(holder - kHolderThreads);
  if (holder < 1 || holder >= kWaitingTasks) return "";
  const TaskRecord& task = live.tasks[holder];
  return ", held by task " + std::to_string(holder) + " (" + FileName(live, task.file) + ":" +
         std::to_string(task.line) + ")";
}

std::string LockText(const TimeControl& time, std::uint32_t row) {
  if (row > kLockNames) return "a lock";
  const char* const name = time.lockNames[row - 1];
  const std::string text(name, strnlen(name, kLockNameSize));
  return text.empty() ? "a lock without a name" : "lock " + text;
}

void ViewLongWait(const RackLive& live, const TimeControl& time, TaskView& task) {
  if (time.setup.mode != TimeMode::Virtual) {
    task.longWait = LongWait(live.controller.process, live.tasks[task.task].thread);
    return;
  }
  const LockWait& wait = time.lockWaits[task.task];
  const std::uint32_t row = wait.row.load(std::memory_order_acquire);
  if (row == 0) return;
  task.longWait =
      "waits for " + LockText(time, row) + HolderText(live, wait.holder.load(std::memory_order_relaxed));
  task.longWaitNanos = std::max(Nanos{0}, live.now - wait.since.load(std::memory_order_relaxed));
}

StandingView ViewStanding(const RackLive& live, const TimeControl& time) {
  StandingView view;
  view.stands = time.standing != 0;
  if (!view.stands || time.standsTask < 1 || time.standsTask >= kTaskRecords) return view;
  view.file = FileName(live, time.standsFile);
  if (view.file.empty()) return view;
  view.task = static_cast<int>(time.standsTask);
  view.line = static_cast<int>(time.standsLine);
  view.text = Trimmed(live.tasks[view.task].text);
  return view;
}

// As the controller takes it: 0 when the file names none, or one that it refuses.
int ConfiguredPort(const std::string& machine) {
  constexpr int kTextSize = 256;
  constexpr int kFirstPort = 9;
  constexpr int kLastPort = 255;
  char text[kTextSize] = "";
  const std::string path = machine + "/Velmo.conf";
  if (ReadIni.GetField(path.c_str(), "[KEYPAD]", "FunctionPort", 0, text) != 0) return 0;
  const int port = ToNumber<int>(text);
  return port >= kFirstPort && port <= kLastPort ? port : 0;
}

}  // namespace

std::string RunDirectory(const std::string& machine) {
  return machine + "/.velmo-rack";
}
std::string StatePath(const std::string& machine) {
  return RunDirectory(machine) + "/state";
}
std::string LockPath(const std::string& machine) {
  return RunDirectory(machine) + "/lock";
}

std::string Machine::Open(const std::string& directory) {
  directory_ = directory.empty() ? FromEnvironment() : directory;
  struct stat status = {};
  if (stat(directory_.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
    return directory_ +
           " is no directory: give the machine's directory with --machine DIR or in VELMO_MACHINE";
  }
  const std::string path = StatePath(directory_);
  if (access(path.c_str(), F_OK) != 0) {
    return directory_ + " holds no machine that was switched on: start it with \"velmo-rack run " +
           directory_ + "\", or give another directory with --machine DIR or in VELMO_MACHINE";
  }
  std::string error;
  if (!file_.Open(path, error)) return error;
  live_ = std::make_unique<RackLive>();
  return "";
}

bool Machine::Running() const {
  const std::int32_t process = State().live.controller.process;
  return process > 0 && (kill(process, 0) == 0 || errno == EPERM) && !IsZombie(process);
}

Nanos Machine::Now() const {
  const RackState& state = State();
  if (state.time.setup.mode == TimeMode::Virtual) return state.live.now;
  return PassedTime(state.time.setup, state.powerOn, MonotonicNow());
}

const RackLive& Machine::Live() {
  CopyLive(State().live, *live_);
  return *live_;
}

Snapshot SnapshotOf(const RackImage& image, RackLive& live) {
  Snapshot snapshot;
  const Nanos now = live.now;
  snapshot.process = live.controller.process;
  snapshot.nowNanos = now;
  snapshot.restarts = live.controller.restarts;
  snapshot.syncs = live.controller.syncs;
  snapshot.noDriver = image.device == DeviceName::None;
  snapshot.keyPort = live.cards[0].cpu.functionPort;
  for (std::uint32_t entry = 0; entry < image.entryCount; ++entry) {
    snapshot.cards.push_back(ViewCard(live, image.entrySlot[entry], now));
  }
  ViewSignals(image, snapshot);
  ViewCounters(image, live.plant, snapshot);
  ViewProtests(image, live, snapshot);
  ViewPlant(live.plant, snapshot);
  for (const FaultRecord& fault : live.faults) {
    if (fault.kind == FaultKind::None) continue;
    snapshot.busFails = snapshot.busFails || fault.kind == FaultKind::BusReadsFail;
    for (CardView& card : snapshot.cards) {
      card.pulled = card.pulled || (fault.kind == FaultKind::CardPulled && card.slot == fault.slot);
    }
    snapshot.faults.push_back(FaultText(snapshot, fault, now));
    snapshot.faultRecords.push_back(fault);
  }
  return snapshot;
}

Snapshot PowerOnSnapshot(const RackImage& image, const RackLive& live) {
  const auto fresh = std::make_unique<RackLive>();
  std::copy(std::begin(image.cards), std::end(image.cards), std::begin(fresh->cards));
  fresh->plant.linkCount = live.plant.linkCount;
  std::copy(std::begin(live.plant.links), std::end(live.plant.links), std::begin(fresh->plant.links));
  return SnapshotOf(image, *fresh);
}

RequestAnswer AnswerOf(const RequestRing& requests, std::uint32_t number) {
  const RequestResult result = ResultOf(requests, number);
  if (result == RequestResult::Pending) return {RequestAnswer::State::Pending, ""};
  if (result == RequestResult::Done) return {RequestAnswer::State::Done, ""};
  return {RequestAnswer::State::Refused, RefusalText(result)};
}

Snapshot Machine::Take() {
  const bool running = Running();
  Live();
  if (running) Rack(State().image, *live_).AdvanceTo(Now());
  return View(running);
}

Snapshot Machine::Recorded() {
  const bool running = Running();
  Live();
  return View(running);
}

// What the copy shows.
Snapshot Machine::View(bool running) {
  Snapshot snapshot = SnapshotOf(State().image, *live_);
  snapshot.running = running;
  snapshot.broken = BrokenText(State().time);
  if (running) snapshot.waitsFor = WaitedFor(State().readers);
  snapshot.timeMode = State().time.setup.mode;
  snapshot.asFibres = State().time.threads == ThreadKind::Fibres;
  snapshot.standing = ViewStanding(*live_, State().time);
  if (live_->controller.attaches != configuredFor_) {
    configuredFor_ = live_->controller.attaches;
    configuredPort_ = ConfiguredPort(directory_);
  }
  snapshot.configuredPort = configuredPort_;
  const Nanos now = snapshot.nowNanos;
  for (int task = 1; task <= 8; ++task) {
    const TaskRecord& known = live_->tasks[task];
    if (known.file == 0 && known.mainFile == 0 && known.failedOpens == 0) continue;
    snapshot.tasks.push_back(ViewTask(*live_, task, now));
    snapshot.tasks.back().stepMode = live_->step.on != 0;
    if (running) ViewLongWait(*live_, State().time, snapshot.tasks.back());
  }
  return snapshot;
}

FileNames FileNamesOf(const RackState& state) {
  return [&state](std::uint32_t number) { return FileName(state.live, number); };
}

FileNames Machine::Files() const {
  return FileNamesOf(State());
}

std::uint32_t Machine::Give(const TimeCommand& command) const {
  const StateFile::SenderLock lock(file_);
  return Order(State().time, command);
}

std::string Machine::Send(const Request& request, std::uint32_t& number) const {
  if (!Running()) return "the machine in " + directory_ + " does not run";
  const StateFile::SenderLock lock(file_);
  const bool sent = rack::Send(State().requests, request, number);
  return sent ? "" : "the controller takes no requests: too many are waiting";
}

std::string Machine::Await(std::uint32_t number) const {
  const Nanos limit = MonotonicNow() + kAnswerLimit;
  for (;;) {
    // Asked before the answer is: what a controller did just before its end is still seen.
    const bool running = Running();
    const RequestAnswer answer = Answer(number);
    if (answer.state != RequestAnswer::State::Pending) return answer.text;
    if (!running) return "the controller ended before it took the request";
    if (MonotonicNow() > limit)
      return "the controller made no bus access for 5 s: the request is still waiting";
    Doze(kLookMillis);
  }
}

std::string Machine::Ask(const Request& request, std::uint32_t* number) const {
  std::uint32_t sent = 0;
  std::string unsent = Send(request, sent);
  if (!unsent.empty()) return unsent;
  if (number != nullptr) *number = sent;
  return Await(sent);
}

void Doze(int millis) {
  const timespec pause = {millis / 1000, static_cast<long>(millis % 1000) * 1'000'000};
  nanosleep(&pause, nullptr);
}

}  // namespace rack
