#include "cli/recording.h"

#include <cerrno>
#include <csignal>
#include <cstring>

namespace rack::cli {

namespace {

constexpr int kLookMillis = 2;

// The recording's name with the ending of the view file.
std::string ViewPath(const std::string& path) {
  const std::size_t dot = path.rfind(".vcd");
  return (dot == std::string::npos ? path : path.substr(0, dot)) + ".gtkw";
}

std::string OpenFile(std::ofstream& file, const std::string& name) {
  if (name.empty()) return "";
  file.open(name, std::ios::binary | std::ios::trunc);
  return file ? "" : name + ": " + std::strerror(errno);
}

bool IsTable(const std::string& name) {
  constexpr const char* kEnding = ".csv";
  const std::size_t dot = name.rfind(kEnding);
  return dot != std::string::npos && dot + std::strlen(kEnding) == name.size();
}

}  // namespace

bool WriteView(const Waveform& waveform, const std::string& recording) {
  std::ofstream view(ViewPath(recording));
  const std::size_t slash = recording.rfind('/');
  view << waveform.View(slash == std::string::npos ? recording : recording.substr(slash + 1));
  view.flush();
  return static_cast<bool>(view);
}

std::string RunRecorder::Start(const std::string& machine, const std::string& log, const std::string& vcd) {
  if (log.empty() && vcd.empty()) return "";
  std::string wrong = OpenFile(log_, log);
  if (wrong.empty()) wrong = OpenFile(vcd_, vcd);
  if (wrong.empty()) wrong = machine_.Open(machine);
  if (!wrong.empty()) return wrong;
  logName_ = log;
  vcdName_ = vcd;
  table_ = IsTable(log);
  start_ = PowerOnSnapshot(machine_.State().image, machine_.State().live);
  tracer_.emplace(start_, machine_.Files());
  if (table_) log_ << Tracer::Header() << "\n";
  if (!vcd.empty()) waveform_.emplace(vcd_, start_, machine_.Files());
  if (waveform_) waveform_->Begin();
  reader_.emplace(machine_.State().journal, machine_.Readers(), JournalReader::Start::Oldest, "run");
  // The signals that end this process are left to the thread that runs the controller.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &before);
  thread_ = std::thread([this] { Follow(); });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return "";
}

void RunRecorder::Follow() {
  PatientReader& reader = *reader_;
  for (bool last = false; !last;) {
    // Asked before the journal is read to its end.
    last = over_.load(std::memory_order_acquire);
    Drain(reader);
    if (!last) Doze(kLookMillis);
  }
}

void RunRecorder::Drain(PatientReader& reader) {
  JournalRecord record{};
  while (reader.Next(record, losses_.Missed()) == JournalReader::Result::Record) {
    TellLost(false);
    Write(record);
  }
  TellLost(false);
}

void RunRecorder::Write(const JournalRecord& record) {
  if (waveform_) waveform_->See(record);
  if (logName_.empty()) return;
  tracer_->See(record);
  if (!filter_.Shows(record, tracer_->Subject(record))) return;
  log_ << (table_ ? tracer_->Row(record) : tracer_->Line(record)) << "\n";
}

void RunRecorder::TellLost(bool all) {
  const std::uint64_t records = losses_.Take(all, MonotonicNow());
  if (records == 0) return;
  if (waveform_) waveform_->Lost(records);
  if (!logName_.empty() && !table_) log_ << records << " records lost here\n";
}

std::string RunRecorder::Finish() {
  if (!thread_.joinable()) return "";
  over_.store(true, std::memory_order_release);
  thread_.join();
  TellLost(true);
  if (waveform_) waveform_->End(machine_.State().live.now);
  log_.flush();
  vcd_.flush();
  if (!log_) return logName_ + ": could not be written";
  if (!vcd_ || (waveform_ && !WriteView(*waveform_, vcdName_))) return vcdName_ + ": could not be written";
  return losses_.Told() == 0 ? "" : std::to_string(losses_.Told()) + " records lost in what was recorded";
}

}  // namespace rack::cli
