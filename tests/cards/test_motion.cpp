// The stepper card, the servo card and the motor files.
#include <filesystem>
#include <sstream>
#include <thread>

#include "kova_asda.h"
#include "kova_cpu.h"
#include "kova_cymstr.h"
#include "kova_stmtr.h"
#include "scripted_bus.h"

namespace {

class MotionTest : public CardTest {
 protected:
  MotionTest() {
    stepper.SetSlotID(6);
    servo.SetSlotID(9);
    bus.Answer(6, 24, {0x01});
    bus.Answer(9, 24, {0x01});
  }
  // The accesses of one command.
  std::string Mot(CkOVA_MANAGER& card, int ChIdx, std::string text, int result = 1) {
    EXPECT_EQ(card.Cmd_MOT(ChIdx, text.data()), result) << text;
    return bus.Log(&card == &stepper ? 6 : 9);
  }
  int Row(CkOVA_MANAGER& card, int ChIdx, std::string text) { return card.Cmd_ROW(ChIdx, text.data()); }
  void Counter(int slot, unsigned int raw) {
    for (int i = 0; i < 4; i++) bus.Answer(slot, 20 + i, {static_cast<int>(raw >> (8 * i)) & 0xFF});
  }

  CkOVA_STMTR stepper;
  CkOVA_ASDA servo;
};

TEST_F(MotionTest, AStepperMoveProgramsItsRegistersInOrder) {
  EXPECT_EQ(Mot(stepper, 2, "4000&20&1&0&1&0&1&10&5&1&100"),
            "7<2 8<cc 7<2 9<14 11<0 10<14 15<0 14<0 13<1f 12<40 17<0 16<14 29<0 28<0 27<0 26<c8 24<1 24>01");
  EXPECT_EQ(bus.Console(),
            "STMTR: MOT ChIdx:2, Step:4000, Dir:1, Force:0, EnExtSTop:1, StopSensorDir:1, StepFreq:20, "
            "StartStep:10, "
            "CompensateStep:5, EnCntStop:1, StepStop:100\n");
  EXPECT_EQ(stepper.StepMotorCtrlReg, 0xCC);
  EXPECT_EQ(stepper.StepFreqReg, 20);
  EXPECT_EQ(stepper.StepStarNumReg, 20);
  EXPECT_EQ(stepper.StepNumReg, 8000U);
  EXPECT_EQ(stepper.StepNumCompensateReg, 10);
  EXPECT_EQ(stepper.StepNumStopReg, 200U);
}

TEST_F(MotionTest, AServoMoveProgramsItsRegistersInOrder) {
  EXPECT_EQ(Mot(servo, 1, "1000&50&0&0&1&2&0&0&0&1&30"),
            "5<1 8<e 5<1 9<32 15<0 14<0 13<7 12<d0 29<0 28<0 27<0 26<3c 24<1 24>01");
  EXPECT_EQ(bus.Console(),
            "ASDA: Mot ChIdx:1, Step:1000, Dir:0, Force:0, EnExtSTop:1, ExtStopCH\xEF\xBC\x9A"
            "2, StopSensorDir:0, StepFreq:50, EnCntStop:1, StepStop:30 \n");
  EXPECT_EQ(servo.ServoMotorCtrlReg, 0x0E);
  EXPECT_EQ(servo.ServoFreqReg, 50);
  EXPECT_EQ(servo.ServoNumReg, 2000U);
  EXPECT_EQ(servo.ServoNumStopReg, 60U);
  EXPECT_EQ(Mot(servo, 3, "1000&50&0&0&0&0&0&99&99"), Mot(servo, 3, "1000&50&0"));
}

TEST_F(MotionTest, TheStartIsPolledUntilTheCardShowsItOrTenTicksHavePassed) {
  bus.Answer(6, 24, {0xFE});  // two ticks a poll: over at the sixth
  EXPECT_THAT(Mot(stepper, 0, "1&1&1"), testing::EndsWith(" 24<1 24>fe 24>fe 24>fe 24>fe 24>fe 24>fe"));
  bus.Answer(6, 24, {0xFE, 0xFE, 0x03});
  EXPECT_THAT(Mot(stepper, 0, "1&1&1"), testing::EndsWith(" 24<1 24>fe 24>fe 24>03"));
  bus.Answer(9, 24, {0x02});
  EXPECT_THAT(Mot(servo, 1, "1&1&1"),
              testing::EndsWith(" 24<1 24>02 ~1 24>02 ~1 24>02 ~1 24>02 ~1 24>02 ~1 24>02"));
  bus.Answer(9, 24, {0x02, 0x01});
  EXPECT_THAT(Mot(servo, 1, "1&1&1"), testing::EndsWith(" 24<1 24>02 ~1 24>01"));
}

TEST_F(MotionTest, FieldsAreCutToTheirWidthAndFlagsSpill) {
  const auto control = [&](CkOVA_MANAGER& card, const char* text) {
    Mot(card, 0, text);
    return &card == &stepper ? stepper.StepMotorCtrlReg : servo.ServoMotorCtrlReg;
  };
  EXPECT_EQ(control(stepper, "4000&20&1"), 0x80);
  EXPECT_EQ(control(stepper, "1&1&2"), 0x00);
  EXPECT_EQ(control(stepper, "1&1&0&3"), 0x60);
  EXPECT_EQ(control(stepper, "1&1&257&0&0&3&2"), 0x80);  // Dir cut to 1; sense 2 reaches bit 7; no ExtStopCH
  EXPECT_EQ(control(stepper, "1&1&0&0&2&0&0&0&0&2"), 0x18);
  EXPECT_EQ(control(servo, "1&1&0&0&0&5"), 0x05);
  EXPECT_EQ(control(servo, "1000&50&0&0&1&2"), 0x06);
  EXPECT_EQ(control(servo, "1&1&1&1&0&3&1"), 0xE3);

  EXPECT_THAT(Mot(stepper, 0, "4000&&1"),
              testing::HasSubstr(" 9<0 11<0 10<0 15<0 14<0 13<1f 12<40 17<0 16<0 "));
  EXPECT_THAT(Mot(stepper, 0, "2147483649&300&1"),
              testing::HasSubstr(" 9<2c 11<0 10<2c 15<0 14<0 13<0 12<2 17<0 "));
  EXPECT_THAT(Mot(servo, 0, "4294967295&1&1&0&0&0&0&0&0&0&-1x&9"),
              testing::HasSubstr("15<ff 14<ff 13<ff 12<fe 29<ff 28<ff 27<ff 26<fe"));
  bus.Console();
  Mot(stepper, 0, "4294967295&300&1&0&0&0&0&70000&65537");
  EXPECT_EQ(bus.Console(),
            "STMTR: MOT ChIdx:0, Step:-1, Dir:1, Force:0, EnExtSTop:0, StopSensorDir:0, StepFreq:44, "
            "StartStep:4464, "
            "CompensateStep:1, EnCntStop:0, StepStop:0\n");
  EXPECT_EQ(stepper.StepStarNumReg, 8928);
  EXPECT_EQ(stepper.StepNumCompensateReg, 2);
}

TEST_F(MotionTest, ARefusedParameterPrintsAndWritesNothing) {
  EXPECT_EQ(stepper.Cmd_MOT(0, nullptr), 0);
  EXPECT_EQ(servo.Cmd_MOT(0, nullptr), 0);
  const auto ofLength = [](size_t length) { return std::string(length, '1'); };
  for (const std::string& text : {std::string(""), std::string("4000&20"), "1&1&" + ofLength(500),
                                  "1&1&1&&&&&&&&" + ofLength(500), ofLength(500) + "&1&1"}) {
    EXPECT_EQ(Mot(stepper, 0, text, 0), "");
    EXPECT_EQ(Mot(servo, 0, text, 0), "");
  }
  EXPECT_EQ(Mot(servo, 0, "1&1&" + ofLength(200), 0), "");
  EXPECT_EQ(bus.Console(), "");
  EXPECT_NE(Mot(servo, 0, "1&1&" + ofLength(199)), "");
  EXPECT_NE(Mot(stepper, 0, "1&1&" + ofLength(499)), "");
  EXPECT_NE(Mot(stepper, 0, "1&1&1&&&&&&&&&" + ofLength(600)), "") << "a twelfth field is ignored";
}

TEST_F(MotionTest, ChannelsAreCutToEightBitsAndRefusedAboveTheirNumber) {
  EXPECT_THAT(Mot(stepper, 256, "1&1&1"), testing::StartsWith("7<0 8<80"));
  EXPECT_THAT(bus.Console(), testing::StartsWith("STMTR: MOT ChIdx:256, "));
  EXPECT_EQ(Mot(stepper, -1, "1&1&1"), "");
  EXPECT_EQ(Mot(stepper, 8, "1&1&1"), "");
  EXPECT_THAT(Mot(stepper, 7, "1&1&1"), testing::StartsWith("7<7 "));
  EXPECT_EQ(Mot(servo, 4, "1&1&1"), "");
  EXPECT_THAT(Mot(servo, 3, "1&1&1"), testing::StartsWith("5<3 "));
  EXPECT_THAT(bus.Console(), testing::HasSubstr("ASDA: Mot ChIdx:4, "));
}

TEST_F(MotionTest, InitHardwareClearsEightChannelsOnBothCards) {
  const auto clears = [](const std::string& select) {
    std::string log;
    for (char channel = '0'; channel < '8'; channel++) {
      log += (log.empty() ? "" : " ") + select + channel + " 18<ff 18<0 19<ff 19<0";
    }
    return log;
  };
  stepper.InitHardware();
  EXPECT_EQ(bus.Log(6), clears("7<"));
  servo.InitHardware();
  EXPECT_EQ(bus.Log(9), clears("5<"));
}

TEST_F(MotionTest, TheCounterIsOffsetBinaryLowestByteFirst) {
  const std::pair<unsigned int, long> cases[] = {{0x80000000, 0},          {0x7FFFFFFF, -1},
                                                 {0x80000005, 5},          {0x00000000, -2147483648},
                                                 {0xFFFFFFFF, 2147483647}, {0x83040201, 50594305}};
  for (const auto& [raw, count] : cases) {
    Counter(6, raw);
    EXPECT_EQ(stepper.GetCount(2), count);
  }
  EXPECT_THAT(bus.Log(6), testing::EndsWith("7<2 20>01 21>02 22>04 23>83"));
  Counter(9, 0x80000007);
  EXPECT_EQ(servo.GetCount(3), 7);
  EXPECT_EQ(bus.Log(9), "5<3 20>07 21>00 22>00 23>80");
  EXPECT_EQ(servo.GetCount(4), 0);
  EXPECT_EQ(stepper.GetCount(8), 0);
  EXPECT_EQ(stepper.GetCount(-1), 0);
  EXPECT_EQ(bus.Log(), "");
}

TEST_F(MotionTest, RowIsMetByTheMagnitudeOfTheCount) {
  Counter(6, 0x80000000U - 5000U);
  EXPECT_EQ(Row(stepper, 0, "5000"), 1);
  EXPECT_EQ(Row(stepper, 0, "5001"), 0);
  EXPECT_EQ(Row(stepper, 0, "-9"), 1);
  EXPECT_EQ(Row(stepper, 0, "5000&9999"), 1);
  Counter(6, 0);
  EXPECT_EQ(Row(stepper, 7, "2147483647"), 1);
  bus.Log();
  EXPECT_EQ(stepper.Cmd_ROW(0, nullptr), 0);
  EXPECT_EQ(Row(stepper, 8, "0"), 0);
  EXPECT_EQ(Row(stepper, -1, "0"), 0);
  EXPECT_EQ(Row(servo, 8, "0"), 0);
  EXPECT_EQ(Row(servo, 5, "0"), 1);
  EXPECT_EQ(Row(servo, 5, "1"), 0);
  EXPECT_EQ(bus.Log(), "");
}

TEST_F(MotionTest, ClearAndBusySelectNoChannel) {
  EXPECT_EQ(stepper.Cmd_ROCLR(7, nullptr), 1);
  EXPECT_EQ(bus.Log(6), "19<1 19<0");
  EXPECT_EQ(stepper.Cmd_ROCLR(8, nullptr), 0);
  EXPECT_EQ(stepper.Cmd_ROCLR(-1, nullptr), 0);
  EXPECT_EQ(servo.Cmd_ROCLR(3, nullptr), 1);
  EXPECT_EQ(bus.Log(9), "19<1 19<0");
  EXPECT_EQ(servo.Cmd_ROCLR(5, nullptr), 1);
  EXPECT_EQ(servo.Cmd_ROCLR(8, nullptr), 0);
  EXPECT_EQ(bus.Log(), "");

  bus.Answer(6, 24, {0x01, 0xFE});
  EXPECT_EQ(stepper.Cmd_LMOT(3, nullptr), 0);
  EXPECT_EQ(stepper.Cmd_LMOT(99, nullptr), 1);
  EXPECT_EQ(bus.Log(6), "24>01 24>fe");
  const struct {
    int busy, chIdx, result;
  } cases[] = {{0x04, 2, 0}, {0x01, 2, 1}, {0x80, 7, 0}, {0xFF, 8, 1}, {0x04, 258, 0}, {0xFF, -1, 1}};
  for (const auto& row : cases) {
    bus.Answer(9, 24, {row.busy});
    EXPECT_EQ(servo.Cmd_LMOT(row.chIdx, nullptr), row.result) << row.busy << " " << row.chIdx;
    EXPECT_THAT(bus.Log(9), testing::StartsWith("24>"));
  }
}

// A command of another thread must get through while this one pauses; under the card's lock it never comes
// back.
TEST_F(MotionTest, NoCardHoldsItsLockOverAPause) {
  CkOVA_CPU cpu;
  CkOVA_CYMSTR cylinder;
  std::string on = "1";
  int pauses = 0;
  bus.onPause = [&] {
    pauses++;
    servo.ClearCount(0);
    cylinder.InportDG(0);
    cpu.Cmd_OUT(0, on.data());
  };
  bus.Answer(9, 24, {0x00, 0x01});
  Mot(servo, 0, "1&1&1");
  EXPECT_EQ(pauses, 1);
  bus.Answer(1, 6, {0x20});
  cylinder.IsPosDG(0);
  EXPECT_EQ(pauses, 3);
  cpu.ReadHKey();
  EXPECT_EQ(pauses, 4);
}

TEST_F(MotionTest, SingleStepsAndCommandsWithoutEffect) {
  stepper.SetMotorParamter(9, 1, 0, 1, 0, 1);
  EXPECT_EQ(bus.Log(6), "7<9 8<a8");
  stepper.SetMotorRunParamter(1, 7, 1, 0x01020304, 1, 0x10);
  EXPECT_EQ(bus.Log(6), "7<1 9<7 11<0 10<7 15<2 14<4 13<6 12<8 17<0 16<7 29<0 28<0 27<0 26<20");
  servo.SetMotorParamter(2, 1, 3, 0, 0, 1, 0);
  EXPECT_EQ(bus.Log(9), "5<2 8<87");
  servo.SetMotorRunParamter(2, 8, 1, 2);
  EXPECT_EQ(bus.Log(9), "5<2 9<8 15<0 14<0 13<0 12<2 29<0 28<0 27<0 26<4");

  std::string on = "1";
  EXPECT_EQ(stepper.Cmd_OUT(99, on.data()) + stepper.Cmd_LD(-1, nullptr), 2);
  EXPECT_EQ(servo.Cmd_OUT(99, on.data()) + servo.Cmd_LD(-1, nullptr), 2);
  stepper.AllowMileageCount(0, 1);
  EXPECT_EQ(stepper.GetMileageCount(0), 0.0);
  EXPECT_EQ(bus.Log(), "");
  EXPECT_EQ(bus.Console(), "STMTR: Cmd_OUT\nSTMTR: Cmd_LD\nASDA: Cmd_Out\nASDA: Cmd_Ld\n");
}

TEST_F(MotionTest, TwoThreadsNeverCrossTheirChannels) {
  bus.yield = true;
  bus.onRead = [&](int slot, int port) -> std::optional<int> {
    if (port == 23) return 0x80;
    return port == 24 ? 1 : bus.written[{slot, slot == 6 ? 7 : 5}];
  };
  const auto crossed = [&](int ChIdx) {
    std::string move = "1&" + std::to_string(ChIdx) + "&0";
    int count = 0;
    for (int i = 0; i < 50; i++) {
      stepper.Cmd_MOT(ChIdx, move.data());
      servo.Cmd_MOT(ChIdx, move.data());
      stepper.Cmd_ROCLR(ChIdx, nullptr);
      servo.Cmd_ROCLR(ChIdx, nullptr);
      const long expected = ChIdx * 0x010101L;
      count += stepper.GetCount(ChIdx) == expected && servo.GetCount(ChIdx) == expected ? 0 : 1;
    }
    return count;
  };
  int others = 0;
  std::thread other([&] { others = crossed(2); });
  EXPECT_EQ(crossed(1), 0);
  other.join();
  EXPECT_EQ(others, 0);

  // Every frequency code must have reached the channel it names, and every clear must be whole.
  std::istringstream log(bus.Log());
  std::map<std::string, std::string> channel;
  std::map<std::string, bool> clears;
  std::string slot;
  for (std::string entry; log >> entry;) {
    if (entry.rfind("0<", 0) == 0) slot = entry.substr(2);
    const bool isPoll = entry.rfind("24>", 0) == 0;  // without the lock, on the servo card
    if (entry.rfind("0<", 0) == 0 || isPoll) continue;
    ASSERT_TRUE(!clears[slot] || entry == "19<0") << entry;
    clears[slot] = entry == "19<1";
    if (entry.rfind(slot == "6" ? "7<" : "5<", 0) == 0) channel[slot] = entry.substr(2);
    if (entry.rfind("9<", 0) != 0) continue;
    ASSERT_EQ(entry.substr(2), channel[slot]);
  }
}

TEST_F(MotionTest, TheStatusTableIsSavedWholeAndLoadedWholeOrNotAtAll) {
  STEPPOS table;
  table.LoadStepMotorStatus();
  EXPECT_EQ(table.GetStepMotorStatus(7), -1);
  EXPECT_EQ(table.GetStepMotorStatus(8), -1);
  table.SaveStepMotorStatus(8, 1);
  table.SaveStepMotorStatus(-1, 1);
  EXPECT_FALSE(std::filesystem::exists("SMPOS.DAT"));

  table.SaveStepMotorStatus(2, 5);
  EXPECT_EQ(Read("SMPOS.DAT"), std::string(8, '\xFF') + std::string("\5\0\0\0", 4) + std::string(20, '\xFF'));

  STEPPOS other;
  other.LoadStepMotorStatus();
  EXPECT_EQ(other.GetStepMotorStatus(2), 5);
  std::filesystem::resize_file("SMPOS.DAT", 31);
  other.StepMotorStatus[2] = 6;
  other.LoadStepMotorStatus();
  EXPECT_EQ(other.GetStepMotorStatus(2), 6);

  std::filesystem::remove("SMPOS.DAT");
  std::filesystem::create_directory("SMPOS.DAT");  // cannot be opened for writing
  other.SaveStepMotorStatus(2, 9);
  EXPECT_EQ(other.GetStepMotorStatus(2), 6);
}

TEST_F(MotionTest, ThePositionTableTakesWhatTheFileHas) {
  const auto write = [](int numbers) {
    std::string image;
    for (int i = 0; i < numbers; i++) image += std::string("\1\2\0\0", 4);
    Write("MOZ.POS", image);
  };
  MOZPOS table;
  EXPECT_EQ(table.POS[9][31], 0);
  write(32);
  table.LoadPos();
  EXPECT_EQ(table.POS[0][31], 0x0201);
  EXPECT_EQ(table.POS[1][0], 0);
  write(500);
  table.LoadPos();
  EXPECT_EQ(table.POS[9][31], 0x0201);
  std::filesystem::remove("MOZ.POS");
  table.POS[0][0] = 8;
  table.LoadPos();
  EXPECT_EQ(table.POS[0][0], 8);
}

}  // namespace
