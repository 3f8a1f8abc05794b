// A state file with the right head and anything behind it: no command that reads it dies of it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>

#include "machine/machine.h"

namespace rack {
namespace {

constexpr std::size_t kHead = offsetof(RackState, powerOn);

class RandomStateTest : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/velmo-random-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    machine = name;
    std::filesystem::create_directory(RunDirectory(machine));
    const auto setup = std::make_unique<RackSetup>();
    MakeEmptySetup(*setup);
    InsertCard(*setup, 2, CardKind::Io);
    InsertCard(*setup, 3, CardKind::Stepper);
    InsertCard(*setup, 4, CardKind::Servo);
    InsertCard(*setup, 5, CardKind::Cylinder);
    AssignEntries(*setup);
    std::string error;
    ASSERT_TRUE(file.Create(StatePath(machine), *setup, error)) << error;
    whole.resize(sizeof(RackState));
    std::memcpy(whole.data(), file.State(), whole.size());
  }
  void TearDown() override { std::filesystem::remove_all(machine); }

  unsigned char* Bytes() const { return reinterpret_cast<unsigned char*>(file.State()); }
  void Restore() const { std::memcpy(Bytes(), whole.data(), whole.size()); }
  unsigned Random(std::size_t below) { return static_cast<unsigned>(random() % below); }
  void Fill(std::size_t from, std::size_t size) {
    for (std::size_t i = 0; i + 4 <= size; i += 4) {
      const auto word = static_cast<std::uint32_t>(random());
      std::memcpy(Bytes() + from + i, &word, sizeof word);
    }
  }
  void Scatter(std::size_t from, std::size_t size, int count) {
    for (int i = 0; i < count; ++i) Bytes()[from + Random(size)] = static_cast<unsigned char>(random());
  }

  // 0 to 2, or 128 and more for a death by a signal.
  int Run(std::vector<std::string> words) const {
    words.insert(words.begin(), VELMO_RACK_PROGRAM);
    words.insert(words.end(), {"--machine", machine});
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
      const int nowhere = open("/dev/null", O_RDWR);
      dup2(nowhere, STDOUT_FILENO);
      dup2(nowhere, STDERR_FILENO);
      alarm(60);
      execv(argv[0], argv.data());
      _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  // Two of the commands that read it, in turn.
  void CommandsLive(int number) const {
    const std::vector<std::vector<std::string>> commands = {
        {"show"}, {"trace", "--once"}, {"show", "--json"}, {"vcd", machine + "/a.vcd", "--once"}};
    const std::size_t first = number % 2 == 0 ? 0 : 2;
    for (std::size_t i = first; i < first + 2; ++i) {
      EXPECT_LE(Run(commands[i]), 2) << commands[i].front() << ", body " << number;
    }
  }

  std::string machine;
  StateFile file;
  std::vector<unsigned char> whole;
  std::mt19937 random{20261125};
};

TEST_F(RandomStateTest, AWholeOneIsRead) {
  EXPECT_EQ(Run({"show"}), 0);
  EXPECT_EQ(Run({"trace", "--once"}), 0);
}

TEST_F(RandomStateTest, NoiseIsRefused) {
  for (int number = 0; number < 10; ++number) {
    Fill(kHead, sizeof(RackState) - kHead);
    EXPECT_EQ(Run({"show"}), 1) << number;
    CommandsLive(number);
  }
}

TEST_F(RandomStateTest, AFewWrongBytesEndNoCommand) {
  constexpr std::size_t kLive = offsetof(RackState, live);
  for (int number = 0; number < 120; ++number) {
    Restore();
    Scatter(kHead, offsetof(RackState, requests) - kHead, 1 + static_cast<int>(Random(8)));
    // Where the numbers are that count or name something.
    Scatter(offsetof(RackState, image), 16 + kMaxEntries, static_cast<int>(Random(2)));
    Scatter(kLive + offsetof(RackLive, cards), sizeof(RackLive::cards), static_cast<int>(Random(60)));
    Scatter(kLive + offsetof(RackLive, tasks), 200, static_cast<int>(Random(20)));
    CommandsLive(number);
  }
}

TEST_F(RandomStateTest, RandomRecordsEndNoCommand) {
  for (int number = 0; number < 60; ++number) {
    Restore();
    JournalRing& ring = file.State()->journal;
    for (int i = 0; i < 400; ++i) {
      JournalRecord record{};
      for (std::size_t at = 0; at < sizeof record; ++at)
        reinterpret_cast<unsigned char*>(&record)[at] = static_cast<unsigned char>(random());
      record.kind = static_cast<JournalKind>(Random(40));
      if (Random(2) == 0) record.slot = static_cast<std::uint8_t>(Random(kSlots));
      if (Random(2) == 0) record.time = i;
      if (Random(2) == 0) record.port = static_cast<std::uint8_t>(Random(24));
      Append(ring, record);
    }
    CommandsLive(number);
  }
}

}  // namespace
}  // namespace rack
