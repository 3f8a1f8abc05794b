// A search over the orders in which threads can take turns, on the controller's own card code: the outputs of
// an I/O card share a byte, which is read, changed and written under the card's lock.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <mutex>
#include <thread>
#include <vector>

#include "drvlib.h"
#include "kova_ios.h"
#include "preload/bus_target.h"
#include "time/locks.h"
#include "virtual_time.h"

namespace {

// The slots' registers, and nothing behind them.
class MemoryBus final : public rack::BusTarget {
 public:
  int Read(std::uint8_t port) override {
    rack::SpendAccess();
    const std::lock_guard hold(mutex_);
    return registers[selected][port];
  }
  void Write(std::uint8_t port, std::uint8_t value) override {
    rack::SpendAccess();
    const std::lock_guard hold(mutex_);
    if (port == 0) selected = value % registers.size();
    registers[selected][port] = value;
  }
  std::array<std::array<std::uint8_t, 256>, 13> registers{};
  std::size_t selected = 0;

 private:
  rack::OwnMutex mutex_;
};

struct OpenCard : CkOVA_IOS {
  static pthread_mutex_t& LockOf(CkOVA_IOS& card) { return (card.*&OpenCard::CardLock).Mutex; }
};

class SearchTest : public testing::Test {
 protected:
  void SetUp() override {
    rack::UseBus(&bus);
    Hardware.OpenHard();
    card.SetSlotID(3);
  }
  void TearDown() override {
    rack::IgnoreMutex(nullptr);
    Hardware.CloseHard();
    rack::UseBus(nullptr);
  }

  // Three tasks switch one output each, on at last. Whether an update got lost.
  bool LosesAnUpdate(unsigned seed) {
    const VirtualTime time(seed);
    bus.registers[3].fill(0);
    std::vector<std::thread> tasks;
    tasks.reserve(3);
    for (int channel = 0; channel < 3; ++channel) {
      tasks.emplace_back([this, channel] {
        char on[] = "1";
        char off[] = "0";
        for (int i = 0; i < 2; ++i) {
          card.Cmd_OUT(channel, off);
          card.Cmd_OUT(channel, on);
        }
      });
    }
    for (std::thread& task : tasks) task.join();
    return bus.registers[3][card.OutPort(0)] != 0x07;
  }

  // The first seed of so many that loses one, 0 when none does.
  unsigned Search(unsigned seeds) {
    for (unsigned seed = 1; seed <= seeds; ++seed) {
      if (LosesAnUpdate(seed)) return seed;
    }
    return 0;
  }

  MemoryBus bus;
  CkOVA_IOS card;
};

TEST_F(SearchTest, WithAllLocksInPlaceAThousandSeedsFindNothing) {
  EXPECT_EQ(Search(1000), 0U);
}

TEST_F(SearchTest, WithTheCardsLockTakenOutTheLostUpdateIsFoundAndComesAgain) {
  rack::IgnoreMutex(&OpenCard::LockOf(card));
  const unsigned seed = Search(1000);
  ASSERT_NE(seed, 0U);
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(LosesAnUpdate(seed));
}

TEST_F(SearchTest, WithTheBusLockTakenOutAnAccessThatReachesTheWrongCardIsFound) {
  CkOVA_IOS other;
  other.SetSlotID(5);
  rack::IgnoreMutex(&HardLock);
  unsigned found = 0;
  for (unsigned seed = 1; seed <= 1000 && found == 0; ++seed) {
    const VirtualTime time(seed);
    bus.registers[3].fill(0);
    bus.registers[5].fill(0);
    char on[] = "1";
    std::thread first([&] { card.Cmd_OUT(0, on); });
    std::thread second([&] { other.Cmd_OUT(1, on); });
    first.join();
    second.join();
    if (bus.registers[3][card.OutPort(0)] != 0x01 || bus.registers[5][card.OutPort(0)] != 0x02) found = seed;
  }
  EXPECT_NE(found, 0U);
}

}  // namespace
