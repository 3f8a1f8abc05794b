#include "machine/time_words.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "toml/words.h"

namespace rack {

namespace {

constexpr int kTasks = 8;
constexpr double kLeastFactor = 0.001;
constexpr double kMostFactor = 1000;
}  // namespace

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
