#include "rack/poll_folder.h"

#include <algorithm>
#include <iterator>

namespace rack {

namespace {

constexpr int kPeriods[] = {1, 2, 4};

bool IsSame(const JournalRecord& a, const JournalRecord& b) {
  return a.kind == b.kind && a.slot == b.slot && a.port == b.port && a.value == b.value && a.line == b.line &&
         a.file == b.file;
}

bool IsOfProgram(JournalKind kind) {
  return kind == JournalKind::ProgramLine || kind == JournalKind::ProgramEnd ||
         kind == JournalKind::ProgramOpened || kind == JournalKind::ProgramMissing;
}

}  // namespace

PollTrack& PollFolder::TrackOf(std::uint8_t task) {
  constexpr std::uint8_t kMain = kPollTracks - 2;
  constexpr std::uint8_t kUnknown = kPollTracks - 1;
  if (task < kMain) return polls_.tracks[task];
  return polls_.tracks[task == kMainThread ? kMain : kUnknown];
}

void PollFolder::Add(const JournalRecord& record) {
  if (IsAccess(record.kind)) {
    AddAccess(TrackOf(record.task), record);
    return;
  }
  WriteAllHeld();
  if (IsOfProgram(record.kind)) {
    PollTrack& track = TrackOf(record.task);
    Break(track, record.time);
    track.known = 0;
  }
  Append(ring_, record);
}

void PollFolder::AddAccess(PollTrack& track, const JournalRecord& record) {
  if (track.period != 0 && Counts(track, record)) return;
  if (track.period == 0 && Continues(track, record)) return;
  Break(track, record.time);
  if (Continues(track, record)) return;
  WriteAllHeld();
  Remember(track, {record, Append(ring_, record), 0});
}

bool PollFolder::Counts(PollTrack& track, const JournalRecord& record) {
  if (!IsSame(track.round[track.phase].record, record)) return false;
  ++track.counted;
  track.lastCounted = record.time;
  track.phase = (track.phase + 1) % track.period;
  if (track.phase != 0) return true;
  track.whole = track.counted;
  track.lastWhole = record.time;
  return true;
}

// Whether the access may belong to a second round like the last one. It is kept out of the journal until that is
// known, or something else happens.
bool PollFolder::Continues(PollTrack& track, const JournalRecord& record) {
  unsigned possible = 0;
  for (const int period : kPeriods) {
    const bool begins = track.seen == 0 || (track.periods & static_cast<unsigned>(period)) != 0;
    if (!begins || track.known < period) continue;
    if (IsSame(track.round[track.known - period + track.seen].record, record))
      possible |= static_cast<unsigned>(period);
  }
  if (possible == 0) return false;
  if (polls_.holding != NumberOf(track)) WriteAllHeld();
  track.periods = possible;
  track.next[track.seen++] = {record, 0, 0};
  ++track.held;
  polls_.holding = NumberOf(track);
  for (const int period : kPeriods) {
    if ((possible & static_cast<unsigned>(period)) == 0 || period != track.seen) continue;
    BeginFolding(track, period);
    break;
  }
  return true;
}

void PollFolder::BeginFolding(PollTrack& track, int period) {
  std::rotate(track.round, track.round + track.known - period, track.round + track.known);
  track.lastCounted = track.lastWhole = track.next[track.seen - 1].record.time;
  track.counted = track.whole = static_cast<std::uint32_t>(track.held);
  track.period = track.known = period;
  track.phase = track.seen = track.held = 0;
  polls_.holding = 0;
}

// The poll is over, or there was none: all that is known of it goes into the journal.
void PollFolder::Break(PollTrack& track, Nanos now) {
  if (track.period != 0) {
    WriteAllHeld();
    TellOf(track, track.counted, track.lastCounted, now);
    std::rotate(track.round, track.round + track.phase, track.round + track.period);
    track.period = track.phase = 0;
    return;
  }
  WriteHeld(track);
  for (int i = 0; i < track.seen; ++i) Remember(track, track.next[i]);
  track.seen = 0;
}

void PollFolder::TellOf(PollTrack& track, std::uint32_t accesses, Nanos last, Nanos now) {
  if (accesses == 0) return;
  const JournalRecord& first = track.round[0].record;
  Append(ring_, {now, JournalKind::Repeats, first.task, static_cast<std::uint8_t>(track.period), 0,
                 static_cast<std::int32_t>(accesses), track.round[0].number,
                 static_cast<std::uint32_t>(now - last)});
  track.counted -= accesses;
  track.whole = 0;
}

void PollFolder::Tell(Nanos now) {
  WriteAllHeld();
  for (PollTrack& track : polls_.tracks) {
    if (track.period != 0) TellOf(track, track.counted, track.lastCounted, now);
  }
}

void PollFolder::TellRounds(Nanos now) {
  for (PollTrack& track : polls_.tracks) {
    if (track.period != 0) TellOf(track, track.whole, track.lastWhole, now);
  }
}

void PollFolder::Finish(Nanos now) {
  Tell(now);
  std::fill(std::begin(polls_.tracks), std::end(polls_.tracks), PollTrack{});
}

void PollFolder::WriteAllHeld() {
  if (polls_.holding != 0) WriteHeld(polls_.tracks[polls_.holding - 1]);
}

std::uint32_t PollFolder::NumberOf(const PollTrack& track) const {
  return static_cast<std::uint32_t>(&track - polls_.tracks) + 1;
}

void PollFolder::WriteHeld(PollTrack& track) {
  for (int i = track.seen - track.held; i < track.seen; ++i) {
    track.next[i].number = Append(ring_, track.next[i].record);
  }
  track.held = 0;
  if (polls_.holding == NumberOf(track)) polls_.holding = 0;
}

void PollFolder::Remember(PollTrack& track, const PollTrack::Access& access) const {
  if (track.known == kLongestRound) {
    std::rotate(track.round, track.round + 1, track.round + track.known);
    --track.known;
  }
  track.round[track.known++] = access;
}

}  // namespace rack
