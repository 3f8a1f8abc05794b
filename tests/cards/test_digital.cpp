// The default bodies of the interface, the CPU card and the digital I/O card.
#include <thread>

#include "kova_asda.h"
#include "kova_cpu.h"
#include "kova_cymstr.h"
#include "kova_ios.h"
#include "kova_stmtr.h"
#include "scripted_bus.h"

namespace {

char* Text(std::string& text) {
  return text.data();
}

int Out(CkOVA_MANAGER& card, int ChIdx, std::string text) {
  return card.Cmd_OUT(ChIdx, Text(text));
}
int Ld(CkOVA_MANAGER& card, int ChIdx, std::string text) {
  return card.Cmd_LD(ChIdx, Text(text));
}
int If(CkOVA_MANAGER& card, int ChIdx, std::string text, char* out) {
  return card.Cmd_IF(ChIdx, Text(text), out);
}

// Identity, through the interface.
std::string Identity(CkOVA_MANAGER& card) {
  char name[13] = "############";
  std::string result = card.GetHardTypeName(name);
  EXPECT_EQ(result, name);
  EXPECT_EQ(result, card.GetHardTypeName(nullptr));
  EXPECT_TRUE(result.size() == 11 || name[result.size() + 1] == '#') << "more than the name was copied";
  card.GetHardVer();
  card.GetHardType();
  return result;
}

// The commands' defaults in slot order: OUT LD MOT LMOT DG LDG ROW ROCLR IF; ROW alone is not met.
std::string Defaults(CkOVA_MANAGER& card, const std::string& own) {
  std::string text = "1&2&3";
  std::string results;
  char block[] = "before";
  const auto note = [&](const char* command, auto call) {
    if (own.find(std::string(" ") + command + " ") == std::string::npos) results += std::to_string(call());
  };
  note("OUT", [&] { return card.Cmd_OUT(0, Text(text)); });
  note("LD", [&] { return card.Cmd_LD(0, Text(text)); });
  note("MOT", [&] { return card.Cmd_MOT(0, Text(text)); });
  note("LMOT", [&] { return card.Cmd_LMOT(0, nullptr); });
  note("DG", [&] { return card.Cmd_DG(0, Text(text)); });
  note("LDG", [&] { return card.Cmd_LDG(0, nullptr); });
  note("ROW", [&] { return card.Cmd_ROW(0, Text(text)); });
  note("ROCLR", [&] { return card.Cmd_ROCLR(0, nullptr); });
  note("IF", [&] { return card.Cmd_IF(0, Text(text), block); });
  EXPECT_STREQ(block, "before");
  return results;
}

TEST_F(CardTest, IdentityDefaultsAndFarewellOfEveryCard) {
  {
    CkOVA_MANAGER man;
    EXPECT_EQ(Identity(man), "kOVA_Man");
    EXPECT_EQ(Defaults(man, ""), "111111011");
    EXPECT_EQ(man.CPUReport(1), 0);
    EXPECT_EQ(man.GetHardVer(), 1);
    EXPECT_EQ(man.GetHardType(), 1);
    EXPECT_EQ(man.GetTaskNum(), 1);
    EXPECT_EQ(man.GetCPUSeting(), 0);
    EXPECT_EQ(man.ReadHKey(), HKEY_NUL);
    EXPECT_EQ(man.InB(3), 0xFF);
    man.OutB(3, 1);
    man.SetSlotID(4);
    EXPECT_EQ(man.SlotID, 4);
    EXPECT_EQ(bus.Log(), "");

    CkOVA_CPU cpu;
    CkOVA_IOS ios;
    CkOVA_CYMSTR cymstr;
    CkOVA_STMTR stmtr;
    CkOVA_ASDA asda;
    const struct {
      CkOVA_MANAGER& card;
      const char *name, *log, *own, *defaults;
    } cases[] = {
        {cpu, "kOVA_CPU", "0<0 0>ff 0<0 1>ff", " OUT LD IF ", "111101"},
        {ios, "kOVA_IOS", "0<1 3>ff 0<1 4>ff", " OUT LD IF ", "111101"},
        {cymstr, "kOVA_CYMSTR", "0<1 3>ff 0<1 4>ff", " DG LDG ", "1111011"},
        {stmtr, "kOVA_STMTR", "0<1 3>ff 0<1 4>ff", " OUT LD MOT LMOT ROW ROCLR ", "111"},
        {asda, "kOVA_ASDA", "0<1 0<1 0<1 3>ff 0<1 4>ff", " OUT LD MOT LMOT ROW ROCLR ", "111"},
    };
    for (const auto& row : cases) {
      EXPECT_EQ(Identity(row.card), row.name);
      EXPECT_EQ(bus.Log(), row.log);
      EXPECT_EQ(Defaults(row.card, row.own), row.defaults);
      row.card.SetSlotID(12);
      EXPECT_EQ(row.card.GetHardType(), 0xFF);
      EXPECT_EQ(bus.Log(), &row.card == &cpu ? "0<0 1>ff" : "0<c 4>ff");
    }
    ios.InitHardware();
    cymstr.InitHardware();
    EXPECT_EQ(ios.ReadHKey(), HKEY_NUL);
    EXPECT_EQ(bus.Log(), "");
    EXPECT_EQ(bus.Console(), "");
  }
  EXPECT_EQ(bus.Console(),
            "ASDA: ~CkOVA_ASDA\n~kOVA_MANAGER\nSTMTR: ~kOVA_STMTR\n~kOVA_MANAGER\nCYMSTR: "
            "~kOVA_CYMSTR\n~kOVA_MANAGER\n"
            "IOS: ~kOVA_IOS\n~kOVA_MANAGER\nCPU: ~kOVA_CPU\n~kOVA_MANAGER\n~kOVA_MANAGER\n");
}

TEST_F(CardTest, CpuServicesAndKeypadCodes) {
  CkOVA_CPU cpu;
  bus.Answer(0, 7, {0x5A});
  bus.Answer(0, 8, {3});
  EXPECT_EQ(cpu.GetTaskNum(), 3);
  EXPECT_EQ(cpu.GetCPUSeting(), 0x5A);
  EXPECT_EQ(cpu.CPUReport(1), 1);
  EXPECT_EQ(cpu.CPUReport(2), 1);
  EXPECT_EQ(bus.Log(), "0<0 8>03 0<0 7>5a 0<0 2<1");

  const std::map<int, int> keys = {{0x4A, 15}, {0x5A, 20}, {0x69, 5},  {0x6B, 8},  {0x6C, 11}, {0x70, 14},
                                   {0x72, 6},  {0x73, 9},  {0x74, 10}, {0x75, 12}, {0x77, 16}, {0x79, 19},
                                   {0x7A, 7},  {0x7B, 18}, {0x7C, 17}, {0x7D, 13}};
  for (int code = 0; code < 256; code++) {
    bus.Answer(0, 2, {code});
    const auto key = keys.find(code);
    EXPECT_EQ(cpu.ReadHKey(), key == keys.end() ? 0 : key->second) << code;
    char log[40];
    const bool latched = code == 0 || code == 0xF0 || code == 0xE0;
    std::snprintf(log, sizeof log, latched ? "0<0 2>%02x" : "0<0 2>%02x ~10000 0<0 1<0", code);
    EXPECT_EQ(bus.Log(), log);
  }
}

TEST_F(CardTest, FunctionKeysGoBeforeEveryKeyButDec) {
  CkOVA_CPU cpu;
  cpu.FunctionPort = 30;
  const struct {
    int bits, code, key;
  } cases[] = {{0x08, 0, 1}, {0x0F, 0, 1},     {0x07, 0, 2},     {0x03, 0, 3},    {0x01, 0, 4},
               {0x00, 0, 0}, {0x04, 0x69, 2},  {0x04, 0x7B, 18}, {0x00, 0x69, 5}, {0xFF, 0, 0},
               {0x18, 0, 0}, {0x48, 0x5A, 20}, {0x28, 0, 0},     {0x88, 0, 0}};
  for (const auto& row : cases) {
    bus.Answer(0, 30, {row.bits});
    bus.Answer(0, 2, {row.code});
    EXPECT_EQ(cpu.ReadHKey(), row.key) << row.bits << " " << row.code;
  }
  bus.Log();
  bus.Answer(0, 30, {0x04});
  bus.Answer(0, 2, {0x69});
  cpu.ReadHKey();
  EXPECT_EQ(bus.Log(), "0<0 30>04 0<0 2>69 ~10000 0<0 1<0");
}

TEST_F(CardTest, OutChangesOneBitOfTheChannelsRegister) {
  CkOVA_IOS ios;
  ios.SetSlotID(5);
  CkOVA_CPU cpu;
  const struct {
    CkOVA_MANAGER& card;
    int slot, port, before, chIdx;
    const char* text;
    const char* log;
  } cases[] = {
      {ios, 5, 5, 0x10, 3, "1", "0<5 5>10 0<5 5<18"},
      {ios, 5, 5, 0x18, 3, "0", "0<5 5>18 0<5 5<10"},
      {ios, 5, 6, 0x00, 9, "1", "0<5 6>00 0<5 6<2"},
      {ios, 5, 6, 0x00, 15, " +1x", "0<5 6>00 0<5 6<80"},
      {ios, 5, 7, 0x00, 17, "1", "0<5 7>00 0<5 7<2"},
      {ios, 5, 7, 0x00, 25, "1", "0<5 7>00 0<5 7<2"},
      {ios, 5, 5, 0xFF, 0, "2", "0<5 5>ff 0<5 5<fe"},
      {ios, 5, 5, 0xFF, 0, "ON", "0<5 5>ff 0<5 5<fe"},
      {ios, 5, 5, 0x5A, -1, "1", "0<5 5>5a 0<5 5<5a"},
      {ios, 5, 5, 0x5A, -8, "1", "0<5 5>5a 0<5 5<5a"},
      {ios, 5, 5, 0x00, 7, "4294967297", "0<5 5>00 0<5 5<80"},
      {cpu, 0, 5, 0x00, 7, "1", "0<0 5>00 0<0 5<80"},
      {cpu, 0, 6, 0x00, 12, "1", "0<0 6>00 0<0 6<10"},
      {cpu, 0, 6, 0xFF, 20, "-1", "0<0 6>ff 0<0 6<ef"},
  };
  for (const auto& row : cases) {
    bus.Answer(row.slot, row.port, {row.before});
    EXPECT_EQ(Out(row.card, row.chIdx, row.text), 1);
    EXPECT_EQ(bus.Log(), row.log);
  }
  EXPECT_EQ(ios.Cmd_OUT(0, nullptr), 0);
  EXPECT_EQ(ios.Cmd_LD(0, nullptr), 0);
  EXPECT_EQ(bus.Log(), "");
}

TEST_F(CardTest, LdComparesTheInputWithTheWantedLevel) {
  CkOVA_IOS ios;
  CkOVA_CPU cpu;
  bus.Answer(1, 8, {0x80});
  bus.Answer(1, 9, {0x10});
  bus.Answer(0, 3, {0x01});
  bus.Answer(0, 4, {0xFD});
  const struct {
    CkOVA_MANAGER& card;
    int chIdx;
    const char* text;
    int result;
    const char* log;
  } cases[] = {
      {ios, 12, "1", 1, "0<1 9>10"}, {ios, 12, "0", 0, "0<1 9>10"}, {ios, 20, "1", 1, "0<1 9>10"},
      {ios, 7, "1", 1, "0<1 8>80"},  {ios, 6, "0", 1, "0<1 8>80"},  {ios, 12, "5", 0, "0<1 9>10"},
      {ios, -1, "0", 1, "0<1 8>80"}, {ios, -8, "1", 0, "0<1 8>80"}, {ios, 6, "", 1, "0<1 8>80"},
      {cpu, 9, "0", 1, "0<0 4>fd"},  {cpu, 8, "1", 1, "0<0 4>fd"},  {cpu, 0, "1", 1, "0<0 3>01"},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(Ld(row.card, row.chIdx, row.text), row.result) << row.chIdx << " " << row.text;
    EXPECT_EQ(bus.Log(), row.log);
  }
}

TEST_F(CardTest, IfChoosesTheBlockAndRefusesInItsOrder) {
  CkOVA_IOS ios;
  bus.Answer(1, 8, {0x01});
  char out[200] = "kept";
  EXPECT_EQ(If(ios, 16, "1&A&B", nullptr), 0);
  EXPECT_EQ(If(ios, -1, "1&A&B", nullptr), 0);
  EXPECT_EQ(If(ios, 0, "1&A.PLC", nullptr), 0);
  EXPECT_EQ(ios.Cmd_IF(0, nullptr, out), 0);
  EXPECT_EQ(If(ios, 0, "1&A&B", nullptr), -1);
  const std::string longest(199, 'n');
  EXPECT_EQ(If(ios, 0, "1&" + longest + "n&B", out), 0);
  EXPECT_EQ(If(ios, 0, "1&A&" + longest + "n", out), 0);
  EXPECT_STREQ(out, "kept");
  EXPECT_EQ(bus.Log(), "");

  const struct {
    int chIdx;
    std::string text;
    int result;
    std::string name;
  } cases[] = {
      {0, "1&A.PLC&NUL", 1, "A.PLC"},         {1, "1&A.PLC&NUL", 0, "NUL"},
      {1, "1&A.PLC&nul", 0, "nul"},           {1, "1&A.PLC&", 1, ""},
      {1, "0&" + longest + "&B", 1, longest}, {0, " 1x&A& NUL&C", 1, "A"},
      {1, "1&A& NUL&C", 1, " NUL"},           {0, "7&A&B", 1, "B"},
      {1, "&A&" + longest, 1, "A"},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(If(ios, row.chIdx, row.text, out), row.result) << row.text;
    EXPECT_EQ(out, row.name);
    EXPECT_EQ(bus.Log(), "0<1 8>01");
  }
  CkOVA_CPU cpu;
  bus.Answer(0, 4, {0x80});
  EXPECT_EQ(If(cpu, 15, "1&A&B", out), 1);
  EXPECT_EQ(bus.Log(), "0<0 4>80");
}

TEST_F(CardTest, TwoThreadsLoseNoBitOfOneOutputByte) {
  CkOVA_IOS ios;
  bus.onRead = [&](int slot, int port) { return bus.written[{slot, port}]; };
  bus.yield = true;
  const auto toggle = [&](int ChIdx) {
    for (int i = 0; i < 300; i++) {
      const bool on = i % 2 == 0;
      Out(ios, ChIdx, on ? "1" : "0");
      if ((((ios.InB(5) >> ChIdx) & 1) != 0) != on) return i;
    }
    return -1;
  };
  int lost = 0;
  std::thread other([&] { lost = toggle(6); });
  EXPECT_EQ(toggle(1), -1);
  other.join();
  EXPECT_EQ(lost, -1);
}

}  // namespace
