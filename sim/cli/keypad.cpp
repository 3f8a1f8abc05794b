#include "cli/keypad.h"

#include "cli/screen.h"
#include "machine/why.h"
#include "toml/words.h"

namespace rack::cli {

namespace {

// A tap on the keypad, and one on a function key, which the controller sees only while it is held: longer than two of
// its polls.
constexpr int kTapMillis = 60;
constexpr int kFunctionMillis = 250;
// Typed again within this time, a key counts as held down: longer than a terminal waits before it repeats a key.
constexpr Nanos kRepeats = 700 * kMillisecond;
// A held key is renewed as often as a keypad repeats it, and let go this long after the last renewal.
constexpr Nanos kRenewEvery = 100 * kMillisecond;
constexpr int kRenewedMillis = 250;
// Keys that were typed and wait for their turn; what is typed beyond is lost.
constexpr std::size_t kMostWaiting = 16;

struct TypedKey {
  int typed;
  const char* name;
};
constexpr TypedKey kTyped[] = {{Screen::kEnter, "Enter"},
                               {'+', "Plus"},
                               {'-', "Dec"},
                               {'*', "Star"},
                               {'/', "Slash"},
                               {'n', "Num"},
                               {'r', "RUN"},
                               {'s', "STEP"},
                               {'z', "ZERO"},
                               {'c', "CANCEL"}};

std::optional<Key> KeyOf(int typed) {
  if (typed >= '0' && typed <= '9') return FindKey(std::string(1, static_cast<char>(typed)));
  for (const TypedKey& row : kTyped) {
    if (row.typed == typed) return FindKey(row.name);
  }
  return std::nullopt;
}

bool Same(const Key& left, const Key& right) {
  return left.code == right.code && left.function == right.function;
}

}  // namespace

Request PressOf(const Key& key, int holdMillis) {
  Request request{};
  request.kind = key.function ? RequestKind::PressFunctionKeys : RequestKind::PressKey;
  request.value = key.code;
  const int usual = key.function ? kFunctionMillis : kTapMillis;
  request.duration = (holdMillis > 0 ? holdMillis : usual) * kMillisecond;
  return request;
}

Request ReleaseOf(const Key& key) {
  Request request{};
  request.kind = key.function ? RequestKind::ReleaseFunctionKeys : RequestKind::ReleaseKey;
  request.value = key.code;
  return request;
}

bool IsTaken(const KeyState& keys, std::uint32_t number) {
  return keys.pressCount != 0 && keys.pressRequest == number && keys.takenRequest == number;
}

std::vector<std::string> Sleepers(const Snapshot& snapshot, Nanos taken) {
  std::vector<std::string> sentences;
  for (const TaskView& task : snapshot.tasks) {
    const std::optional<Sleep> sleep = SleepOf(task);
    if (!sleep || snapshot.nowNanos - sleep->sinceNanos > taken) continue;
    sentences.push_back("task " + std::to_string(task.task) + " sleeps " + Seconds(sleep->leftNanos) +
                        " more in " + sleep->where + " and has not seen it");
  }
  return sentences;
}

bool IsHeld(const KeyState& keys) {
  return keys.code != 0 || keys.functionBits != 0;
}

std::string TurnPath(const std::string& machine) {
  return RunDirectory(machine) + "/keys";
}

bool Keypad::Repeats(const Key& key, Nanos now) const {
  return typed_ && Same(*typed_, key) && now - typedAt_ < kRepeats;
}

void Keypad::Type(int character) {
  const std::optional<Key> key = KeyOf(character);
  if (!key) return;
  const Nanos now = MonotonicNow();
  const bool held = Repeats(*key, now);
  if (held && now - typedAt_ < kRenewEvery) return;
  typed_ = key;
  typedAt_ = now;
  const Typed typed = {*key, held ? kRenewedMillis : 0};
  const bool waits = !waiting_.empty();
  if (held && !waits && turn_) return Press(typed);
  if (held && waits) return;
  if (waiting_.size() < kMostWaiting) waiting_.push_back(typed);
  Advance();
}

void Keypad::Advance() {
  if (turn_ && IsThrough()) turn_.reset();
  if (turn_ || waiting_.empty() || !TakeTurn()) return;
  Press(waiting_.front());
  waiting_.pop_front();
}

// Where the lock cannot be had at all, a key is pressed without it.
bool Keypad::TakeTurn() {
  turn_.emplace(TurnPath(machine_.Directory()));
  if (turn_->Held() || !turn_->Error().empty()) return true;
  turn_.reset();
  return false;
}

void Keypad::Press(const Typed& typed) {
  const Request request = PressOf(typed.key, typed.holdMillis);
  pressed_ = typed.key;
  takenAt_ = 0;
  told_.clear();
  limit_ = MonotonicNow() + request.duration + kTakenLimit;
  error_ = machine_.Send(request, number_);
}

// Whether the key that was pressed last has been taken and let go, or there is nothing to wait for.
bool Keypad::IsThrough() {
  if (!error_.empty() || !machine_.Running() || machine_.Standing()) return true;
  if (machine_.Answer(number_).state == RequestAnswer::State::Refused) return true;
  NoteTaken(machine_.Now());
  const bool free = takenAt_ != 0 && !IsHeld(machine_.Live().keys);
  return free || MonotonicNow() > limit_;
}

void Keypad::NoteTaken(Nanos now) {
  if (takenAt_ == 0 && IsTaken(machine_.Live().keys, number_)) takenAt_ = now;
}

void Keypad::LetGo() {
  if (!turn_ || !machine_.Running()) return;
  std::uint32_t number = 0;
  machine_.Send(ReleaseOf(*pressed_), number);
}

std::string Keypad::Outcome(const Snapshot& snapshot) {
  if (!error_.empty()) return error_;
  const RequestAnswer answer = machine_.Answer(number_);
  if (answer.state == RequestAnswer::State::Refused) return answer.text;
  NoteTaken(snapshot.nowNanos);
  if (takenAt_ == 0) return snapshot.standing.stands ? "waits for time to go on" : "not taken yet";
  if (told_.empty() && snapshot.nowNanos >= takenAt_ + kSeenFor) {
    const std::vector<std::string> sleepers = Sleepers(snapshot, takenAt_);
    told_ = sleepers.empty() ? "taken" : Join(sleepers, ", ");
  }
  return told_.empty() ? "taken" : told_;
}

std::string Keypad::Line(const Snapshot& snapshot) {
  std::string line;
  if (!waiting_.empty()) {
    line = std::string(waiting_.back().key.name) + ": waits until the other keys are pressed  |  ";
  } else if (pressed_) {
    line = std::string(pressed_->name) + ": " + Outcome(snapshot) + "  |  ";
  }
  line += "keys 0-9 Enter + - * / n(Num)";
  if (snapshot.keyPort != 0) line += " r(RUN) s(STEP) z(ZERO) c(CANCEL)";
  return line + "  a all  q end";
}

}  // namespace rack::cli
