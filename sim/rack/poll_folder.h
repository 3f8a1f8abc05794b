// Polls in the journal: accesses that a task makes again and again, with the same answers from the same place.
//
// A round is one, two or four accesses. The first round of a poll is written access by access. Further equal rounds are
// counted, and one record (Repeats) tells of them when the task makes another access or reads a program line, and
// when it is asked for. What else happens stands in between, at its own time.
#pragma once

#include "rack/journal.h"

namespace rack {

class PollFolder {
 public:
  explicit PollFolder(JournalRing& ring) : ring_(ring) {}

  // The next record; an access may only be counted.
  void Add(const JournalRecord& record);
  // Tells of all that has been counted. `now` is not before the last record.
  void Tell(Nanos now);
  // The same of whole rounds.
  void TellRounds(Nanos now);

 private:
  static constexpr int kLongestRound = 4;
  static constexpr int kTracks = 12;  // task numbers, the main thread, and whoever is not known

  struct Access {
    JournalRecord record;
    std::uint32_t number;  // in the journal
  };
  // The accesses of one task.
  struct Track {
    Access round[kLongestRound];  // the last ones; while folding, the round in its order
    int known;                    // how many of them
    // Accesses behind these that may become a second round, and the periods that are still possible. The last
    // `held` of them are not in the journal yet.
    Access next[kLongestRound];
    int seen;
    int held;
    unsigned periods;
    // While folding: how long the round is, and which access of it comes next.
    int period;  // 0: not folding
    int phase;
    std::uint32_t counted;  // accesses that no record has told of
    std::uint32_t whole;    // of them in whole rounds
    Nanos lastCounted;
    Nanos lastWhole;
  };

  void AddAccess(Track& track, const JournalRecord& record);
  bool Continues(Track& track, const JournalRecord& record);
  bool Counts(Track& track, const JournalRecord& record);
  void Break(Track& track, Nanos now);
  void BeginFolding(Track& track, int period);
  void TellOf(Track& track, std::uint32_t accesses, Nanos last, Nanos now);
  void WriteHeld(Track& track);
  void Remember(Track& track, const Access& access) const;
  Track& TrackOf(std::uint8_t task);

  JournalRing& ring_;
  Track tracks_[kTracks]{};
  Track* holding_ = nullptr;  // the one with accesses that are not in the journal yet
};

}  // namespace rack
