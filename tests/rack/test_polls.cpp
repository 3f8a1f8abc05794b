// Polls in the journal.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "rack/poll_folder.h"

namespace rack {
namespace {

// Records of a journal as text: "S3 R8=1 R8=1" with the task in front where it is not 1; a poll as "x2/5" of a round of two
// and five accesses, a program line as "L4".
class FoldTest : public testing::Test {
 protected:
  void Access(JournalKind kind, int port, int value, std::uint8_t task = 1, std::uint32_t line = 3) {
    now += 100;
    folder.Add({now, kind, task, 3, static_cast<std::uint8_t>(port), value, line, 1});
  }
  void Select(int slot, std::uint8_t task = 1) { Access(JournalKind::Write, 0, slot, task); }
  void Read(int port, int value, std::uint8_t task = 1) { Access(JournalKind::Read, port, value, task); }
  void Poll(int times, int value = 0, std::uint8_t task = 1) {
    for (int i = 0; i < times; ++i) {
      Select(3, task);
      Read(8, value, task);
    }
  }
  void Event(JournalKind kind, std::uint8_t task = 1) { folder.Add({++now, kind, task, 0, 0, 0, 0, 0}); }

  std::string Records() {
    std::string text;
    JournalReader reader(*ring, JournalReader::Start::Oldest);
    JournalRecord record{};
    std::uint64_t lost = 0;
    Nanos last = 0;
    while (reader.Next(record, lost) == JournalReader::Result::Record) {
      EXPECT_GE(record.time, last);
      last = record.time;
      text += (text.empty() ? "" : " ") + (record.task == 1 ? "" : std::to_string(record.task) + ":") +
              Text(record);
    }
    return text;
  }
  static std::string Text(const JournalRecord& record) {
    const std::string value = std::to_string(record.value);
    if (record.kind == JournalKind::Repeats) return "x" + std::to_string(record.slot) + "/" + value;
    if (record.kind == JournalKind::Read) return "R" + std::to_string(record.port) + "=" + value;
    if (record.kind == JournalKind::Write) return "S" + value;
    return WordOf(record.kind);
  }

  const std::unique_ptr<JournalRing> ring = std::make_unique<JournalRing>();
  PollTracks polls{};
  PollFolder folder{*ring, polls};
  Nanos now = 0;
};

TEST_F(FoldTest, ThePollIsWrittenOnceAndThenCounted) {
  Poll(1000);
  EXPECT_EQ(Records(), "S3 R8=0");
  folder.TellRounds(now);
  EXPECT_EQ(Records(), "S3 R8=0 x2/1998");
  Select(3);
  folder.TellRounds(now);  // no whole round since
  EXPECT_EQ(Records(), "S3 R8=0 x2/1998");
  Read(8, 1);  // the answer changes
  EXPECT_EQ(Records(), "S3 R8=0 x2/1998 x2/1 R8=1");
  Poll(3, 1);
  Event(JournalKind::ProgramLine);
  EXPECT_EQ(Records(), "S3 R8=0 x2/1998 x2/1 R8=1 x2/6 line");
}

TEST_F(FoldTest, WhatAControllerThatIsKilledHasCountedIsToldOfAfterwards) {
  Poll(1000);
  Select(3);
  Select(4, 2);
  Read(8, 0, 2);
  Select(4, 2);  // kept back, as it may begin a poll
  PollFolder later{*ring, polls};
  later.Finish(now);
  EXPECT_EQ(Records(), "S3 R8=0 2:S4 2:R8=0 2:S4 x2/1999");
  later.Finish(now);
  later.Add(
      {++now, JournalKind::Read, 1, 3, 8, 0, 3, 1});  // of the next controller: no round of the last one's
  EXPECT_EQ(Records(), "S3 R8=0 2:S4 2:R8=0 2:S4 x2/1999 R8=0");
}

TEST_F(FoldTest, RoundsOfOneTwoAndFourAccesses) {
  for (int i = 0; i < 5; ++i) Read(1, 0xA3);
  EXPECT_EQ(Records(), "R1=163");
  for (int i = 0; i < 3; ++i) {
    Select(3);
    Read(5, 1);
    Select(3);
    Read(6, 97);
  }
  Select(4);
  // Three accesses at the most, and rounds of other lengths, are written as they come.
  EXPECT_EQ(Records(), "R1=163 x1/4 S3 R5=1 S3 R6=97 x4/8 S4");
  for (int i = 0; i < 3; ++i) {
    Read(20, 1);
    Read(21, 2);
    Read(22, 3);
  }
  EXPECT_EQ(Records().substr(Records().find("S4") + 3),
            "R20=1 R21=2 R22=3 R20=1 R21=2 R22=3 R20=1 R21=2 R22=3");
}

TEST_F(FoldTest, WhatElseHappensStandsInOrderAndOtherTasksDoNotBreakAPoll) {
  Poll(1);
  Select(3);
  Event(JournalKind::InputEdge,
        kUnknownTask);  // within the second round: what was held back stands before it
  Read(8, 0);
  Poll(2);
  EXPECT_EQ(Records(), "S3 R8=0 S3 255:input");
  for (int i = 0; i < 100; ++i) {
    Poll(1);
    Poll(1, 1, 2);
    Event(JournalKind::ConsoleText);
  }
  folder.Tell(now);
  const std::string records = Records();
  EXPECT_EQ(records.find("2:S3 2:R8=1 console"), std::string("S3 R8=0 S3 255:input ").size());
  EXPECT_EQ(records.substr(records.find("console console x")), "console console x2/205 2:x2/198");
}

TEST_F(FoldTest, ARoundThatWasThoughtToComeIsWrittenWhenItDoesNot) {
  Poll(1);
  Select(3);
  EXPECT_EQ(Records(), "S3 R8=0");
  Read(9, 0);
  EXPECT_EQ(Records(), "S3 R8=0 S3 R9=0");
  Access(JournalKind::Write, 0, 3, 1, 4);  // the same from another line is no repetition
  Access(JournalKind::Read, 9, 0, 1, 4);
  EXPECT_EQ(Records(), "S3 R8=0 S3 R9=0 S3 R9=0");
}

}  // namespace
}  // namespace rack
