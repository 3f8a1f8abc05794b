// Recordings in files: what `run` writes while its machine runs, and the view beside a waveform.
#pragma once

#include <atomic>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "machine/losses.h"
#include "machine/machine.h"
#include "machine/trace_filter.h"
#include "machine/waveform.h"

namespace rack::cli {

// Writes the view that shows a recording, beside it. False: it could not be written.
bool WriteView(const Waveform& waveform, const std::string& recording);

class RunRecorder {
 public:
  RunRecorder() = default;
  ~RunRecorder() { Finish(); }
  RunRecorder(const RunRecorder&) = delete;
  RunRecorder& operator=(const RunRecorder&) = delete;
  RunRecorder(RunRecorder&&) = delete;
  RunRecorder& operator=(RunRecorder&&) = delete;

  // Records a machine that is switched on and does not run yet. A log is a table when its name ends in .csv; an empty
  // name: it is not wanted. The text says what failed.
  std::string Start(const std::string& machine, const std::string& log, const std::string& vcd);
  // The controller has ended: writes the rest. The text says what failed.
  std::string Finish();

 private:
  void Follow();
  void Drain(PatientReader& reader);
  void Write(const JournalRecord& record);
  void TellLost(bool all);

  Machine machine_;
  Snapshot start_;
  std::string logName_;
  std::string vcdName_;
  std::ofstream log_;
  std::ofstream vcd_;
  bool table_ = false;
  std::optional<Tracer> tracer_;
  TraceFilter filter_;
  std::optional<Waveform> waveform_;
  Losses losses_;
  std::atomic<bool> over_{false};
  std::optional<PatientReader> reader_;  // has its slot before the controller starts
  std::thread thread_;
};

}  // namespace rack::cli
