// What the tasks of a machine can come to together.
#include <algorithm>
#include <set>
#include <string>

#include "check/search.h"
#include "check/topics.h"

namespace check {

namespace {

constexpr size_t kShownParts = 12;

class TogetherRules {
 public:
  TogetherRules(const ProgramTree& tree, const SearchModel& model, Report* report)
      : setup_(tree.rack->file->setup), tree_(tree), model_(model), out_(*report) {}

  void Report(const SearchResult& result) {
    for (const Lock& lock : result.locks) {
      if (lock.isAlone)
        ReportAlone(lock);
      else
        ReportLock(lock);
    }
    for (const Together& together : result.together) ReportTogether(together);
  }

 private:
  const Step& StepOf(const Wait& wait) const {
    return model_.tasks[static_cast<size_t>(wait.first)].steps[static_cast<size_t>(wait.second)];
  }

  // "plc1/FLOW.PLC:8".
  std::string PlaceOf(int task, const Step& step) const {
    const Task& ofTask = *model_.tasks[static_cast<size_t>(task)].task;
    return (ofTask.directory.filename() / step.program->name).string() + ":" +
           std::to_string(step.line->number);
  }

  // "input 1.3 (at_speed)".
  std::string SignalText(const char* sort, const Signal& signal, bool isOutput) const {
    const rack::SignalName* name = NameOf(setup_.image, isOutput, static_cast<std::uint8_t>(signal.slot),
                                          static_cast<std::uint8_t>(signal.channel));
    std::string text =
        std::string(sort) + " " + std::to_string(signal.slot) + "." + std::to_string(signal.channel);
    return name == nullptr ? text : text + " (" + name->name + ")";
  }

  std::string TaskName(int task) const {
    return "task " + std::to_string(model_.tasks[static_cast<size_t>(task)].task->number);
  }

  const Sensor& SensorOf(const Step& wait) const { return model_.sensors[static_cast<size_t>(wait.signal)]; }

  static std::string LevelText(int level) { return level != 0 ? " on" : " off"; }

  const Switch& SwitchOf(const Step& wait) const { return model_.switches[static_cast<size_t>(wait.signal)]; }

  std::string WantedText(const Step& wait) const {
    const Signal& place = wait.kind == StepKind::WaitSwitch ? SwitchOf(wait).place : SensorOf(wait).place;
    return SignalText("input", place, false) + LevelText(wait.level);
  }

  // "motor 2.0".
  std::string MoverOf(const Step& wait) const {
    const Mover& mover = model_.movers[static_cast<size_t>(SwitchOf(wait).mover)];
    return (mover.isMotor ? "motor " : "cylinder ") + std::to_string(mover.place.slot) + "." +
           std::to_string(mover.place.channel);
  }

  std::string OutputsOf(const Step& wait) const {
    std::string text;
    for (const ValveOutput& valve : SensorOf(wait).valves) {
      const Signal& output = model_.outputs[static_cast<size_t>(valve.output)];
      text += (text.empty() ? "" : " and ") + SignalText("output", output, true);
    }
    return text;
  }

  // The first lines that give what a wait is for, and of which task they are; nothing when there is none.
  std::string GiversOf(const Step& wait, const std::vector<int>& tasks) const {
    constexpr size_t kShown = 2;
    std::string text;
    size_t count = 0;
    for (const int task : tasks) {
      for (const Step& step : model_.tasks[static_cast<size_t>(task)].steps) {
        if (!Gives(wait, step)) continue;
        ++count;
        if (count > kShown) continue;
        text += (count == 1 ? "" : ", ") + PlaceOf(task, step);
      }
    }
    return count > kShown ? text + ", ..." : text;
  }

  bool Gives(const Step& wait, const Step& out) const {
    if (wait.kind == StepKind::WaitSwitch) {
      const bool isMove = out.kind == StepKind::Move || out.kind == StepKind::Setup;
      return isMove && out.signal == SwitchOf(wait).mover;
    }
    if (out.kind != StepKind::Out || out.level != wait.level) return false;
    const std::vector<ValveOutput>& valves = SensorOf(wait).valves;
    return std::any_of(valves.begin(), valves.end(),
                       [&](const ValveOutput& valve) { return valve.output == out.signal; });
  }

  // The outputs that a line has to do with, and behind them the movers.
  std::set<int> OutputsOf(const Done& done) const {
    const Step& step = StepOf(done);
    const int firstMover = static_cast<int>(model_.outputs.size());
    std::set<int> outputs;
    switch (step.kind) {
      case StepKind::Out:
        return {step.signal};
      case StepKind::Move:
      case StepKind::Setup:
        return {firstMover + step.signal};
      case StepKind::WaitMove:
        if (step.signal >= 0) outputs.insert(firstMover + step.signal);
        return outputs;
      case StepKind::WaitSwitch:
      case StepKind::AskSwitch:
        return {firstMover + SwitchOf(step).mover};
      case StepKind::WaitSensor:
      case StepKind::AskSensor:
        for (const ValveOutput& valve : SensorOf(step).valves) outputs.insert(valve.output);
        return outputs;
      case StepKind::Pass:
      case StepKind::WaitInput:
      case StepKind::Select:
      case StepKind::AskInput:
      case StepKind::Pause:
      case StepKind::SetPause:
      case StepKind::Call:
      case StepKind::End:
      case StepKind::Exit:
      case StepKind::WaitForever:
        return outputs;
    }
    return outputs;
  }

  // The same way with lines of one task put together where the tasks have nothing to do with each other.
  std::vector<Done> Gathered(const std::vector<Done>& way) const {
    constexpr size_t kLookBack = 64;
    std::vector<Done> gathered;
    for (const Done& done : way) {
      size_t at = gathered.size();
      if (done.first != kEnterKey) {
        const std::set<int> mine = OutputsOf(done);
        const size_t first = at > kLookBack ? at - kLookBack : 0;
        for (size_t i = at; i-- > first;) {
          if (gathered[i].first == done.first) {
            at = i + 1;
            break;
          }
          if (gathered[i].first == kEnterKey) break;
          const std::set<int> other = OutputsOf(gathered[i]);
          if (std::any_of(mine.begin(), mine.end(), [&](int output) { return other.count(output) > 0; }))
            break;
        }
      }
      gathered.insert(gathered.begin() + static_cast<std::ptrdiff_t>(at), done);
    }
    return gathered;
  }

  struct Part {
    std::string text;
    int times = 1;
  };

  // Lines in their order, each run of them as one: "plc1/FLOW.PLC:1-4".
  std::vector<Part> PartsOf(const std::vector<Done>& way) const {
    std::vector<Part> parts;
    const auto add = [&](const std::string& text) {
      if (!parts.empty() && parts.back().text == text)
        ++parts.back().times;
      else
        parts.push_back({text, 1});
    };
    for (size_t i = 0; i < way.size(); ++i) {
      if (way[i].first == kEnterKey) {
        add("the Enter key");
        continue;
      }
      const size_t first = i;
      while (i + 1 < way.size() && way[i + 1].first == way[i].first &&
             Follows(StepOf(way[i]), StepOf(way[i + 1])))
        ++i;
      add(PlaceOf(way[first].first, StepOf(way[first])) +
          (i == first ? "" : "-" + std::to_string(StepOf(way[i]).line->number)));
    }
    return parts;
  }

  std::string WayText(const std::vector<Done>& way) const {
    const std::vector<Part> parts = PartsOf(Gathered(way));
    if (parts.empty()) return "it begins so";
    std::string text = parts.size() > kShownParts ? "..." : "";
    for (size_t i = parts.size() - std::min(parts.size(), kShownParts); i < parts.size(); ++i) {
      text += (text.empty() ? "" : ", ") + parts[i].text;
      if (parts[i].times > 1) text += " (" + std::to_string(parts[i].times) + " times)";
    }
    return "the way there: " + text;
  }

  // Whether a line is the one behind another in its file.
  static bool Follows(const Step& last, const Step& step) {
    return last.program == step.program && &last + 1 == &step;
  }

  void ReportAlone(const Lock& lock) {
    const Wait& wait = lock.waits.front();
    const Step& step = StepOf(wait);
    const std::string own = GiversOf(step, {wait.first});
    if (step.kind == StepKind::WaitSwitch) return ReportSwitch(lock, step, own);
    out_.Add(*step.program, *step.line, step.line->parsed.KeywordColumn, RuleId::WaitNeverMet,
             WantedText(step) + " never comes from here: it follows " + OutputsOf(step) + ", and " +
                 (own.empty() ? "no line of any task" : "no line but one of this task itself (" + own + ")") +
                 " switches that" + LevelText(step.level) + "; " + WayText(lock.way));
  }

  void ReportSwitch(const Lock& lock, const Step& step, const std::string& own) {
    out_.Add(*step.program, *step.line, step.line->parsed.KeywordColumn, RuleId::WaitNeverMet,
             WantedText(step) + " never comes from here: it is a switch of " + MoverOf(step) +
                 ", which stands " + (step.level != 0 ? "elsewhere" : "there") + ", and " +
                 (own.empty() ? "no line of any task" : "no line but one of this task itself (" + own + ")") +
                 " moves that; " + WayText(lock.way));
  }

  // The wait that was come to last closes the lock.
  static Wait LastWait(const Lock& lock) {
    for (auto done = lock.way.rbegin(); done != lock.way.rend(); ++done) {
      for (const Wait& wait : lock.waits) {
        if (wait.first == done->first) return wait;
      }
    }
    return lock.waits.front();
  }

  void ReportLock(const Lock& lock) {
    std::vector<Wait> waits = lock.waits;
    const Wait last = LastWait(lock);
    std::rotate(waits.begin(), std::find(waits.begin(), waits.end(), last), waits.end());
    std::string text;
    for (const Wait& wait : waits) {
      const Step& step = StepOf(wait);
      text += (text.empty() ? TaskName(wait.first) + " waits here"
                            : ", and " + TaskName(wait.first) + " waits in " + PlaceOf(wait.first, step)) +
              " for " + WantedText(step) + ", which only " + GiversOf(step, OthersThan(wait.first)) +
              " gives";
    }
    text += waits.size() == 1 ? ": nobody comes there from here" : ": none of them goes on";
    const Step& first = StepOf(last);
    out_.Add(*first.program, *first.line, first.line->parsed.KeywordColumn, RuleId::HandshakeLock,
             text + " until the minus key; " + WayText(lock.way));
  }

  std::vector<int> OthersThan(int task) const {
    std::vector<int> others;
    for (int other = 0; other < static_cast<int>(model_.tasks.size()); ++other) {
      if (other != task) others.push_back(other);
    }
    return others;
  }

  // About the line that completes it.
  void ReportTogether(const Together& together) {
    const Forbidden& forbidden = model_.forbidden[together.forbidden];
    if (forbidden.rule == RuleId::BrokenRule) {
      const rack::scenario::MachineRule& rule = tree_.rack->file->rules[static_cast<size_t>(forbidden.row)];
      return out_.Add(
          tree_.rack->path, rule.line, rule.column, forbidden.rule,
          "the programs break the rule \"" + rule.name + "\": " + StateText(forbidden) +
              (forbidden.forMillis > 0 ? " together for " + std::to_string(forbidden.forMillis) + " ms"
                                       : " together") +
              "; " + WayText(together.way));
    }
    const auto out = std::find_if(together.way.rbegin(), together.way.rend(), [&](const Done& done) {
      if (done.first == kEnterKey || StepOf(done).kind != StepKind::Out) return false;
      return std::any_of(forbidden.literals.begin(), forbidden.literals.end(),
                         [&](const Literal& literal) { return literal.signal == StepOf(done).signal; });
    });
    if (out == together.way.rend()) return;
    const Step& step = StepOf(*out);
    out_.Add(*step.program, *step.line, step.line->parsed.KeywordColumn, forbidden.rule,
             StateText(forbidden) + " at the same time, which move one thing in two directions; " +
                 WayText(together.way));
  }

  std::string StateText(const Forbidden& forbidden) const {
    std::string text;
    for (const Literal& literal : forbidden.literals) {
      const auto signal = static_cast<size_t>(literal.signal);
      text += (text.empty() ? "" : " and ") +
              (literal.isSensor ? SignalText("input", model_.sensors[signal].place, false)
                                : SignalText("output", model_.outputs[signal], true)) +
              LevelText(literal.level);
    }
    return text;
  }

  const rack::RackSetup& setup_;
  const ProgramTree& tree_;
  const SearchModel& model_;
  class Report& out_;
};

}  // namespace

void CheckTogether(const ProgramTree& tree, Report* report, std::vector<std::string>* notes) {
  if (!tree.rack) return;
  bool isComplete = true;
  bool isStarted = true;
  for (const SearchModel& model : ModelsOf(tree)) {
    const SearchResult result = SearchStates(model);
    TogetherRules(tree, model, report).Report(result);
    isComplete = isComplete && result.isComplete;
    isStarted = isStarted && (result.isStarted || !result.locks.empty());
  }
  if (notes == nullptr) return;
  if (!isStarted) {
    notes->push_back(tree.directory.string() +
                     ": the search over all tasks never came to production: Enter starts it when all reset "
                     "programs have ended or gone round once");
  }
  if (!isComplete) {
    notes->push_back(
        tree.directory.string() +
        ": the search over all tasks stopped at its bound: there may be waits that lock each other "
        "beyond what it has seen");
  }
}

}  // namespace check
