// The simulated rack: slot select and cards as the bus reaches them, with the machine that hangs on the
// cards.
//
// Works on a state in memory and is told the time at each call; it has no clock, no thread and no lock of its
// own: callers take turns. Between two calls nothing moves; a call first works out what has happened since
// the last one, each event at its own time.
#pragma once

#include <cstdint>
#include <optional>

#include "rack/poll_folder.h"
#include "rack/state.h"
#include "rack/triggers.h"

namespace rack {

// Who makes a bus access: task number (see JournalRecord) and the program line that it executes, if known.
struct Origin {
  std::uint8_t task = kUnknownTask;
  std::uint32_t file = 0;
  std::uint32_t line = 0;
};

// Motors or cylinders on one card.
constexpr int kMaxMovers = MostMovers();

class Rack final : private EventSink {
 public:
  // The rack in a controller's process: takes requests and writes the journal.
  explicit Rack(RackState& state);
  // A rack on a copy of the live part, for a display that wants to know how things stand at this moment.
  Rack(const RackImage& image, RackLive& live);

  // One read of a port: 0 to 255, -1 when the bus fails. Port 0 is the selected card's own register 0.
  int ReadPort(std::uint8_t port, Nanos now, const Origin& origin = {});
  // One write. Port 0 selects a slot; what a missing card is told is lost.
  void WritePort(std::uint8_t port, std::uint8_t value, Nanos now, const Origin& origin = {});

  // Works the machine out up to now and applies the requests that have arrived. Time never runs backwards: an
  // earlier now counts as the time reached.
  void AdvanceTo(Nanos now);

  // Appends a record to the journal, at the time reached.
  void Note(JournalKind kind, std::uint8_t slot, std::uint8_t port, std::int32_t value,
            const Origin& origin = {});

  // Brings the journal up to date with the polls that are going on; they are told of at each whole second anyway.
  void TellPolls();

  // From now on a record that fits one of these is told by Due, until the next table.
  void Watch(const TriggerTable& triggers);
  bool IsWatched() const { return triggers_.count != 0; }
  MachineDue Due();

  // Switches the power on, at time 0: cards and links as they stand in the state, these inputs switched on.
  void PowerOn(const std::uint16_t (&inputsOn)[kMaxEntries]);

 private:
  // What the journal was told last of a motor or cylinder, so that it is told again only of what has changed.
  struct Mover {
    Nanos sampledAt;
    std::int32_t shown;  // encoder count, or cylinder state as in the journal
    bool busy;
    bool pushes;              // against a hard stop
    std::int64_t lostBefore;  // steps lost at hard stops before it began to
  };

  void InputEdge(SignalRef input, bool level, Nanos at) override;
  void Counted(int link, std::uint32_t count, Nanos at) override;

  void Begin();
  void Reach(Nanos now);
  void SettlePlant(Nanos at);
  Nanos NextOwnEvent();
  Nanos NextOfMovers(int slot);
  void HandleKeys();
  void EndFaults();
  void NoteMovers(int slot, bool sample);
  void NoteMotor(int slot, int channel, bool sample);
  void NoteHardStop(int slot, int channel);
  void NoteCylinder(int slot, int channel);

  void PressKey(std::uint32_t code, bool repeated);
  void HoldFunctionKeys(std::uint32_t bits);
  void ShowInputs(int slot, std::uint16_t before);
  void NoteProtest(Protest protest, std::uint8_t slot, std::uint8_t port, std::uint8_t value,
                   const Origin& origin);
  void NoteOutputs(int slot, std::uint32_t before, const Origin& origin);

  bool IsAsked() const;
  void TakeRequests();
  RequestResult Apply(const Request& request, std::uint32_t number);
  RequestResult SetInput(const Request& request);
  RequestResult Press(const Request& request, std::uint32_t number);
  RequestResult PressFunctionKeys(const Request& request, std::uint32_t number);
  RequestResult Release(const Request& request);
  RequestResult ReleaseFunctionKeys(const Request& request);
  RequestResult BeginFault(const Request& request);
  RequestResult EndFault(const Request& request);
  RequestResult CheckFault(const Request& request) const;
  void Impose(const FaultRecord& fault, bool begins);
  void End(FaultRecord& fault);
  void NoteFault(JournalKind kind, const FaultRecord& fault);
  void ApplyStuck(int slot);
  bool Faulty(FaultKind kind, int slot) const;
  bool Changes(int slot, std::uint8_t port, std::uint8_t value) const;

  const RackImage& image_;
  RackLive& live_;
  RequestRing* requests_ = nullptr;
  std::optional<PollFolder> journal_;
  Nanos tellPollsAt_ = kSecond;  // the next whole second
  TriggerTable triggers_{};
  bool fits_ = false;  // one of them has
  CardsByEntry cards_{};
  Plant plant_;
  Mover movers_[kSlots][kMaxMovers]{};
  // Before this time nothing happens by itself: time alone moves on. A write to a card and a request end it.
  Nanos quietUntil_ = 0;
};

}  // namespace rack
