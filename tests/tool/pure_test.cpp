// The parts of the tool that need no machine: names, addresses, waveform text, register names.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "machine/faults.h"
#include "machine/key_names.h"
#include "machine/losses.h"
#include "machine/machine.h"
#include "machine/signals.h"
#include "machine/trace_text.h"
#include "machine/vcd_writer.h"
#include "toml/times.h"
#include "toml/words.h"

namespace rack {
namespace {

Snapshot SmallRack() {
  Snapshot machine;
  machine.running = true;
  machine.cards.resize(3);
  machine.cards[0].kind = CardKind::Cpu;
  machine.cards[1].kind = CardKind::Io;
  machine.cards[1].slot = 3;
  machine.cards[2].kind = CardKind::Stepper;
  machine.cards[2].slot = 5;
  machine.signals = {{"clamp_closed", SignalKind::Input, 1, 5}, {"clamp", SignalKind::Output, 1, 16}};
  return machine;
}

TEST(KeyNames, FindsEveryKeyInAnyLetterCaseWithItsCode) {
  struct {
    const char* name;
    int code;
    bool function;
  } const cases[] = {
      {"0", 0x70, false},   {"1", 0x69, false},     {"2", 0x72, false},     {"3", 0x7A, false},
      {"4", 0x6B, false},   {"5", 0x73, false},     {"6", 0x74, false},     {"7", 0x6C, false},
      {"8", 0x75, false},   {"9", 0x7D, false},     {"enter", 0x5A, false}, {"DEC", 0x7B, false},
      {"-", 0x7B, false},   {"minus", 0x7B, false}, {"plus", 0x79, false},  {"+", 0x79, false},
      {"Num", 0x77, false}, {"star", 0x7C, false},  {"slash", 0x4A, false}, {"Run", 0x08, true},
      {"step", 0x04, true}, {"zero", 0x02, true},   {"cancel", 0x01, true}};
  for (const auto& c : cases) {
    const std::optional<Key> key = FindKey(c.name);
    ASSERT_TRUE(key) << c.name;
    EXPECT_EQ(key->code, c.code) << c.name;
    EXPECT_EQ(key->function, c.function) << c.name;
  }
  EXPECT_FALSE(FindKey("Entr"));
  EXPECT_FALSE(FindKey(""));
  EXPECT_STREQ(KeyOfCode(0x7B)->name, "Dec");
  EXPECT_FALSE(KeyOfCode(0x08));  // a function key's bit is no make code
}

TEST(Times, OfACommandLineAreSecondsUnlessTheyHaveAUnit) {
  EXPECT_EQ(CommandTime("500ms"), 500'000'000);
  EXPECT_EQ(CommandTime("1.5s"), 1'500'000'000);
  EXPECT_EQ(CommandTime("2min"), 120'000'000'000);
  EXPECT_EQ(CommandTime("3"), 3'000'000'000);
  EXPECT_EQ(CommandTime("24h"), 86'400'000'000'000);
  EXPECT_EQ(CommandTime("1.5d"), 129'600'000'000'000);
  for (const char* bad : {"", "s", "-1s", "1y", "300000h", "1 s", "1s ", "nan", "1e30s", "1e999s"})
    EXPECT_FALSE(CommandTime(bad)) << bad;
}

TEST(Times, OfAFileHaveAUnitAndAreExactToTheMicrosecond) {
  EXPECT_EQ(FileTime("300 ms"), 300'000'000);
  EXPECT_EQ(FileTime("1.5s"), 1'500'000'000);
  EXPECT_EQ(FileTime("20  min"), 1'200'000'000'000);
  EXPECT_EQ(FileTime("0.25 ms"), 250'000);
  EXPECT_EQ(FileTime("1 h"), 3'600'000'000'000);
  EXPECT_EQ(FileTime("1.000001 s"), 1'000'001'000);
  EXPECT_EQ(FileTime("1000000000 s"), 1'000'000'000'000'000'000);
  for (const char* bad : {"", "3", "ms", "-1 s", "1 y", "1 5 s", "1 s s", "inf s", "1000000001 s", "1e999 s"})
    EXPECT_FALSE(FileTime(bad)) << bad;
}

TEST(Times, AreWrittenAsTheyAreRead) {
  for (const char* text : {"0 s", "250 ms", "0.25 ms", "1.5 s", "1.000001 s", "90 s", "20 min"})
    EXPECT_EQ(TimeText(FileTime(text).value_or(-1)), text);
}

TEST(Words, ReadsWholeNumbersAndRefusesWhatIsNone) {
  EXPECT_EQ(WholeNumber("12"), 12);
  for (const char* bad : {"", "1x", " 1", "99999999999"}) EXPECT_FALSE(WholeNumber(bad)) << bad;
}

TEST(Signals, AreFoundByNameAndByAddress) {
  const Snapshot machine = SmallRack();
  const SignalChoice named = ChooseSignal(machine, SignalKind::Input, "clamp_closed");
  EXPECT_TRUE(named.found);
  EXPECT_EQ(named.entry, 1);
  EXPECT_EQ(named.channel, 5);
  const SignalChoice relay = ChooseSignal(machine, SignalKind::Output, "1.23");
  EXPECT_TRUE(relay.found);
  EXPECT_EQ(relay.channel, 23);
}

TEST(Signals, WrongOnesSayWhatWouldHaveBeenRight) {
  const Snapshot machine = SmallRack();
  const auto error = [&](const char* text) { return ChooseSignal(machine, SignalKind::Input, text).error; };
  EXPECT_EQ(error("clamp_close"),
            "no input is called \"clamp_close\"; did you mean clamp_closed? (inputs: clamp_closed, or "
            "entry.channel "
            "such as 0.5)");
  EXPECT_EQ(error("3.0"), "3.0: the card table has no entry 3 (entries 0 to 2)");
  EXPECT_EQ(error("1.16"), "1.16: entry 1 (io) has the inputs 0 to 15");
  EXPECT_EQ(error("2.0"), "2.0: entry 2 (stepper) has no inputs; cards with them: 0 cpu, 1 io");
  EXPECT_EQ(ChooseChannel(machine, ChannelSort::Motor, "drill").error,
            "\"drill\" is no motor: give entry.channel such as 2.1; cards with them: 2 stepper");
}

TEST(Faults, WordsBecomeRequestsForTheSlot) {
  const Snapshot machine = SmallRack();
  const FaultChoice stuck = ChooseFault(machine, {"stuck", "clamp_closed", "on"}, RequestKind::BeginFault);
  EXPECT_EQ(stuck.error, "");
  EXPECT_EQ(stuck.request.fault, FaultKind::InputStuck);
  EXPECT_EQ(stuck.request.slot, 3);
  EXPECT_EQ(stuck.request.channel, 5);
  EXPECT_EQ(stuck.request.value, 1);
  const FaultChoice loses = ChooseFault(machine, {"loses", "2.7", "4"}, RequestKind::BeginFault);
  EXPECT_EQ(loses.request.slot, 5);
  EXPECT_EQ(loses.request.channel, 7);
  EXPECT_EQ(loses.request.value, 4);
  EXPECT_EQ(ChooseFault(machine, {"pulled", "stepper"}, RequestKind::BeginFault).request.slot, 5);
  EXPECT_EQ(ChooseFault(machine, {"stuck", "1.5"}, RequestKind::BeginFault).error,
            "wrong number of words; usage: fault stuck SIGNAL on|off");
  EXPECT_EQ(ChooseFault(machine, {"puled", "2"}, RequestKind::BeginFault).error,
            "there is no fault \"puled\"; did you mean pulled? (faults: pulled, stuck, alarm, blocked, "
            "loses, silent, "
            "bus, jams)");
  const FaultRecord record = {FaultKind::InputStuck, 3, 5, 0, 1, 0, 7 * kSecond};
  EXPECT_EQ(FaultText(machine, record, 5 * kSecond), "stuck clamp_closed (1.5) on, 2.0 s left");
}

JournalRecord Record(JournalKind kind, int slot, int port, int value) {
  return {1'250'000'000, kind, 2, static_cast<std::uint8_t>(slot), static_cast<std::uint8_t>(port),
          value,         4,    1};
}

TEST(Trace, NamesCardRegisterAndSignals) {
  const Snapshot machine = SmallRack();
  const FileNames files = [](std::uint32_t number) { return number == 1 ? "plc2/FLOW.PLC" : ""; };
  const std::string head = "    1.250000  plc2  plc2/FLOW.PLC:4  ";
  Tracer tracer(machine, files);
  const auto line = [&](const JournalRecord& record) { return tracer.Line(record); };
  EXPECT_EQ(line(Record(JournalKind::Write, 5, 7, 2)), head + "slot 5 stepper: channel select = 2 (0x02)");
  EXPECT_EQ(line(Record(JournalKind::Read, 5, 24, 1)), head + "slot 5 stepper: busy reads 1 (0x01)");
  EXPECT_EQ(line(Record(JournalKind::Write, 5, 24, 1)), head + "slot 5 stepper: start = 1 (0x01)");
  EXPECT_EQ(line(Record(JournalKind::Read, 3, 8, 0x21)),
            head + "slot 3 io: inputs 0-7 reads 33 (0x21) [1.0 clamp_closed]");
  EXPECT_EQ(line(Record(JournalKind::Write, 3, 7, 1)), head + "slot 3 io: relays 16-23 = 1 (0x01) [clamp]");
  EXPECT_EQ(line(Record(JournalKind::InputEdge, 3, 5, 0)), head + "input clamp_closed (1.5) off");
  EXPECT_EQ(tracer.Row(Record(JournalKind::Write, 5, 9, 7)),
            "1250000000,write,plc2,\"plc2/FLOW.PLC\",4,5,9,7,\"slot 5 stepper: frequency = 7 (0x07)\",,,");
  JournalRecord again = Record(JournalKind::Repeats, 4, 0, 4 * 87381 + 2);
  again.line = 17;           // number of the first record
  again.file = 940'000'000;  // since the last access
  EXPECT_EQ(line(again),
            "    1.250000  plc2  -  again: accesses from before this recording  x 87,381 until 0.310 s");
  tracer.See(Record(JournalKind::Read, 5, 24, 1));
  EXPECT_EQ(line(again), head + "again: slot 5 stepper: busy reads 1 (0x01)  x 87,381 until 0.310 s");
  EXPECT_EQ(tracer.Row(again),
            "1250000000,repeats,plc2,\"plc2/FLOW.PLC\",4,5,24,1,\"again: slot 5 stepper: busy reads 1 (0x01)"
            "  x 87,381 until 0.310 s\",87381,4,310000000");
}

TEST(Trace, FaultsAndHandsAreToldByTheNamesThatTheirCommandsUse) {
  const Snapshot machine = SmallRack();
  const auto text = [&](JournalKind kind, int slot, int channel, int value, std::uint32_t ofFault = 0) {
    JournalRecord record = Record(kind, slot, channel, value);
    record.line = ofFault;
    record.file = 0;
    return EventText(machine, record);
  };
  const auto fault = [&](JournalKind kind, FaultKind of, int slot, int channel, std::uint32_t value) {
    return text(kind, slot, channel, static_cast<int>(of), value);
  };
  EXPECT_EQ(fault(JournalKind::FaultBegins, FaultKind::InputStuck, 3, 5, 1),
            "fault: stuck clamp_closed (1.5) on");
  EXPECT_EQ(fault(JournalKind::FaultEnds, FaultKind::MotorLosesSteps, 5, 7, 4), "fault over: loses 2.7 4");
  EXPECT_EQ(fault(JournalKind::FaultBegins, FaultKind::CardPulled, 5, 0, 0), "fault: pulled 2 (stepper)");
  EXPECT_EQ(text(JournalKind::HardStop, 5, 2, 1, static_cast<std::uint32_t>(-40)),
            "slot 5 stepper: motor 2 hits its stop at -40");
  EXPECT_EQ(text(JournalKind::HardStop, 5, 2, 0, 250),
            "slot 5 stepper: motor 2 has lost 250 steps at its stop");
  EXPECT_EQ(text(JournalKind::InputTaken, 3, 5, 1), "input clamp_closed (1.5) on by hand");
  EXPECT_EQ(text(JournalKind::InputGivenBack, 3, 5, 0), "input clamp_closed (1.5) left to the machine again");
}

TEST(Trace, EveryKindHasAWordOfItsOwn) {
  const std::vector<std::string> words = KindWords();
  EXPECT_EQ(std::set<std::string>(words.begin(), words.end()).size(), words.size());
  EXPECT_EQ(words.front(), "read");
  for (const std::string& word : words) EXPECT_EQ(WordOf(KindOfWord(word)), word);
  EXPECT_EQ(KindOfWord("reed"), JournalKind::None);
}

TEST(Trace, SaysWhatACardProtestsAgainst) {
  const Snapshot machine = SmallRack();
  const auto text = [&](int slot, int port, Protest protest, int value) {
    return EventText(machine, Record(JournalKind::CardProtests, slot, port,
                                     ProtestValue(protest, static_cast<std::uint8_t>(value))));
  };
  EXPECT_EQ(text(5, 30, Protest::NoRegister, 1), "card 2 has no register 30");
  EXPECT_EQ(text(5, 7, Protest::NotReadable, 0), "card 2 has nothing to read at register 7 (channel select)");
  EXPECT_EQ(text(3, 8, Protest::NotWritable, 0), "card 1 has nothing to write at register 8 (inputs 0-7)");
  EXPECT_EQ(text(5, 7, Protest::NoChannel, 9), "card 2 has no channel 9");
  EXPECT_EQ(text(5, 9, Protest::NoneSelected, 1),
            "card 2 has no channel selected for register 9 (frequency)");
  EXPECT_EQ(text(5, 24, Protest::BadValue, 3), "card 2 does not take 3 at register 24 (start)");
  EXPECT_EQ(text(5, 6, Protest::CommandHeld, 0x35), "card 2 still holds the last command when 0x35 comes");
  EXPECT_EQ(text(5, 24, Protest::GeneratorHeld, 1),
            "card 2 is to start a motor whose generator is held clear");
  EXPECT_EQ(text(11, 30, Protest::NoRegister, 1), "the card in slot 11 has no register 30");
}

TEST(Vcd, IsWrittenWithScopesStartValuesAndOnlyChanges) {
  std::ostringstream out;
  VcdWriter writer(out);
  const int level = writer.AddWire("slot3_io", "in5 clamp", 1);
  const int count = writer.AddWire("slot5_stepper", "motor0", 4);
  writer.AddWire("slot5_stepper", "idle", 1);  // stays out of the view
  writer.Begin({1, -2, 0}, 100);
  writer.Change(level, 1, 150);
  writer.Change(count, 3, 200);
  writer.Change(level, 0, 200);
  writer.Change(level, 1, 190);  // a record that comes late keeps the order of time
  writer.Remark("3 records lost here");
  writer.End(300);
  EXPECT_EQ(out.str(),
            "$version velmo-rack $end\n$timescale 1ns $end\n$scope module machine $end\n"
            "$scope module slot3_io $end\n$var wire 1 ! in5_clamp $end\n$upscope $end\n"
            "$scope module slot5_stepper $end\n$var wire 4 \" motor0 [3:0] $end\n$var wire 1 # idle $end\n"
            "$upscope $end\n"
            "$upscope $end\n$enddefinitions $end\n"
            "#100\n$dumpvars\n1!\nb1110 \"\n0#\n$end\n"
            "#200\nb0011 \"\n0!\n1!\n$comment 3 records lost here $end\n#300\n");
  EXPECT_EQ(writer.View("a.vcd"),
            "[dumpfile] \"a.vcd\"\n[timestart] 100\n*-6 0\n[treeopen] machine.\n"
            "@200\n-slot3_io\n@28\nmachine.slot3_io.in5_clamp\n"
            "@200\n-slot5_stepper\n@420\nmachine.slot5_stepper.motor0[3:0]\n");
}

TEST(Vcd, NamesKeepTheirPlaceAndWordsAreValues) {
  std::ostringstream out;
  VcdWriter writer(out);
  writer.AddWire("slot3_io", "in5_clamp 1.left", 1);
  writer.AddWire("slot3_io", "in5_clamp_1_left", 1);
  const int file = writer.AddText("programs", "plc1_file", "");
  writer.Begin({1, 0, std::nullopt}, 0);
  writer.ChangeText(file, "plc1/MY BLOCK.PLC", 100);
  writer.ChangeText(file, "plc1/MY BLOCK.PLC", 200);
  writer.End(200);
  EXPECT_EQ(out.str(),
            "$version velmo-rack $end\n$timescale 1ns $end\n$scope module machine $end\n"
            "$scope module slot3_io $end\n$var wire 1 ! in5_clamp_1_left $end\n"
            "$var wire 1 \" in5_clamp_1_left_ $end\n$upscope $end\n"
            "$scope module programs $end\n$var string 1 # plc1_file $end\n$upscope $end\n"
            "$upscope $end\n$enddefinitions $end\n"
            "#0\n$dumpvars\n1!\n0\"\ns- #\n$end\n#100\nsplc1/MY\\x20BLOCK.PLC #\n#200\n");
  EXPECT_THAT(writer.View("a.vcd"), testing::EndsWith("@200\n-programs\n@820\nmachine.programs.plc1_file\n"));
}

TEST(Losses, AreToldOnceASecondHoweverManyGapsThereAre) {
  Losses losses;
  EXPECT_EQ(losses.Take(false, 0), 0U);
  losses.Missed() += 3;
  EXPECT_EQ(losses.Take(false, 10), 3U);
  losses.Missed() += 4;
  EXPECT_EQ(losses.Take(false, kSecond + 9), 0U);
  losses.Missed() += 5;
  EXPECT_EQ(losses.Take(false, kSecond + 10), 9U);
  losses.Missed() += 1;
  EXPECT_EQ(losses.Take(true, kSecond + 11), 1U);
  EXPECT_EQ(losses.Take(true, kSecond + 12), 0U);
  EXPECT_EQ(losses.Told(), 13U);
}

TEST(StepMode, PlusLatchesUntilDec) {
  StepMode step{};
  EXPECT_EQ(step.on, 0);
  step.Take(0x79);
  EXPECT_EQ(step.on, 1);
  step.Take(0x5A);  // Enter does nothing while the latch is set
  EXPECT_EQ(step.on, 1);
  step.Take(0x7B);
  EXPECT_EQ(step.on, 0);
}

}  // namespace
}  // namespace rack
