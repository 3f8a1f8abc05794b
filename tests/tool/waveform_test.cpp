// Recordings of a rack: the values at their start.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "machine/machine.h"
#include "machine/waveform.h"
#include "rack/rack.h"
#include "rackfile/rackfile.h"

namespace rack {
namespace {

using testing::HasSubstr;

constexpr char kCell[] = R"(
[rack]
function_port = 20
on_at_start = ["guard"]
[slots]
3 = "cylinder"
5 = "stepper"
[inputs]
guard = "0.1"
"door 1.left" = "0.2"
[[counter]]
name = "parts"
when_input = "guard"
[[axis]]
motor = "2.3"
stop_high = 5
)";

class WaveformTest : public testing::Test {
 protected:
  void SetUp() override {
    const auto setup = std::make_unique<RackSetup>();
    std::vector<std::string> errors;
    ASSERT_TRUE(ReadRackText(kCell, "rack.toml", *setup, errors)) << errors.front();
    PowerOn(*state, *setup, 0);
    bus = std::make_unique<Rack>(*state);
  }

  void Write(std::uint8_t slot, std::uint8_t port, std::uint8_t value, Nanos now) {
    bus->WritePort(0, slot, now);
    bus->WritePort(port, value, now);
  }
  void Ask(RequestKind kind, FaultKind fault, std::uint8_t slot, std::uint8_t channel, int value, Nanos now) {
    std::uint32_t number = 0;
    ASSERT_TRUE(Send(state->requests, {kind, fault, slot, channel, 0, value, 0, 0}, number));
    bus->AdvanceTo(now);
    ASSERT_EQ(ResultOf(state->requests, number), RequestResult::Done);
  }
  // The journal from the first record at this time on.
  std::vector<JournalRecord> Journal(Nanos from = 0) const {
    std::vector<JournalRecord> records;
    JournalReader reader(state->journal, JournalReader::Start::Oldest);
    JournalRecord record{};
    std::uint64_t lost = 0;
    while (reader.Next(record, lost) == JournalReader::Result::Record) {
      if (record.time >= from) records.push_back(record);
    }
    return records;
  }
  Snapshot Now() const { return SnapshotOf(state->image, state->live); }

  // A wire's values in a recording, "0:00010000 500000000:01100001".
  static std::string Values(const std::string& vcd, const std::string& name) {
    std::istringstream text(vcd);
    std::string time;
    std::string code;
    std::string values;
    for (std::string line; std::getline(text, line);) {
      std::istringstream words(line);
      std::vector<std::string> word;
      for (std::string each; words >> each;) word.push_back(each);
      if (word.size() > 4 && word[0] == "$var" && word[4] == name) code = word[3];
      if (line[0] == '#') time = line.substr(1);
      std::string value;
      if (line[0] == 'b' && word.back() == code) value = word[0].substr(1);
      if (word.size() == 1 && std::string("01x").find(line[0]) != std::string::npos && line.substr(1) == code)
        value = line.substr(0, 1);
      if (!value.empty()) values += (values.empty() ? "" : " ") + time + ":" + value;
    }
    return values;
  }

  // A recording from power-on, and one of the journal's rest from a time on.
  std::string Whole() const {
    std::ostringstream out;
    Waveform waveform(out, PowerOnSnapshot(state->image, state->live), FileNamesOf(*state));
    waveform.Begin();
    for (const JournalRecord& record : Journal()) waveform.See(record);
    waveform.End(state->live.now);
    return out.str();
  }
  std::string Rest(Nanos from) const {
    std::ostringstream out;
    Waveform waveform(out, Now(), FileNamesOf(*state));
    const std::vector<JournalRecord> past = Journal(from);
    waveform.BeginBefore(past);
    for (const JournalRecord& record : past) waveform.See(record);
    waveform.End(state->live.now);
    return out.str();
  }

  const std::unique_ptr<RackState> state = std::make_unique<RackState>();
  std::unique_ptr<Rack> bus;
};

constexpr Nanos kMs = 1'000'000;

TEST_F(WaveformTest, ARecordingFromPowerOnStartsAsPowerFindsTheCards) {
  Write(3, 5, 1, 10 * kMs);
  Write(3, 6, 0x31, 10 * kMs);  // cylinder 1 to position 1, 100 ms
  bus->AdvanceTo(200 * kMs);
  EXPECT_EQ(Now().cards[1].cylinders[1].thousandths, 1000);
  const std::string vcd = Whole();
  EXPECT_THAT(vcd, HasSubstr("$end\n#0\n$dumpvars\n"));
  EXPECT_EQ(Values(vcd, "cylinder0_status"), "0:00010000");
  EXPECT_EQ(Values(vcd, "cylinder1_status"), "0:00010000 10000000:01100000 110000000:00010000");
  EXPECT_EQ(Values(vcd, "cylinder1_position"), "0:00000000 110000000:00000001");
  EXPECT_EQ(Values(vcd, "in1_guard"), "0:0 0:1");
  EXPECT_EQ(Values(vcd, "parts"), "0:00000000000000000000000000000000 0:00000000000000000000000000000001");
  EXPECT_EQ(Values(vcd, "active"), "0:00000000");
}

TEST_F(WaveformTest, AMotorWithAHardStopHasAWireForIt) {
  Write(5, 7, 3, 0);
  Write(5, 9, 1, 0);    // 100 steps per second
  Write(5, 12, 20, 0);  // 10 steps
  Write(5, 24, 1, 0);
  bus->AdvanceTo(200 * kMs);
  EXPECT_EQ(Values(Whole(), "motor3_at_stop"), "0:0 60000000:1 100000000:0");
  EXPECT_EQ(Values(Whole(), "motor2_at_stop"), "");
  EXPECT_EQ(Values(Rest(80 * kMs), "motor3_at_stop"), "100000000:1 100000000:0");
}

TEST_F(WaveformTest, ARecordingWithItsBeginningLostClaimsOnlyWhatIsKnown) {
  Write(3, 5, 1, 10 * kMs);
  Write(3, 6, 0x31, 10 * kMs);
  Write(0, 5, 0x03, 20 * kMs);  // outputs 0 and 1
  Ask(RequestKind::BeginFault, FaultKind::CardPulled, 5, 0, 0, 30 * kMs);
  Ask(RequestKind::BeginFault, FaultKind::MotorBlocked, 5, 2, 0, 30 * kMs);
  Ask(RequestKind::PressFunctionKeys, FaultKind::None, 0, 0, 0x02, 40 * kMs);
  bus->AdvanceTo(200 * kMs);
  // The journal is kept from here on.
  Write(0, 5, 0x01, 300 * kMs);
  Write(3, 5, 2, 310 * kMs);
  Write(3, 6, 0x32, 310 * kMs);
  Ask(RequestKind::EndFault, FaultKind::CardPulled, 5, 0, 0, 320 * kMs);
  Ask(RequestKind::BeginFault, FaultKind::CardSilent, 3, 0, 0, 330 * kMs);
  Ask(RequestKind::PressFunctionKeys, FaultKind::None, 0, 0, 0x08, 340 * kMs);
  const std::string vcd = Rest(300 * kMs);
  EXPECT_THAT(vcd, HasSubstr("$end\n#300000000\n$dumpvars\n"));
  // Nothing of these is told: they are as they are in the snapshot.
  EXPECT_EQ(Values(vcd, "cylinder1_position"), "300000000:00000001");
  EXPECT_EQ(Values(vcd, "out0"), "300000000:1");
  EXPECT_EQ(Values(vcd, "code"), "300000000:00000000");
  // A level, and the number of faults, can be told back.
  EXPECT_EQ(Values(vcd, "out1"), "300000000:1 300000000:0");
  EXPECT_EQ(Values(vcd, "active"), "300000000:00000010 320000000:00000001 330000000:00000010");
  // What was there before the first record is not known.
  EXPECT_EQ(Values(vcd, "cylinder2_status"), "300000000:xxxxxxxx 310000000:01100000 320000000:01100001");
  EXPECT_EQ(Values(vcd, "RUN"), "300000000:x 340000000:1");
}

TEST_F(WaveformTest, HandsAndEachKindOfFaultHaveAWire) {
  Ask(RequestKind::SetInput, FaultKind::None, 0, 1, 0, 10 * kMs);
  Ask(RequestKind::SetInput, FaultKind::None, 0, 1, 1, 20 * kMs);
  Ask(RequestKind::ReleaseInput, FaultKind::None, 0, 2, 0, 25 * kMs);  // nobody holds it
  Ask(RequestKind::ReleaseInput, FaultKind::None, 0, 1, 0, 30 * kMs);
  Ask(RequestKind::BeginFault, FaultKind::InputStuck, 0, 2, 1, 40 * kMs);
  Ask(RequestKind::BeginFault, FaultKind::InputStuck, 0, 3, 1, 50 * kMs);
  Ask(RequestKind::EndFault, FaultKind::InputStuck, 0, 2, 1, 60 * kMs);
  const std::string vcd = Whole();
  EXPECT_EQ(Values(vcd, "in1_guard_by_hand"), "0:0 10000000:1 30000000:0");
  EXPECT_EQ(Values(vcd, "in2_door_1_left"), "0:0 40000000:1 60000000:0");
  EXPECT_EQ(Values(vcd, "in2_door_1_left_by_hand"), "0:0");
  EXPECT_EQ(Values(vcd, "stuck"), "0:00000000 40000000:00000001 50000000:00000010 60000000:00000001");
  EXPECT_EQ(Values(vcd, "pulled"), "0:00000000");
  // Of one whose beginning is lost.
  const std::string rest = Rest(30 * kMs);
  EXPECT_EQ(Values(rest, "in1_guard_by_hand"), "30000000:x 30000000:0");
  EXPECT_EQ(Values(rest, "stuck"), "30000000:00000000 40000000:00000001 50000000:00000010 60000000:00000001");
}

TEST_F(WaveformTest, AFaultThatTheSnapshotHasAlreadyIsNotCountedTwice) {
  Ask(RequestKind::BeginFault, FaultKind::CardPulled, 5, 0, 0, 30 * kMs);
  std::ostringstream out;
  Waveform waveform(out, Now(), FileNamesOf(*state));
  waveform.Begin();
  for (const JournalRecord& record : Journal()) waveform.See(record);
  waveform.End(40 * kMs);
  EXPECT_EQ(Values(out.str(), "active"), "30000000:00000001");
}

}  // namespace
}  // namespace rack
