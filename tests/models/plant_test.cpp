// Chains of links, each edge at its own time to the nanosecond.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "plant/plant.h"

namespace rack {
namespace {

using testing::ElementsAre;

constexpr Nanos kMs = 1000000;

SignalRef In(int entry, int channel) {
  return {static_cast<std::uint8_t>(entry), SignalKind::Input, static_cast<std::uint8_t>(channel), 0};
}
SignalRef Out(int entry, int channel) {
  return {static_cast<std::uint8_t>(entry), SignalKind::Output, static_cast<std::uint8_t>(channel), 0};
}

// Entry 0 CPU, 1 I/O, 2 stepper, 3 servo, 4 cylinder card; the others empty.
class PlantTest : public testing::Test, protected EventSink {
 protected:
  PlantTest() {
    const CardKind kinds[] = {CardKind::Cpu, CardKind::Io, CardKind::Stepper, CardKind::Servo,
                              CardKind::Cylinder};
    for (std::size_t entry = 0; entry < 5; ++entry) {
      PowerOn(cards[entry], kinds[entry]);
      view.entries[entry] = &cards[entry];
    }
  }
  void InputEdge(SignalRef input, bool level, Nanos at) override {
    Note(std::to_string(input.entry) + "." + std::to_string(input.channel) + (level ? " on" : " off"), at);
  }
  void Counted(int link, std::uint32_t count, Nanos at) override {
    Note("count" + std::to_string(link) + "=" + std::to_string(count), at);
  }
  void Note(const std::string& what, Nanos at) {
    events.push_back(what + " @" + std::to_string(at / kMs) + (at % kMs != 0 ? "+" : ""));
  }
  PlantLink& Link(Condition when, Effect then) {
    PlantLink& link = state.links[state.linkCount++];
    link.when = when;
    link.then = then;
    return link;
  }
  PlantLink& Switch(SignalRef target, int entry, int channel, std::int64_t from, std::int64_t to) {
    PlantLink& link = Link(Condition::MotorWithin, Effect::Follow);
    link.target = target;
    link.entry = static_cast<std::uint8_t>(entry);
    link.channel = static_cast<std::uint8_t>(channel);
    link.from = from;
    link.to = to;
    return link;
  }
  PlantLink& FromSignal(Effect then, SignalRef source, SignalRef target = {}) {
    PlantLink& link = Link(Condition::Signal, then);
    link.source = source;
    link.target = target;
    return link;
  }
  PlantLink& OfCylinder(Condition when, Effect then, SignalRef target, int channel, int position = 0) {
    PlantLink& link = Link(when, then);
    link.target = target;
    link.entry = 4;
    link.channel = static_cast<std::uint8_t>(channel);
    link.from = position;
    return link;
  }
  void Write(int entry, int port, int value, Nanos at) {
    machine.Advance(at);
    WriteCard(cards[entry], static_cast<std::uint8_t>(port), static_cast<std::uint8_t>(value), at);
    machine.Advance(at);
  }
  // A move of a motor's channel 0 at 100 steps per second and unit of frequency.
  void Move(int entry, int steps, int frequency, int control, Nanos at) {
    Write(entry, entry == 2 ? 7 : 5, 0, at);
    Write(entry, 8, control, at);
    Write(entry, 9, frequency, at);
    Write(entry, 13, steps >> 7 & 0xFF, at);
    Write(entry, 12, 2 * steps & 0xFF, at);
    Write(entry, 24, 1, at);
  }
  std::vector<std::string> Take() { return std::exchange(events, {}); }

  CardState cards[5]{};
  CardsByEntry view{};
  PlantState state{};
  std::vector<std::string> events;
  Plant machine{state, view, *this};
};

TEST_F(PlantTest, AxisSwitchesGoOnAndOffAsThePositionPasses) {
  Switch(In(1, 0), 2, 0, INT64_MIN, 0);
  Switch(In(1, 1), 2, 0, 100, 150);
  Switch(In(0, 15), 2, 0, 200, INT64_MAX);
  machine.PowerOn();
  EXPECT_THAT(Take(), ElementsAre("1.0 on @0"));
  Move(2, 300, 1, 0x00, 10 * kMs);
  EXPECT_EQ(machine.NextEvent(), 20 * kMs);
  EXPECT_TRUE(machine.Advance(10000 * kMs));
  EXPECT_THAT(Take(), ElementsAre("1.0 off @20", "1.1 on @1010", "1.1 off @1520", "0.15 on @2010"));
  EXPECT_EQ(machine.NextEvent(), std::nullopt);
  Move(2, 201, 10, 0x80, 10000 * kMs);
  machine.Advance(20000 * kMs);
  EXPECT_THAT(Take(), ElementsAre("0.15 off @10101", "1.1 on @10150", "1.1 off @10201"));
  EXPECT_FALSE(machine.InputLevel(In(1, 0)));
}

TEST_F(PlantTest, EventsOfOneStretchComeInOrderOfTimeHoweverLongNobodyLooked) {
  Switch(In(1, 0), 2, 0, 100, 1000);
  Switch(In(1, 1), 3, 0, 30, 50);
  machine.PowerOn();
  Move(2, 200, 1, 0x00, 0);
  Move(3, 200, 1, 0x00, 0);
  machine.Advance(3600000 * kMs);
  EXPECT_THAT(Take(), ElementsAre("1.1 on @300", "1.1 off @510", "1.0 on @1000"));
}

TEST_F(PlantTest, ValveSensorFollowsAfterItsDelayAndIgnoresAShortPulse) {
  PlantLink& valve = FromSignal(Effect::Follow, Out(1, 17), In(1, 4));
  valve.onDelay = 100 * kMs;
  valve.offDelay = 50 * kMs;
  PlantLink& other = FromSignal(Effect::Follow, Out(1, 17), In(1, 5));
  other.inverted = 1;
  machine.PowerOn();
  EXPECT_THAT(Take(), ElementsAre("1.5 on @0"));
  Write(1, 7, 0x02, 10 * kMs);
  Write(1, 7, 0x00, 109 * kMs);
  Write(1, 7, 0x02, 500 * kMs);
  EXPECT_EQ(machine.NextEvent(), 600 * kMs);
  Write(1, 7, 0x00, 700 * kMs);
  machine.Advance(749 * kMs);
  EXPECT_TRUE(machine.InputLevel(In(1, 4)));
  machine.Advance(800 * kMs);
  EXPECT_THAT(Take(), ElementsAre("1.5 off @10", "1.5 on @109", "1.5 off @500", "1.4 on @600", "1.5 on @700",
                                  "1.4 off @750"));
}

TEST_F(PlantTest, SwitchStopsTheMotorThatRunsOntoItAtThatVeryStep) {
  Switch(In(1, 0), 2, 0, 40, 60);
  PlantLink& stop = FromSignal(Effect::Stop, In(1, 0));
  stop.stopEntry = 2;
  PlantLink& byHand = FromSignal(Effect::Stop, Out(0, 3));
  byHand.stopEntry = 3;
  byHand.stopChannel = 2;
  machine.PowerOn();
  Move(2, 1000, 1, 0x44, 0);
  Move(3, 1000, 1, 0x46, 0);
  machine.Advance(1000 * kMs);
  EXPECT_EQ(PulseChannel(cards[2].stepper.channels[0]).PositionAt(1000 * kMs), 40);
  EXPECT_FALSE(PulseChannel(cards[2].stepper.channels[0]).Busy(1000 * kMs));
  Write(0, 5, 0x08, 1005 * kMs);
  EXPECT_EQ(PulseChannel(cards[3].servo.channels[0]).PositionAt(9000 * kMs), 100);
  EXPECT_THAT(Take(), ElementsAre("1.0 on @400"));
}

TEST_F(PlantTest, CylinderSwitchesAndAlarmStandOnInputs) {
  OfCylinder(Condition::CylinderStands, Effect::Follow, In(1, 0), 1, 0);
  OfCylinder(Condition::CylinderStands, Effect::Follow, In(1, 1), 1, 2);
  OfCylinder(Condition::CylinderAlarm, Effect::Follow, In(1, 2), 1);
  machine.PowerOn();
  Write(4, 5, 1, 5 * kMs);
  Write(4, 6, 0x32, 5 * kMs);
  machine.Advance(1000 * kMs);
  EXPECT_THAT(Take(), ElementsAre("1.0 on @0", "1.0 off @5", "1.1 on @205"));
  CylinderCard(cards[4].cylinder).RaiseAlarm(1, 1, 1000 * kMs);
  machine.Advance(1000 * kMs);
  for (Nanos at : {1100 * kMs, 1200 * kMs}) Write(4, 6, 0x10, at);
  machine.Advance(2000 * kMs);
  EXPECT_THAT(Take(), ElementsAre("1.2 on @1000", "1.2 off @1100", "1.2 on @1150", "1.2 off @1200"));
}

TEST_F(PlantTest, PartArrivesAfterTheMoveIsTakenAwayByTheOutputAndIsCounted) {
  PlantLink& part = OfCylinder(Condition::CylinderStands, Effect::Arrive, In(1, 7), 0, 3);
  part.onDelay = 20 * kMs;
  part.offDelay = 10 * kMs;
  part.removal = Out(1, 16);
  FromSignal(Effect::Count, In(1, 7)).goal = 2;
  PlantLink& atStart = OfCylinder(Condition::CylinderStands, Effect::Arrive, In(1, 8), 0, 0);
  atStart.startsOn = 1;
  OfCylinder(Condition::CylinderStands, Effect::Arrive, In(1, 9), 0, 0);
  machine.PowerOn();
  EXPECT_THAT(Take(), ElementsAre("1.8 on @0"));
  for (Nanos at : {0 * kMs, 2000 * kMs}) {
    Write(4, 6, 0x33, at);
    Write(4, 6, 0x30, at + 1000 * kMs);
    Write(1, 7, 0x01, at + 1500 * kMs);
    Write(1, 7, 0x00, at + 1600 * kMs);
  }
  EXPECT_THAT(Take(),
              ElementsAre("1.8 off @0", "1.7 on @320", "count1=1 @320", "1.8 on @1300", "1.9 on @1300",
                          "1.7 off @1510", "1.8 off @2000", "1.9 off @2000", "1.7 on @2320", "count1=2 @2320",
                          "1.8 on @3300", "1.9 on @3300", "1.7 off @3510"));
  EXPECT_EQ(state.states[1].count, 2U);
}

TEST_F(PlantTest, ArrivalUnderWayKeepsItsTimeAndOnlyTheEdgeOfTheRemovalCounts) {
  PlantLink& part = FromSignal(Effect::Arrive, Out(1, 0), In(1, 7));
  part.onDelay = 100 * kMs;
  part.removal = Out(1, 1);
  machine.PowerOn();
  Write(1, 5, 0x01, 0);
  Write(1, 5, 0x00, 20 * kMs);
  Write(1, 5, 0x01, 50 * kMs);
  Write(1, 5, 0x03, 200 * kMs);
  // The removal stays on while the next one comes, and takes it only when it goes on again.
  Write(1, 5, 0x02, 300 * kMs);
  Write(1, 5, 0x03, 400 * kMs);
  Write(1, 5, 0x01, 600 * kMs);
  Write(1, 5, 0x03, 700 * kMs);
  // A removal ahead of the part takes nothing.
  Write(1, 5, 0x00, 800 * kMs);
  Write(1, 5, 0x01, 810 * kMs);
  Write(1, 5, 0x03, 850 * kMs);
  machine.Advance(1000 * kMs);
  EXPECT_THAT(Take(),
              ElementsAre("1.7 on @100", "1.7 off @200", "1.7 on @500", "1.7 off @700", "1.7 on @910"));
}

TEST_F(PlantTest, LinksActThroughEachOtherWhateverTheirOrder) {
  FromSignal(Effect::Count, In(1, 2));
  FromSignal(Effect::Follow, In(1, 1), In(1, 2));
  FromSignal(Effect::Follow, In(1, 0), In(1, 1));
  FromSignal(Effect::Follow, Out(0, 0), In(1, 0)).inverted = 1;
  machine.PowerOn();
  EXPECT_THAT(Take(), ElementsAre("1.0 on @0", "1.1 on @0", "1.2 on @0"));
  Write(0, 5, 1, 1 * kMs);
  Write(0, 5, 0, 2 * kMs);
  EXPECT_THAT(Take(), ElementsAre("1.0 off @1", "1.1 off @1", "1.2 off @1", "1.0 on @2", "1.1 on @2",
                                  "1.2 on @2", "count0=1 @2"));
}

TEST_F(PlantTest, InputOfSeveralSourcesIsOnWhileOneWantsIt) {
  FromSignal(Effect::Follow, Out(0, 0), In(1, 0));
  FromSignal(Effect::Follow, Out(0, 1), In(1, 0));
  machine.PowerOn();
  Write(0, 5, 0x01, 1 * kMs);
  machine.SetInput(In(1, 0), true, 2 * kMs);
  Write(0, 5, 0x02, 3 * kMs);
  Write(0, 5, 0x00, 4 * kMs);
  machine.SetInput(In(1, 0), false, 5 * kMs);
  EXPECT_THAT(Take(), ElementsAre("1.0 on @1", "1.0 off @5"));
}

TEST_F(PlantTest, LinksThatSetEachOtherOffForEverAreBoundedAndGoOnFromWhereTheyWere) {
  PlantLink& blinker = FromSignal(Effect::Follow, In(1, 0), In(1, 0));
  blinker.inverted = 1;
  blinker.onDelay = blinker.offDelay = 1 * kMs;
  machine.PowerOn();
  Take();
  EXPECT_FALSE(machine.Advance(15000 * kMs));
  EXPECT_EQ(state.time, 10000 * kMs);
  EXPECT_EQ(Take().size(), 10000U);
  EXPECT_TRUE(machine.Advance(15000 * kMs));
  EXPECT_EQ(Take().back(), "1.0 on @15000");
  blinker.onDelay = blinker.offDelay = 0;
  EXPECT_TRUE(machine.Advance(15001 * kMs));
}

TEST_F(PlantTest, LinksToWhatIsNotThereDoNothing) {
  Switch(In(1, 0), 9, 0, -10, 10);
  Switch(In(1, 0), 2, 8, -10, 10);
  Switch(In(12, 0), 2, 0, -10, 10);
  Switch(In(1, 16), 2, 0, -10, 10);
  OfCylinder(Condition::CylinderStands, Effect::Follow, In(1, 0), 3, -1);
  OfCylinder(Condition::CylinderAlarm, Effect::Follow, In(1, 0), 0).entry = 1;
  FromSignal(Effect::Follow, Out(11, 0), In(1, 0));
  PlantLink& stop = FromSignal(Effect::Stop, Out(0, 0));
  stop.stopEntry = 200;
  machine.PowerOn();
  Write(0, 5, 1, 1 * kMs);
  Move(2, 20, 1, 0x00, 1 * kMs);
  EXPECT_TRUE(machine.Advance(1000 * kMs));
  EXPECT_THAT(Take(), ElementsAre());
}

}  // namespace
}  // namespace rack
