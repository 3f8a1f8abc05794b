// The bus: slot select, reads and writes.
#include "rack/rack.h"

#include <algorithm>

namespace rack {
namespace {

constexpr std::uint8_t kSlotSelect = 0;
constexpr std::uint8_t kKeyClear = 1;  // of the CPU card

}  // namespace

Rack::Rack(RackState& state) : Rack(state.image, state.live) {
  requests_ = &state.requests;
  journal_.emplace(state.journal, state.polls);
  tellPollsAt_ = live_.now / kSecond * kSecond + kSecond;
}

Rack::Rack(const RackImage& image, RackLive& live)
    : image_(image), live_(live), plant_(live.plant, cards_, *this) {
  for (std::uint32_t entry = 0; entry < image_.entryCount; ++entry) {
    cards_.entries[entry] = &live_.cards[image_.entrySlot[entry]];
  }
  Begin();
}

void Rack::PowerOn(const std::uint16_t (&inputsOn)[kMaxEntries]) {
  const LiveChange change(live_);
  plant_.PowerOn();
  for (std::uint8_t entry = 0; entry < kMaxEntries; ++entry) {
    for (std::uint8_t channel = 0; channel < 16; ++channel) {
      if ((inputsOn[entry] >> channel & 1) == 0) continue;
      plant_.SetInput({entry, SignalKind::Input, channel, 0}, true, 0);
    }
  }
}

int Rack::ReadPort(std::uint8_t port, Nanos now, const Origin& origin) {
  AdvanceTo(now);
  const LiveChange change(live_);
  const auto slot = static_cast<std::uint8_t>(live_.selectedSlot);
  if (Faulty(FaultKind::BusReadsFail, slot)) {
    Note(JournalKind::ReadFailed, slot, port, 0, origin);
    return -1;
  }
  std::uint8_t value = kOpenBus;
  Protest protest = Protest::None;
  if (slot < kSlots && !Faulty(FaultKind::CardPulled, slot)) {
    protest = ProtestOfRead(live_.cards[slot], port, live_.now);
    value = ReadCard(live_.cards[slot], port, live_.now);
    const bool functionKeys = slot == 0 && port != 0 && port == live_.cards[0].cpu.functionPort;
    if (functionKeys && live_.keys.functionBits != 0) live_.keys.takenRequest = live_.keys.pressRequest;
  }
  Note(JournalKind::Read, slot, port, value, origin);
  NoteProtest(protest, slot, port, 0, origin);
  return value;
}

void Rack::WritePort(std::uint8_t port, std::uint8_t value, Nanos now, const Origin& origin) {
  AdvanceTo(now);
  const LiveChange change(live_);
  if (port == kSlotSelect) live_.selectedSlot = value;
  const auto slot = static_cast<std::uint8_t>(live_.selectedSlot);
  const bool reaches = port != kSlotSelect && slot < kSlots && !Faulty(FaultKind::CardPulled, slot);
  const bool changes = reaches && Changes(slot, port, value);
  if (changes) {
    // The plant is worked out up to the write with what was so before it.
    quietUntil_ = 0;
    Reach(live_.now);
  }
  Note(JournalKind::Write, slot, port, value, origin);
  if (!reaches) return;
  NoteProtest(ProtestOfWrite(live_.cards[slot], port, value, live_.now), slot, port, value, origin);
  if (!changes) {
    NoteMovers(slot, false);
    return;
  }

  const std::uint32_t outputs = OutputLevels(live_.cards[slot]);
  const std::int32_t key = slot == 0 ? live_.cards[0].cpu.keyCode : 0;
  WriteCard(live_.cards[slot], port, value, live_.now);
  quietUntil_ = 0;
  if (port == kKeyClear && key != 0 && live_.cards[0].cpu.keyCode == 0) {
    live_.keys.takenRequest = live_.keys.pressRequest;
    ++live_.keys.takenCount;
    live_.step.Take(key);
    Note(JournalKind::KeyTaken, 0, port, key, origin);
  }
  NoteOutputs(slot, outputs, origin);
  SettlePlant(live_.now);
  NoteMovers(slot, false);
}

// Whether a write leaves the card other than it was. A poll selects the channel that is selected already: the plant,
// which sees nothing but the cards, need not be worked out for it.
bool Rack::Changes(int slot, std::uint8_t port, std::uint8_t value) const {
  CardState trial = live_.cards[slot];
  WriteCard(trial, port, value, live_.now);
  // Byte by byte: what no member of the union uses was copied too, and a difference there would only cost work.
  const auto* const before = reinterpret_cast<const unsigned char*>(&live_.cards[slot]);
  return !std::equal(before, before + sizeof trial, reinterpret_cast<const unsigned char*>(&trial));
}

void Rack::Note(JournalKind kind, std::uint8_t slot, std::uint8_t port, std::int32_t value,
                const Origin& origin) {
  if (!journal_) return;
  const JournalRecord record = {live_.now, kind, origin.task, slot, port, value, origin.line, origin.file};
  journal_->Add(record);
  if (IsWatched() && triggers_.Fits(record)) fits_ = true;
}

void Rack::Watch(const TriggerTable& triggers) {
  triggers_ = triggers;
  fits_ = false;
}

MachineDue Rack::Due() {
  const LiveChange change(live_);
  // A write has changed what happens next.
  if (quietUntil_ <= live_.now) Reach(live_.now);
  return {fits_, std::max(quietUntil_, live_.now + 1)};
}

void Rack::TellPolls() {
  if (journal_) journal_->Tell(live_.now);
}

void Rack::NoteProtest(Protest protest, std::uint8_t slot, std::uint8_t port, std::uint8_t value,
                       const Origin& origin) {
  if (protest == Protest::None) return;
  ProtestRecord& last = live_.protests[slot];
  last.at = live_.now;
  ++last.count;
  last.file = origin.file;
  last.line = origin.line;
  last.value = ProtestValue(protest, value);
  last.task = origin.task;
  last.port = port;
  Note(JournalKind::CardProtests, slot, port, last.value, origin);
}

void Rack::NoteOutputs(int slot, std::uint32_t before, const Origin& origin) {
  const std::uint32_t changed = OutputLevels(live_.cards[slot]) ^ before;
  if (changed == 0) return;
  for (int channel = 0; channel < OutputCount(live_.cards[slot]); ++channel) {
    if ((changed >> channel & 1) == 0) continue;
    const auto kind = channel < kFirstRelay ? JournalKind::OutputChange : JournalKind::RelayChange;
    const bool level = OutputLevel(live_.cards[slot], channel);
    Note(kind, static_cast<std::uint8_t>(slot), static_cast<std::uint8_t>(channel), level ? 1 : 0, origin);
  }
}

bool Rack::Faulty(FaultKind kind, int slot) const {
  return std::any_of(std::begin(live_.faults), std::end(live_.faults), [&](const FaultRecord& fault) {
    return fault.kind == kind && (kind == FaultKind::BusReadsFail || fault.slot == slot);
  });
}

}  // namespace rack
