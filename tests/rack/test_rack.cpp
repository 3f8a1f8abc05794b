#include "rack_fixture.h"

using rack::FaultKind;
using rack::Request;
using rack::RequestKind;
using rack::RequestResult;

namespace {

constexpr rack::Nanos kMs = 1000000;

constexpr char kCell[] = R"(
[rack]
task_count = 3
function_port = 20
on_at_start = ["guard"]
[slots]
3 = "io"
7 = { card = "stepper", pulses_per_unit = 10 }
9 = "cylinder"
[inputs]
guard = "0.1"
clamped = "1.9"
[outputs]
clamp = "1.16"
[[valve]]
output = "clamp"
sensor = "clamped"
on_delay = "30 ms"
)";

Request Fault(FaultKind kind, std::uint8_t slot, std::uint8_t channel, int value, rack::Nanos duration) {
  return {RequestKind::BeginFault, kind, slot, channel, 0, value, 0, duration};
}

Request Keys(RequestKind kind, int value, rack::Nanos duration = 0) {
  return {kind, FaultKind::None, 0, 0, 0, value, 0, duration};
}

Request Input(RequestKind kind, std::uint8_t slot, std::uint8_t channel, int level) {
  return {kind, FaultKind::None, slot, channel, 0, level, 0, 0};
}

TEST(RackTest, SlotSelectReachesOneCardAndEmptySlotsReadOpenBus) {
  TestRack cell(kCell);
  EXPECT_EQ(cell.Read(0, 1, 0), 0xA3);
  EXPECT_EQ(cell.Read(0, 8, 0), 3);
  EXPECT_EQ(cell.Read(0, 3, 0), 0x02);  // the guard is closed
  EXPECT_EQ(cell.Read(3, 4, 0), 0x83);
  EXPECT_EQ(cell.Read(7, 4, 0), 0x81);
  EXPECT_EQ(cell.Read(9, 4, 0), 0x82);
  EXPECT_EQ(cell.Read(4, 4, 0), 0xFF);
  EXPECT_EQ(cell.Read(13, 4, 0), 0xFF);
  cell.Write(200, 5, 1, 0);
  cell.Write(3, 5, 0x81, 0);
  EXPECT_EQ(cell.Read(3, 5, 0), 0x81);
  EXPECT_EQ(cell.Read(0, 5, 0), 0x00);
}

TEST(RackTest, EdgesStandAtTheirOwnTimeHoweverLateTheNextAccess) {
  TestRack cell(kCell);
  cell.Write(3, 7, 0x01, 5 * kMs);
  EXPECT_EQ(cell.Read(3, 9, 34 * kMs), 0x00);
  EXPECT_EQ(cell.Read(3, 9, 900 * kMs), 0x02);
  EXPECT_EQ(cell.Read(3, 9, 20 * kMs), 0x02);  // time does not run backwards
  EXPECT_EQ(cell.Events(), "0 input 0.1=1\n5 relay 3.16=1\n35 input 3.9=1\n");
}

TEST(RackTest, JournalFollowsAMotorToTheEndOfItsMove) {
  TestRack cell(kCell);
  cell.Write(7, 7, 2, 0);
  cell.Write(7, 9, 10, 0);   // 100 pulses per second
  cell.Write(7, 12, 10, 0);  // 5 steps
  cell.Write(7, 24, 1, 0);
  EXPECT_EQ(cell.Read(7, 24, 200 * kMs), 0);
  EXPECT_EQ(cell.Events(),
            "0 input 0.1=1\n0 move 7.2=1\n20 count 7.2=2\n40 count 7.2=4\n50 count 7.2=5\n50 pulses 7.2=5\n"
            "50 position 7.2=5\n50 move 7.2=0\n");
}

TEST(RackTest, TheJournalTellsOfAMotorAtItsHardStopOnceAMove) {
  TestRack cell(std::string(kCell) +
                "[[axis]]\nmotor = \"2.2\"\nstop_high = 3\nhigh = \"0.7\"\nhigh_at = 3\n");
  const auto start = [&](int steps, int control, rack::Nanos now) {
    cell.Write(7, 7, 2, now);
    cell.Write(7, 8, static_cast<std::uint8_t>(control), now);
    cell.Write(7, 9, 100, now);  // 1000 pulses per second
    cell.Write(7, 12, static_cast<std::uint8_t>(2 * steps), now);
    cell.Write(7, 24, 1, now);
  };
  start(6, 0x00, 0);
  cell.bus->AdvanceTo(10 * kMs);
  // The next move begins while the last one still pushes, and pushes too.
  start(5, 0x00, 10 * kMs);
  start(5, 0x00, 13 * kMs);
  cell.bus->AdvanceTo(30 * kMs);
  start(3, 0x80, 30 * kMs);
  cell.bus->AdvanceTo(60 * kMs);
  EXPECT_EQ(cell.Events(),
            "0 input 0.1=1\n0 move 7.2=1\n3 input 0.7=1\n4 stop 7.2=1\n6 stop 7.2=0\n6 count 7.2=3\n"
            "6 pulses 7.2=6\n6 position 7.2=3\n6 move 7.2=0\n10 move 7.2=1\n11 stop 7.2=1\n13 stop 7.2=0\n"
            "14 stop 7.2=1\n18 stop 7.2=0\n18 pulses 7.2=5\n18 position 7.2=3\n18 move 7.2=0\n"
            "30 move 7.2=1\n31 input 0.7=0\n33 count 7.2=0\n33 pulses 7.2=3\n33 position 7.2=0\n"
            "33 move 7.2=0\n");
}

TEST(RackTest, InputsSetByHandHoldAgainstTheMachineUntilReleased) {
  TestRack cell(kCell);
  EXPECT_EQ(cell.Ask(Input(RequestKind::SetInput, 0, 1, 0), kMs), RequestResult::Done);
  EXPECT_EQ(cell.Read(0, 3, kMs), 0x00);
  EXPECT_EQ(cell.Ask(Input(RequestKind::SetInput, 3, 9, 0), kMs), RequestResult::Done);
  cell.Write(3, 7, 0x01, 2 * kMs);
  EXPECT_EQ(cell.Read(3, 9, 100 * kMs), 0x00);
  EXPECT_EQ(cell.Ask(Input(RequestKind::ReleaseInput, 3, 9, 0), 101 * kMs), RequestResult::Done);
  EXPECT_EQ(cell.Read(3, 9, 101 * kMs), 0x02);
  EXPECT_EQ(cell.Ask(Input(RequestKind::SetInput, 7, 0, 1), 101 * kMs), RequestResult::NoSuchCard);
  EXPECT_EQ(cell.Ask(Input(RequestKind::SetInput, 3, 16, 1), 101 * kMs), RequestResult::NoSuchChannel);
  EXPECT_EQ(cell.Ask(Input(RequestKind::SetInput, 99, 0, 1), 101 * kMs), RequestResult::NoSuchCard);
}

TEST(RackTest, HeldKeyRepeatsAndIsTakenByTheClear) {
  TestRack cell(kCell);
  const Request press{RequestKind::PressKey, FaultKind::None, 0, 0, 0, 0x5A, 0, 650 * kMs};
  EXPECT_EQ(cell.Ask(press, 10 * kMs), RequestResult::Done);
  EXPECT_EQ(cell.state->live.keys.takenCount, 0U);
  EXPECT_EQ(cell.Read(0, 2, 50 * kMs), 0x5A);
  cell.Write(0, 1, 0, 60 * kMs);
  EXPECT_EQ(cell.state->live.keys.takenCount, 1U);
  EXPECT_EQ(cell.state->live.keys.takenRequest, cell.state->live.keys.pressRequest);
  EXPECT_EQ(cell.Read(0, 2, 500 * kMs), 0x00);
  EXPECT_EQ(cell.Read(0, 2, 2000 * kMs), 0x5A);
  EXPECT_EQ(cell.Events(), "0 input 0.1=1\n10 key 0.0=90\n60 taken 0.1=90\n510 key 0.1=90\n610 key 0.1=90\n");
}

TEST(RackTest, FunctionKeysStandInTheirRegisterWhileTheyAreHeld) {
  TestRack cell(kCell);
  const Request press{RequestKind::PressFunctionKeys, FaultKind::None, 0, 0, 0, 8, 0, 100 * kMs};
  EXPECT_EQ(cell.Ask(press, 0), RequestResult::Done);
  EXPECT_EQ(cell.Read(0, 20, 99 * kMs), 0x08);
  EXPECT_EQ(cell.Read(0, 20, 100 * kMs), 0x00);
  EXPECT_EQ(cell.Events(), "0 input 0.1=1\n0 function 0.0=8\n100 function 0.0=0\n");
  TestRack plain("");
  EXPECT_EQ(plain.Ask(press, 0), RequestResult::NoFunctionKeys);
}

TEST(RackTest, AKeyPressedUntilReleasedRepeatsUntilItsOwnRelease) {
  TestRack cell(kCell);
  const auto ask = [&](RequestKind kind, int value, rack::Nanos now, rack::Nanos duration = 0) {
    return cell.Ask(Keys(kind, value, duration), now);
  };
  EXPECT_EQ(ask(RequestKind::PressKey, 0x79, 0, -1), RequestResult::Done);
  EXPECT_EQ(ask(RequestKind::ReleaseKey, 0x5A, 550 * kMs),
            RequestResult::Done);  // another key: nothing happens
  EXPECT_EQ(ask(RequestKind::ReleaseKey, 0x79, 650 * kMs), RequestResult::Done);
  EXPECT_EQ(ask(RequestKind::PressKey, 0x79, 2000 * kMs, -1), RequestResult::Done);
  // The key that an operator presses meanwhile stays down for its time.
  EXPECT_EQ(ask(RequestKind::PressKey, 0x5A, 2100 * kMs, 550 * kMs), RequestResult::Done);
  EXPECT_EQ(ask(RequestKind::ReleaseKey, 0x79, 2200 * kMs), RequestResult::Done);
  cell.bus->AdvanceTo(9000 * kMs);
  EXPECT_EQ(ask(RequestKind::ReleaseKey, 0x5A, 9000 * kMs), RequestResult::Done);
  EXPECT_EQ(cell.Events(),
            "0 input 0.1=1\n0 key 0.0=121\n500 key 0.1=121\n600 key 0.1=121\n"
            "2000 key 0.0=121\n2100 key 0.0=90\n2600 key 0.1=90\n");
  EXPECT_EQ(ask(RequestKind::PressKey, 0x79, 9000 * kMs, -2), RequestResult::BadValue);
  EXPECT_EQ(ask(RequestKind::ReleaseKey, 0, 9000 * kMs), RequestResult::BadValue);
  EXPECT_EQ(ask(RequestKind::ReleaseKey, 0x100, 9000 * kMs), RequestResult::BadValue);
}

TEST(RackTest, ReleasedFunctionKeysLeaveTheOthersInTheRegister) {
  TestRack cell(kCell);
  const auto ask = [&](RequestKind kind, int bits, rack::Nanos now, rack::Nanos duration = 0) {
    return cell.Ask(Keys(kind, bits, duration), now);
  };
  EXPECT_EQ(ask(RequestKind::PressFunctionKeys, 0x0A, 0, -1), RequestResult::Done);
  EXPECT_EQ(cell.Read(0, 20, 60'000 * kMs), 0x0A);
  EXPECT_EQ(ask(RequestKind::ReleaseFunctionKeys, 0x04, 60'001 * kMs), RequestResult::Done);
  EXPECT_EQ(ask(RequestKind::ReleaseFunctionKeys, 0x0C, 60'002 * kMs), RequestResult::Done);
  EXPECT_EQ(cell.Read(0, 20, 60'003 * kMs), 0x02);
  EXPECT_EQ(ask(RequestKind::ReleaseFunctionKeys, 0x02, 60'004 * kMs), RequestResult::Done);
  EXPECT_EQ(cell.Read(0, 20, 60'005 * kMs), 0x00);
  EXPECT_EQ(cell.Events(), "0 input 0.1=1\n0 function 0.0=10\n60002 function 0.0=2\n60004 function 0.0=0\n");
  EXPECT_EQ(ask(RequestKind::ReleaseFunctionKeys, 0x10, 60'006 * kMs), RequestResult::BadValue);
  TestRack plain("");
  EXPECT_EQ(plain.Ask(Keys(RequestKind::ReleaseFunctionKeys, 0x02), 0), RequestResult::NoFunctionKeys);
}

TEST(RackTest, AProtestIsARecordBehindItsAccessAndTheCardKeepsTheLast) {
  TestRack rack("[slots]\n3 = \"io\"\n");
  rack.bus->WritePort(0, 3, kMs, {1, 1, 4});
  rack.bus->WritePort(10, 7, kMs, {1, 1, 4});
  rack.bus->ReadPort(11, 2 * kMs, {1, 1, 5});
  rack.Write(9, 5, 1, 3 * kMs);  // an empty slot says nothing
  EXPECT_EQ(rack.Ask({RequestKind::BeginFault, FaultKind::CardPulled, 3, 0, 0, 0, 0, 0}, 4 * kMs),
            RequestResult::Done);
  rack.Write(3, 10, 1, 5 * kMs);  // nor does one that is pulled
  EXPECT_EQ(rack.Events(), "1 protest 3.10=263\n2 protest 3.11=256\n4 fault 3.0=1\n");
  const rack::ProtestRecord& last = rack.state->live.protests[3];
  EXPECT_EQ(last.count, 2U);
  EXPECT_EQ(last.at, 2 * kMs);
  EXPECT_EQ(last.line, 5U);
  EXPECT_EQ(last.port, 11);
}

TEST(RackTest, FaultsOfTheBusEndAtTheirOwnTime) {
  TestRack cell(kCell);
  cell.Write(3, 5, 0xF0, 0);
  EXPECT_EQ(cell.Ask(Fault(FaultKind::CardPulled, 3, 0, 0, 50 * kMs), 0), RequestResult::Done);
  EXPECT_EQ(cell.Read(3, 5, 10 * kMs), 0xFF);
  cell.Write(3, 5, 0x0F, 20 * kMs);
  EXPECT_EQ(cell.Read(3, 5, 50 * kMs), 0xF0);
  EXPECT_EQ(cell.Ask(Fault(FaultKind::BusReadsFail, 0, 0, 0, 0), 60 * kMs), RequestResult::Done);
  EXPECT_EQ(cell.Read(0, 1, 60 * kMs), -1);
  EXPECT_EQ(cell.Ask({RequestKind::EndAllFaults, FaultKind::None, 0, 0, 0, 0, 0, 0}, 70 * kMs),
            RequestResult::Done);
  EXPECT_EQ(cell.Read(0, 1, 70 * kMs), 0xA3);
  EXPECT_EQ(cell.Events().substr(cell.Events().find("0 fault")),
            "0 fault 3.0=1\n50 cured 3.0=1\n60 fault 0.0=7\n60 failed 0.1=0\n70 cured 0.0=7\n");
}

TEST(RackTest, FaultsOfTheMachineReachInputsMotorsAndCylinders) {
  TestRack cell(kCell);
  EXPECT_EQ(cell.Ask(Fault(FaultKind::InputStuck, 0, 5, 1, 0), 0), RequestResult::Done);
  EXPECT_EQ(cell.Ask(Input(RequestKind::SetInput, 0, 5, 0), 0), RequestResult::Done);
  EXPECT_EQ(cell.Read(0, 3, 0), 0x22);
  EXPECT_EQ(cell.Ask(Fault(FaultKind::CylinderAlarm, 9, 1, 0, 0), 0), RequestResult::Done);
  cell.Write(9, 5, 1, 0);
  EXPECT_EQ(cell.Read(9, 6, kMs), 0x80);
  EXPECT_EQ(cell.Ask(Fault(FaultKind::CardSilent, 9, 0, 0, 0), kMs), RequestResult::Done);
  cell.Write(9, 6, 0x10, kMs);
  EXPECT_EQ(cell.Read(9, 5, 900 * kMs), 0x01);
  EXPECT_EQ(cell.Ask(Fault(FaultKind::MotorBlocked, 7, 0, 0, 0), 900 * kMs), RequestResult::Done);
  cell.Write(7, 7, 0, 900 * kMs);
  cell.Write(7, 9, 10, 900 * kMs);
  cell.Write(7, 12, 10, 900 * kMs);
  cell.Write(7, 24, 1, 900 * kMs);
  EXPECT_EQ(cell.Read(7, 24, 910 * kMs), 0x01);
  EXPECT_EQ(cell.Read(7, 20, 2000 * kMs), 0x00);
  EXPECT_EQ(cell.Read(7, 24, 2000 * kMs), 0x00);
}

TEST(RackTest, AJammedCylinderKeepsItsSwitchAndGoesOnWhenTheFaultEnds) {
  TestRack cell(std::string(kCell) +
                "[[cylinder]]\ncylinder = \"3.0\"\nswitches = { 0 = \"0.6\", 2 = \"0.7\" }\n");
  EXPECT_EQ(cell.Ask(Fault(FaultKind::CylinderJams, 9, 0, 0, 500 * kMs), 0), RequestResult::Done);
  cell.Write(9, 5, 0, 0);
  cell.Write(9, 6, 0x32, 0);
  EXPECT_EQ(cell.Read(9, 6, 400 * kMs), 0x21);
  cell.bus->AdvanceTo(900 * kMs);
  const std::string events = cell.Events();
  EXPECT_EQ(events.substr(events.find("0 fault")),
            "0 fault 9.0=8\n0 other 9.0=32\n500 cured 9.0=8\n500 other 9.0=97\n500 input 0.6=0\n"
            "700 input 0.7=1\n700 other 9.0=528\n");
  EXPECT_EQ(cell.Ask(Fault(FaultKind::CylinderJams, 9, 3, 0, 0), 900 * kMs), RequestResult::NoSuchChannel);
  EXPECT_EQ(cell.Ask(Fault(FaultKind::CylinderJams, 3, 0, 0, 0), 900 * kMs), RequestResult::NoSuchCard);
}

TEST(RackTest, FaultsThatCannotBeAreRefused) {
  TestRack cell(kCell);
  EXPECT_EQ(cell.Ask(Fault(FaultKind::CardPulled, 4, 0, 0, 0), 0), RequestResult::NoSuchCard);
  EXPECT_EQ(cell.Ask(Fault(FaultKind::CylinderAlarm, 3, 0, 0, 0), 0), RequestResult::NoSuchCard);
  EXPECT_EQ(cell.Ask(Fault(FaultKind::CylinderAlarm, 9, 3, 0, 0), 0), RequestResult::NoSuchChannel);
  EXPECT_EQ(cell.Ask(Fault(FaultKind::MotorLosesSteps, 7, 0, 0, 0), 0), RequestResult::BadValue);
  EXPECT_EQ(cell.Ask(Fault(FaultKind::InputStuck, 0, 0, 1, -1), 0), RequestResult::BadValue);
  EXPECT_EQ(cell.Ask({RequestKind::EndFault, FaultKind::CardPulled, 3, 0, 0, 0, 0, 0}, 0),
            RequestResult::NoSuchFault);
  for (std::uint8_t i = 0; i < 32; ++i) {
    EXPECT_EQ(cell.Ask(Fault(FaultKind::InputStuck, i < 16 ? 0 : 3, i % 16, 1, 0), 0), RequestResult::Done);
  }
  EXPECT_EQ(cell.Ask(Fault(FaultKind::CardPulled, 3, 0, 0, 0), 0), RequestResult::TooManyFaults);
  // The same fault again takes the place of the one that is there.
  EXPECT_EQ(cell.Ask(Fault(FaultKind::InputStuck, 3, 15, 0, 0), 0), RequestResult::Done);
}

TEST(RackTest, DisplayWorksOnACopyAndLeavesTheRackAlone) {
  TestRack cell(kCell);
  cell.Write(3, 7, 0x01, 5 * kMs);
  const auto copy = std::make_unique<rack::RackLive>();
  ASSERT_TRUE(rack::CopyLive(cell.state->live, *copy));
  rack::Rack view(cell.state->image, *copy);
  view.AdvanceTo(40 * kMs);
  EXPECT_EQ(copy->cards[3].io.inputs, 0x0200);
  EXPECT_EQ(cell.state->live.cards[3].io.inputs, 0);
  EXPECT_EQ(cell.Events(), "0 input 0.1=1\n5 relay 3.16=1\n");
}

}  // namespace
