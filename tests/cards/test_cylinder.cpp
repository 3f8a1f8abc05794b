// The cylinder card.
#include <sstream>
#include <thread>

#include "kova_cymstr.h"
#include "scripted_bus.h"

namespace {

class CylinderTest : public CardTest {
 protected:
  CylinderTest() {
    card.SetSlotID(4);
    bus.Answer(4, 5, {0x00});
  }
  int Dg(int ChIdx, std::string text) { return card.Cmd_DG(ChIdx, text.data()); }

  CkOVA_CYMSTR card;
};

TEST_F(CylinderTest, APositionIsSentWithItsHandshake) {
  bus.Answer(4, 6, {0x00, 0x01});
  bus.Answer(4, 5, {0x01, 0xFE});
  EXPECT_EQ(Dg(1, "5"), 1);
  EXPECT_EQ(bus.Log(),
            "0<4 5<1 0<4 6<35 "
            "0<4 5<1 0<4 6>00 0<4 5<1 0<4 6>01 "
            "0<4 5<1 0<4 5>01 0<4 5<1 0<4 5>fe");
}

TEST_F(CylinderTest, AHandshakePhaseEndsWhenMoreThanTenTicksHavePassed) {
  bus.Answer(4, 6, {0x00});
  bus.Answer(4, 5, {0x01});
  bus.ticksPerAccess = 5;  // 20 ticks a poll
  EXPECT_EQ(Dg(0, "15"), 1);
  EXPECT_EQ(bus.Log(4), "5<0 6<3f 5<0 6>00 5<0 5>01");

  bus.ticksPerAccess = 1;  // 4 a poll: 4, 8, 12
  card.OutportDG(2, 0x77);
  EXPECT_EQ(bus.Log(4), "5<2 6<77 5<2 6>00 5<2 6>00 5<2 6>00 5<2 5>01 5<2 5>01 5<2 5>01");

  bus.onRead = [&](int, int port) -> std::optional<int> {
    bus.ticksPerAccess = 0;  // the polls of a phase that stays at ten ticks go on
    static int polls = 0;
    polls++;
    return port == 6 ? (polls >= 200 ? 1 : 0) : (polls >= 400 ? 0 : 1);
  };
  card.OutportDG(2, 0x77);
  EXPECT_THAT(bus.Log(4), testing::EndsWith("5<2 5>00"));
  EXPECT_EQ(bus.Console(), "");
}

TEST_F(CylinderTest, WhatIsNoPositionSendsNothing) {
  bus.Answer(4, 6, {0x01});
  for (const char* text : {"16", "-3", "272", "128"}) {
    EXPECT_EQ(Dg(0, text), 1);
    EXPECT_EQ(bus.Log(4), "") << text;
  }
  EXPECT_EQ(card.Cmd_DG(0, nullptr), 0);
  EXPECT_EQ(Dg(3, "5"), 1);
  EXPECT_EQ(bus.Log(4), "");
  Dg(0, "271");
  EXPECT_EQ(bus.Log(4), "5<0 6<3f 5<0 6>01 5<0 5>00");
  Dg(257, "256");
  EXPECT_EQ(bus.Log(4), "5<1 6<30 5<1 6>01 5<1 5>00");
}

TEST_F(CylinderTest, SetupRunsBetweenTwoDelays) {
  bus.Answer(4, 6, {0x01, 0x50, 0x0F, 0x10});  // acknowledged, at a position, moving, ended
  EXPECT_EQ(Dg(0, "-1"), 1);
  EXPECT_EQ(bus.Log(4), "7<fe 5<0 6<20 5<0 6>01 5<0 5>00 5<0 6>50 5<0 6>0f 5<0 6>10 7<3f 5<0 6>10");
}

TEST_F(CylinderTest, ResetEndsOnEachOfItsThreeSigns) {
  for (const auto& [status, shown] : {std::pair(0x18, "18"), {0x88, "88"}, {0x67, "67"}}) {
    bus.Answer(4, 6, {0x01, 0x2F, status});
    EXPECT_EQ(Dg(2, "-2"), 1);
    EXPECT_EQ(bus.Log(4), std::string("7<fe 5<2 6<10 5<2 6>01 5<2 5>00 5<2 6>2f 5<2 6>") + shown + " 7<3f");
  }
  EXPECT_THAT(card.ValidChIdx, testing::ElementsAre(2, -100, -100));
  EXPECT_EQ(card.ValidChIdxPos, 1);
}

TEST_F(CylinderTest, AChannelInAlarmGetsSevenSetupsAndSixResets) {
  bus.Answer(4, 6, {0x81});
  EXPECT_EQ(card.GoBackDG(1), -1);
  const std::string setup = "7<fe 5<1 6<20 5<1 6>81 5<1 5>00 5<1 6>81 7<3f 5<1 6>81";
  const std::string reset = " 7<fe 5<1 6<10 5<1 6>81 5<1 5>00 5<1 6>81 7<3f ";
  std::string expected;
  for (int i = 0; i < 6; i++) expected += setup + reset;
  EXPECT_EQ(bus.Log(4), expected + setup);
  EXPECT_EQ(bus.Console(), "");

  // An alarm that the first reset clears.
  bus.Answer(4, 6, {0x81, 0x81, 0x81, 0x81, 0x81, 0x11});
  EXPECT_EQ(card.GoBackDG(1), 1);
  EXPECT_EQ(bus.Log(4), setup + reset + "7<fe 5<1 6<20 5<1 6>11 5<1 5>00 5<1 6>11 7<3f 5<1 6>11");
}

TEST_F(CylinderTest, ChannelsAboveTwoAreRefused) {
  EXPECT_EQ(card.SetupDG(3), -1);
  EXPECT_EQ(card.GoBackDG(3), -1);
  EXPECT_EQ(Dg(-1, "-1"), 1);
  EXPECT_EQ(card.InportDG(3), 0);
  EXPECT_EQ(card.Cmd_LDG(3, nullptr), 1);
  EXPECT_EQ(bus.Log(4), "");
  EXPECT_EQ(Dg(3, "-2"), 1);
  EXPECT_EQ(bus.Log(4), "7<fe 7<3f");
  EXPECT_EQ(card.ValidChIdxPos, 0);
}

TEST_F(CylinderTest, AMoveWithoutEndIsGivenUpAfterSixtySeconds) {
  bus.Answer(4, 6, {0x01, 0x2B});  // 0x2B: no end of a setup, none of a reset
  bus.secondsPerAccess = 5;        // a status read is four accesses: over after the third
  EXPECT_EQ(card.GoBackDG(1), -1);
  EXPECT_EQ(bus.Log(4), "7<fe 5<1 6<20 5<1 6>01 5<1 5>00 5<1 6>2b 5<1 6>2b 5<1 6>2b 7<3f");
  EXPECT_EQ(bus.Console(), "CYMSTR: DG1 no end of setup\n");

  bus.Answer(4, 6, {0x01, 0x2B});
  EXPECT_EQ(card.ResetDG(2), -1);
  EXPECT_EQ(bus.Console(), "CYMSTR: DG2 no end of reset\n");

  // 60 s are over after one status read, 56 s are not.
  const std::pair<int, std::string> waits[] = {{15, "5<0 6>2b"}, {14, "5<0 6>2b 5<0 6>2b"}};
  for (const auto& [seconds, polls] : waits) {
    bus.secondsPerAccess = seconds;
    bus.Log();
    card.WaitSetupEnd(0);
    EXPECT_EQ(bus.Log(4), polls);
    card.WaitResetEnd(0);
    EXPECT_EQ(bus.Log(4), polls);
  }
  bus.secondsPerAccess = 5;

  // In alarm after a setup, then a reset that does not end: no further setup.
  bus.Answer(4, 6, {0x81, 0x81, 0x81, 0x01, 0x2B});
  EXPECT_EQ(card.GoBackDG(0), -1);
  EXPECT_EQ(bus.Console(), "CYMSTR: DG0 no end of reset\n");
  EXPECT_EQ(Dg(0, "-1"), 1);
}

TEST_F(CylinderTest, LdgTellsPositionMotionAndAlarm) {
  const struct {
    std::vector<int> status;
    int result;
    const char* log;
  } cases[] = {
      {{0x80}, -1, "5<1 6>80"},
      {{0x10}, 1, "5<1 6>10 5<1 6>10"},
      {{0x00}, 1, "5<1 6>00 5<1 6>00"},
      {{0x50}, 1, "5<1 6>50 5<1 6>50"},
      {{0x30}, 1, "5<1 6>30 5<1 6>30"},
      {{0x20}, 0, "5<1 6>20 5<1 6>20 ~1 5<1 6>20 ~1 5<1 6>20"},
      {{0x70, 0x70, 0x70, 0x10}, 1, "5<1 6>70 5<1 6>70 ~1 5<1 6>70 ~1 5<1 6>10"},
      {{0x20, 0x20, 0x90}, -1, "5<1 6>20 5<1 6>20 ~1 5<1 6>90"},
  };
  for (const auto& row : cases) {
    bus.Answer(4, 6, row.status);
    EXPECT_EQ(card.Cmd_LDG(1, nullptr), row.result);
    EXPECT_EQ(bus.Log(4), row.log);
  }
  bus.Answer(4, 6, {0x01, 0xFE});
  EXPECT_EQ(card.IsMotRunEnd(0), 0);
  EXPECT_EQ(card.IsMotRunEnd(0), 1);
  EXPECT_EQ(card.IsBusyDG(0), 1);
}

TEST_F(CylinderTest, TheAlarmListAndWhatIsDoneWithIt) {
  EXPECT_EQ(card.AddValidDGCh(3), 0);
  EXPECT_EQ(card.AddValidDGCh(-1), 0);
  EXPECT_EQ(card.AddValidDGCh(2), 1);
  EXPECT_EQ(card.AddValidDGCh(2), 0);
  EXPECT_EQ(card.AddValidDGCh(0), 1);

  bus.Answer(4, 6, {0x20});
  EXPECT_EQ(card.RePosDGPos(), 1);  // -100 is no position: asked, not moved
  EXPECT_EQ(bus.Log(4), "5<2 6>20 ~1 5<2 6>20 ~1 5<2 6>20 5<0 6>20 ~1 5<0 6>20 ~1 5<0 6>20");
  EXPECT_EQ(card.FindDGAlarm(), 0);
  EXPECT_EQ(bus.Log(4), "5<2 6>20 5<0 6>20");
  bus.Answer(4, 6, {0x21, 0x10});
  EXPECT_EQ(card.ClearAllDGAlarm(), 1);
  EXPECT_THAT(bus.Log(4), testing::StartsWith("7<fe 5<2 6<10 5<2 6>21 5<2 5>00 5<2 6>10 7<3f 7<fe 5<0 6<10"));

  bus.Answer(4, 6, {0x00, 0x80, 0x81, 0x10});
  EXPECT_EQ(card.FindDGAlarm(), 1);
  EXPECT_EQ(card.ErrDGChIdx, 0);
  EXPECT_THAT(card.ValidChIdx, testing::ElementsAre(-100, -100, -100));
  EXPECT_EQ(card.ValidChIdxPos, 0);
  EXPECT_EQ(bus.Log(4), "5<2 6>00 5<0 6>80");

  card.DGPos.SetDGPos(0, 0x35);
  char text[12];
  EXPECT_EQ(card.DGPos.GetDGPos(0, text), 0x35);
  EXPECT_STREQ(text, "53");
  EXPECT_EQ(card.DGPos.GetDGPos(3, text), -100);
  EXPECT_STREQ(text, "-100");
  bus.Answer(4, 6, {0x01, 0x10, 0x01});
  EXPECT_EQ(card.ClearCurDGAlarm(), 0);
  EXPECT_EQ(bus.Log(4), "7<fe 5<0 6<10 5<0 6>01 5<0 5>00 5<0 6>10 7<3f ~200 5<0 6<35 5<0 6>01 5<0 5>00");
  card.DGPos.SetDGPos(0, 0x10);
  bus.Answer(4, 6, {0x11});
  EXPECT_EQ(card.ClearCurDGAlarm(), 1);
  card.DGPos.SetDGPos(0, 0x20);
  bus.Log();
  EXPECT_EQ(card.ClearCurDGAlarm(), 0);
  EXPECT_THAT(bus.Log(4), testing::HasSubstr("~200 7<fe 5<0 6<20"));
  for (const int channel : {-1, 3}) {
    card.DGPos.SetDGPos(channel, 0x30);
    EXPECT_EQ(card.DGPos.GetDGPos(channel, nullptr), -100);
  }
  EXPECT_EQ(card.DGPos.GetDGPos(0, nullptr), 0x20);
}

// List and position are open to all: whatever stands there, nothing beyond the list is touched.
TEST_F(CylinderTest, AnAlarmListThatIsWrongIsPutRight) {
  bus.Answer(4, 6, {0x10});
  card.ValidChIdxPos = -7;
  EXPECT_EQ(card.ClearAllDGAlarm(), 1);
  EXPECT_EQ(bus.Log(4), "");
  EXPECT_EQ(card.AddValidDGCh(1), 1);
  EXPECT_THAT(card.ValidChIdx, testing::ElementsAre(1, -100, -100));
  EXPECT_EQ(card.ValidChIdxPos, 1);

  card.ValidChIdxPos = 99;
  EXPECT_EQ(card.AddValidDGCh(2), 1);
  EXPECT_THAT(card.ValidChIdx, testing::ElementsAre(1, -100, 2));
  EXPECT_EQ(card.ValidChIdxPos, 3);
  card.ValidChIdxPos = 4;
  EXPECT_EQ(card.RePosDGPos(), 1);  // both stand, and what is no channel is passed over
  EXPECT_EQ(bus.Log(4), "5<1 6>10 5<2 6>10");
}

TEST_F(CylinderTest, TwoThreadsReachTheirOwnChannel) {
  bus.yield = true;
  bus.onRead = [&](int, int port) -> std::optional<int> {
    if (port == 6) return 0x40 + bus.written[{4, 5}];
    return std::nullopt;
  };
  const auto crossed = [&](unsigned char ChIdx) {
    int count = 0;
    for (int i = 0; i < 300; i++) {
      count += card.InportDG(ChIdx) == 0x40 + ChIdx ? 0 : 1;
      card.OutDG(ChIdx, ChIdx);
    }
    return count;
  };
  int others = 0;
  std::thread other([&] { others = crossed(2); });
  EXPECT_EQ(crossed(1), 0);
  other.join();
  EXPECT_EQ(others, 0);

  // Every position must have been sent to the channel of its number.
  std::istringstream log(bus.Log());
  std::string channel;
  int sent = 0;
  for (std::string entry; log >> entry;) {
    if (entry.rfind("5<", 0) == 0) channel = entry.substr(2);
    if (entry.rfind("6<", 0) != 0) continue;
    ASSERT_EQ(entry, "6<3" + channel);
    sent++;
  }
  EXPECT_EQ(sent, 600);
}

}  // namespace
