#include "scenario/suite.h"

#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <map>

namespace rack::scenario {

namespace {

// The processors that this process may use.
std::vector<int> Processors() {
  cpu_set_t allowed;
  std::vector<int> numbers;
  if (sched_getaffinity(0, sizeof allowed, &allowed) != 0) return {};
  for (int i = 0; i < CPU_SETSIZE; ++i) {
    if (CPU_ISSET(static_cast<unsigned>(i), &allowed)) numbers.push_back(i);
  }
  return numbers;
}

void KeepTo(int processor) {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(static_cast<unsigned>(processor), &one);
  sched_setaffinity(0, sizeof one, &one);
}

// The signals that the suite waits for. A job's process keeps them blocked: the thread that runs its controller
// takes them.
class AwaitedSignals {
 public:
  AwaitedSignals() {
    sigemptyset(&set_);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) sigaddset(&set_, signal);
    sigprocmask(SIG_BLOCK, &set_, &before_);
  }
  ~AwaitedSignals() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
  AwaitedSignals(const AwaitedSignals&) = delete;
  AwaitedSignals& operator=(const AwaitedSignals&) = delete;
  AwaitedSignals(AwaitedSignals&&) = delete;
  AwaitedSignals& operator=(AwaitedSignals&&) = delete;

  // A signal to stop, or 0: a job may have ended.
  int Next() const {
    const int signal = sigwaitinfo(&set_, nullptr);
    return signal < 0 || signal == SIGCHLD ? 0 : signal;
  }

 private:
  sigset_t set_{};
  sigset_t before_{};
};

// The texts that a job's process leaves for the suite.
struct JobTexts {
  bool failed = true;
  std::string tap;
  std::string junit;
};

JobTexts TextsOf(const ScenarioResult& result, std::size_t first) {
  return {HasFailed(result), TapOf(result, first), SuiteOf(result)};
}

bool WriteTexts(FILE* file, const JobTexts& texts) {
  const std::size_t head[] = {texts.failed ? 1U : 0U, texts.tap.size(), texts.junit.size()};
  return fwrite(head, sizeof head, 1, file) == 1 &&
         fwrite(texts.tap.data(), 1, texts.tap.size(), file) == texts.tap.size() &&
         fwrite(texts.junit.data(), 1, texts.junit.size(), file) == texts.junit.size() && fflush(file) == 0;
}

bool ReadTexts(FILE* file, JobTexts& texts) {
  std::size_t head[3] = {};
  std::rewind(file);
  if (fread(head, sizeof head, 1, file) != 1) return false;
  texts.failed = head[0] != 0;
  texts.tap.resize(head[1]);
  texts.junit.resize(head[2]);
  return fread(texts.tap.data(), 1, head[1], file) == head[1] &&
         fread(texts.junit.data(), 1, head[2], file) == head[2];
}

struct Job {
  std::size_t scenario;
  std::size_t place;  // number of the processor's row
  FILE* file;
};

class Suite {
 public:
  Suite(const std::vector<Scenario>& scenarios, const SuiteOptions& options,
        const std::function<void(const std::string&)>& print)
      : scenarios_(scenarios),
        options_(options),
        print_(print),
        processors_(Processors()),
        texts_(scenarios.size()),
        ended_(scenarios.size()) {
    const std::size_t count = options.jobs > 0 ? static_cast<std::size_t>(options.jobs)
                                               : std::max<std::size_t>(processors_.size(), 1);
    busy_.resize(std::min(count, std::max<std::size_t>(scenarios.size(), 1)));
    std::size_t first = 1;
    for (const Scenario& scenario : scenarios) {
      firsts_.push_back(first);
      first += scenario.expectations.size();
    }
  }

  SuiteEnd Run() {
    StartWhatFits();
    while (!jobs_.empty()) {
      const int signal = signals_.Next();
      if (signal != 0) Stop(signal);
      TakeEnded();
      StartWhatFits();
    }
    for (JobTexts& texts : texts_) {
      end_.failed = end_.failed || texts.failed;
      end_.junit.push_back(std::move(texts.junit));
    }
    return std::move(end_);
  }

 private:
  void Stop(int signal) {
    end_.stopped = signal;
    for (const auto& [process, job] : jobs_) kill(process, signal);
  }

  void StartWhatFits() {
    while (next_ < scenarios_.size() && end_.stopped == 0) {
      const auto place = std::find(busy_.begin(), busy_.end(), false);
      if (place == busy_.end()) return;
      Start(next_++, static_cast<std::size_t>(place - busy_.begin()));
    }
  }

  void Start(std::size_t scenario, std::size_t place) {
    FILE* const file = std::tmpfile();
    const pid_t parent = getpid();
    const pid_t process = file == nullptr ? -1 : fork();
    if (process == 0) Work({scenario, place, file}, parent);
    if (process > 0) {
      busy_[place] = true;
      jobs_[process] = {scenario, place, file};
      return;
    }
    const std::string why = std::string("no process for the run: ") + std::strerror(errno);
    if (file != nullptr) std::fclose(file);
    Fail(scenario, why);
  }

  // The job's side.
  [[noreturn]] void Work(const Job& job, pid_t parent) const {
    prctl(PR_SET_PDEATHSIG, SIGTERM, 0, 0, 0);
    if (getppid() != parent) _exit(1);
    if (!processors_.empty()) KeepTo(processors_[job.place % processors_.size()]);
    const RunReport report = RunScenario(scenarios_[job.scenario], options_.places);
    const bool told =
        report.stopped == 0 && WriteTexts(job.file, TextsOf(report.result, firsts_[job.scenario]));
    _exit(told ? 0 : 1);
  }

  void TakeEnded() {
    int status = 0;
    for (pid_t process; (process = waitpid(-1, &status, WNOHANG)) > 0;) {
      const auto found = jobs_.find(process);
      if (found == jobs_.end()) continue;
      const Job job = found->second;
      jobs_.erase(found);
      busy_[job.place] = false;
      const bool told = ReadTexts(job.file, texts_[job.scenario]);
      std::fclose(job.file);
      if (end_.stopped != 0) continue;
      if (told) {
        Told(job.scenario);
      } else {
        Fail(job.scenario, WIFSIGNALED(status) ? "the process of the run was ended by signal " +
                                                     std::to_string(WTERMSIG(status))
                                               : "the process of the run has ended without a result");
      }
    }
  }

  void Fail(std::size_t scenario, const std::string& why) {
    texts_[scenario] = TextsOf(ErrorOf(scenarios_[scenario], why, 0), firsts_[scenario]);
    Told(scenario);
  }

  // Prints what is complete, in the order of the scenarios.
  void Told(std::size_t scenario) {
    ended_[scenario] = true;
    for (; printed_ < scenarios_.size() && ended_[printed_]; ++printed_) print_(texts_[printed_].tap);
  }

  const std::vector<Scenario>& scenarios_;
  const SuiteOptions& options_;
  const std::function<void(const std::string&)>& print_;
  const AwaitedSignals signals_;
  std::vector<int> processors_;
  std::vector<std::size_t> firsts_;  // by scenario: number of its first expectation
  std::vector<JobTexts> texts_;      // by scenario
  std::vector<bool> ended_;          // by scenario
  std::vector<bool> busy_;           // by place
  std::map<pid_t, Job> jobs_;
  std::size_t next_ = 0;
  std::size_t printed_ = 0;
  SuiteEnd end_;
};

}  // namespace

SuiteEnd RunSuite(const std::vector<Scenario>& scenarios, const SuiteOptions& options,
                  const std::function<void(const std::string&)>& print) {
  return Suite(scenarios, options, print).Run();
}

}  // namespace rack::scenario
