// The cards' registers, ports and bits as literal numbers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "cards/card_kinds.h"

namespace rack {
namespace {

using testing::ElementsAre;

constexpr Nanos kMs = 1000000;

// A card on a bus, with the time at hand.
class Bench {
 public:
  explicit Bench(CardKind kind) { PowerOn(card, kind); }
  int Read(int port) { return ReadCard(card, static_cast<std::uint8_t>(port), now); }
  void Write(int port, int value) {
    WriteCard(card, static_cast<std::uint8_t>(port), static_cast<std::uint8_t>(value), now);
  }
  void Writes(std::initializer_list<std::pair<int, int>> accesses) {
    for (const auto& [port, value] : accesses) Write(port, value);
  }
  std::vector<int> ReadAll(int from, int to) {
    std::vector<int> bytes;
    for (int port = from; port <= to; ++port) bytes.push_back(Read(port));
    return bytes;
  }
  // A full write to every port, slot select left out.
  void FloodPorts(int value) {
    for (int port = 1; port < 256; ++port) Write(port, value);
  }

  CardState card{};
  Nanos now = 0;
};

// The protests against a write of each value to a port, "0-7 none, 8-255 no channel", as numbers of Protest.
std::string ProtestsOfValues(Bench& bench, int port) {
  std::string text;
  Protest last = Protest::None;
  for (int value = 0; value < 256; ++value) {
    const Protest protest = ProtestOfWrite(bench.card, static_cast<std::uint8_t>(port),
                                           static_cast<std::uint8_t>(value), bench.now);
    if (value != 0 && protest == last) continue;
    text +=
        (text.empty() ? "" : " ") + std::to_string(value) + ":" + std::to_string(static_cast<int>(protest));
    last = protest;
  }
  return text;
}

// The ports of 0 to 40 at which an access is no matter for protest.
std::vector<int> PortsOf(Bench& bench, Access access) {
  std::vector<int> ports;
  for (int port = 0; port <= 40; ++port) {
    const auto number = static_cast<std::uint8_t>(port);
    const Protest protest = access == Access::Read ? ProtestOfRead(bench.card, number, bench.now)
                                                   : ProtestOfWrite(bench.card, number, 0, bench.now);
    if (protest == Protest::None || protest == Protest::BadValue) ports.push_back(port);
  }
  return ports;
}

TEST(Protests, RegistersThatACardHasNotAndDirectionsThatTheyHaveNot) {
  Bench cpu(CardKind::Cpu);
  EXPECT_THAT(PortsOf(cpu, Access::Read), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8));
  EXPECT_THAT(PortsOf(cpu, Access::Write), ElementsAre(1, 2, 5, 6));
  cpu.card.cpu.functionPort = 20;
  EXPECT_THAT(PortsOf(cpu, Access::Read), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 20));
  Bench io(CardKind::Io);
  EXPECT_THAT(PortsOf(io, Access::Read), ElementsAre(3, 4, 5, 6, 7, 8, 9));
  EXPECT_THAT(PortsOf(io, Access::Write), ElementsAre(5, 6, 7));
  Bench stepper(CardKind::Stepper);
  EXPECT_THAT(PortsOf(stepper, Access::Read), ElementsAre(3, 4, 20, 21, 22, 23, 24));
  EXPECT_THAT(PortsOf(stepper, Access::Write),
              ElementsAre(7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 24, 26, 27, 28, 29));
  Bench servo(CardKind::Servo);
  EXPECT_THAT(PortsOf(servo, Access::Read), ElementsAre(3, 4, 20, 21, 22, 23, 24));
  EXPECT_THAT(PortsOf(servo, Access::Write),
              ElementsAre(5, 8, 9, 12, 13, 14, 15, 18, 19, 24, 26, 27, 28, 29));
  Bench cylinder(CardKind::Cylinder);
  EXPECT_THAT(PortsOf(cylinder, Access::Read), ElementsAre(3, 4, 5, 6));
  EXPECT_THAT(PortsOf(cylinder, Access::Write), ElementsAre(5, 6, 7));
  EXPECT_EQ(ProtestOfWrite(io.card, 10, 0, 0), Protest::NoRegister);
  EXPECT_EQ(ProtestOfWrite(io.card, 8, 0, 0), Protest::NotWritable);
  EXPECT_EQ(ProtestOfRead(stepper.card, 7, 0), Protest::NotReadable);
}

TEST(Protests, ValuesAndMomentsThatACardDoesNotTake) {
  Bench cpu(CardKind::Cpu);
  EXPECT_EQ(ProtestsOfValues(cpu, 1), "0:0 1:6");
  EXPECT_EQ(ProtestsOfValues(cpu, 5), "0:0");
  Bench stepper(CardKind::Stepper);
  EXPECT_EQ(ProtestsOfValues(stepper, 7), "0:0 8:4");
  EXPECT_EQ(ProtestsOfValues(stepper, 24), "0:6 1:0 2:6");
  EXPECT_EQ(ProtestOfWrite(stepper.card, 8, 0xEC, 0), Protest::None);
  EXPECT_EQ(ProtestOfWrite(stepper.card, 8, 0x10, 0), Protest::BadValue);
  EXPECT_EQ(ProtestOfWrite(stepper.card, 8, 0x01, 0), Protest::BadValue);
  EXPECT_EQ(ProtestOfWrite(stepper.card, 12, 0x01, 0), Protest::BadValue);
  EXPECT_EQ(ProtestOfWrite(stepper.card, 13, 0x01, 0), Protest::None);
  stepper.Write(18, 0xFF);
  EXPECT_EQ(ProtestOfWrite(stepper.card, 24, 1, 0), Protest::GeneratorHeld);
  stepper.Write(18, 0);
  EXPECT_EQ(ProtestOfWrite(stepper.card, 24, 1, 0), Protest::None);
  stepper.Write(7, 8);
  EXPECT_EQ(ProtestOfRead(stepper.card, 24, 0), Protest::NoneSelected);
  EXPECT_EQ(ProtestOfWrite(stepper.card, 9, 5, 0), Protest::NoneSelected);
  EXPECT_EQ(ProtestOfRead(stepper.card, 4, 0), Protest::None);

  // A controller clears eight channels of both motor cards at its start.
  Bench servo(CardKind::Servo);
  EXPECT_EQ(ProtestsOfValues(servo, 5), "0:0 8:4");
  EXPECT_EQ(ProtestOfWrite(servo.card, 8, 0x03, 0), Protest::None);
  servo.Write(5, 7);
  EXPECT_EQ(ProtestOfWrite(servo.card, 18, 0xFF, 0), Protest::None);
  EXPECT_EQ(ProtestOfWrite(servo.card, 19, 0, 0), Protest::None);
  EXPECT_EQ(ProtestOfRead(servo.card, 24, 0), Protest::None);
  EXPECT_EQ(ProtestOfWrite(servo.card, 24, 1, 0), Protest::NoneSelected);
  EXPECT_EQ(ProtestOfRead(servo.card, 20, 0), Protest::NoneSelected);

  Bench cylinder(CardKind::Cylinder);
  EXPECT_EQ(ProtestsOfValues(cylinder, 5), "0:0 3:4");
  EXPECT_EQ(ProtestsOfValues(cylinder, 6), "0:6 16:0 17:6 32:0 33:6 48:0 64:6");
  EXPECT_EQ(ProtestsOfValues(cylinder, 7), "0:0");
  cylinder.Write(6, 0x35);
  cylinder.now = 1999;
  EXPECT_EQ(ProtestOfWrite(cylinder.card, 6, 0x31, cylinder.now), Protest::CommandHeld);
  cylinder.now = 2000;
  EXPECT_EQ(ProtestOfWrite(cylinder.card, 6, 0x31, cylinder.now), Protest::None);
}

TEST(CylinderCard, AStrictCardLosesACommandThatComesTooEarly) {
  for (const bool strict : {false, true}) {
    Bench bench(CardKind::Cylinder);
    bench.card.cylinder.strict = strict ? 1 : 0;
    bench.Write(6, 0x31);
    EXPECT_EQ(bench.Read(5), strict ? 0 : 1);  // not taken yet
    bench.now = 1000;
    EXPECT_EQ(bench.Read(5), 1);
    bench.Write(6, 0x32);
    bench.now = 500 * kMs;
    EXPECT_EQ(CylinderCard(bench.card.cylinder).StandsAt(0, bench.now), strict ? 1 : 2);
  }
}

TEST(CylinderCard, ACommandBeginsAfterTheDelayThatIsSet) {
  Bench bench(CardKind::Cylinder);
  bench.Write(7, 200);
  bench.Write(6, 0x31);  // the register has no effect without a unit
  bench.now = 100 * kMs;
  EXPECT_EQ(bench.Read(6), 0x10);
  bench.card.cylinder.delayUnit = kMs;
  bench.Write(6, 0x32);
  bench.now = 300 * kMs;
  EXPECT_EQ(bench.Read(6), 0x61);
  EXPECT_EQ(CylinderCard(bench.card.cylinder).PlaceAt(0, bench.now), 1000);
  bench.now = 350 * kMs;
  EXPECT_EQ(CylinderCard(bench.card.cylinder).PlaceAt(0, bench.now), 1500);
  bench.now = 400 * kMs;
  EXPECT_EQ(bench.Read(6), 0x10);
}

TEST(CpuCard, RegistersReadAndWriteAsTheMapSays) {
  Bench cpu(CardKind::Cpu);
  EXPECT_THAT(cpu.ReadAll(0, 9), ElementsAre(1, 0xA3, 0, 0, 0, 0, 0, 0, 1, 0xFF));
  cpu.card.cpu.settings = 0x5A;
  cpu.card.cpu.taskCount = 3;
  cpu.card.cpu.status = 0;
  SetInputLevel(cpu.card, 2, true);
  SetInputLevel(cpu.card, 15, true);
  cpu.Writes({{5, 0x81}, {6, 0x42}, {2, 1}, {3, 0xFF}, {4, 0xFF}, {7, 0xFF}, {8, 0xFF}, {0, 7}});
  EXPECT_THAT(cpu.ReadAll(0, 9), ElementsAre(1, 0xA3, 0, 0x04, 0x80, 0x81, 0x42, 0x5A, 3, 0xFF));
  EXPECT_EQ(cpu.card.cpu.status, 1);
  EXPECT_EQ(cpu.Read(255), 0xFF);
  EXPECT_TRUE(OutputLevel(cpu.card, 9));
  EXPECT_FALSE(OutputLevel(cpu.card, 8));
}

TEST(CpuCard, KeyStaysLatchedUntilZeroIsWrittenAndANewCodeOverwritesIt) {
  Bench cpu(CardKind::Cpu);
  CpuCard card(cpu.card.cpu);
  card.LatchKey(0x69);
  EXPECT_EQ(cpu.Read(2), 0x69);
  card.LatchKey(0x72);
  EXPECT_EQ(cpu.Read(2), 0x72);
  cpu.Write(1, 1);
  EXPECT_EQ(cpu.Read(2), 0x72);
  EXPECT_EQ(cpu.card.cpu.keyClears, 0U);
  cpu.Writes({{1, 0}, {1, 0}});
  EXPECT_EQ(cpu.Read(2), 0);
  EXPECT_EQ(cpu.card.cpu.keyClears, 1U);
}

TEST(CpuCard, FunctionKeysStandAtTheirPortOnlyWhereTheCardHasOne) {
  Bench cpu(CardKind::Cpu);
  cpu.card.cpu.functionKeys = 0xF9;
  EXPECT_EQ(cpu.Read(0), 1);
  EXPECT_EQ(cpu.Read(12), 0xFF);
  cpu.card.cpu.functionPort = 12;
  EXPECT_EQ(cpu.Read(12), 0x09);
  cpu.card.cpu.functionPort = 5;
  EXPECT_EQ(cpu.Read(5), 0);
}

TEST(IoCard, RegistersReadAndWriteAsTheMapSays) {
  Bench io(CardKind::Io);
  EXPECT_THAT(io.ReadAll(0, 10), ElementsAre(0xFF, 0xFF, 0xFF, 1, 0x83, 0, 0, 0, 0, 0, 0xFF));
  SetInputLevel(io.card, 3, true);
  SetInputLevel(io.card, 9, true);
  SetInputLevel(io.card, 16, true);
  io.FloodPorts(0xAA);
  io.Writes({{5, 0x11}, {6, 0x22}, {7, 0x84}});
  EXPECT_THAT(io.ReadAll(0, 10), ElementsAre(0xFF, 0xFF, 0xFF, 1, 0x83, 0x11, 0x22, 0x84, 0x08, 0x02, 0xFF));
  EXPECT_TRUE(OutputLevel(io.card, 23));
  EXPECT_TRUE(OutputLevel(io.card, 18));
  EXPECT_FALSE(OutputLevel(io.card, 17));
  EXPECT_FALSE(OutputLevel(io.card, 24));
  SetInputLevel(io.card, 3, false);
  EXPECT_EQ(io.Read(8), 0);
}

TEST(AnyCard, EmptyPlaceReadsOpenBusAndLosesWrites) {
  Bench none(CardKind::None);
  none.FloodPorts(0x55);
  EXPECT_THAT(none.ReadAll(3, 5), ElementsAre(0xFF, 0xFF, 0xFF));
  EXPECT_EQ(InputCount(none.card) + OutputCount(none.card) + MotorCount(none.card) + CylinderCount(none.card),
            0);
  EXPECT_EQ(MotorChannel(none.card, 0), nullptr);
}

// What differs between the motor cards: the select port and the number of channels.
struct MotorCard {
  CardKind kind;
  int type;
  int select;
  int channels;
};

class MotorCards : public testing::TestWithParam<MotorCard>, protected Bench {
 protected:
  MotorCards() : Bench(GetParam().kind) {}
  // Programs and starts a move on a channel; 100 pulses per second and unit.
  void Move(int channel, int steps, int frequency, int control, int stop = 0) {
    Writes({{GetParam().select, channel}, {8, control}, {9, frequency}});
    for (int byte = 3; byte >= 0; --byte) Write(12 + byte, (2 * steps) >> (8 * byte) & 0xFF);
    for (int byte = 3; byte >= 0; --byte) Write(26 + byte, (2 * stop) >> (8 * byte) & 0xFF);
    Write(24, 1);
  }
  std::vector<int> Encoder() { return ReadAll(20, 23); }
  PulseChannel Channel(int channel) { return PulseChannel(*MotorChannel(card, channel)); }
  std::int64_t Position(int channel) { return Channel(channel).PositionAt(now); }
};

TEST_P(MotorCards, IdentityAndUnusedPorts) {
  EXPECT_THAT(ReadAll(0, 19), testing::Each(testing::Ne(0)));
  EXPECT_THAT(ReadAll(0, 6), ElementsAre(0xFF, 0xFF, 0xFF, 1, GetParam().type, 0xFF, 0xFF));
  EXPECT_THAT(ReadAll(20, 30), ElementsAre(0, 0, 0, 0x80, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF));
}

TEST_P(MotorCards, NumberOfStepsMovesPositionAndEncoderAtTheRateOfTheFrequencyCode) {
  now = 5 * kMs;
  Move(1, 300, 2, 0x00);
  now += 499 * kMs;
  EXPECT_EQ(Position(1), 99);
  now += 1 * kMs;
  EXPECT_EQ(Position(1), 100);
  EXPECT_THAT(Encoder(), ElementsAre(100, 0, 0, 0x80));
  EXPECT_EQ(Channel(1).MoveEnd(), 1505 * kMs);
  EXPECT_EQ(Channel(1).ReachTime(0), std::nullopt);
  EXPECT_EQ(Channel(1).ReachTime(250), 1255 * kMs);
  EXPECT_EQ(Channel(1).ReachTime(301), std::nullopt);
  now = 1505 * kMs - 1;
  EXPECT_TRUE(Channel(1).Busy(now));
  now += 1;
  EXPECT_FALSE(Channel(1).Busy(now));
  EXPECT_THAT(Encoder(), ElementsAre(0x2C, 0x01, 0, 0x80));
  Move(1, 301, 1, 0x80);
  now += 5000 * kMs;
  EXPECT_THAT(Encoder(), ElementsAre(0xFF, 0xFF, 0xFF, 0x7F));
  EXPECT_EQ(Position(0), 0);
}

TEST_P(MotorCards, EncoderBytesBelongToTheMomentOfTheLowestByte) {
  Move(0, 600, 1, 0x00);
  now = 2550 * kMs;
  EXPECT_EQ(Read(20), 255);
  now = 2560 * kMs;
  EXPECT_EQ(Read(21), 0);
  EXPECT_THAT(Encoder(), ElementsAre(0, 1, 0, 0x80));
}

TEST_P(MotorCards, FrequencyZeroIsBusyForEverUntilTheGeneratorIsCleared) {
  Move(0, 10, 0, 0x00);
  now = 3600000 * kMs;
  EXPECT_EQ(Read(24), 1);
  EXPECT_EQ(Position(0), 0);
  EXPECT_EQ(Channel(0).MoveEnd(), std::nullopt);
  Write(18, 0xFF);
  EXPECT_EQ(Read(24), 0);
  Move(0, 10, 1, 0x00);
  EXPECT_EQ(Read(24), 0);
  Write(18, 0x00);
  Write(24, 2);
  EXPECT_EQ(Read(24), 0);
  Write(24, 1);
  EXPECT_EQ(Read(24), 1);
}

TEST_P(MotorCards, ClearsActOnTheSelectedChannelAndLeaveThePosition) {
  Move(0, 100, 1, 0x00);
  Move(1, 100, 1, 0x00);
  now = 500 * kMs;
  Writes({{GetParam().select, 1}, {19, 1}, {19, 0}});
  now = 600 * kMs;
  EXPECT_THAT(Encoder(), ElementsAre(10, 0, 0, 0x80));
  EXPECT_EQ(Position(1), 60);
  Write(18, 0xFF);
  now = 2000 * kMs;
  EXPECT_EQ(Position(1), 60);
  EXPECT_EQ(Position(0), 100);
}

TEST_P(MotorCards, SelectBeyondTheLastChannelReachesNone) {
  Move(GetParam().channels, 10, 1, 0x00);
  EXPECT_THAT(Encoder(), ElementsAre(0xFF, 0xFF, 0xFF, 0xFF));
  EXPECT_EQ(Read(24), 0);
  for (int channel = 0; channel < GetParam().channels; ++channel) EXPECT_FALSE(Channel(channel).Busy(now));
  Move(GetParam().channels - 1, 10, 1, 0x00);
  EXPECT_TRUE(Channel(GetParam().channels - 1).Busy(now));
}

TEST_P(MotorCards, StartDuringAMoveBeginsTheNewOneAndRegistersCountFromTheNextStart) {
  Move(0, 100, 1, 0x00);
  now = 300 * kMs;
  Writes({{9, 50}, {8, 0x80}, {12, 2}});
  EXPECT_EQ(Position(0), 30);
  now = 400 * kMs;
  EXPECT_EQ(Position(0), 40);
  Move(0, 10, 1, 0x80);
  now = 450 * kMs;
  EXPECT_EQ(Position(0), 35);
  now = 500 * kMs;
  EXPECT_EQ(Read(24), 0);
  EXPECT_EQ(Position(0), 30);
  EXPECT_EQ(MotorChannel(card, 0)->moves, 2U);
}

TEST_P(MotorCards, CountStopEndsTheMoveWithThePulseThatReachesIt) {
  Move(0, 1000, 1, 0x08, 30);
  EXPECT_EQ(Channel(0).MoveEnd(), 300 * kMs);
  EXPECT_EQ(Channel(0).ReachTime(31), std::nullopt);
  now = 1000 * kMs;
  EXPECT_EQ(Read(24), 0);
  EXPECT_EQ(Position(0), 30);
  // On the way back the magnitude falls first and is reached again on the other side.
  Move(0, 1000, 1, 0x88, 30);
  EXPECT_EQ(Channel(0).MoveEnd(), 1600 * kMs);
  now = 5000 * kMs;
  EXPECT_EQ(Position(0), -30);
  // Further out it ends with its first pulse.
  Move(0, 1000, 1, 0x88, 30);
  now = 9000 * kMs;
  EXPECT_EQ(Position(0), -31);
  Move(0, 1, 1, 0x80);
  now = 9100 * kMs;
  Move(0, 1000, 1, 0x08, 30);
  now = 9500 * kMs;
  EXPECT_EQ(Position(0), -31);
  // Without its bit the stop count does not matter.
  Move(0, 100, 1, 0x80, 30);
  now = 11000 * kMs;
  EXPECT_EQ(Position(0), -131);
}

TEST_P(MotorCards, ExternalStopEndsTheMoveAtItsOwnTime) {
  Move(0, 100, 1, 0x44);
  SetMotorStop(card, 0, true, 345 * kMs);
  now = 2000 * kMs;
  EXPECT_EQ(Read(24), 0);
  EXPECT_EQ(Position(0), 34);
  // The stop is still there: no start but by force.
  Move(0, 100, 1, 0x44);
  EXPECT_EQ(Read(24), 0);
  Move(0, 100, 1, 0x64);
  EXPECT_EQ(Read(24), 1);
  now = 4000 * kMs;
  EXPECT_EQ(Position(0), 134);
  // The other sense: an input that is on lets it run, and stops it when it goes off.
  Move(0, 100, 1, 0x04);
  EXPECT_EQ(Read(24), 1);
  SetMotorStop(card, 0, false, 4100 * kMs);
  now = 9000 * kMs;
  EXPECT_EQ(Read(24), 0);
  EXPECT_EQ(Position(0), 144);
}

TEST_P(MotorCards, BlockedMotorTakesItsTimeAndStandsStill) {
  Move(0, 100, 1, 0x08, 50);
  Channel(0).SetBlocked(true, 200 * kMs);
  EXPECT_EQ(Channel(0).MoveEnd(), 1000 * kMs);
  now = 400 * kMs;
  EXPECT_EQ(Position(0), 20);
  EXPECT_EQ(Read(24), 1);
  Channel(0).SetBlocked(false, now);
  EXPECT_EQ(Channel(0).MoveEnd(), 700 * kMs);
  now = 2000 * kMs;
  EXPECT_THAT(Encoder(), ElementsAre(50, 0, 0, 0x80));
}

TEST_P(MotorCards, AHardStopTakesTheStepsAndLeavesTheMoveItsPulses) {
  MotorChannel(card, 0)->hardStopHigh = 50;
  MotorChannel(card, 0)->hardStopLow = -10;
  Move(0, 80, 1, 0x00);
  EXPECT_EQ(Channel(0).HitTime(), 510 * kMs);
  EXPECT_EQ(Channel(0).ReachTime(50), 500 * kMs);
  EXPECT_EQ(Channel(0).ReachTime(51), std::nullopt);
  now = 510 * kMs - 1;
  EXPECT_FALSE(Channel(0).HasHitStop(now));
  now = 510 * kMs;
  EXPECT_TRUE(Channel(0).HasHitStop(now));
  now = 700 * kMs;
  EXPECT_EQ(Channel(0).LostAt(now), 20);
  // What is settled on the way changes nothing.
  Channel(0).SetBlocked(false, now);
  EXPECT_EQ(Channel(0).HitTime(), std::nullopt);
  EXPECT_EQ(Channel(0).MoveEnd(), 800 * kMs);
  now = 900 * kMs;
  EXPECT_EQ(Channel(0).PulsesAt(now), 80);
  EXPECT_EQ(Position(0), 50);
  EXPECT_THAT(Encoder(), ElementsAre(50, 0, 0, 0x80));
  EXPECT_EQ(Channel(0).LostAt(now), 30);
  // Away from it the first pulse moves; the count is never reached where the way ends before it.
  Move(0, 70, 1, 0x88, 65);
  EXPECT_FALSE(Channel(0).HasHitStop(now));
  EXPECT_EQ(Channel(0).ReachTime(49), 910 * kMs);
  EXPECT_EQ(Channel(0).HitTime(), 1510 * kMs);
  EXPECT_EQ(Channel(0).MoveEnd(), 1600 * kMs);
  // A move that ends at the stop has lost nothing; the next one that way loses all from its first pulse on.
  now = 2000 * kMs;
  EXPECT_EQ(Position(0), -10);
  EXPECT_EQ(Channel(0).LostAt(now), 40);
  Move(0, 60, 1, 0x00);
  EXPECT_EQ(Channel(0).HitTime(), std::nullopt);
  now = 3000 * kMs;
  EXPECT_EQ(Position(0), 50);
  Move(0, 3, 1, 0x00);
  EXPECT_EQ(Channel(0).HitTime(), 3010 * kMs);
  // With every 4th step lost on the way it comes later; a blocked motor does not come there at all.
  now = 4000 * kMs;
  Channel(0).SetLoseEvery(4, now);
  Move(0, 100, 1, 0x80);
  EXPECT_EQ(Channel(0).HitTime(), 4810 * kMs);
  Channel(0).SetBlocked(true, 4400 * kMs);
  EXPECT_EQ(Channel(0).HitTime(), std::nullopt);
}

TEST_P(MotorCards, LosingStepsMissesEveryNthPulse) {
  Channel(0).SetLoseEvery(4, 0);
  Move(0, 100, 1, 0x00);
  EXPECT_EQ(Channel(0).ReachTime(3), 30 * kMs);
  EXPECT_EQ(Channel(0).ReachTime(4), 50 * kMs);
  EXPECT_EQ(Channel(0).ReachTime(75), 990 * kMs);
  EXPECT_EQ(Channel(0).ReachTime(76), std::nullopt);
  now = 40 * kMs;
  EXPECT_EQ(Position(0), 3);
  now = 2000 * kMs;
  EXPECT_EQ(Position(0), 75);
  Channel(0).SetLoseEvery(1, now);
  Move(0, 100, 1, 0x00);
  now = 9000 * kMs;
  EXPECT_EQ(Position(0), 75);
}

TEST_P(MotorCards, LongMovesKeepTheirPulses) {
  card.kind == CardKind::Stepper ? card.stepper.pulsesPerUnit = 1000000 : card.servo.pulsesPerUnit = 1000000;
  Writes({{GetParam().select, 0}, {8, 0x80}, {9, 255}, {12, 0xFF}, {13, 0xFF}, {14, 0xFF}, {15, 0xFF}});
  Write(24, 1);
  EXPECT_EQ(Channel(0).MoveEnd(), 8421504499);
  now = 400LL * 24 * 3600 * 1000 * kMs;
  EXPECT_EQ(Position(0), -2147483647);
  Move(0, 2, 1, 0x80);
  now += 1000 * kMs;
  EXPECT_THAT(Encoder(), ElementsAre(0xFF, 0xFF, 0xFF, 0xFF));
}

INSTANTIATE_TEST_SUITE_P(Kinds, MotorCards,
                         testing::Values(MotorCard{CardKind::Stepper, 0x81, 7, 8},
                                         MotorCard{CardKind::Servo, 0x84, 5, 4}),
                         [](const auto& card) { return card.param.type == 0x81 ? "Stepper" : "Servo"; });

TEST(StepperCard, BusyBitTellsOfTheSelectedChannelAndStopInputsAreOnePerChannel) {
  Bench stepper(CardKind::Stepper);
  // The bits of the stop channel are not there: the channel's own stop input counts.
  SetMotorStop(stepper.card, 3, true, 0);
  SetMotorStop(stepper.card, 8, true, 0);
  stepper.Writes({{7, 2}, {8, 0x47}, {9, 1}, {12, 20}, {24, 1}});
  EXPECT_EQ(stepper.Read(24), 1);
  stepper.Writes({{7, 3}, {8, 0x47}, {9, 1}, {12, 20}, {24, 1}});
  EXPECT_EQ(stepper.Read(24), 0);
  stepper.Write(7, 2);
  EXPECT_EQ(stepper.Read(24), 1);
  stepper.Writes({{10, 0x34}, {11, 0x12}, {16, 0x78}, {17, 0x56}});
  EXPECT_EQ(stepper.card.stepper.channels[2].startSteps, 0x1234);
  EXPECT_EQ(stepper.card.stepper.channels[2].compensation, 0x5678);
  stepper.now = 100 * kMs;
  EXPECT_EQ(stepper.Read(24), 0);
}

TEST(ServoCard, BusyHasABitPerChannelAndAnyChannelUsesAnyStopInput) {
  Bench servo(CardKind::Servo);
  for (int channel : {1, 3}) servo.Writes({{5, channel}, {8, 0x46}, {9, 1}, {12, 20}, {24, 1}});
  servo.Writes({{5, 2}, {8, 0x45}, {9, 1}, {12, 40}, {24, 1}});
  EXPECT_EQ(servo.Read(24), 0x0E);
  servo.Write(5, 7);
  EXPECT_EQ(servo.Read(24), 0x0E);
  SetMotorStop(servo.card, 2, true, 50 * kMs);
  SetMotorStop(servo.card, 4, true, 50 * kMs);
  servo.now = 50 * kMs;
  EXPECT_EQ(servo.Read(24), 0x04);
  EXPECT_EQ(PulseChannel(servo.card.servo.channels[3]).PositionAt(servo.now), 5);
}

class CylinderBench : public testing::Test, protected Bench {
 protected:
  CylinderBench() : Bench(CardKind::Cylinder) {}
  void Command(int channel, int command) { Writes({{5, channel}, {6, command}}); }
  int StatusAt(Nanos at) {
    now = at;
    return Read(6);
  }
  CylinderCard Model() { return CylinderCard(card.cylinder); }
};

TEST_F(CylinderBench, RegistersReadAsTheMapSays) {
  EXPECT_THAT(ReadAll(0, 9), ElementsAre(0xFF, 0xFF, 0xFF, 1, 0x82, 0, 0x10, 0xFF, 0xFF, 0xFF));
  Write(7, 0x3F);
  EXPECT_EQ(card.cylinder.delay, 0x3F);
  EXPECT_EQ(Read(7), 0xFF);
  Command(3, 0x35);
  EXPECT_EQ(Read(6), 0xFF);
  EXPECT_EQ(Read(5), 0);
}

TEST_F(CylinderBench, MoveIsTakenLetGoAndTravelsByTheWay) {
  Command(1, 0x33);
  EXPECT_EQ(Read(6), 0x60);
  EXPECT_EQ(Read(5), 1);
  EXPECT_EQ(StatusAt(1000), 0x61);
  EXPECT_EQ(Read(5), 1);
  now = 2000;
  EXPECT_EQ(Read(5), 0);
  EXPECT_EQ(Model().NextEvent(1, now), 300 * kMs);
  EXPECT_EQ(Model().PlaceAt(1, 150 * kMs), 1500);
  EXPECT_EQ(StatusAt(300 * kMs - 1), 0x61);
  EXPECT_EQ(Model().StandsAt(1, now), -1);
  EXPECT_EQ(StatusAt(300 * kMs), 0x10);
  EXPECT_EQ(Model().StandsAt(1, now), 3);
  EXPECT_EQ(Model().NextEvent(1, now), std::nullopt);
  EXPECT_EQ(Model().StandsAt(0, now), 0);
  // To where it stands: a millisecond.
  Command(1, 0x33);
  EXPECT_EQ(StatusAt(301 * kMs - 1), 0x61);
  EXPECT_EQ(StatusAt(301 * kMs), 0x10);
}

TEST_F(CylinderBench, ANewMoveTurnsItOnTheWayAndOtherBytesAreNotTaken) {
  Command(0, 0x34);
  now = 150 * kMs;
  Command(0, 0x31);
  for (int byte : {0x00, 0x11, 0x2F, 0x40, 0xFF}) Command(0, byte);
  EXPECT_EQ(StatusAt(200 * kMs - 1), 0x61);
  EXPECT_EQ(StatusAt(200 * kMs), 0x10);
  EXPECT_EQ(Model().StandsAt(0, now), 1);
}

TEST_F(CylinderBench, SetupEndsAtPositionZeroAndResetStopsOnTheWay) {
  Command(2, 0x3F);
  now = 450 * kMs;
  Command(2, 0x10);
  EXPECT_EQ(StatusAt(450 * kMs + 1000), 0x29);
  EXPECT_EQ(StatusAt(500 * kMs), 0x20);
  EXPECT_EQ(Model().PlaceAt(2, now), 4500);
  EXPECT_EQ(Model().StandsAt(2, now), -1);
  Command(2, 0x20);
  EXPECT_EQ(StatusAt(1000 * kMs - 1), 0x61);
  EXPECT_EQ(StatusAt(1000 * kMs), 0x10);
  EXPECT_EQ(Model().StandsAt(2, now), 0);
  // A reset at rest leaves it in position; a move meanwhile has no effect.
  Command(2, 0x10);
  Command(2, 0x31);
  EXPECT_EQ(Model().StandsAt(2, now), 0);
  EXPECT_EQ(StatusAt(1050 * kMs), 0x10);
}

TEST_F(CylinderBench, AlarmStopsItAndOnlyAResetClearsIt) {
  Command(0, 0x34);
  Model().RaiseAlarm(0, 2, 200 * kMs);
  EXPECT_EQ(StatusAt(300 * kMs), 0x80);
  EXPECT_EQ(Model().StandsAt(0, now), 2);
  Command(0, 0x35);
  EXPECT_EQ(StatusAt(300 * kMs + 1000), 0x81);
  EXPECT_EQ(StatusAt(301 * kMs), 0x80);
  Nanos at = 400 * kMs;
  for (int after : {0x80, 0x80, 0x10}) {
    now = at;
    Command(0, 0x10);
    EXPECT_EQ(Read(6), 0x28);
    at += 50 * kMs;
    EXPECT_EQ(StatusAt(at), after);
  }
  EXPECT_EQ(StatusAt(900 * kMs), 0x10);
}

TEST_F(CylinderBench, AJammedOneStandsWithoutAnAlarmAndGoesOnWhenItIsFree) {
  Command(0, 0x34);
  Model().SetJammed(0, true, 150 * kMs);
  EXPECT_EQ(StatusAt(150 * kMs), 0x21);
  EXPECT_EQ(StatusAt(900 * kMs), 0x21);
  EXPECT_EQ(Model().PlaceAt(0, now), 1500);
  EXPECT_EQ(Model().NextEvent(0, now), std::nullopt);
  EXPECT_EQ(Model().Target(0), 4);
  // A command is taken and let go as ever, and counts when it is free again.
  Command(0, 0x33);
  EXPECT_EQ(Read(5), 1);
  EXPECT_EQ(StatusAt(900 * kMs + 2000), 0x21);
  EXPECT_EQ(Read(5), 0);
  EXPECT_EQ(Model().Target(0), 3);
  Model().SetJammed(0, false, 1000 * kMs);
  EXPECT_EQ(StatusAt(1150 * kMs - 1), 0x61);
  EXPECT_EQ(StatusAt(1150 * kMs), 0x10);
  EXPECT_EQ(Model().StandsAt(0, now), 3);
  // Where it is sent it stands already: in position. Kept from it: not, at a position as between two.
  Model().SetJammed(0, true, now);
  EXPECT_EQ(Read(6), 0x10);
  Command(0, 0x33);
  EXPECT_EQ(StatusAt(1200 * kMs), 0x10);
  Command(0, 0x20);
  EXPECT_EQ(StatusAt(1300 * kMs), 0x21);
  EXPECT_EQ(Model().StandsAt(0, now), 3);
  // A reset ends what it was sent for; an alarm likewise.
  Command(0, 0x10);
  EXPECT_EQ(StatusAt(1350 * kMs), 0x10);
  Model().SetJammed(0, false, now);
  EXPECT_EQ(StatusAt(1400 * kMs), 0x10);
  Command(0, 0x35);
  Model().SetJammed(0, true, 1450 * kMs);
  Model().RaiseAlarm(0, 0, 1460 * kMs);
  Model().SetJammed(0, false, 1470 * kMs);
  EXPECT_EQ(StatusAt(3000 * kMs), 0x80);
  EXPECT_EQ(Model().PlaceAt(0, now), 3500);
}

TEST_F(CylinderBench, LastingAlarmComesBackUntilItsCauseIsGone) {
  Model().RaiseAlarm(1, 255, 0);
  for (int reset = 0; reset < 300; ++reset) {
    Command(1, 0x10);
    ASSERT_EQ(StatusAt(now + 50 * kMs), 0x80);
  }
  Model().EndAlarmCause(1, now);
  EXPECT_EQ(Read(6), 0x80);
  Command(1, 0x10);
  EXPECT_EQ(StatusAt(now + 50 * kMs), 0x10);
}

TEST_F(CylinderBench, CommandThatIsNotAcknowledgedIsHeldAndLost) {
  Model().SetNoAcknowledge(0, true, 0);
  Command(0, 0x35);
  EXPECT_EQ(StatusAt(5000 * kMs), 0x10);
  EXPECT_EQ(Read(5), 1);
  Model().SetNoAcknowledge(0, false, now);
  EXPECT_EQ(Read(5), 0);
  EXPECT_EQ(StatusAt(9000 * kMs), 0x10);
  EXPECT_EQ(Model().StandsAt(0, now), 0);
}

}  // namespace
}  // namespace rack
