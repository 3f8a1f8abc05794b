// Machines in good style, about which the checker says nothing, and the slips that it finds when they are planted
// there.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <filesystem>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "check/found.h"
#include "support/scratch.h"

namespace {

namespace fs = std::filesystem;

const fs::path kFolder = fs::path(VELMO_SOURCE) / "tests/check";
constexpr std::array kMachines = {"dosing", "indexing-table", "pick-and-place", "press", "sorter"};

constexpr int kFound = 45;  // of the slips

TEST(Machines, AreWithoutFindings) {
  for (const char* machine : kMachines) {
    SCOPED_TRACE(machine);
    EXPECT_THAT(Found(kFolder / "machines" / machine), testing::IsEmpty());
  }
}

// One line of the file "slips", which tells what its fields are.
struct Slip {
  std::string machine;
  std::string file;
  int line;
  std::string oldText;
  std::string newText;
  std::string expected;  // "file:line rule"; empty when nothing is found
  std::string note;

  bool IsFound() const { return !expected.empty(); }
};

std::string Trimmed(std::string_view text) {
  const std::size_t start = text.find_first_not_of(' ');
  if (start == text.npos) return "";
  return std::string(text.substr(start, text.find_last_not_of(' ') + 1 - start));
}

std::vector<std::string> FieldsOf(const std::string& line) {
  std::vector<std::string> fields;
  std::istringstream rest(line);
  std::string field;
  while (std::getline(rest, field, '|')) fields.push_back(Trimmed(field));
  return fields;
}

std::string WithLineEnds(std::string text) {
  for (std::size_t at; (at = text.find("\\n")) != text.npos;) text.replace(at, 2, "\n");
  return text;
}

Slip SlipOf(const std::vector<std::string>& fields) {
  const std::string& place = fields[1];
  const std::string& found = fields[4];
  const std::size_t colon = place.rfind(':');
  const std::size_t blank = found.find(' ');
  const bool isFound = found != "-";
  return {fields[0],
          place.substr(0, colon),
          std::stoi(place.substr(colon + 1)),
          WithLineEnds(fields[2]),
          WithLineEnds(fields[3]),
          isFound ? found.substr(blank + 1) + " " + found.substr(0, blank) : "",
          fields[5]};
}

std::vector<Slip> Slips() {
  std::vector<Slip> slips;
  std::istringstream lines(ReadText(kFolder / "slips"));
  std::string line;
  while (std::getline(lines, line)) {
    if (line.empty() || line[0] == '#') continue;
    const std::vector<std::string> fields = FieldsOf(line);
    EXPECT_EQ(fields.size(), 6U) << line;
    if (fields.size() == 6) slips.push_back(SlipOf(fields));
  }
  return slips;
}

std::size_t StartOfLine(const std::string& text, int line) {
  std::size_t start = 0;
  for (int i = 1; i < line && start != text.npos; ++i) {
    start = text.find('\n', start);
    if (start != text.npos) ++start;
  }
  return start;
}

class SlipsTest : public ScratchTest {
 protected:
  // A copy of the slip's machine, with the slip in it.
  static void Plant(const Slip& slip) {
    fs::remove_all("machine");
    fs::copy(kFolder / "machines" / slip.machine, "machine", fs::copy_options::recursive);
    const std::string path = "machine/" + slip.file;
    std::string text = Read(path);
    const std::size_t start = StartOfLine(text, slip.line);
    ASSERT_LT(start, text.size());
    const std::size_t end = text.find('\n', start);
    const std::size_t at = text.find(slip.oldText, start);
    ASSERT_LT(at, end) << "this text does not stand in that line";
    ASSERT_GT(text.find(slip.oldText, at + 1), end) << "this text stands there twice";
    Write(path, text.replace(at, slip.oldText.size(), slip.newText));
  }
};

TEST_F(SlipsTest, AreFoundInTheLineThatTheListNames) {
  const std::vector<Slip> slips = Slips();
  int found = 0;
  for (const Slip& slip : slips) {
    SCOPED_TRACE(slip.machine + " " + slip.file + ":" + std::to_string(slip.line) + ": " + slip.note);
    ASSERT_NO_FATAL_FAILURE(Plant(slip));
    if (!slip.IsFound()) {
      EXPECT_THAT(slip.note, testing::AnyOf(testing::StartsWith("later: "), testing::StartsWith("never: ")));
      EXPECT_THAT(Found("machine"), testing::IsEmpty());
      continue;
    }
    ++found;
    EXPECT_THAT(Found("machine"), testing::Contains(slip.expected));
  }
  EXPECT_EQ(slips.size(), 50U);
  EXPECT_EQ(found, kFound);
}

}  // namespace
