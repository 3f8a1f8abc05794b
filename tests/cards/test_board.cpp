// Bus access, card scan and board outputs.
#include "drvlib.h"
#include "kova_cpu.h"
#include "kova_man.h"
#include "scripted_bus.h"

namespace {

class BoardTest : public CardTest {
 protected:
  BoardTest() {
    Hardware.HardInstalled = 1;
    Hardware.Hard_fd = 1000;
    Hardware.OutLedReg = 0;
    Hardware.OutHCReg = 0;
    for (CkOVA_MANAGER*& card : kOVA_CardMan) card = nullptr;
  }

  // Cards live for ever; the tests keep them reachable.
  int Scan(CARDINFO* info) {
    static auto& alive = *new std::vector<CkOVA_MANAGER*>;
    const int result = Hardware.ScanCard(info);
    alive.insert(alive.end(), std::begin(kOVA_CardMan), std::end(kOVA_CardMan));
    return result;
  }
};

// The bus traffic of a scan ahead of the first probe: ten type reads and the task count.
std::string CpuReads(int tasks) {
  std::string log;
  for (int i = 0; i < 10; i++) log += "0<0 1>ff ";
  char text[32];
  std::snprintf(text, sizeof text, "0<0 8>%02x", tasks);
  return log + text;
}

TEST_F(BoardTest, TheDriverIsOpenedBeforeMainAndTheSecondNameStandsIn) {
  EXPECT_EQ(ConsoleAtStart(), "Load ISA Driver successfully![1000][1]\n");

  bus.deviceThere = {false, true};
  EXPECT_EQ(Hardware.OpenHard(), 1);
  EXPECT_EQ(Hardware.HardInstalled, 2);
  EXPECT_EQ(bus.Console(), "Load ISA Driver successfully![1001][2]\n");

  bus.deviceThere = {false, false};
  EXPECT_EQ(Hardware.OpenHard(), 0);
  EXPECT_EQ(Hardware.HardInstalled, 0);
  EXPECT_EQ(bus.Console(), "Velmo Load Driver Failed![-1] \n\n");
  EXPECT_EQ(inportb(4), 0xFF);
}

TEST_F(BoardTest, OnlyANegativeResultIsAFailedRead) {
  bus.readResult = 0;
  EXPECT_EQ(Hardware.InB(4), 0x04);  // what stood in the buffer: nothing was put there
  bus.readResult = -1;
  EXPECT_EQ(Hardware.InB(4), 0xFF);
}

TEST_F(BoardTest, PortsAreEightBitsWideAndRefusedAboveThat) {
  bus.Answer(0, 255, {0x12});
  bus.Answer(0, 4, {0x34});
  EXPECT_EQ(inportb(255), 0x12);
  outportb(255, 0x81);
  EXPECT_EQ(Hardware.InB(0x104), 0x34);
  Hardware.OutB(0x105, 7);
  EXPECT_EQ(inportb(256), 0xFF);
  outportb(256, 1);
  EXPECT_EQ(bus.Log(), "255>12 255<81 4>34 5<7");
  EXPECT_EQ(bus.Console(), "\ninportb error: 256\n\noutportb error: 256\n");

  bus.readResult = -1;
  EXPECT_EQ(inportb(4), 0xFF);
}

TEST_F(BoardTest, TheScanFillsTheTableInSlotOrder) {
  bus.Answer(0, 8, {5});
  bus.Answer(2, 4, {0x80});
  bus.Answer(3, 4, {0x83});
  bus.Answer(7, 4, {0x82});
  bus.Answer(9, 4, {0x84});
  bus.Answer(11, 4, {0x81});
  bus.Answer(12, 4, {0x85});
  CARDINFO info = {};
  EXPECT_EQ(Scan(&info), 5);
  EXPECT_EQ(info.CardNum, 5);
  EXPECT_THAT(std::vector<int>(info.SlotID, info.SlotID + 5), testing::ElementsAre(0, 3, 7, 9, 11));
  EXPECT_EQ(bus.Console(),
            "CardID: 0xa3 SlotID: 0 Type: kOVA_CPU\nCardID: 0x83 SlotID: 3 Type: kOVA_IOS\n"
            "CardID: 0x82 SlotID: 7 Type: kOVA_CYMSTR\nCardID: 0x84 SlotID: 9 Type: kOVA_ASDA\n"
            "CardID: 0x81 SlotID: 11 Type: kOVA_STMTR\n\n");
  const std::string log = bus.Log();
  EXPECT_THAT(log,
              testing::StartsWith(CpuReads(5) +
                                  " 0<1 4>ff 0<2 4>80 0<3 4>83 0<4 4>ff 0<5 4>ff 0<6 4>ff 0<7 4>82 0<8 4>ff "
                                  "0<9 4>84 0<9 5<0 0<9 18<ff 0<9 18<0 0<9 19<ff 0<9 19<0 0<9 5<1 "));
  EXPECT_THAT(log, testing::HasSubstr(" 0<9 19<0 0<a 4>ff 0<b 4>81 0<b 7<0 "));
  EXPECT_THAT(log, testing::EndsWith(" 0<b 7<7 0<b 18<ff 0<b 18<0 0<b 19<ff 0<b 19<0 0<c 4>85"));
  EXPECT_EQ(kOVA_CardMan[5], nullptr);
}

TEST_F(BoardTest, TheCatalogueNamesFourKindsOfCards) {
  std::map<int, std::string> names;
  for (const CARDTYPE& row : CardType) names[row.CardID] = row.szCardName;
  EXPECT_EQ(names,
            (std::map<int, std::string>{
                {0x81, "kOVA-STMTR"}, {0x82, "kOVA-CYMTR"}, {0x83, "kOVA-IOS1"}, {0x84, "kOVA-ASDA"}}));
}

TEST_F(BoardTest, AFullTablePassesTheTwelfthCardOver) {
  for (int slot = 1; slot <= 12; slot++) bus.Answer(slot, 4, {0x83});
  CARDINFO info = {};
  Scan(&info);
  EXPECT_EQ(info.CardNum, 12);
  EXPECT_EQ(info.SlotID[11], 11);
  EXPECT_THAT(bus.Console(), testing::StartsWith("Card table full: slot 12 ignored\nCardID: 0xa3"));
}

TEST_F(BoardTest, WithoutADriverTheScanReportsErrorOneAndLeavesCardNum) {
  EXPECT_EQ(Hardware.ScanCard(nullptr), -1);
  EXPECT_EQ(kOVA_CardMan[0], nullptr);

  Hardware.HardInstalled = 0;
  CARDINFO info = {};
  info.CardNum = 9;
  EXPECT_EQ(Scan(&info), 0);
  EXPECT_EQ(info.CardNum, 9);
  EXPECT_NE(kOVA_CardMan[0], nullptr);
  EXPECT_EQ(bus.Log(), CpuReads(0xFF) + " 0<0 2<1");
  EXPECT_EQ(bus.Console(), "No Hardware Installed!\n");
}

TEST_F(BoardTest, TheFunctionPortIsTakenFromTheConfigurationOrRefused) {
  const struct {
    const char* text;
    unsigned int port;
    const char* console;
  } cases[] = {
      {"[KEYPAD]\nFunctionPort=9\n", 9, ""},
      {"[KEYPAD]\nFunctionPort=255\n", 255, ""},
      {"[KEYPAD]\nFunctionPort=8\n", 0, "Velmo.conf: FunctionPort 8 refused, ports 9 to 255 are possible\n"},
      {"[KEYPAD]\nFunctionPort=256\n", 0,
       "Velmo.conf: FunctionPort 256 refused, ports 9 to 255 are possible\n"},
      {"[KEYPAD]\nFunctionPort=4294967305\n", 0,
       "Velmo.conf: FunctionPort 4294967305 refused, ports 9 to 255 are possible\n"},
      {"[UDP]\nFunctionPort=9\n", 0, ""},
  };
  for (const auto& row : cases) {
    Write("Velmo.conf", row.text);
    EXPECT_EQ(ConfiguredFunctionPort(), row.port) << row.text;
    EXPECT_EQ(bus.Console(), row.console);
  }
  Write("Velmo.conf", "[KEYPAD]\nFunctionPort=20\n");
  CARDINFO info = {};
  Scan(&info);
  bus.Log();
  kOVA_CardMan[0]->ReadHKey();
  EXPECT_THAT(bus.Log(0), testing::StartsWith("20>ff 2>ff"));
  std::remove("Velmo.conf");
  EXPECT_EQ(ConfiguredFunctionPort(), 0U);
}

TEST_F(BoardTest, OutputsChangeOneBitOfTheirShadow) {
  Hardware.OutLED(LED_RUN, HI);
  Hardware.OutLED(LED_POWER, HI);
  Hardware.OutLED(LED_RUN, LOW);
  Hardware.OutLED(12, HI);
  EXPECT_EQ(bus.Log(), "25<10 25<11 25<1 25<11");
  Hardware.OutHC(0, HI);
  Hardware.OutExt(1, HI);
  Hardware.OutHC(0, LOW);
  EXPECT_EQ(bus.Log(), "24<1 21<3 24<2");
  Hardware.OutRelay(1, HI);
  Hardware.OutLineMotor(1, 1);
  Hardware.SetCountOrign(1, 1, 1, 1);
  EXPECT_EQ(bus.Log(), "");
}

TEST_F(BoardTest, LineMotorCommandsAndItsWait) {
  Hardware.OutLineMotorPlusNoSW(1000, 1, 2);
  EXPECT_EQ(bus.Log(), "29<1 29<0 27<b2 27<2 27<0 27<0 27<0 27<81");
  Hardware.OutLineMotorPlusNoSW(-5, 0, 1);
  EXPECT_EQ(bus.Log(), "29<1 29<0 27<22 27<1 27<0 27<0 27<0 27<40");
  Hardware.OutLineMotorPlusNoSW(0x40000000, 2, 3);  // doubled it is the smallest 32-bit number
  EXPECT_EQ(bus.Log(), "29<1 29<0 27<89 27<67 27<66 27<0 27<0 27<c2");
  Hardware.OutLineMotorPlusNoSW(0, 5, 4);
  EXPECT_EQ(bus.Log(), "29<1 29<0 27<22 27<1 27<0 27<0 27<0 27<5");

  bus.Answer(0, 27, {0xFF, 0x01, 0xFE});
  Hardware.OutLineMotorPlus(0, 0, 0);
  EXPECT_EQ(bus.Log(), "29<1 29<0 27<22 27<1 27<0 27<0 27<0 27<0 27>ff 27>01 27>fe ~1000");
  EXPECT_EQ(bus.Console(), "");

  // 60 s are over, 59 s are not.
  const std::pair<int, std::string> waits[] = {{60, " 27>01 ~1000"}, {59, " 27>01 27>01 ~1000"}};
  for (const auto& [seconds, polls] : waits) {
    bus.secondsPerAccess = seconds;
    bus.Answer(0, 27, {0x01});
    Hardware.OutLineMotorPlus(0, 0, 0);
    EXPECT_EQ(bus.Log(), "29<1 29<0 27<22 27<1 27<0 27<0 27<0 27<0" + polls);
    EXPECT_EQ(bus.Console(), "Line motor timeout\n");
  }
}

TEST_F(BoardTest, TheLineCounterIsReadLowestByteFirstAndScaledInThirtyTwoBits) {
  bus.Answer(0, 16, {0xE8, 0xE8, 0xE8, 0x00});
  bus.Answer(0, 17, {0x03});
  bus.Answer(0, 18, {0x00});
  bus.Answer(0, 19, {0x00, 0x00, 0x00, 0x00, 0x20});
  EXPECT_EQ(Hardware.GetLineCount(), 20);
  EXPECT_EQ(bus.Log(), "16>e8 17>03 18>00 19>00");
  EXPECT_EQ(Hardware.IsLineMove(), 1);
  EXPECT_EQ(bus.Log(), "16>e8 17>03 18>00 19>00 ~500 16>e8 17>03 18>00 19>00");
  EXPECT_EQ(Hardware.IsLineMove(), 0);
  bus.Answer(0, 16, {0x00});
  bus.Answer(0, 17, {0x00});
  bus.Answer(0, 19, {0x20});
  EXPECT_EQ(Hardware.GetLineCount(), 2147483);  // 0x20000000 times 20 keeps 0x80000000
}

}  // namespace
