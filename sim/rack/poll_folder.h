// Polls in the journal: accesses that a task makes again and again, with the same answers from the same place.
//
// A round is one, two or four accesses. The first round of a poll is written access by access. Further equal rounds are
// counted, and one record (Repeats) tells of them when the task makes another access or reads a program line, and
// when it is asked for. What else happens stands in between, at its own time.
#pragma once

#include "rack/journal.h"

namespace rack {

constexpr int kLongestRound = 4;
constexpr int kPollTracks = 12;  // task numbers, the main thread, and whoever is not known

// The accesses of one task.
struct PollTrack {
  struct Access {
    JournalRecord record;
    std::uint32_t number;  // in the journal
    std::uint32_t reserved;
  };
  Access round[kLongestRound];  // the last ones; while folding, the round in its order
  // Accesses behind these that may become a second round, and the periods that are still possible. The last
  // `held` of them are not in the journal yet.
  Access next[kLongestRound];
  std::int32_t known;  // how many accesses `round` holds
  std::int32_t seen;
  std::int32_t held;
  std::uint32_t periods;
  // While folding: how long the round is, and which access of it comes next.
  std::int32_t period;  // 0: not folding
  std::int32_t phase;
  std::uint32_t counted;  // accesses that no record has told of
  std::uint32_t whole;    // of them in whole rounds
  Nanos lastCounted;
  Nanos lastWhole;
};
static_assert(sizeof(PollTrack) == 2 * kLongestRound * 32 + 48);

// Lies in the rack's state: what a controller that is killed has counted is told of after its end.
struct PollTracks {
  PollTrack tracks[kPollTracks];
  std::uint32_t
      holding;  // number of the track with accesses that are not in the journal yet, counted from 1; 0: none
  std::uint32_t reserved;
};

class PollFolder {
 public:
  PollFolder(JournalRing& ring, PollTracks& polls) : ring_(ring), polls_(polls) {}

  // The next record; an access may only be counted.
  void Add(const JournalRecord& record);
  // Tells of all that has been counted. `now` is not before the last record.
  void Tell(Nanos now);
  // The same of whole rounds.
  void TellRounds(Nanos now);
  // Tells of all, and begins anew: the controller has ended.
  void Finish(Nanos now);

 private:
  void AddAccess(PollTrack& track, const JournalRecord& record);
  bool Continues(PollTrack& track, const JournalRecord& record);
  bool Counts(PollTrack& track, const JournalRecord& record);
  void Break(PollTrack& track, Nanos now);
  void BeginFolding(PollTrack& track, int period);
  void TellOf(PollTrack& track, std::uint32_t accesses, Nanos last, Nanos now);
  void WriteHeld(PollTrack& track);
  void Remember(PollTrack& track, const PollTrack::Access& access) const;
  PollTrack& TrackOf(std::uint8_t task);

  void WriteAllHeld();
  std::uint32_t NumberOf(const PollTrack& track) const;

  JournalRing& ring_;
  PollTracks& polls_;
};

}  // namespace rack
