#include "scenario/run.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string_view>
#include <thread>

#include "machine/card_table.h"
#include "machine/launch.h"
#include "machine/machine.h"
#include "machine/standstill.h"
#include "machine/waveform.h"
#include "machine/why.h"
#include "rack/console_prefixes.h"

namespace rack::scenario {

namespace {

namespace fs = std::filesystem;

// How far the machine runs before it is asked whether the end is known. Nothing else hangs on it: what a scenario waits for
// lets time stand by itself, and what is recorded meanwhile is waited for.
constexpr Nanos kStride = 200 * kMillisecond;
constexpr int kLookMicros = 50;

// The signals that end this process are left to the thread that runs the controller, which ends it first.
class SignalsForOthers {
 public:
  SignalsForOthers() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) sigaddset(&set, signal);
    pthread_sigmask(SIG_BLOCK, &set, &before_);
  }
  ~SignalsForOthers() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsForOthers(const SignalsForOthers&) = delete;
  SignalsForOthers& operator=(const SignalsForOthers&) = delete;
  SignalsForOthers(SignalsForOthers&&) = delete;
  SignalsForOthers& operator=(SignalsForOthers&&) = delete;

 private:
  sigset_t before_{};
};

// A folder of its own for each run, removed when the run is over.
class WorkFolder {
 public:
  WorkFolder() {
    const char* base = std::getenv("TMPDIR");
    std::string name =
        std::string(base == nullptr || *base == '\0' ? "/tmp" : base) + "/velmo-scenario-XXXXXX";
    if (mkdtemp(name.data()) != nullptr) path_ = name;
  }
  ~WorkFolder() {
    std::error_code ignored;
    if (!path_.empty()) fs::remove_all(path_, ignored);
  }
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;
  WorkFolder(WorkFolder&&) = delete;
  WorkFolder& operator=(WorkFolder&&) = delete;

  const std::string& Path() const { return path_; }

 private:
  std::string path_;  // empty: it could not be made
};

std::string NotCopied(const fs::path& path, const std::error_code& error) {
  return path.lexically_normal().string() + " could not be copied: " + error.message();
}

// What earlier runs left there, and the link to nowhere that some editors put beside a file with changes.
bool IsLeftOut(const fs::directory_entry& entry) {
  std::error_code ignored;
  const std::string name = entry.path().filename().string();
  return name == ".velmo-rack" || (name.rfind(".#", 0) == 0 && entry.is_symlink(ignored));
}

// What is neither a file nor a directory cannot be opened by the controller, as if it were not there.
std::string CopyMachine(const fs::path& from, const fs::path& to) {
  std::error_code error;
  fs::create_directory(to, error);
  if (error) return NotCopied(from, error);
  fs::directory_iterator entry(from, error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    if (IsLeftOut(*entry)) continue;
    const fs::path& path = entry->path();
    std::error_code wrong;
    const fs::file_status status = fs::status(path, wrong);
    if (fs::is_directory(status)) {
      std::string wrongBelow = CopyMachine(path, to / path.filename());
      if (!wrongBelow.empty()) return wrongBelow;
      continue;
    }
    if (fs::is_regular_file(status)) fs::copy_file(path, to / path.filename(), wrong);
    if (status.type() == fs::file_type::not_found)
      wrong = std::make_error_code(std::errc::no_such_file_or_directory);
    if (wrong) return NotCopied(path, wrong);
  }
  return error ? NotCopied(from, error) : "";
}

// Takes the prefix away that a thread puts in front of its lines. One that names another thread is part of the text.
void TakePrefix(std::string& line, int who) {
  if (who < 0 || who >= kTaskRecords) return;
  const std::string_view prefix = kConsolePrefixes[who];
  if (line.rfind(prefix, 0) == 0) line.erase(0, prefix.size());
}

// The controller's process, started again after each restart, in a thread of its own.
class ControllerThread {
 public:
  ControllerThread(const Launch& launch, RackState& state) : launch_(launch), state_(state) {
    thread_ = std::thread([this] { Run(); });
  }
  ~ControllerThread() { Finish(); }
  ControllerThread(const ControllerThread&) = delete;
  ControllerThread& operator=(const ControllerThread&) = delete;
  ControllerThread(ControllerThread&&) = delete;
  ControllerThread& operator=(ControllerThread&&) = delete;

  bool Ended() const { return ended_.load(std::memory_order_acquire); }

  // Ends the controller. What Why and StopSignal say is final from then on.
  void Finish() {
    finishing_ = true;
    // The process is this thread's child until it has been waited for: its number is not another's.
    if (!Ended() && state_.live.controller.process > 0) kill(state_.live.controller.process, SIGKILL);
    if (thread_.joinable()) thread_.join();
  }
  // REQUIRES: Ended, or after Finish.
  const std::string& Why() const { return why_; }
  const std::string& Error() const { return error_; }
  int StopSignal() const { return stopSignal_; }

 private:
  void Run() {
    bool again = true;
    while (again) {
      const std::uint32_t restarts = state_.live.controller.restarts;
      const AttachWatch attach(state_);
      StandstillWatch standstill(state_);
      const RunEnd end = RunController(launch_, [&]() -> std::string {
        if (finishing_) return "the scenario is over";
        const std::string wrong = attach();
        return wrong.empty() ? standstill() : wrong;
      });
      FinishPolls(state_);
      stopSignal_ = end.stopSignal;
      why_ = "the controller " + EndText(end);
      if (!finishing_ && !end.error.empty()) error_ = end.error;
      if (!finishing_ && error_.empty()) error_ = BrokenText(state_.time);
      if (!finishing_ && stopSignal_ == 0 && error_.empty() && !attach.Attached()) {
        error_ = why_ + " before it came to the rack";
      }
      again = !finishing_ && end.status == kRestartStatus && state_.live.controller.restarts != restarts;
    }
    ended_.store(true, std::memory_order_release);
  }

  const Launch& launch_;
  RackState& state_;
  std::atomic<bool> finishing_{false};
  std::atomic<bool> ended_{false};
  // Written by the thread before ended_ is set.
  std::string why_;
  std::string error_;
  int stopSignal_ = 0;
  std::thread thread_;
};

// Finds a task that executes line after line without a pause or a wait.
constexpr int kSpinLines = 200'000;
constexpr Nanos kShortestPause = kMillisecond;
constexpr Nanos kSpinLimit = 10 * kSecond;  // of real time, for which it is watched

class SpinWatch {
 public:
  void See(const JournalRecord& record) {
    if (record.kind != JournalKind::ProgramLine || record.task >= kTaskRecords) return;
    Row& row = rows_[record.task];
    row.lines = record.time - row.last < kShortestPause ? row.lines + 1 : 1;
    row.last = record.time;
    if (row.lines != kSpinLines || IsFound()) return;
    found_ = record;
    since_ = MonotonicNow();
  }
  bool IsFound() const { return since_ != 0; }
  // Whether it has been watched for long enough.
  bool IsEnough() const { return IsFound() && MonotonicNow() - since_ > kSpinLimit; }
  int Task() const { return found_.task; }
  std::uint32_t File() const { return found_.file; }
  std::uint32_t Line() const { return found_.line; }

 private:
  struct Row {
    int lines = 0;
    Nanos last = 0;
  };
  std::array<Row, kTaskRecords> rows_{};
  JournalRecord found_{};
  Nanos since_ = 0;
};

class Run {
 public:
  Run(const Scenario& scenario, std::string folder)
      : scenario_(scenario),
        folder_(std::move(folder)),
        machine_(folder_ + "/machine"),
        live_(std::make_unique<RackLive>()) {}

  std::string Prepare(const RunPlaces& places);
  void Drive(RunReport& report);
  void KeepWaveform(const RunPlaces& places, ScenarioResult& result) const;

 private:
  Snapshot Look() {
    CopyLive(State().live, *live_);
    return SnapshotOf(State().image, *live_);
  }
  RackState& State() const { return *file_.State(); }
  std::string LineText(const std::string& file, std::uint32_t line) const;
  bool Advance(Nanos time);
  bool AwaitStand(std::uint32_t number);
  Nanos NextStop(Nanos now) const;
  TriggerTable Triggers() const;
  std::size_t NextDue(Nanos now) const;
  std::vector<std::string> TaskSentences() const;
  void DoDueEvents(Nanos now);
  std::string Do(const Event& event);
  std::string Send(const Request& request);
  void ReadJournal();
  void ReadConsole(const JournalRecord& record);

  const Scenario& scenario_;
  std::string folder_;
  std::string machine_;
  StateFile file_;
  std::unique_ptr<RackLive> live_;
  Launch launch_;
  std::optional<ControllerThread> controller_;
  FileNames files_;
  std::unique_ptr<Judge> judge_;
  std::unique_ptr<PatientReader> journal_;
  std::optional<CardTableWatch> cards_;
  std::ofstream recording_;
  std::unique_ptr<Waveform> waveform_;
  std::ifstream console_;
  std::string rest_;  // of the console: a line that has not ended yet
  std::uint64_t lost_ = 0;
  SpinWatch spin_;
  std::string error_;
};

std::string Run::Prepare(const RunPlaces& places) {
  std::string error = CopyMachine(scenario_.machine, machine_);
  if (!error.empty()) return error;
  if (mkdir(RunDirectory(machine_).c_str(), 0755) != 0) return machine_ + ": " + std::strerror(errno);
  error = PrepareRun(machine_, places.library);
  if (!error.empty()) return error;
  RackSetup setup = *scenario_.setup;
  setup.time.mode = TimeMode::Virtual;
  setup.time.seed = scenario_.seed;
  setup.time.startStopped = 1;
  if (!file_.Create(StatePath(machine_), setup, error)) return error;

  launch_ = MakeLaunch(machine_, places.controller, scenario_.tasks);
  launch_.output = folder_ + "/console";
  std::ofstream(launch_.output) << std::flush;
  console_.open(launch_.output, std::ios::binary);
  recording_.open(folder_ + "/recording");
  const Snapshot start = Look();
  files_ = FileNamesOf(State());
  waveform_ = std::make_unique<Waveform>(recording_, start, files_);
  waveform_->Begin();
  cards_.emplace(State());
  journal_ = std::make_unique<PatientReader>(State().journal, &State().readers, JournalReader::Start::Oldest,
                                             "test");
  judge_ = std::make_unique<Judge>(
      scenario_, start, files_,
      [this](const std::string& file, std::uint32_t line) { return LineText(file, line); });
  return "";
}

// A line of a program without its comment. Of a file that an event exchanges it is not known which one a task has open.
std::string Run::LineText(const std::string& file, std::uint32_t line) const {
  const bool exchanged = std::any_of(scenario_.events.begin(), scenario_.events.end(),
                                     [&](const Event& event) { return event.path == file; });
  if (exchanged) return "";
  std::ifstream program(machine_ + "/" + file, std::ios::binary);
  std::string text;
  for (std::uint32_t number = 0; number < line && std::getline(program, text); ++number) {
  }
  text.erase(std::min(text.find(';'), text.size()));
  text.erase(text.find_last_not_of(" \t\r,") + 1);
  return text;
}

// Waits until the machine stands after a command. False: the controller has ended.
bool Run::AwaitStand(std::uint32_t number) {
  while (!Stands(State().time, number)) {
    if (controller_->Ended()) return false;
    ReadJournal();
    if (spin_.IsEnough()) return false;
    AwaitStanding(State().time);
  }
  return true;
}

// Lets the machine run up to a time.
bool Run::Advance(Nanos time) {
  TimeCommand command{};
  command.holdAt = time;
  command.holdTask = kAnyTask;
  command.triggers = Triggers();
  return AwaitStand(Order(State().time, command));
}

// The next time at which something is to be done, or to be looked at.
Nanos Run::NextStop(Nanos now) const {
  Nanos next = std::min(now + kStride, scenario_.limit);
  for (std::size_t i = 0; i < scenario_.events.size(); ++i) {
    if (judge_->IsDone(i)) continue;
    const std::optional<Nanos> due = judge_->TimeOf(scenario_.events[i].when);
    if (due) next = std::min(next, *due);
  }
  next = std::min(next, judge_->NextDeadline(now + 1).value_or(next));
  return std::max(next, now + 1);
}

// Where the tasks stand while time does, and why.
std::vector<std::string> Run::TaskSentences() const {
  std::vector<std::string> sentences;
  Machine machine;
  if (!machine.Open(machine_).empty()) return sentences;
  const Snapshot snapshot = machine.Recorded();
  for (const TaskView& task : snapshot.tasks)
    sentences.push_back(TaskSentence(task, Explain(snapshot, task)));
  return sentences;
}

// What the events that are still to come wait for, and the deadlines that are not known yet. Time stands there; whether
// it was that, the judge says.
TriggerTable Run::Triggers() const {
  TriggerTable triggers{};
  for (std::size_t i = 0; i < scenario_.events.size(); ++i) {
    const Moment& when = scenario_.events[i].when;
    if (judge_->IsDone(i) || judge_->TimeOf(when)) continue;
    AddTriggers(scenario_.happenings[static_cast<std::size_t>(when.after)], triggers);
  }
  // Without these a failure says less, but nothing else: they do not fill the table.
  for (const int happening : judge_->AwaitedMoments()) {
    if (triggers.count + kTriggersOfOne > kMaxTriggers) break;
    AddTriggers(scenario_.happenings[static_cast<std::size_t>(happening)], triggers);
  }
  return triggers;
}

std::string Run::Send(const Request& request) {
  std::uint32_t number = 0;
  if (!rack::Send(State().requests, request, number)) return "too many requests wait";
  for (;;) {
    const bool ended = controller_->Ended();
    const RequestAnswer answer = AnswerOf(State().requests, number);
    if (answer.state != RequestAnswer::State::Pending) return answer.text;
    if (ended) return "the controller ended before it took the request";
    usleep(kLookMicros);
  }
}

std::string Run::Do(const Event& event) {
  switch (event.kind) {
    case ActionKind::Key:
    case ActionKind::Request:
      return Send(event.request);
    case ActionKind::Datagram:
      return Post(State().time, event.content) ? "" : "too many datagrams wait";
    case ActionKind::Program:
      break;
    case ActionKind::Restart:
      return std::ofstream(machine_ + "/reboot.txt") ? "" : "reboot.txt cannot be written";
  }
  // Beside the old file and moved over it: a task that has the old one open reads on in it.
  const std::string path = machine_ + "/" + event.path;
  std::ofstream(path + ".new", std::ios::binary) << event.content;
  std::error_code error;
  fs::rename(path + ".new", path, error);
  return error ? event.path + ": " + error.message() : "";
}

// The event that is due first, of several the one that stands first in the file; their number when there is none.
std::size_t Run::NextDue(Nanos now) const {
  std::size_t first = scenario_.events.size();
  Nanos firstDue = now;
  for (std::size_t i = 0; i < scenario_.events.size(); ++i) {
    const std::optional<Nanos> due = judge_->TimeOf(scenario_.events[i].when);
    if (judge_->IsDone(i) || !due || *due > firstDue) continue;
    if (first != scenario_.events.size() && *due == firstDue) continue;
    first = i;
    firstDue = *due;
  }
  return first;
}

// One event may be what another waits for.
void Run::DoDueEvents(Nanos now) {
  for (std::size_t i = NextDue(now); i != scenario_.events.size() && error_.empty(); i = NextDue(now)) {
    const Event& event = scenario_.events[i];
    judge_->SeeEvent(i, *judge_->TimeOf(event.when));
    const std::string error = Do(event);
    if (!error.empty()) error_ = event.text + ": " + error;
    ReadJournal();
  }
}

// The bytes that a thread has written at this record's time; lines are judged when they are complete. Whose they are
// says the thread: a text from the network may look like anybody's line.
void Run::ReadConsole(const JournalRecord& record) {
  const int who = record.task < kTaskRecords ? record.task : int{kUnknownTask};
  std::string bytes(static_cast<std::size_t>(std::max(record.value, 0)), '\0');
  console_.clear();
  console_.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  rest_.append(bytes, 0, static_cast<std::size_t>(console_.gcount()));
  for (std::size_t end = rest_.find_first_of("\r\n"); end != std::string::npos;
       end = rest_.find_first_of("\r\n")) {
    std::string line = rest_.substr(0, end);
    rest_.erase(0, end + 1);
    TakePrefix(line, who);
    line.erase(line.find_last_not_of(' ') + 1);
    if (!line.empty()) judge_->SeeLine(record.time, who, line);
  }
}

void Run::ReadJournal() {
  JournalRecord record{};
  while (journal_->Next(record, lost_) == JournalReader::Result::Record) {
    judge_->See(record);
    if (!judge_->IsOver(record.time)) waveform_->See(record);
    spin_.See(record);
    if (record.kind == JournalKind::ConsoleText) ReadConsole(record);
  }
}

void Run::Drive(RunReport& report) {
  const SignalsForOthers signals;
  controller_.emplace(launch_, State());
  Nanos now = 0;
  Nanos end = scenario_.limit;
  std::string why = "the limit";
  bool runs = AwaitStand(0);
  if (runs) DoDueEvents(now);
  while (runs && now < end && error_.empty()) {
    const Nanos next = std::min(NextStop(now), end);
    runs = Advance(next);
    ReadJournal();
    now = std::min(State().live.now, scenario_.limit);
    judge_->Reach(now);
    if (runs && judge_->NextDeadline(now) == now) judge_->SeeTasks(now, TaskSentences());
    const std::vector<std::string> differences = (*cards_)();
    if (!differences.empty()) error_ = differences.front();
    if (lost_ != 0) error_ = "the journal was too short: " + std::to_string(lost_) + " records lost";
    if (runs) DoDueEvents(now);
    if (!judge_->EndTime()) continue;
    why = "the end";
    end = *judge_->EndTime();
  }
  // Time has gone on by up to a stride while that was not known, and the controller may have ended in it, by whatever.
  const bool over = judge_->EndTime() && now >= *judge_->EndTime();
  if (over) {
    now = *judge_->EndTime();
    runs = true;
  }
  if (runs && State().live.now == now) judge_->SeeTasks(now, TaskSentences());
  controller_->Finish();
  const std::string spins =
      spin_.IsFound() ? "spins at " + files_(spin_.File()) + ":" + std::to_string(spin_.Line()) : "";
  if (!runs) why = spin_.IsEnough() ? spins : controller_->Why();
  judge_->End(now, why, runs);
  waveform_->End(now);
  recording_.flush();
  report.stopped = controller_->StopSignal();
  const std::string error = over || controller_->Error().empty() ? error_ : controller_->Error();
  if (error.empty()) {
    report.result.outcomes = judge_->Outcomes();
    report.result.end = now;
  } else {
    report.result = ErrorOf(scenario_, error, now);
  }
  if (spins.empty()) return;
  report.result.notes.push_back("task " + std::to_string(spin_.Task()) + " " + spins + ": " +
                                std::to_string(kSpinLines) + " lines in a row without a pause or a wait");
}

void Run::KeepWaveform(const RunPlaces& places, ScenarioResult& result) const {
  if (!places.keepsAll && !HasFailed(result)) return;
  std::error_code error;
  const std::string machine = fs::canonical(scenario_.machine, error).filename().string();
  const std::string name = (machine.empty() ? "" : machine + "-") + scenario_.name;
  const std::string path = places.waveforms + "/" + name;
  fs::copy_file(folder_ + "/recording", path + ".vcd", fs::copy_options::overwrite_existing, error);
  std::ofstream(path + ".gtkw") << waveform_->View(name + ".vcd");
  if (!error) result.waveform = (places.waveforms == "." ? name : path) + ".vcd";
}

}  // namespace

RunReport RunScenario(const Scenario& scenario, const RunPlaces& places) {
  RunReport report;
  report.result.scenario = &scenario;
  const WorkFolder folder;
  if (folder.Path().empty()) {
    report.result = ErrorOf(scenario, std::string("no folder for the run: ") + std::strerror(errno), 0);
    return report;
  }
  Run run(scenario, folder.Path());
  const std::string error = run.Prepare(places);
  if (!error.empty()) {
    report.result = ErrorOf(scenario, error, 0);
    return report;
  }
  run.Drive(report);
  if (report.stopped == 0) run.KeepWaveform(places, report.result);
  return report;
}

}  // namespace rack::scenario
