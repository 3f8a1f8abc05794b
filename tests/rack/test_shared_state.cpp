#include <unistd.h>

#include <thread>

#include "rack_fixture.h"

using rack::JournalReader;
using rack::JournalRecord;

namespace {

JournalRecord Numbered(std::int32_t value) {
  return {value, rack::JournalKind::Write, 1, 2, 3, value, 4, 5};
}

TEST(JournalTest, ReaderIsToldWhatItMissed) {
  const auto ring = std::make_unique<rack::JournalRing>();
  JournalReader slow(*ring, JournalReader::Start::Oldest);
  constexpr std::int32_t count = 262144 + 1000;
  for (std::int32_t i = 0; i < count; ++i) Append(*ring, Numbered(i));
  JournalRecord record{};
  std::uint64_t lost = 0;
  ASSERT_EQ(slow.Next(record, lost), JournalReader::Result::Record);
  EXPECT_EQ(lost, 1000U);
  EXPECT_EQ(record.value, 1000);
  JournalReader late(*ring, JournalReader::Start::Oldest);
  lost = 0;
  ASSERT_EQ(late.Next(record, lost), JournalReader::Result::Record);
  EXPECT_EQ(lost, 0U);
  EXPECT_EQ(record.value, 1000);
  JournalReader next(*ring, JournalReader::Start::Newest);
  EXPECT_EQ(next.Next(record, lost), JournalReader::Result::Nothing);
}

TEST(JournalTest, RecordsComeWholeWhileTheyAreWritten) {
  const auto ring = std::make_unique<rack::JournalRing>();
  constexpr std::int32_t count = 600000;
  JournalReader reader(*ring, JournalReader::Start::Oldest);
  std::thread writer([&] {
    for (std::int32_t i = 0; i < count; ++i) Append(*ring, Numbered(i));
  });
  std::uint64_t lost = 0;
  std::uint64_t seen = 0;
  JournalRecord record{};
  std::int32_t last = -1;
  while (last != count - 1) {
    if (reader.Next(record, lost) == JournalReader::Result::Nothing) {
      std::this_thread::yield();
      continue;
    }
    ++seen;
    ASSERT_EQ(record.time, record.value);
    ASSERT_GT(record.value, last);
    last = record.value;
  }
  writer.join();
  EXPECT_EQ(seen + lost, 600000U);
}

TEST(RequestTest, FullRingRefusesAndResultsComeByNumber) {
  const auto ring = std::make_unique<rack::RequestRing>();
  rack::Request request{rack::RequestKind::SetInput, rack::FaultKind::None, 3, 4, 0, 1, 0, 9};
  std::uint32_t number = 0;
  for (std::uint32_t i = 0; i < 64; ++i) {
    ASSERT_TRUE(Send(*ring, request, number));
    EXPECT_EQ(number, i);
  }
  EXPECT_FALSE(Send(*ring, request, number));
  EXPECT_EQ(ResultOf(*ring, 0), rack::RequestResult::Pending);
  rack::Request taken{};
  ASSERT_TRUE(NextRequest(*ring, taken, number));
  EXPECT_EQ(number, 0U);
  EXPECT_EQ(taken.channel, 4);
  EXPECT_EQ(taken.duration, 9);
  Finish(*ring, rack::RequestResult::NoSuchCard);
  EXPECT_EQ(ResultOf(*ring, 0), rack::RequestResult::NoSuchCard);
  EXPECT_EQ(ResultOf(*ring, 1), rack::RequestResult::Pending);
  EXPECT_TRUE(Send(*ring, request, number));
  EXPECT_EQ(ResultOf(*ring, 0), rack::RequestResult::Done);  // its place has been used again
}

// Whether each part of a command says the same number.
bool IsWhole(const rack::TimeCommand& command) {
  const auto number = static_cast<std::uint32_t>(command.holdAt);
  return command.holdLine == number && command.triggers.count == number &&
         command.triggers.rows[rack::kMaxTriggers - 1].lastLine == number;
}

rack::TimeCommand CommandOf(std::uint32_t number) {
  rack::TimeCommand command{};
  command.holdAt = number;
  command.holdLine = command.triggers.count = number;
  command.triggers.rows[rack::kMaxTriggers - 1].lastLine = number;
  return command;
}

TEST(TimeCommandTest, IsReadWholeWhileTheNextOnesAreGiven) {
  const auto time = std::make_unique<rack::TimeControl>();
  constexpr std::uint32_t kCount = 50'000;
  rack::OrderAtStart(*time, CommandOf(0));
  std::thread tool([&] {
    for (std::uint32_t i = 1; i <= kCount; ++i) rack::Order(*time, CommandOf(i));
  });
  std::uint32_t last = 0;
  int torn = 0;
  while (last != kCount) {
    rack::TimeCommand command{};
    std::uint32_t number = 0;
    if (!rack::ReadOrder(*time, command, number)) continue;
    if (!IsWhole(command) || static_cast<std::uint32_t>(command.holdAt) != number) ++torn;
    last = number;
  }
  tool.join();
  EXPECT_EQ(torn, 0);
}

TEST(TimeCommandTest, AToolThatEndedHalfWayLeavesNone) {
  const auto time = std::make_unique<rack::TimeControl>();
  rack::Order(*time, CommandOf(1));
  time->command.begun = 2;  // and then its end
  rack::TimeCommand command{};
  std::uint32_t number = 0;
  EXPECT_FALSE(rack::ReadOrder(*time, command, number));
  EXPECT_EQ(rack::Order(*time, CommandOf(9)), 2U);
  EXPECT_TRUE(rack::ReadOrder(*time, command, number));
  EXPECT_EQ(number, 2U);
  EXPECT_TRUE(IsWhole(command));
}

TEST(StateFileTest, OutlivesItsProcessAndRefusesOtherFiles) {
  const std::string path = testing::TempDir() + "rack-state-" + std::to_string(getpid());
  const auto setup = std::make_unique<rack::RackSetup>();
  rack::MakeEmptySetup(*setup);
  std::string error;
  rack::StateFile made;
  ASSERT_TRUE(made.Create(path, *setup, error)) << error;
  rack::Rack(*made.State()).WritePort(5, 0x42, 0);
  rack::StateFile seen;
  ASSERT_TRUE(seen.Open(path, error)) << error;
  EXPECT_EQ(rack::Rack(*seen.State()).ReadPort(5, 0), 0x42);
  EXPECT_FALSE(seen.Replaced());
  ASSERT_TRUE(made.Create(path, *setup, error)) << error;
  EXPECT_TRUE(seen.Replaced());
  made.State()->version = 99;
  EXPECT_FALSE(seen.Open(path, error));
  EXPECT_EQ(error, path + ": not the state of a rack, or of another version of this program");
  EXPECT_FALSE(seen.Open(path + ".none", error));
  EXPECT_EQ(error, path + ".none: No such file or directory");
  unlink(path.c_str());
}

TEST(StateFileTest, LayoutIsTheSameForEveryProcess) {
  EXPECT_EQ(sizeof(rack::RackImage), 37800U);
  EXPECT_EQ(offsetof(rack::RackState, live), 37824U);
  EXPECT_EQ(offsetof(rack::RackLive, cards), 1088U);
  EXPECT_EQ(offsetof(rack::RackLive, plant), 14192U);
  EXPECT_EQ(offsetof(rack::RackLive, tasks), 18864U);
  EXPECT_EQ(offsetof(rack::RackLive, programFiles), 32224U);
  EXPECT_EQ(sizeof(rack::JournalRing), 8388616U);
}

}  // namespace
