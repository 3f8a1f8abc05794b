#include "check/search_model.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "check/topics.h"
#include "commands/command_rows.h"
#include "drvlib.h"
#include "numbers.h"

namespace check {

namespace {

using Place = std::pair<int, int>;  // slot index and channel

constexpr rack::Nanos kMillisecond = 1'000'000;

// In milliseconds: two of them fit into an int.
constexpr int kLongest = 1'000'000'000;

int MillisOf(rack::Nanos time) {
  return static_cast<int>(std::min<rack::Nanos>((time + kMillisecond - 1) / kMillisecond, kLongest));
}

// Which inputs follow outputs alone.
struct Valves {
  std::map<Place, std::vector<const rack::PlantLink*>> bySensor;
  std::map<Place, std::set<Place>> outputsAt;  // also of inputs that something else drives too

  explicit Valves(const rack::RackSetup& setup) {
    std::set<Place> others;
    for (std::uint32_t i = 0; i < setup.plant.linkCount; ++i) {
      const rack::PlantLink& link = setup.plant.links[i];
      const bool drives = link.then == rack::Effect::Follow || link.then == rack::Effect::Arrive;
      if (!drives || link.target.kind != rack::SignalKind::Input) continue;
      const Place target(link.target.entry, link.target.channel);
      const bool isValve = link.then == rack::Effect::Follow && link.when == rack::Condition::Signal &&
                           link.source.kind == rack::SignalKind::Output && link.inverted == 0;
      if (isValve) outputsAt[target].emplace(link.source.entry, link.source.channel);
      if (isValve)
        bySensor[target].push_back(&link);
      else
        others.insert(target);
    }
    for (auto sensor = bySensor.begin(); sensor != bySensor.end();) {
      const auto& [entry, channel] = sensor->first;
      const bool isOnAtStart = (setup.inputsOn[entry] >> channel & 1) != 0;
      sensor = isOnAtStart || others.count(sensor->first) > 0 ? bySensor.erase(sensor) : std::next(sensor);
    }
  }

  std::set<Place> OutputsAt(const rack::PlantLink& link) const {
    const auto outputs = outputsAt.find({link.target.entry, link.target.channel});
    return outputs == outputsAt.end() ? std::set<Place>() : outputs->second;
  }
};

// A motor or cylinder, so that it is none of the outputs.
constexpr int kMoverChannels = 1000;
Place MoverPlace(int entry, int channel) {
  return {entry, kMoverChannels + channel};
}

// Which inputs are switches of one motor or cylinder, and nothing else.
struct Switches {
  struct Way {
    bool isMotor;
    std::set<std::int64_t> starts;  // of the parts of the way behind the first
  };

  std::vector<const rack::PlantLink*> all;
  std::map<Place, std::vector<const rack::PlantLink*>> byInput;
  std::map<Place, Way> ways;

  explicit Switches(const rack::RackSetup& setup) {
    std::set<Place> others;
    for (std::uint32_t i = 0; i < setup.plant.linkCount; ++i) {
      const rack::PlantLink& link = setup.plant.links[i];
      const bool drives = link.then == rack::Effect::Follow || link.then == rack::Effect::Arrive;
      if (!drives || link.target.kind != rack::SignalKind::Input) continue;
      const Place target(link.target.entry, link.target.channel);
      if (IsSwitch(link)) all.push_back(&link);
      if (IsSwitch(link) && (byInput.count(target) == 0 || MoverOf(target) == MoverOf(link)))
        byInput[target].push_back(&link);
      else
        others.insert(target);
    }
    for (auto input = byInput.begin(); input != byInput.end();) {
      const auto& [entry, channel] = input->first;
      const bool isOnAtStart = (setup.inputsOn[entry] >> channel & 1) != 0;
      input = isOnAtStart || others.count(input->first) > 0 ? byInput.erase(input) : std::next(input);
    }
    for (const auto& [input, links] : byInput) {
      Way& way = ways[MoverOf(input)];
      way.isMotor = links.front()->when == rack::Condition::MotorWithin;
      for (const rack::PlantLink* link : links) {
        if (link->from > INT64_MIN) way.starts.insert(link->from);
        if (EndOf(*link) < INT64_MAX) way.starts.insert(EndOf(*link) + 1);
      }
    }
    constexpr size_t kMostStarts = 24;  // a part is a bit
    std::set<Place> longWays;
    for (const auto& [mover, way] : ways) {
      if (way.starts.size() > kMostStarts) longWays.insert(mover);
    }
    for (const Place& mover : longWays) LeaveOut(mover);
  }

  // Whether they are on one way, and never on together.
  static bool AreApart(const rack::PlantLink& one, const rack::PlantLink& other) {
    return MoverOf(one) == MoverOf(other) && (EndOf(one) < other.from || EndOf(other) < one.from);
  }

  void LeaveOut(const Place& mover) {
    ways.erase(mover);
    for (auto input = byInput.begin(); input != byInput.end();)
      input = MoverOf(input->first) == mover ? byInput.erase(input) : std::next(input);
  }

  Place MoverOf(const Place& input) const { return MoverOf(*byInput.at(input).front()); }

  // A bit for each part of the way: whether the input is on there.
  std::int32_t OnOf(const Place& input) const {
    std::int32_t on = 0;
    for (const rack::PlantLink* link : byInput.at(input)) {
      const std::set<std::int64_t>& starts = ways.at(MoverOf(input)).starts;
      const int last = PartAt(starts, EndOf(*link));
      for (int part = PartAt(starts, link->from); part <= last; ++part) on |= 1 << part;
    }
    return on;
  }

  static int PartAt(const std::set<std::int64_t>& starts, std::int64_t position) {
    return static_cast<int>(std::distance(starts.begin(), starts.upper_bound(position)));
  }

 private:
  static Place MoverOf(const rack::PlantLink& link) { return MoverPlace(link.entry, link.channel); }
  static bool IsSwitch(const rack::PlantLink& link) {
    const bool isAtPlace =
        link.when == rack::Condition::MotorWithin || link.when == rack::Condition::CylinderStands;
    return isAtPlace && link.then == rack::Effect::Follow && link.inverted == 0;
  }
  static std::int64_t EndOf(const rack::PlantLink& link) {
    return link.when == rack::Condition::CylinderStands ? link.from : link.to;
  }
};

// What a line writes or reads.
struct Touched {
  StepKind kind = StepKind::Pass;
  Place place;
  int level = 0;
};

class ModelBuilder {
 public:
  explicit ModelBuilder(const ProgramTree& tree)
      : tree_(tree), setup_(tree.rack->file->setup), valves_(setup_), switches_(setup_) {}

  std::vector<SearchModel> Build() {
    FindForbidden();
    FindAllUses();
    if (LeaveOutShared()) FindAllUses();
    ChooseTasks();
    std::vector<SearchModel> models;
    for (std::vector<const Uses*>& group : Groups()) {
      models.push_back(ModelFor(group));
    }
    return models;
  }

 private:
  // What a task has to do with outputs and movers, and with what follows them: sensors and switches.
  struct Uses {
    const Task* task;
    std::set<Place> written;
    std::set<Place> waitedFor;
    std::set<Place> asked;
  };

  struct WantedLevel {
    bool isSensor;
    Place place;
    int level;
  };

  struct WantedNever {
    Forbidden as;  // without its literals
    std::vector<WantedLevel> levels;
  };

  // The channel that a command reaches on its card; -1: none.
  int Reached(const Line& line) const {
    const rack::CardCommands* card = tree_.CardOf(line.parsed.SlotIdx.Value);
    const rack::CardCommand* command = card == nullptr ? nullptr : card->Find(line.parsed.CmdIdx);
    return command == nullptr ? -1 : card->Reached(*command, line.parsed.ChIdx.Value);
  }

  bool IsUsed(const Line& line) const {
    const rack::CardCommands* card = tree_.CardOf(line.parsed.SlotIdx.Value);
    return card != nullptr && card->Find(line.parsed.CmdIdx) != nullptr;
  }

  Touched TouchedBy(const Line& line) const {
    const rack::Parameter parameter = rack::RowOf(line.parsed.CmdIdx).parameter;
    if (parameter == rack::Parameter::OnOff) return TouchedByOut(line);
    if (parameter == rack::Parameter::Level) return TouchedByLd(line);
    if (parameter == rack::Parameter::Condition) return TouchedByIf(line);
    if (parameter == rack::Parameter::Position) return TouchedByDg(line);
    if (parameter == rack::Parameter::Move) return TouchedByMot(line);
    if (rack::RowOf(line.parsed.CmdIdx).waitsFor == rack::WaitsFor::MotorEnd ||
        rack::RowOf(line.parsed.CmdIdx).waitsFor == rack::WaitsFor::CylinderPosition)
      return MoverOf(line, StepKind::WaitMove);
    return {};
  }

  Touched MoverOf(const Line& line, StepKind kind) const {
    const int channel = Reached(line);
    if (channel < 0) return {};
    const Place mover = MoverPlace(line.parsed.SlotIdx.Value, channel);
    if (switches_.ways.count(mover) == 0) return {};
    return {kind, mover, kSomewhere};
  }

  Touched TouchedByMot(const Line& line) const {
    const Touched touched = MoverOf(line, StepKind::Move);
    const int slot = line.parsed.SlotIdx.Value;
    const auto way = switches_.ways.lower_bound(MoverPlace(slot, 0));
    const bool isOnCard = way != switches_.ways.end() && way->first.first == slot;
    const bool isOther = touched.kind == StepKind::Pass && isOnCard && SharesAnswer(slot);
    return isOther ? Touched{StepKind::Select, {slot, 0}, 0} : touched;
  }

  bool SharesAnswer(int slot) const {
    const rack::CardCommands* card = tree_.CardOf(slot);
    return card != nullptr && card->AsksLastSelected(SYN_LMOT);
  }

  Touched TouchedByDg(const Line& line) const {
    constexpr int kLastPosition = 15;
    Touched touched = MoverOf(line, StepKind::Move);
    if (touched.kind != StepKind::Move) return touched;
    const int position = ToNumber<int>(std::string(line.parsed.Param).c_str());
    if (position < 0) touched.kind = StepKind::Setup;
    if (position >= 0 && position <= kLastPosition)
      touched.level = Switches::PartAt(switches_.ways.at(touched.place).starts, position);
    return touched;
  }

  StepKind KindOf(const Place& input, StepKind sensor, StepKind atSwitch, StepKind other) const {
    if (valves_.bySensor.count(input) > 0) return sensor;
    return switches_.byInput.count(input) > 0 ? atSwitch : other;
  }

  Touched TouchedByOut(const Line& line) const {
    const int channel = Reached(line);
    if (channel < 0) return {};
    const int level = ToNumber<int>(std::string(line.parsed.Param).c_str()) == 1 ? 1 : 0;
    return {StepKind::Out, {line.parsed.SlotIdx.Value, channel}, level};
  }

  Touched TouchedByLd(const Line& line) const {
    if (tree_.CardOf(line.parsed.SlotIdx.Value) == nullptr) return {StepKind::WaitForever, {}, 0};
    if (!IsUsed(line)) return {};
    const int level = ToNumber<int>(std::string(line.parsed.Param).c_str());
    const int channel = Reached(line);
    if (level < 0 || level > 1 || (channel < 0 && level == 1)) return {StepKind::WaitForever, {}, 0};
    if (channel < 0) return {};
    const Place place(line.parsed.SlotIdx.Value, channel);
    return {KindOf(place, StepKind::WaitSensor, StepKind::WaitSwitch, StepKind::WaitInput), place, level};
  }

  Touched TouchedByIf(const Line& line) const {
    const int channel = Reached(line);
    const std::string condition(line.parsed.Param);
    if (channel < 0 || !PieceOf(condition, 2, '&')) return {};
    const Place place(line.parsed.SlotIdx.Value, channel);
    const int level = ToNumber<int>(PieceOf(condition, 0, '&')->c_str());
    return {KindOf(place, StepKind::AskSensor, StepKind::AskSwitch, StepKind::AskInput), place, level};
  }

  // A block that no line calls is never executed.
  static bool IsStarted(const Program& program) { return program.isMain || program.isCalled; }

  void FindAllUses() {
    uses_.clear();
    for (const Task& task : tree_.tasks) {
      if (IsRun(tree_, task) && task.Find(kResetProgram) != nullptr) FindUses(task);
    }
  }

  // What several tasks move is not followed: too much depends on times then.
  bool LeaveOutShared() {
    std::set<Place> once;
    std::set<Place> shared;
    for (const Uses& uses : uses_) {
      for (const Place& place : uses.written) {
        if (switches_.ways.count(place) > 0 && !once.insert(place).second) shared.insert(place);
      }
    }
    for (const Place& mover : shared) switches_.LeaveOut(mover);
    return !shared.empty();
  }

  void FindUses(const Task& task) {
    Uses uses{&task, {}, {}, {}};
    for (const auto& [name, program] : task.programs) {
      if (!IsStarted(program)) continue;
      for (const Line& line : program.lines) {
        Note(TouchedBy(line), &uses);
      }
    }
    uses_.push_back(std::move(uses));
  }

  static void Note(const Touched& touched, Uses* uses) {
    switch (touched.kind) {
      case StepKind::Out:
      case StepKind::Move:
      case StepKind::Setup:
        uses->written.insert(touched.place);
        return;
      case StepKind::WaitSensor:
      case StepKind::WaitSwitch:
        uses->waitedFor.insert(touched.place);
        return;
      case StepKind::AskSensor:
      case StepKind::AskSwitch:
        uses->asked.insert(touched.place);
        return;
      case StepKind::Pass:
      case StepKind::WaitInput:
      case StepKind::WaitMove:
      case StepKind::Select:
      case StepKind::AskInput:
      case StepKind::Pause:
      case StepKind::SetPause:
      case StepKind::Call:
      case StepKind::End:
      case StepKind::Exit:
      case StepKind::WaitForever:
        return;
    }
  }

  int MoverIndex(const Place& place) {
    const auto [entry, isNew] = moverIndices_.emplace(place, static_cast<int>(model_.movers.size()));
    const Switches::Way& way = switches_.ways.at(place);
    if (isNew) {
      model_.movers.push_back({{place.first, place.second - kMoverChannels},
                               way.isMotor,
                               SharesAnswer(place.first),
                               static_cast<int>(way.starts.size()) + 1});
    }
    return entry->second;
  }

  int SwitchIndex(const Place& place) {
    const auto [entry, isNew] = switchIndices_.emplace(place, static_cast<int>(model_.switches.size()));
    if (isNew) {
      model_.switches.push_back(
          {{place.first, place.second}, MoverIndex(switches_.MoverOf(place)), switches_.OnOf(place)});
    }
    return entry->second;
  }

  // Of a sensor, or of a switch whose mover is followed here.
  void AddFollower(const Place& place, const std::set<Place>& outputs) {
    if (valves_.bySensor.count(place) > 0)
      SensorIndex(place);
    else if (outputs.count(switches_.MoverOf(place)) > 0)
      SwitchIndex(place);
  }

  int OutputIndex(const Place& place) {
    const auto [entry, isNew] = outputs_.emplace(place, static_cast<int>(model_.outputs.size()));
    if (isNew) model_.outputs.push_back({place.first, place.second});
    return entry->second;
  }

  int SensorIndex(const Place& place) {
    const auto [entry, isNew] = sensors_.emplace(place, static_cast<int>(model_.sensors.size()));
    if (!isNew) return entry->second;
    model_.sensors.push_back({{place.first, place.second}, {}});
    for (const rack::PlantLink* link : valves_.bySensor.at(place)) {
      const int output = OutputIndex({link->source.entry, link->source.channel});
      model_.sensors.back().valves.push_back({output, MillisOf(link->onDelay), MillisOf(link->offDelay)});
    }
    return entry->second;
  }

  // False when the state is about something that the search does not know.
  bool AddLevel(const rack::scenario::Happening& state, bool holds, WantedNever* never) const {
    if (state.kind != rack::scenario::HappeningKind::Level) return false;
    const Place place(state.entry, state.channel);
    const bool isSensor = state.signal == rack::SignalKind::Input;
    if (isSensor && valves_.bySensor.count(place) == 0) return false;
    never->levels.push_back({isSensor, place, (state.low != 0) == holds ? 1 : 0});
    return true;
  }

  void FindForbidden() {
    const auto& rules = tree_.rack->file->rules;
    for (size_t row = 0; row < rules.size(); ++row) {
      const rack::scenario::MachineRule& rule = rules[row];
      if (rule.form == rack::RuleForm::Comes) continue;
      WantedNever never{{RuleId::BrokenRule, {}, MillisOf(rule.time), static_cast<int>(row)}, {}};
      bool isKnown = true;
      for (size_t i = 0; i < rule.happenings.size(); ++i) {
        const bool holds = rule.form == rack::RuleForm::NeverTogether || i == 0;
        isKnown = isKnown && AddLevel(rule.happenings[i], holds, &never);
      }
      if (isKnown) nevers_.push_back(std::move(never));
    }
    FindOpposed();
  }

  // What must not be on together: outputs that lead one thing in two directions.
  void FindOpposed() {
    std::set<std::pair<Place, Place>> opposed;
    FindNamedOpposed(&opposed);
    FindOpposedAtSwitches(&opposed);
    for (const auto& [one, other] : opposed)
      nevers_.push_back({{RuleId::OpposedOutputs, {}, 0, 0}, {{false, one, 1}, {false, other, 1}}});
  }

  // Outputs `x` and `x_back`.
  void FindNamedOpposed(std::set<std::pair<Place, Place>>* opposed) const {
    const rack::SignalName(&names)[rack::kMaxSignals] = setup_.image.signals;
    for (int row = 0; row < rack::kMaxSignals && names[row].name[0] != '\0'; ++row) {
      if (names[row].output == 0) continue;
      const std::string back = std::string(names[row].name) + "_back";
      const rack::SignalName* other = FindSignal(setup_.image, back.c_str());
      if (other == nullptr || other->output == 0) continue;
      opposed->insert(
          std::minmax(Place(names[row].entry, names[row].channel), Place(other->entry, other->channel)));
    }
  }

  // Outputs that bring one axis or cylinder to two of its switches, between which it would have to choose.
  void FindOpposedAtSwitches(std::set<std::pair<Place, Place>>* opposed) const {
    for (const rack::PlantLink* one : switches_.all) {
      for (const rack::PlantLink* other : switches_.all) {
        if (!Switches::AreApart(*one, *other)) continue;
        for (const Place& to : valves_.OutputsAt(*one)) {
          for (const Place& back : valves_.OutputsAt(*other)) {
            if (to != back) opposed->insert(std::minmax(to, back));
          }
        }
      }
    }
  }

  // The outputs of a sensor, or the mover of a switch.
  void AddOutputsOf(const Place& sensor, std::set<Place>* outputs) const {
    if (switches_.byInput.count(sensor) > 0) outputs->insert(switches_.MoverOf(sensor));
    if (valves_.bySensor.count(sensor) == 0) return;
    for (const rack::PlantLink* link : valves_.bySensor.at(sensor)) {
      outputs->emplace(link->source.entry, link->source.channel);
    }
  }

  // Who only asks where another task has led its axis may find it anywhere.
  void AddAsked(const Uses& uses, const Place& input, std::set<Place>* outputs) const {
    const bool isSwitch = switches_.byInput.count(input) > 0;
    if (!isSwitch || uses.written.count(switches_.MoverOf(input)) > 0) AddOutputsOf(input, outputs);
  }

  std::set<Place> OutputsOf(const WantedNever& never) const {
    std::set<Place> outputs;
    for (const WantedLevel& level : never.levels) {
      if (level.isSensor)
        AddOutputsOf(level.place, &outputs);
      else
        outputs.insert(level.place);
    }
    return outputs;
  }

  // The outputs that matter and that a task has to do with.
  std::set<Place> OutputsOf(const Uses& uses) const {
    std::set<Place> outputs;
    for (const Place& sensor : uses.waitedFor) AddOutputsOf(sensor, &outputs);
    for (const Place& sensor : uses.asked) AddAsked(uses, sensor, &outputs);
    for (const Place& output : uses.written) {
      if (relevant_.count(output) > 0) outputs.insert(output);
    }
    return outputs;
  }

  // The tasks that wait for sensors or write outputs that matter, and in turn those of whose outputs they ask.
  void ChooseTasks() {
    for (const Uses& uses : uses_) {
      for (const Place& sensor : uses.waitedFor) AddOutputsOf(sensor, &relevant_);
    }
    for (const WantedNever& never : nevers_) relevant_.merge(OutputsOf(never));
    size_t before = 0;
    do {
      before = relevant_.size() + chosen_.size();
      for (const Uses& uses : uses_) Choose(uses);
    } while (before != relevant_.size() + chosen_.size());
  }

  void Choose(const Uses& uses) {
    const bool writes = std::any_of(uses.written.begin(), uses.written.end(),
                                    [&](const Place& place) { return relevant_.count(place) > 0; });
    if (uses.waitedFor.empty() && !writes) return;
    if (std::find(chosen_.begin(), chosen_.end(), &uses) != chosen_.end()) return;
    chosen_.push_back(&uses);
    for (const Place& sensor : uses.asked) AddAsked(uses, sensor, &relevant_);
  }

  // Tasks that share outputs, or sensors of them, or outputs that must not be on together. Others go on side by
  // side without an effect on each other.
  std::vector<std::vector<const Uses*>> Groups() {
    std::vector<std::pair<std::set<Place>, std::vector<const Uses*>>> groups;
    const auto join = [&](std::set<Place> outputs, std::vector<const Uses*> tasks) {
      for (auto group = groups.begin(); group != groups.end();) {
        const bool isShared = std::any_of(group->first.begin(), group->first.end(),
                                          [&](const Place& output) { return outputs.count(output) > 0; });
        if (!isShared) {
          ++group;
          continue;
        }
        outputs.merge(group->first);
        tasks.insert(tasks.begin(), group->second.begin(), group->second.end());
        group = groups.erase(group);
      }
      groups.emplace_back(std::move(outputs), std::move(tasks));
    };
    for (const WantedNever& never : nevers_) join(OutputsOf(never), {});
    for (const Uses* uses : chosen_) join(OutputsOf(*uses), {uses});
    std::vector<std::vector<const Uses*>> tasks;
    for (auto& [outputs, users] : groups) {
      if (!users.empty()) tasks.push_back(std::move(users));
    }
    return tasks;
  }

  SearchModel ModelFor(std::vector<const Uses*>& group) {
    model_ = {};
    outputs_.clear();
    sensors_.clear();
    moverIndices_.clear();
    switchIndices_.clear();
    inputs_.clear();
    std::sort(group.begin(), group.end(),
              [](const Uses* a, const Uses* b) { return a->task->number < b->task->number; });
    std::set<Place> outputs;
    for (const Uses* uses : group) outputs.merge(OutputsOf(*uses));
    for (const Uses* uses : group) {
      for (const Place& sensor : uses->waitedFor) AddFollower(sensor, outputs);
      for (const Place& sensor : uses->asked) AddFollower(sensor, outputs);
    }
    for (const WantedNever& never : nevers_) {
      const std::set<Place> touched = OutputsOf(never);
      const bool isHere = std::any_of(touched.begin(), touched.end(),
                                      [&](const Place& output) { return outputs.count(output) > 0; });
      if (isHere) model_.forbidden.push_back(ForbiddenOf(never));
    }
    for (const Uses* uses : group) model_.tasks.push_back(StepsOf(*uses->task));
    KeepInputs();
    return std::move(model_);
  }

  // The level of an input is remembered where one line may ask for what another has read.
  void KeepInputs() {
    std::vector<int> reads(inputs_.size(), 0);
    std::vector<bool> isAsked(inputs_.size(), false);
    const auto forEach = [&](const auto& look) {
      for (TaskSteps& task : model_.tasks) {
        for (Step& step : task.steps) {
          if (step.kind == StepKind::WaitInput || step.kind == StepKind::AskInput) look(step);
        }
      }
    };
    forEach([&](const Step& step) {
      ++reads[static_cast<size_t>(step.signal)];
      if (step.kind == StepKind::AskInput) isAsked[static_cast<size_t>(step.signal)] = true;
    });
    std::vector<int> kept(inputs_.size(), kNotKept);
    for (size_t i = 0; i < kept.size(); ++i) {
      if (isAsked[i] && reads[i] > 1) kept[i] = model_.inputs++;
    }
    forEach([&](Step& step) { step.signal = kept[static_cast<size_t>(step.signal)]; });
  }

  Forbidden ForbiddenOf(const WantedNever& never) {
    Forbidden forbidden = never.as;
    for (const WantedLevel& level : never.levels) {
      const int signal = level.isSensor ? SensorIndex(level.place) : OutputIndex(level.place);
      forbidden.literals.push_back({level.isSensor, signal, level.level});
    }
    return forbidden;
  }

  TaskSteps StepsOf(const Task& task) {
    TaskSteps steps;
    steps.task = &task;
    std::map<std::string, int> starts;
    int count = 0;
    for (const auto& [name, program] : task.programs) {
      if (!IsStarted(program)) continue;
      const int commands = static_cast<int>(std::count_if(program.lines.begin(), program.lines.end(),
                                                          [](const Line& line) { return line.IsCommand(); }));
      starts[name] = commands == 0 ? kStuck : count;
      count += commands;
    }
    steps.reset = starts.at(kResetProgram);
    const auto flow = starts.find(kFlowProgram);
    if (flow != starts.end()) steps.flow = flow->second;
    for (const auto& [name, program] : task.programs) {
      if (IsStarted(program)) AddSteps(program, starts, &steps);
    }
    return steps;
  }

  void AddSteps(const Program& program, const std::map<std::string, int>& starts, TaskSteps* steps) {
    // By index of the line: the step that begins at it or behind it.
    std::vector<int> stepAt(program.lines.size() + 1, kStuck);
    int number = static_cast<int>(steps->steps.size());
    for (size_t i = 0; i < program.lines.size(); ++i) number += program.lines[i].IsCommand() ? 1 : 0;
    for (size_t i = program.lines.size(); i-- > 0;)
      stepAt[i] = program.lines[i].IsCommand() ? --number : stepAt[i + 1];
    std::map<int, int> labels;
    for (size_t i = 0; i < program.lines.size(); ++i) {
      int label = 0;
      if (IsLabel(program.lines[i].raw.c_str(), &label)) labels.emplace(label, stepAt[i + 1]);
    }
    for (size_t i = 0; i < program.lines.size(); ++i) {
      const Line& line = program.lines[i];
      if (!line.IsCommand()) continue;
      Step step = StepOf(line, stepAt[i + 1], starts, labels);
      step.program = &program;
      step.line = &line;
      steps->steps.push_back(step);
    }
  }

  static int Start(const std::map<std::string, int>& starts, const std::string& name) {
    if (stricmp(name.c_str(), "NUL") == 0) return kNoCall;
    const auto found = starts.find(name);
    return found == starts.end() ? kMissing : found->second;
  }

  Step StepOf(const Line& line, int next, const std::map<std::string, int>& starts,
              const std::map<int, int>& labels) {
    Step step;
    step.next = next;
    const rack::CommandRow& row = rack::RowOf(line.parsed.CmdIdx);
    const int number = line.parsed.SlotIdx.Value;
    switch (row.goesOn) {
      case rack::GoesOn::Caller:
        step.kind = StepKind::End;
        return step;
      case rack::GoesOn::Nowhere:
        step.kind = StepKind::Exit;
        return step;
      case rack::GoesOn::Label: {
        const auto label = labels.find(number);
        if (label == labels.end()) step.kind = StepKind::WaitForever;
        if (label != labels.end()) step.next = label->second;
        return step;
      }
      case rack::GoesOn::Block:
      case rack::GoesOn::NextLine:
        break;
    }
    if (row.parameter == rack::Parameter::Block) {
      step.kind = StepKind::Call;
      const auto found = starts.find(std::string(line.parsed.Param));
      step.first = found == starts.end() ? kMissing : found->second;
      return step;
    }
    if (row.parameter == rack::Parameter::Millis) {
      step.kind = row.waitsFor == rack::WaitsFor::Pause ? StepKind::Pause : StepKind::SetPause;
      step.level = std::min(number, kLongest);
      return step;
    }
    SetMove(line, row, &step);
    SetTouched(line, starts, &step);
    return step;
  }

  // Waits for motors and cylinders.
  void SetMove(const Line& line, const rack::CommandRow& row, Step* step) const {
    const bool isSetup = line.parsed.Param == "-1" || line.parsed.Param == "-2";
    switch (row.waitsFor) {
      case rack::WaitsFor::CylinderEnd:
        if (isSetup && IsUsed(line)) step->kind = StepKind::WaitMove;
        return;
      case rack::WaitsFor::MotorEnd:
      case rack::WaitsFor::Count:
      case rack::WaitsFor::CylinderPosition:
        if (IsUsed(line)) {
          step->kind = StepKind::WaitMove;
        } else if (row.waitsFor == rack::WaitsFor::Count ||
                   tree_.CardOf(line.parsed.SlotIdx.Value) == nullptr) {
          step->kind = StepKind::WaitForever;
        }
        return;
      case rack::WaitsFor::Nothing:
      case rack::WaitsFor::Input:
      case rack::WaitsFor::Pause:
      case rack::WaitsFor::PauseBetween:
      case rack::WaitsFor::EndPause:
      case rack::WaitsFor::Label:
        return;
    }
  }

  void SetTouched(const Line& line, const std::map<std::string, int>& starts, Step* step) {
    const Touched touched = TouchedBy(line);
    step->level = touched.level;
    switch (touched.kind) {
      case StepKind::Out: {
        const auto output = outputs_.find(touched.place);
        if (output == outputs_.end()) return;
        step->signal = output->second;
        break;
      }
      case StepKind::Move:
      case StepKind::Setup:
      case StepKind::WaitMove: {
        const auto mover = moverIndices_.find(touched.place);
        if (mover == moverIndices_.end()) return;
        step->signal = mover->second;
        break;
      }
      case StepKind::Select:
        step->signal = touched.place.first;
        break;
      case StepKind::WaitSensor:
        step->signal = sensors_.at(touched.place);
        break;
      case StepKind::WaitSwitch:
        step->signal = switchIndices_.at(touched.place);
        break;
      case StepKind::AskSensor:
      case StepKind::AskInput:
      case StepKind::AskSwitch: {
        const std::string condition(line.parsed.Param);
        step->first = Start(starts, *PieceOf(condition, 1, '&'));
        step->second = Start(starts, *PieceOf(condition, 2, '&'));
        return SetAsked(touched, step);
      }
      case StepKind::WaitInput:
        step->signal = InputIndex(touched.place);
        break;
      case StepKind::WaitForever:
        break;
      case StepKind::Pass:
      case StepKind::Pause:
      case StepKind::SetPause:
      case StepKind::Call:
      case StepKind::End:
      case StepKind::Exit:
        return;
    }
    step->kind = touched.kind;
  }

  void SetAsked(const Touched& touched, Step* step) {
    const auto atSwitch = switchIndices_.find(touched.place);
    if (touched.kind == StepKind::AskSensor) {
      step->kind = StepKind::AskSensor;
      step->signal = sensors_.at(touched.place);
    } else if (atSwitch != switchIndices_.end()) {
      step->kind = StepKind::AskSwitch;
      step->signal = atSwitch->second;
    } else {
      step->kind = StepKind::AskInput;
      step->signal = InputIndex(touched.place);
    }
  }

  int InputIndex(const Place& place) {
    return inputs_.emplace(place, static_cast<int>(inputs_.size())).first->second;
  }

  const ProgramTree& tree_;
  const rack::RackSetup& setup_;
  const Valves valves_;
  Switches switches_;
  std::vector<WantedNever> nevers_;
  std::vector<Uses> uses_;
  std::set<Place> relevant_;  // outputs
  std::vector<const Uses*> chosen_;
  // Of the group that is built: where a signal stands in its model.
  std::map<Place, int> outputs_;
  std::map<Place, int> sensors_;
  std::map<Place, int> moverIndices_;
  std::map<Place, int> switchIndices_;
  std::map<Place, int> inputs_;
  SearchModel model_;
};

}  // namespace

std::vector<SearchModel> ModelsOf(const ProgramTree& tree) {
  return ModelBuilder(tree).Build();
}

}  // namespace check
