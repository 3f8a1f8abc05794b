// A rack file, and the rack that it describes with power on.
#include <cstring>
#include <memory>

#include "fuzz.h"
#include "rack/rack.h"
#include "rackfile/rackfile.h"

namespace {

constexpr rack::Nanos kStep = 37 * rack::kMillisecond;

// Writes to every register of every slot, reads them, and lets time go on.
void TryRack(const rack::RackSetup& setup, std::uint8_t value) {
  const auto live = std::make_unique<rack::RackLive>();
  std::memcpy(live->cards, setup.image.cards, sizeof live->cards);
  live->plant = setup.plant;
  rack::Rack rack(setup.image, *live);
  rack.PowerOn(setup.inputsOn);
  rack::Nanos now = 0;
  for (int slot = 0; slot < rack::kSlots; ++slot) {
    rack.WritePort(0, static_cast<std::uint8_t>(slot), now);
    for (int port = 1; port < 32; ++port) {
      rack.WritePort(static_cast<std::uint8_t>(port), value, now);
      const int read = rack.ReadPort(static_cast<std::uint8_t>(port), now);
      fuzz::Require(read >= -1 && read <= 255, "a register is a byte");
      value = static_cast<std::uint8_t>(value * 5 + 1);
    }
    now += kStep;
    rack.AdvanceTo(now);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(fuzz::TextOf(data, size));
  const auto setup = std::make_unique<rack::RackSetup>();
  std::vector<std::string> errors;
  rack::RackNotes notes;
  const bool isRight = rack::ReadRackText(text, "rack.toml", *setup, errors, &notes);
  fuzz::Require(isRight == errors.empty(), "a file is right or told what is wrong");
  for (const std::string& error : errors) {
    fuzz::Require(error.compare(0, 10, "rack.toml:") == 0, "each finding begins with its place");
  }
  if (isRight) TryRack(*setup, static_cast<std::uint8_t>(size));
  return 0;
}
