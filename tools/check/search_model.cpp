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

  explicit Valves(const rack::RackSetup& setup) {
    std::set<Place> others;
    for (std::uint32_t i = 0; i < setup.plant.linkCount; ++i) {
      const rack::PlantLink& link = setup.plant.links[i];
      const bool drives = link.then == rack::Effect::Follow || link.then == rack::Effect::Arrive;
      if (!drives || link.target.kind != rack::SignalKind::Input) continue;
      const Place target(link.target.entry, link.target.channel);
      const bool isValve = link.then == rack::Effect::Follow && link.when == rack::Condition::Signal &&
                           link.source.kind == rack::SignalKind::Output && link.inverted == 0;
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
      : tree_(tree), setup_(tree.rack->file->setup), valves_(setup_) {}

  std::vector<SearchModel> Build() {
    FindForbidden();
    for (const Task& task : tree_.tasks) {
      if (IsRun(tree_, task) && task.Find(kResetProgram) != nullptr) FindUses(task);
    }
    ChooseTasks();
    std::vector<SearchModel> models;
    for (std::vector<const Uses*>& group : Groups()) {
      models.push_back(ModelFor(group));
    }
    return models;
  }

 private:
  // What a task has to do with outputs and sensors.
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
    return {};
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
    const bool isSensor = valves_.bySensor.count(place) > 0;
    return {isSensor ? StepKind::WaitSensor : StepKind::WaitInput, place, level};
  }

  Touched TouchedByIf(const Line& line) const {
    const int channel = Reached(line);
    const std::string condition(line.parsed.Param);
    if (channel < 0 || !PieceOf(condition, 2, '&')) return {};
    const Place place(line.parsed.SlotIdx.Value, channel);
    const bool isSensor = valves_.bySensor.count(place) > 0;
    const int level = ToNumber<int>(PieceOf(condition, 0, '&')->c_str());
    return {isSensor ? StepKind::AskSensor : StepKind::AskInput, place, level};
  }

  // A block that no line calls is never executed.
  static bool IsStarted(const Program& program) { return program.isMain || program.isCalled; }

  void FindUses(const Task& task) {
    Uses uses{&task, {}, {}, {}};
    for (const auto& [name, program] : task.programs) {
      if (!IsStarted(program)) continue;
      for (const Line& line : program.lines) {
        const Touched touched = TouchedBy(line);
        if (touched.kind == StepKind::Out) uses.written.insert(touched.place);
        if (touched.kind == StepKind::WaitSensor) uses.waitedFor.insert(touched.place);
        if (touched.kind == StepKind::AskSensor) uses.asked.insert(touched.place);
      }
    }
    uses_.push_back(std::move(uses));
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

  // Outputs `x` and `x_back`.
  void FindOpposed() {
    const rack::SignalName(&names)[rack::kMaxSignals] = setup_.image.signals;
    for (int row = 0; row < rack::kMaxSignals && names[row].name[0] != '\0'; ++row) {
      if (names[row].output == 0) continue;
      const std::string back = std::string(names[row].name) + "_back";
      const rack::SignalName* other = FindSignal(setup_.image, back.c_str());
      if (other == nullptr || other->output == 0) continue;
      nevers_.push_back(
          {{RuleId::OpposedOutputs, {}, 0, row},
           {{false, {names[row].entry, names[row].channel}, 1}, {false, {other->entry, other->channel}, 1}}});
    }
  }

  void AddOutputsOf(const Place& sensor, std::set<Place>* outputs) const {
    for (const rack::PlantLink* link : valves_.bySensor.at(sensor)) {
      outputs->emplace(link->source.entry, link->source.channel);
    }
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
    for (const Place& sensor : uses.asked) AddOutputsOf(sensor, &outputs);
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
    for (const Place& sensor : uses.asked) AddOutputsOf(sensor, &relevant_);
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
    inputs_.clear();
    std::sort(group.begin(), group.end(),
              [](const Uses* a, const Uses* b) { return a->task->number < b->task->number; });
    std::set<Place> outputs;
    for (const Uses* uses : group) {
      outputs.merge(OutputsOf(*uses));
      for (const Place& sensor : uses->waitedFor) SensorIndex(sensor);
      for (const Place& sensor : uses->asked) SensorIndex(sensor);
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
      case StepKind::WaitSensor:
        step->signal = sensors_.at(touched.place);
        break;
      case StepKind::AskSensor:
      case StepKind::AskInput: {
        const std::string condition(line.parsed.Param);
        step->first = Start(starts, *PieceOf(condition, 1, '&'));
        step->second = Start(starts, *PieceOf(condition, 2, '&'));
        step->signal =
            touched.kind == StepKind::AskSensor ? sensors_.at(touched.place) : InputIndex(touched.place);
        break;
      }
      case StepKind::WaitInput:
        step->signal = InputIndex(touched.place);
        break;
      case StepKind::WaitForever:
        break;
      case StepKind::Pass:
      case StepKind::WaitMove:
      case StepKind::Pause:
      case StepKind::SetPause:
      case StepKind::Call:
      case StepKind::End:
      case StepKind::Exit:
        return;
    }
    step->kind = touched.kind;
  }

  int InputIndex(const Place& place) {
    return inputs_.emplace(place, static_cast<int>(inputs_.size())).first->second;
  }

  const ProgramTree& tree_;
  const rack::RackSetup& setup_;
  const Valves valves_;
  std::vector<WantedNever> nevers_;
  std::vector<Uses> uses_;
  std::set<Place> relevant_;  // outputs
  std::vector<const Uses*> chosen_;
  // Of the group that is built: where a signal stands in its model.
  std::map<Place, int> outputs_;
  std::map<Place, int> sensors_;
  std::map<Place, int> inputs_;
  SearchModel model_;
};

}  // namespace

std::vector<SearchModel> ModelsOf(const ProgramTree& tree) {
  return ModelBuilder(tree).Build();
}

}  // namespace check
