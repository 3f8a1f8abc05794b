#include "machine/time_words.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <vector>

#include "machine/launch.h"
#include "numbers.h"
#include "synx.h"
#include "toml/words.h"

namespace rack {

namespace {

constexpr int kTasks = 8;
constexpr double kLeastFactor = 0.001;
constexpr double kMostFactor = 1000;
// The lines of a program file; nothing when there is none.
std::optional<std::vector<std::string>> LinesOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

bool IsEmpty(const std::string& text) {
  ExplainedLine line;
  ExplainLine(text.c_str(), &line);
  return line.Fault == LineFault::Empty;
}

std::string Trimmed(const std::string& text) {
  constexpr const char* kBlank = " \t\r";
  const std::size_t first = text.find_first_not_of(kBlank);
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(kBlank) - first + 1);
}

}  // namespace

std::string WhyNever(const std::string& directory, const TimeCommand& place, int tasks) {
  if (place.holdTask != kAnyTask && tasks != 0 && place.holdTask > tasks) {
    return "the machine has no task " + std::to_string(place.holdTask) + ": it runs " + std::to_string(tasks);
  }
  if (place.holdLine == 0) return "";
  const std::string file = place.holdFile;
  const auto lines = LinesOf(directory + "/" + file);
  if (!lines) return "there is no file " + file;
  const std::string line = file + ":" + std::to_string(place.holdLine);
  if (place.holdLine > lines->size())
    return "there is no line " + line + ": the file has " + std::to_string(lines->size());
  if (!IsEmpty((*lines)[place.holdLine - 1])) return "";
  std::size_t next = place.holdLine;
  while (next < lines->size() && IsEmpty((*lines)[next])) ++next;
  if (next == lines->size()) return line + " holds no command, nor does any line after it";
  return line + " holds no command: the next one is " + std::to_string(next + 1) + "  " +
         Trimmed((*lines)[next]);
}

int TaskCount(const std::string& argument, const CpuCardState& cpu) {
  const int count = argument.empty() ? cpu.taskCount : ToNumber<int>(argument.c_str());
  return count > kTasks ? 1 : count;
}

int TaskCount(const RackState& state) {
  std::ifstream file("/proc/" + std::to_string(state.live.controller.process) + "/cmdline", std::ios::binary);
  std::vector<std::string> words;
  for (std::string word; std::getline(file, word, '\0');) words.push_back(word);
  if (words.empty()) return 0;
  // An emulator has its own words before those of the controller.
  const std::size_t program =
      words.size() > kEmulatorWords && words[1] == kGuestVariable ? kEmulatorWords : 0;
  return TaskCount(words.size() > program + 1 ? words[program + 1] : "", state.live.cards[0].cpu);
}

std::string PlaceText(const TimeCommand& command) {
  const std::string task =
      command.holdTask == kAnyTask ? "any task" : "task " + std::to_string(command.holdTask);
  if (command.holdLine == 0) return task + " at its next line";
  return task + " at " + command.holdFile + ":" + std::to_string(command.holdLine);
}

std::string ParseTime(const std::string& word, TimeSetup& setup) {
  setup.mode = TimeMode::Real;
  if (word.empty() || word == "real") return "";
  if (word == "virtual") {
    setup.mode = TimeMode::Virtual;
    return "";
  }
  char* rest = nullptr;
  const double factor = std::strtod(word.c_str(), &rest);
  if (rest == word.c_str() || *rest != '\0' || !(factor >= kLeastFactor && factor <= kMostFactor)) {
    return "--time " + word + ": real, virtual, or a factor from 0.001 to 1000 is wanted";
  }
  setup.factorMillis = static_cast<std::uint32_t>(std::lround(factor * 1000));
  if (setup.factorMillis != 1000) setup.mode = TimeMode::Scaled;
  return "";
}

std::string ParseThreads(const std::string& word, TimeSetup& setup) {
  if (word.empty()) return "";
  if (word != "real" && word != "fibres") return "--threads " + word + ": real or fibres is wanted";
  setup.threads = word == "real" ? ThreadKind::Real : ThreadKind::Fibres;
  return "";
}

std::string ParseTask(const std::string& word, std::uint8_t& task) {
  task = kAnyTask;
  if (word.empty()) return "";
  const std::optional<int> number = WholeNumber(word);
  if (!number || *number < 1 || *number > kTasks) return "\"" + word + "\" is no PLC task: they are 1 to 8";
  task = static_cast<std::uint8_t>(*number);
  return "";
}

std::string ParsePlace(const std::string& word, TimeCommand& command) {
  const std::size_t first = word.find(':');
  const std::size_t last = word.rfind(':');
  if (first == std::string::npos || first == 0 || last <= first + 1) {
    return "\"" + word + "\" is no place: TASK:FILE:LINE is wanted, such as 1:FLOW.PLC:12";
  }
  std::string wrongTask = ParseTask(word.substr(0, first), command.holdTask);
  if (!wrongTask.empty()) return wrongTask;
  const std::optional<int> line = WholeNumber(word.substr(last + 1));
  if (!line || *line < 1) return "\"" + word.substr(last + 1) + "\" is no line number";
  command.holdLine = static_cast<std::uint32_t>(*line);
  std::string file = word.substr(first + 1, last - first - 1);
  const std::string folder = "plc" + word.substr(0, first) + "/";
  if (file.compare(0, folder.size(), folder) != 0) file.insert(0, folder);
  if (file.size() >= sizeof command.holdFile) return "the file's name is too long";
  std::memcpy(command.holdFile, file.c_str(), file.size() + 1);
  return "";
}

std::string StandText(const RackState& state) {
  const TimeControl& time = state.time;
  char at[40];
  std::snprintf(at, sizeof at, "%.6f s", static_cast<double>(state.live.now) / static_cast<double>(kSecond));
  if (time.standsTask < 1 || time.standsTask > kTasks || time.standsFile < 1 ||
      time.standsFile > kMaxProgramFiles) {
    return std::string("time stands at ") + at;
  }
  std::string text = state.live.tasks[time.standsTask].text;
  text.erase(text.find_last_not_of(" \t\r\n") + 1);
  return "task " + std::to_string(time.standsTask) + " stands at " + at + " before " +
         state.live.programFiles[time.standsFile - 1] + ":" + std::to_string(time.standsLine) + "  " + text;
}

}  // namespace rack
