// Asking a machine and looking at it from several threads. The controller's side is a thread here that has the
// state file mapped for itself, as the controller's process has.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <thread>

#include "machine/machine.h"
#include "rack/rack.h"

namespace rack {
namespace {

using State = RequestAnswer::State;

class AskingTest : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/velmo-asking-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    directory = name;
    std::filesystem::create_directory(RunDirectory(directory));
    const auto setup = std::make_unique<RackSetup>();
    MakeEmptySetup(*setup);
    InsertCard(*setup, 3, CardKind::Io);
    AssignEntries(*setup);
    std::string error;
    ASSERT_TRUE(controller.Create(StatePath(directory), *setup, error)) << error;
    controller.State()->live.controller.process = getpid();
    ASSERT_EQ(machine.Open(directory), "");
  }
  void TearDown() override {
    StopServing();
    std::filesystem::remove_all(directory);
  }

  // Bus accesses without end, as the controller polls.
  void Serve() {
    serving = true;
    server = std::thread([this] {
      Rack rack(*controller.State());
      for (Nanos now = 0; serving; now += kMicrosecond) {
        rack.ReadPort(2, now);
        std::this_thread::yield();
      }
    });
  }
  void StopServing() {
    serving = false;
    if (server.joinable()) server.join();
  }

  static Request Input(int slot, int channel, int level) {
    Request request{};
    request.kind = RequestKind::SetInput;
    request.slot = static_cast<std::uint8_t>(slot);
    request.channel = static_cast<std::uint8_t>(channel);
    request.value = level;
    return request;
  }

  std::string directory;
  StateFile controller;
  Machine machine;
  std::atomic<bool> serving{false};
  std::thread server;
};

TEST_F(AskingTest, SendingAndTheAnswerAreTwoCalls) {
  std::uint32_t good = 0;
  std::uint32_t bad = 0;
  ASSERT_EQ(machine.Send(Input(3, 4, 1), good), "");
  ASSERT_EQ(machine.Send(Input(5, 4, 1), bad), "");
  EXPECT_EQ(machine.Answer(good).state, State::Pending);
  Rack(*controller.State()).AdvanceTo(0);
  EXPECT_EQ(machine.Answer(good).state, State::Done);
  EXPECT_EQ(machine.Answer(good).text, "");
  EXPECT_EQ(machine.Answer(bad).state, State::Refused);
  EXPECT_EQ(machine.Answer(bad).text, "there is no such card in that slot");
  EXPECT_EQ(machine.Await(good), "");
  EXPECT_EQ(machine.Await(bad), "there is no such card in that slot");
}

TEST_F(AskingTest, WhoGetsNoAnswerIsToldWhy) {
  std::uint32_t number = 7;
  for (int i = 0; i < 64; ++i) ASSERT_EQ(machine.Send(Input(3, 4, 1), number), "");
  EXPECT_EQ(machine.Send(Input(3, 4, 1), number), "the controller takes no requests: too many are waiting");
  EXPECT_EQ(number, 63U);
  controller.State()->live.controller.process = 0;
  EXPECT_EQ(machine.Await(number), "the controller ended before it took the request");
  EXPECT_EQ(machine.Ask(Input(3, 4, 1)), "the machine in " + directory + " does not run");
  // What it did before its end counts.
  Rack(*controller.State()).AdvanceTo(0);
  EXPECT_EQ(machine.Await(number), "");
}

TEST_F(AskingTest, TwoThreadsAskWhileAThirdLooks) {
  constexpr int kRounds = 400;
  constexpr int kBurst = 8;
  Serve();
  // Neither is more than a round ahead: an answer is kept while at most 64 requests follow.
  std::atomic<int> rounds[2] = {{0}, {0}};
  std::vector<std::uint32_t> numbers[2];
  const auto ask = [&](int me, int slot, const std::string& answer) {
    for (int round = 0; round < kRounds; ++round) {
      while (rounds[1 - me] < round) std::this_thread::yield();
      std::vector<std::uint32_t> burst(kBurst);
      for (std::uint32_t& number : burst) EXPECT_EQ(machine.Send(Input(slot, round % 16, 1), number), "");
      for (const std::uint32_t number : burst) {
        while (machine.Answer(number).state == State::Pending) std::this_thread::yield();
        EXPECT_EQ(machine.Answer(number).text, answer) << number;
      }
      numbers[me].insert(numbers[me].end(), burst.begin(), burst.end());
      machine.Give(TimeCommand{});
      ++rounds[me];
    }
  };
  // One asks for what is done, the other for what is refused: a number that both get shows.
  std::thread done([&] { ask(0, 3, ""); });
  std::thread refused([&] { ask(1, 5, "there is no such card in that slot"); });
  std::uint16_t inputs = 0;
  while (rounds[0] < kRounds || rounds[1] < kRounds) {
    const Snapshot snapshot = machine.Take();
    EXPECT_EQ(snapshot.cards.size(), 2U);
    EXPECT_EQ(inputs & ~snapshot.cards.back().inputs, 0) << "an input that was on is off";
    inputs = snapshot.cards.back().inputs;
    EXPECT_EQ(machine.Live().controller.process, getpid());
  }
  done.join();
  refused.join();
  StopServing();
  EXPECT_EQ(machine.Take().cards.back().inputs, 0xFFFF);
  EXPECT_EQ(machine.State().requests.sent, 6400U);
  EXPECT_EQ(machine.State().requests.done, 6400U);
  EXPECT_EQ(machine.State().time.ordered, 800U);
  std::vector<std::uint32_t>& all = numbers[0];
  all.insert(all.end(), numbers[1].begin(), numbers[1].end());
  std::sort(all.begin(), all.end());
  EXPECT_EQ(std::unique(all.begin(), all.end()), all.end());
}

}  // namespace
}  // namespace rack
