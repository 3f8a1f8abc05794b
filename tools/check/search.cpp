#include "check/search.h"

#include <algorithm>
#include <map>
#include <set>
#include <string_view>

namespace check {

namespace {

constexpr size_t kMaxStates = 50'000;
constexpr size_t kMaxCells = 6'000'000;
constexpr size_t kMaxLooked = 1'000'000;  // lines looked at to see whether a wait can still end
constexpr int kFirstPause = 10;           // milliseconds between two commands, until G_ST changes it
constexpr int kEndPause = 1000;
constexpr int kUnknown = -1;
constexpr int kNobody = -2;  // time has passed

// How long a move or the operator takes at least, in milliseconds: what depends on that is not certain.
constexpr int kQuick = 30;
constexpr int kSlow = 30'000;

// Cells of a task in a state.
enum TaskCell { kAt, kCaller, kDue, kPauseOf, kMain, kTaskCells };
// The main program of a task.
enum MainProgram { kReset, kResetDone, kFlow };  // done: gone through once, and at it again

enum ValveCell { kLevel, kTimer, kValveCells };

struct Valve {
  int sensor;
  ValveOutput of;
};

struct FoundLock {
  bool isAlone;
  size_t state;
};

struct Found {
  std::map<std::vector<Wait>, FoundLock> locks;
  std::map<size_t, size_t> together;
  bool isStarted = false;
  bool isComplete = true;
};

// Where a task may be: its line, and where its block returns to.
struct Place {
  int at;
  int caller;

  bool operator<(const Place& other) const {
    return std::pair(at, caller) < std::pair(other.at, other.caller);
  }
};

// Levels that outputs may be switched to, and what may be moved.
class Switched {
 public:
  explicit Switched(const SearchModel& model)
      : levels_(model.outputs.size() * 2, false), movers_(model.movers.size(), false) {}

  void Add(const Step& step) {
    if (step.kind == StepKind::Out) levels_[Index(step.signal, step.level)] = true;
    if (step.kind == StepKind::Move || step.kind == StepKind::Setup)
      movers_[static_cast<size_t>(step.signal)] = true;
  }
  void Add(const Switched& other) {
    for (size_t i = 0; i < levels_.size(); ++i) levels_[i] = levels_[i] || other.levels_[i];
    for (size_t i = 0; i < movers_.size(); ++i) movers_[i] = movers_[i] || other.movers_[i];
  }
  bool Moves(int mover) const { return movers_[static_cast<size_t>(mover)]; }

  bool Has(int output, int level) const { return levels_[Index(output, level)]; }

 private:
  static size_t Index(int output, int level) {
    return static_cast<size_t>(output) * 2 + static_cast<size_t>(level);
  }

  std::vector<bool> levels_;
  std::vector<bool> movers_;
};

// Where a mover stands: a bit for each part of its way in which it may be. While it moves kMoving, or
// -1 - part when it is known where to. kLost: another motor of its card was started meanwhile, and the card
// answers for that.
constexpr std::int32_t kMoving = 0;
constexpr std::int32_t kLost = INT32_MIN;

std::int32_t Anywhere(const Mover& mover) {
  return (1 << mover.parts) - 1;
}

class Search {
 public:
  Search(const SearchModel& model, int least) : model_(model), least_(least) {
    for (size_t i = 0; i < model.sensors.size(); ++i) {
      for (const ValveOutput& valve : model.sensors[i].valves)
        valves_.push_back({static_cast<int>(i), valve});
    }
    outputsAt_ = model.tasks.size() * kTaskCells;
    valvesAt_ = outputsAt_ + model.outputs.size();
    inputsAt_ = valvesAt_ + valves_.size() * kValveCells;
    timersAt_ = inputsAt_ + static_cast<size_t>(model.inputs);
    moversAt_ = timersAt_ + model.forbidden.size();
    cells_ = moversAt_ + model.movers.size();
    table_.assign(kTableSize, 0);
    for (const TaskSteps& task : model.tasks) {
      Switched& switches = switches_.emplace_back(model);
      for (const Step& step : task.steps) switches.Add(step);
    }
    for (int task = 0; task < TaskCount(); ++task) resetEnds_.push_back(ResetEnds(task));
  }

  Found Run() {
    Begin();
    for (size_t state = 0; state < parents_.size(); ++state) {
      if (IsFull()) {
        found_.isComplete = false;
        break;
      }
      Expand(state);
    }
    return found_;
  }

  std::vector<Done> WayTo(size_t state) const {
    std::vector<Done> way;
    for (; state != 0; state = parents_[state].first) {
      const int doer = parents_[state].second;
      if (doer == kNobody) continue;
      const std::int32_t* before = &arena_[parents_[state].first * cells_];
      way.emplace_back(doer, doer == kEnterKey ? 0 : before[Cell(doer, kAt)]);
    }
    std::reverse(way.begin(), way.end());
    return way;
  }

 private:
  static constexpr size_t kTableSize = size_t{1} << 18;
  using State = std::vector<std::int32_t>;

  static size_t Cell(int task, TaskCell cell) {
    return static_cast<size_t>(task) * kTaskCells + static_cast<size_t>(cell);
  }
  size_t Cell(size_t valve, ValveCell cell) const { return valvesAt_ + valve * kValveCells + cell; }
  size_t OutputCell(int output) const { return outputsAt_ + static_cast<size_t>(output); }
  size_t InputCell(int input) const { return inputsAt_ + static_cast<size_t>(input); }
  size_t MoverCell(int mover) const { return moversAt_ + static_cast<size_t>(mover); }
  const Switch& SwitchOf(const Step& step) const { return model_.switches[static_cast<size_t>(step.signal)]; }
  int TaskCount() const { return static_cast<int>(model_.tasks.size()); }
  const TaskSteps& TaskOf(int task) const { return model_.tasks[static_cast<size_t>(task)]; }
  const Step& StepAt(int task, int step) const { return TaskOf(task).steps[static_cast<size_t>(step)]; }
  bool IsFull() const {
    return parents_.size() >= kMaxStates || parents_.size() * cells_ >= kMaxCells || looked_ >= kMaxLooked;
  }

  void Begin() {
    State state(cells_, 0);
    for (int task = 0; task < TaskCount(); ++task) {
      state[Cell(task, kPauseOf)] = kFirstPause;
      state[Cell(task, kCaller)] = kNoCall;
      GoTo(&state, task, TaskOf(task).reset, 0);
    }
    std::fill_n(state.begin() + static_cast<std::ptrdiff_t>(inputsAt_), model_.inputs, kUnknown);
    for (size_t i = 0; i < model_.movers.size(); ++i) state[moversAt_ + i] = Anywhere(model_.movers[i]);
    Add(state, 0, kNobody);
  }

  // The state that is reached when this task, kNobody or kEnterKey has done something.
  void Add(const State& state, size_t parent, int doer) {
    const std::string_view bytes(reinterpret_cast<const char*>(state.data()), state.size() * sizeof state[0]);
    for (size_t slot = std::hash<std::string_view>()(bytes);; ++slot) {
      std::uint32_t& entry = table_[slot % kTableSize];
      if (entry == 0) {
        entry = static_cast<std::uint32_t>(parents_.size() + 1);
        break;
      }
      if (std::equal(state.begin(), state.end(), &arena_[(entry - 1) * cells_])) return;
    }
    arena_.insert(arena_.end(), state.begin(), state.end());
    parents_.emplace_back(parent, doer);
  }

  bool SensorLevel(const State& state, int sensor) const {
    for (size_t i = 0; i < valves_.size(); ++i) {
      if (valves_[i].sensor == sensor && state[Cell(i, kLevel)] != 0) return true;
    }
    return false;
  }

  // The level that the sensor comes to when no output changes any more.
  bool LastLevel(const State& state, int sensor) const {
    const std::vector<ValveOutput>& valves = model_.sensors[static_cast<size_t>(sensor)].valves;
    return std::any_of(valves.begin(), valves.end(),
                       [&](const ValveOutput& valve) { return state[OutputCell(valve.output)] != 0; });
  }

  bool CanGoOn(const State& state, int task) const {
    const int at = state[Cell(task, kAt)];
    if (at < 0 || state[Cell(task, kDue)] != 0) return false;
    const Step& step = StepAt(task, at);
    switch (step.kind) {
      case StepKind::WaitSensor:
        return SensorLevel(state, step.signal) == (step.level != 0);
      case StepKind::WaitInput:
        return HasLevel(state, step);
      case StepKind::WaitSwitch:
        return CanHave(state, step, step.level) && !CanHave(state, step, 1 - step.level);
      case StepKind::WaitForever:
        return false;
      case StepKind::Pass:
      case StepKind::Out:
      case StepKind::WaitMove:
      case StepKind::Move:
      case StepKind::Select:
      case StepKind::Setup:
      case StepKind::AskSensor:
      case StepKind::AskInput:
      case StepKind::AskSwitch:
      case StepKind::Pause:
      case StepKind::SetPause:
      case StepKind::Call:
      case StepKind::End:
      case StepKind::Exit:
        return true;
    }
    return true;
  }

  // Whether an input is known to have the level that a line waits for.
  bool HasLevel(const State& state, const Step& step) const {
    return step.signal != kNotKept && state[InputCell(step.signal)] == step.level;
  }

  // Whether the switch of a line may have the level.
  bool CanHave(const State& state, const Step& step, int level) const {
    const Switch& which = SwitchOf(step);
    const std::int32_t where = state[MoverCell(which.mover)];
    return where <= kMoving || (where & (level != 0 ? which.on : ~which.on)) != 0;
  }

  // The switch has been seen at this level: as long as its mover stands, it stays there.
  void SetSwitch(State* state, const Step& step, int level) const {
    std::int32_t& where = (*state)[MoverCell(SwitchOf(step).mover)];
    if (where > kMoving) where &= level != 0 ? SwitchOf(step).on : ~SwitchOf(step).on;
  }

  // Whether it makes no difference to another task when the line is executed.
  bool IsOwn(const State& state, int task) const {
    const Step& step = StepAt(task, state[Cell(task, kAt)]);
    switch (step.kind) {
      case StepKind::Out:
      case StepKind::WaitSensor:
      case StepKind::WaitSwitch:
      case StepKind::Move:
      case StepKind::Select:
      case StepKind::Setup:
      case StepKind::AskSensor:
      case StepKind::AskSwitch:
        return false;
      case StepKind::WaitMove:
        return step.signal < 0;
      case StepKind::Pass:
      case StepKind::WaitInput:
      case StepKind::AskInput:
      case StepKind::Pause:
      case StepKind::SetPause:
      case StepKind::Call:
      case StepKind::End:
      case StepKind::Exit:
      case StepKind::WaitForever:
        return true;
    }
    return true;
  }

  // Whether a task waits for a level that may come, but is not known to.
  bool IsOpen(const State& state, int task) const {
    const Step& step = StepAt(task, state[Cell(task, kAt)]);
    if (step.kind == StepKind::WaitInput) return !HasLevel(state, step);
    return step.kind == StepKind::WaitSwitch && CanHave(state, step, step.level) &&
           CanHave(state, step, 1 - step.level);
  }

  void Expand(size_t index) {
    const auto begin = arena_.begin() + static_cast<std::ptrdiff_t>(index * cells_);
    const State state(begin, begin + static_cast<std::ptrdiff_t>(cells_));
    std::vector<int> ready;
    for (int task = 0; task < TaskCount(); ++task) {
      if (!CanGoOn(state, task)) continue;
      if (IsOwn(state, task)) return Execute(state, index, task);
      ready.push_back(task);
    }
    for (const int task : ready) Execute(state, index, task);
    if (ready.empty()) ExpandQuiet(state, index);
  }

  // Nothing happens in this moment: people act, or time passes.
  void ExpandQuiet(const State& state, size_t index) {
    FindLocks(state, index);
    FindTogether(state, index);
    bool isReset = true;
    for (int task = 0; task < TaskCount(); ++task) {
      const int at = state[Cell(task, kAt)];
      isReset = isReset && (at == kIdle || state[Cell(task, kMain)] == kResetDone);
      if (at < 0 || state[Cell(task, kDue)] != 0 || !IsOpen(state, task)) continue;
      State next = state;
      const Step& step = StepAt(task, at);
      if (step.kind == StepKind::WaitInput) SetInput(&next, step.signal, step.level);
      Execute(next, index, task);
    }
    if (isReset) PressEnter(state, index);
    PassTime(state, index);
  }

  void PressEnter(const State& state, size_t index) {
    State next = state;
    for (int task = 0; task < TaskCount(); ++task) OpenFlow(&next, task);
    found_.isStarted = true;
    Add(next, index, kEnterKey);
  }

  // A block goes on, and a line that is repeated is repeated until it is met.
  void OpenFlow(State* state, int task) const {
    const int at = (*state)[Cell(task, kAt)];
    std::int32_t& caller = (*state)[Cell(task, kCaller)];
    (*state)[Cell(task, kMain)] = kFlow;
    if (caller != kNoCall) {
      caller = TaskOf(task).flow;
    } else if (at < 0 || !IsRepeated(*state, task)) {
      GoTo(state, task, TaskOf(task).flow, (*state)[Cell(task, kDue)]);
    }
  }

  bool IsRepeated(const State& state, int task) const {
    switch (StepAt(task, state[Cell(task, kAt)]).kind) {
      case StepKind::WaitSensor:
      case StepKind::WaitSwitch:
        return state[Cell(task, kDue)] == 0;
      case StepKind::WaitInput:
      case StepKind::WaitMove:
      case StepKind::Setup:
      case StepKind::WaitForever:
        return true;
      case StepKind::Pass:
      case StepKind::Out:
      case StepKind::Move:
      case StepKind::Select:
      case StepKind::AskSensor:
      case StepKind::AskInput:
      case StepKind::AskSwitch:
      case StepKind::Pause:
      case StepKind::SetPause:
      case StepKind::Call:
      case StepKind::End:
      case StepKind::Exit:
        return false;
    }
    return false;
  }

  // Whether a reset program comes to its end, and does not go round for ever.
  bool ResetEnds(int task) const {
    const std::vector<bool> noneFixed(model_.sensors.size(), false);
    std::set<Place> seen;
    std::vector<Place> open = {{TaskOf(task).reset, kNoCall}};
    while (!open.empty()) {
      const Place place = open.back();
      open.pop_back();
      if (place.at < 0 || !seen.insert(place).second) continue;
      const StepKind kind = StepAt(task, place.at).kind;
      if (kind == StepKind::Exit || (kind == StepKind::End && place.caller == kNoCall)) return true;
      AddNext({}, task, place, noneFixed, &open);
    }
    return false;
  }

  void PassTime(const State& state, size_t index) {
    int step = 0;
    const auto take = [&](int millis) {
      if (millis > 0 && (step == 0 || millis < step)) step = millis;
    };
    for (int task = 0; task < TaskCount(); ++task) take(state[Cell(task, kDue)]);
    for (size_t i = 0; i < valves_.size(); ++i) take(state[Cell(i, kTimer)]);
    for (size_t i = 0; i < model_.forbidden.size(); ++i) {
      if (Holds(state, model_.forbidden[i])) take(model_.forbidden[i].forMillis - state[timersAt_ + i]);
    }
    if (step == 0) return;
    State next = state;
    const auto pass = [&](size_t cell) { next[cell] = std::max(0, next[cell] - step); };
    for (int task = 0; task < TaskCount(); ++task) pass(Cell(task, kDue));
    for (size_t i = 0; i < valves_.size(); ++i) {
      if (next[Cell(i, kTimer)] == 0) continue;
      pass(Cell(i, kTimer));
      if (next[Cell(i, kTimer)] == 0) next[Cell(i, kLevel)] = next[OutputCell(valves_[i].of.output)];
    }
    for (size_t i = 0; i < model_.forbidden.size(); ++i) {
      std::int32_t& timer = next[timersAt_ + i];
      timer = Holds(state, model_.forbidden[i]) ? std::min(model_.forbidden[i].forMillis, timer + step) : 0;
    }
    Add(next, index, kNobody);
  }

  // Leads the task to a line, which it comes to after a pause.
  void GoTo(State* state, int task, int at, int pause) const {
    (*state)[Cell(task, kAt)] = at;
    (*state)[Cell(task, kDue)] = 0;
    if (at < 0) return;
    const StepKind kind = StepAt(task, at).kind;
    const bool takesTime = kind == StepKind::WaitMove || kind == StepKind::Setup || IsOpen(*state, task);
    (*state)[Cell(task, kDue)] = pause + (takesTime ? least_ : 0);
  }

  // Executes the line at which the task is. A line without a pause takes a millisecond.
  void Execute(const State& state, size_t index, int task) {
    State next = state;
    const Step& step = StepAt(task, state[Cell(task, kAt)]);
    std::int32_t& caller = next[Cell(task, kCaller)];
    int pause = std::max(1, state[Cell(task, kPauseOf)]);
    int to = step.next;
    switch (step.kind) {
      case StepKind::Out:
        SwitchOutput(&next, step.signal, step.level);
        break;
      case StepKind::Pause:
        pause += std::max(0, step.level);
        break;
      case StepKind::SetPause:
        if (step.level >= 0) next[Cell(task, kPauseOf)] = step.level;
        pause = std::max(1, next[Cell(task, kPauseOf)]);
        break;
      case StepKind::Call:
        return Call(&next, index, task, step.first);
      case StepKind::AskSensor: {
        const bool isLevel = (SensorLevel(state, step.signal) ? 1 : 0) == step.level;
        return Call(&next, index, task, isLevel ? step.first : step.second);
      }
      case StepKind::AskInput:
        return Ask(state, index, task);
      case StepKind::AskSwitch:
        return AskSwitch(state, index, task);
      case StepKind::Move:
        Move(&next, step);
        break;
      case StepKind::Select:
        Select(&next, step.signal, kSomewhere);
        break;
      case StepKind::Setup:
        next[MoverCell(step.signal)] = kMoving;
        break;
      case StepKind::WaitMove:
        if (step.signal >= 0) Stand(&next, step.signal);
        break;
      case StepKind::WaitSwitch:
        SetSwitch(&next, step, step.level);
        break;
      case StepKind::End:
        pause = kEndPause;
        to = caller != kNoCall ? caller : FirstOfMain(task, step);
        if (caller == kNoCall) EndReset(&next, task);
        caller = kNoCall;
        break;
      case StepKind::Exit:
        if (caller == kNoCall) to = kIdle;
        if (caller != kNoCall) caller = kIdle;
        break;
      case StepKind::Pass:
      case StepKind::WaitSensor:
      case StepKind::WaitInput:
      case StepKind::WaitForever:
        break;
    }
    const bool isRound = step.kind == StepKind::Pass && to >= 0 && to <= state[Cell(task, kAt)];
    const bool isOpenEnd = to == kStuck && caller == kNoCall;
    if (isOpenEnd || (isRound && !resetEnds_[static_cast<size_t>(task)])) EndReset(&next, task);
    if (IsLeft(next, task, step)) to = TaskOf(task).flow;
    GoTo(&next, task, to, pause);
    Add(next, index, task);
  }

  // What is moved anew while it moves may miss where it was sent.
  void Move(State* state, const Step& step) const {
    const Mover& mover = model_.movers[static_cast<size_t>(step.signal)];
    if (mover.sharesAnswer) Select(state, mover.place.slot, step.signal);
    std::int32_t& where = (*state)[MoverCell(step.signal)];
    const bool isKnown = where > kMoving && step.level != kSomewhere;
    where = isKnown ? -1 - step.level : kMoving;
  }

  void Select(State* state, int slot, int selected) const {
    for (int mover = 0; mover < static_cast<int>(model_.movers.size()); ++mover) {
      std::int32_t& where = (*state)[MoverCell(mover)];
      const bool isOther = mover != selected && model_.movers[static_cast<size_t>(mover)].place.slot == slot;
      if (isOther && where <= kMoving) where = kLost;
    }
  }

  void Stand(State* state, int mover) const {
    std::int32_t& where = (*state)[MoverCell(mover)];
    if (where == kLost) return;
    if (where < kMoving)
      where = 1 << (-1 - where);
    else if (where == kMoving)
      where = Anywhere(model_.movers[static_cast<size_t>(mover)]);
  }

  static void EndReset(State* state, int task) {
    std::int32_t& main = (*state)[Cell(task, kMain)];
    if (main == kReset) main = kResetDone;
  }

  // Whether a line that was repeated when Enter came is of the reset program, which was closed then.
  static bool IsLeft(const State& state, int task, const Step& step) {
    return state[Cell(task, kMain)] == kFlow && state[Cell(task, kCaller)] == kNoCall &&
           step.kind != StepKind::End && step.program->name == kResetProgram;
  }

  int FirstOfMain(int task, const Step& step) const {
    return step.program->name == kResetProgram ? TaskOf(task).reset : TaskOf(task).flow;
  }

  void SetInput(State* state, int input, int level) const {
    if (input != kNotKept) (*state)[InputCell(input)] = level;
  }

  // An input that was not read before has either level.
  void Ask(const State& state, size_t index, int task) {
    const Step& step = StepAt(task, state[Cell(task, kAt)]);
    for (const int level : {0, 1}) {
      const int known = step.signal == kNotKept ? kUnknown : state[InputCell(step.signal)];
      if (known != kUnknown && known != level) continue;
      State next = state;
      SetInput(&next, step.signal, level);
      Call(&next, index, task, level == step.level ? step.first : step.second);
    }
  }

  void AskSwitch(const State& state, size_t index, int task) {
    const Step& step = StepAt(task, state[Cell(task, kAt)]);
    for (const int level : {0, 1}) {
      if (!CanHave(state, step, level)) continue;
      State next = state;
      SetSwitch(&next, step, level);
      Call(&next, index, task, level == step.level ? step.first : step.second);
    }
  }

  void Call(State* next, size_t index, int task, int block) {
    const Step& step = StepAt(task, (*next)[Cell(task, kAt)]);
    std::int32_t& caller = (*next)[Cell(task, kCaller)];
    const int pause = std::max(1, (*next)[Cell(task, kPauseOf)]);
    const bool isInBlock = caller != kNoCall;
    if (block == kNoCall || (block == kMissing && !isInBlock)) {
      GoTo(next, task, step.next, pause);
    } else if (block == kMissing) {
      GoTo(next, task, kStuck, 0);
    } else {
      if (!isInBlock) caller = step.next;
      GoTo(next, task, block, 1);
    }
    Add(*next, index, task);
  }

  void SwitchOutput(State* state, int output, int level) const {
    (*state)[OutputCell(output)] = level;
    for (size_t i = 0; i < valves_.size(); ++i) {
      if (valves_[i].of.output != output) continue;
      std::int32_t& timer = (*state)[Cell(i, kTimer)];
      std::int32_t& now = (*state)[Cell(i, kLevel)];
      const int delay = level != 0 ? valves_[i].of.onDelay : valves_[i].of.offDelay;
      if (now == level) {
        timer = 0;
      } else if (delay == 0) {
        now = level;
      } else if (timer == 0) {
        timer = delay;
      }
    }
  }

  bool Holds(const State& state, const Forbidden& forbidden) const {
    return std::all_of(forbidden.literals.begin(), forbidden.literals.end(), [&](const Literal& literal) {
      const bool level =
          literal.isSensor ? SensorLevel(state, literal.signal) : state[OutputCell(literal.signal)] != 0;
      return level == (literal.level != 0);
    });
  }

  void FindTogether(const State& state, size_t index) {
    for (size_t i = 0; i < model_.forbidden.size(); ++i) {
      const Forbidden& forbidden = model_.forbidden[i];
      if (Holds(state, forbidden) && state[timersAt_ + i] >= forbidden.forMillis)
        found_.together.emplace(i, index);
    }
  }

  // Whether what may be switched gives what a wait is for.
  bool CanGive(const State& state, const Wait& wait, const Switched& switched) const {
    const Step& step = StepAt(wait.first, wait.second);
    if (step.kind == StepKind::WaitSwitch) return switched.Moves(SwitchOf(step).mover);
    const auto writes = [&](const ValveOutput& valve) { return switched.Has(valve.output, step.level); };
    const std::vector<ValveOutput>& valves = model_.sensors[static_cast<size_t>(step.signal)].valves;
    if (step.level != 0) return std::any_of(valves.begin(), valves.end(), writes);
    return std::all_of(valves.begin(), valves.end(), [&](const ValveOutput& valve) {
      return state[OutputCell(valve.output)] == 0 || writes(valve);
    });
  }

  bool IsWaiting(const std::vector<Wait>& waits, int task) const {
    return std::any_of(waits.begin(), waits.end(), [&](const Wait& wait) { return wait.first == task; });
  }

  // What all tasks but one switch in any of their lines.
  Switched SwitchedByOthers(int task) const {
    Switched switched(model_);
    for (int other = 0; other < TaskCount(); ++other) {
      if (other != task) switched.Add(switches_[static_cast<size_t>(other)]);
    }
    return switched;
  }

  // The sensors that stand at the level that their outputs ask for.
  std::vector<bool> SettledSensors(const State& state) const {
    std::vector<bool> settled(model_.sensors.size());
    for (size_t i = 0; i < settled.size(); ++i) {
      const int sensor = static_cast<int>(i);
      settled[i] = SensorLevel(state, sensor) == LastLevel(state, sensor);
    }
    for (size_t i = 0; i < valves_.size(); ++i) {
      if (state[Cell(i, kTimer)] != 0) settled[static_cast<size_t>(valves_[i].sensor)] = false;
    }
    return settled;
  }

  // What the tasks that do not wait may switch from where they are while the others stay in their waits: a
  // sensor whose outputs none of them switches keeps its level.
  Switched SwitchedWithout(const State& state, const std::vector<Wait>& waits) {
    std::vector<bool> fixed = SettledSensors(state);
    for (;;) {
      Switched switched(model_);
      for (int task = 0; task < TaskCount(); ++task) {
        if (!IsWaiting(waits, task)) Reach(state, task, fixed, &switched);
      }
      bool isNew = false;
      for (size_t i = 0; i < fixed.size(); ++i) {
        const bool moves = std::any_of(
            model_.sensors[i].valves.begin(), model_.sensors[i].valves.end(), [&](const ValveOutput& valve) {
              return switched.Has(valve.output, state[OutputCell(valve.output)] == 0 ? 1 : 0);
            });
        if (!fixed[i] || !moves) continue;
        fixed[i] = false;
        isNew = true;
      }
      if (!isNew) return switched;
    }
  }

  // All lines that a task may come to, Enter pressed or not.
  void Reach(const State& state, int task, const std::vector<bool>& fixed, Switched* switched) {
    std::set<Place> seen;
    std::vector<Place> open = {{state[Cell(task, kAt)], state[Cell(task, kCaller)]},
                               {TaskOf(task).flow, kNoCall}};
    while (!open.empty()) {
      const Place place = open.back();
      open.pop_back();
      if (place.at < 0 || !seen.insert(place).second) continue;
      ++looked_;
      const Step& step = StepAt(task, place.at);
      switched->Add(step);
      AddNext(state, task, place, fixed, &open);
    }
  }

  void AddNext(const State& state, int task, const Place& place, const std::vector<bool>& fixed,
               std::vector<Place>* open) const {
    const Step& step = StepAt(task, place.at);
    const bool isInBlock = place.caller != kNoCall;
    const auto call = [&](int block) {
      if (block == kNoCall || (block == kMissing && !isInBlock))
        open->push_back({step.next, place.caller});
      else
        open->push_back({block, isInBlock ? place.caller : step.next});
    };
    const bool isFixed = (step.kind == StepKind::WaitSensor || step.kind == StepKind::AskSensor) &&
                         fixed[static_cast<size_t>(step.signal)];
    const bool isLevel = isFixed && (LastLevel(state, step.signal) ? 1 : 0) == step.level;
    switch (step.kind) {
      case StepKind::WaitForever:
        return;
      case StepKind::WaitSensor:
        if (!isFixed || isLevel) open->push_back({step.next, place.caller});
        return;
      case StepKind::AskSensor:
      case StepKind::AskInput:
      case StepKind::AskSwitch:
        if (!isFixed || isLevel) call(step.first);
        if (!isFixed || !isLevel) call(step.second);
        return;
      case StepKind::Call:
        return call(step.first);
      case StepKind::End:
        open->push_back({isInBlock ? place.caller : FirstOfMain(task, step), kNoCall});
        return;
      case StepKind::Exit:
        if (isInBlock) open->push_back({step.next, kIdle});
        return;
      case StepKind::Pass:
      case StepKind::Out:
      case StepKind::WaitInput:
      case StepKind::WaitSwitch:
      case StepKind::WaitMove:
      case StepKind::Move:
      case StepKind::Select:
      case StepKind::Setup:
      case StepKind::Pause:
      case StepKind::SetPause:
        open->push_back({step.next, place.caller});
        return;
    }
  }

  std::vector<Wait> UnmetWaits(const State& state) const {
    std::vector<Wait> waits;
    for (int task = 0; task < TaskCount(); ++task) {
      const int at = state[Cell(task, kAt)];
      if (at < 0 || state[Cell(task, kDue)] != 0) continue;
      const Step& step = StepAt(task, at);
      const bool isUnmet =
          (step.kind == StepKind::WaitSensor && LastLevel(state, step.signal) != (step.level != 0)) ||
          (step.kind == StepKind::WaitSwitch && !CanHave(state, step, step.level));
      if (isUnmet) waits.emplace_back(task, at);
    }
    return waits;
  }

  void FindLocks(const State& state, size_t index) {
    std::vector<Wait> waits = UnmetWaits(state);
    bool isAlone = false;
    for (const Wait& wait : waits) {
      if (CanGive(state, wait, SwitchedByOthers(wait.first))) continue;
      isAlone = true;
      found_.locks.emplace(std::vector<Wait>{wait}, FoundLock{true, index});
    }
    if (isAlone) return;
    while (!waits.empty()) {
      const Switched switched = SwitchedWithout(state, waits);
      const size_t before = waits.size();
      waits.erase(std::remove_if(waits.begin(), waits.end(),
                                 [&](const Wait& wait) { return CanGive(state, wait, switched); }),
                  waits.end());
      if (before == waits.size()) break;
    }
    if (!waits.empty()) found_.locks.emplace(waits, FoundLock{false, index});
  }

  const SearchModel& model_;
  const int least_;
  std::vector<Valve> valves_;
  std::vector<Switched> switches_;  // by task: in any of its lines
  std::vector<bool> resetEnds_;     // by task
  size_t outputsAt_ = 0;
  size_t valvesAt_ = 0;
  size_t inputsAt_ = 0;
  size_t timersAt_ = 0;
  size_t moversAt_ = 0;
  size_t cells_ = 0;
  std::vector<std::int32_t> arena_;              // the cells of all states
  std::vector<std::pair<size_t, int>> parents_;  // by state: the one before it, and who did something
  std::vector<std::uint32_t> table_;             // number of a state, counted from 1
  size_t looked_ = 0;
  Found found_;
};

// A wait that nothing ends makes others wait; of waits that lock each other all sides are told.
void LeaveOutConsequences(std::vector<Lock>* locks) {
  const bool isAlone =
      std::any_of(locks->begin(), locks->end(), [](const Lock& lock) { return lock.isAlone; });
  const std::vector<Lock> all = *locks;
  const auto isConsequence = [&](const Lock& lock) {
    if (isAlone) return !lock.isAlone;
    return std::any_of(all.begin(), all.end(), [&](const Lock& other) {
      return other.waits.size() > lock.waits.size() &&
             std::includes(other.waits.begin(), other.waits.end(), lock.waits.begin(), lock.waits.end());
    });
  };
  locks->erase(std::remove_if(locks->begin(), locks->end(), isConsequence), locks->end());
}

}  // namespace

SearchResult SearchStates(const SearchModel& model) {
  Search quick(model, kQuick);
  const Found first = quick.Run();
  SearchResult result;
  result.isComplete = first.isComplete;
  result.isStarted = first.isStarted;
  if (first.locks.empty() && first.together.empty()) return result;
  const Found second = Search(model, kSlow).Run();
  result.isComplete = first.isComplete && second.isComplete;
  for (const auto& [waits, lock] : first.locks) {
    if (second.locks.count(waits) > 0) result.locks.push_back({waits, lock.isAlone, quick.WayTo(lock.state)});
  }
  LeaveOutConsequences(&result.locks);
  for (const auto& [forbidden, state] : first.together) {
    if (second.together.count(forbidden) > 0) result.together.push_back({forbidden, quick.WayTo(state)});
  }
  return result;
}

}  // namespace check
