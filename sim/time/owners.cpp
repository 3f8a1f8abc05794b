#include "time/owners.h"

#include <algorithm>
#include <cstdio>

#include "time/symbols.h"

namespace rack {
namespace {

// Held at the same time, by all threads.
constexpr int kMaxHeld = 1024;
constexpr int kMaxCircle = 64;

struct Held {
  const void* lock;     // null: row not used
  const Thread* owner;  // null: it has ended
  unsigned depth;
  Hold hold;
};

Held Rows[kMaxHeld];
const void* NamedLocks[kLockNames];
int Used = 0;  // rows in use are among the first so many

Held* Find(const void* lock, const Thread* owner) {
  Held* const end = Rows + Used;
  Held* const row =
      std::find_if(Rows, end, [&](const Held& held) { return held.lock == lock && held.owner == owner; });
  return row == end ? nullptr : row;
}

Held* FindAny(const void* lock) {
  Held* const end = Rows + Used;
  Held* const row = std::find_if(Rows, end, [&](const Held& held) { return held.lock == lock; });
  return row == end ? nullptr : row;
}

void Clear(Held& row) {
  row.lock = nullptr;
  while (Used > 0 && Rows[Used - 1].lock == nullptr) --Used;
}

struct Circle {
  const Thread* threads[kMaxCircle];
  int count;
};

bool Has(const Circle& circle, const Thread* thread) {
  return std::find(circle.threads, circle.threads + circle.count, thread) != circle.threads + circle.count;
}

// Whether the wait of the thread that was added last leads back to the first one. Threads that were tried stay
// added: a second way to them leads no further.
bool Closes(Circle& circle, Circle& tried);

bool ClosesOver(Circle& circle, Circle& tried, const Thread* owner) {
  if (owner == nullptr) return false;
  if (owner == circle.threads[0]) return true;
  if (circle.count == kMaxCircle || tried.count == kMaxCircle || Has(tried, owner)) return false;
  tried.threads[tried.count++] = owner;
  circle.threads[circle.count++] = owner;
  if (Closes(circle, tried)) return true;
  --circle.count;
  return false;
}

bool Closes(Circle& circle, Circle& tried) {
  const Wait wait = EndlessWait(circle.threads[circle.count - 1]);
  switch (wait.kind) {
    case Awaited::ThreadEnd:
      return ClosesOver(circle, tried, static_cast<const Thread*>(wait.object));
    case Awaited::Lock:
    case Awaited::OnceStart:
      // Of a lock that several share, each one that never lets go is enough.
      return std::any_of(Rows, Rows + Used, [&](const Held& held) {
        return held.lock == wait.object && ClosesOver(circle, tried, held.owner);
      });
    case Awaited::Time:
    case Awaited::Condition:
    case Awaited::Semaphore:
    case Awaited::Futex:
    case Awaited::Mail:
      break;
  }
  return false;
}

// A text of limited length that is added to.
class Sentence {
 public:
  void Add(const char* text) { Add("%s", text); }
  template <class First, class... Rest>
  void Add(const char* format, First first, Rest... rest) {
    Advance(std::snprintf(Free(), Room(), format, first, rest...));
  }
  void AddName(const Thread* thread) { Advance(WriteName(thread, Free(), Room())); }
  const char* Text() const { return text_; }

 private:
  char* Free() { return text_ + length_; }
  std::size_t Room() const { return sizeof text_ - length_; }
  void Advance(int written) {
    length_ = std::min(length_ + static_cast<std::size_t>(std::max(written, 0)), sizeof text_ - 1);
  }

  char text_[kReasonSize] = {};
  std::size_t length_ = 0;
};

// A lock by its name in the program; one without a name by its number in the circle.
void AddAwaited(Sentence& sentence, const Wait& wait, int number) {
  char name[128];
  if (wait.kind == Awaited::ThreadEnd) return sentence.Add("the end of ");
  const bool named = WriteSymbol(wait.object, name, sizeof name);
  const char* const what = wait.kind == Awaited::Lock ? "lock" : "once-only start";
  if (named) return sentence.Add("%s %s, held by ", what, name);
  sentence.Add("%s no. %d, held by ", what, number);
}

// Locks without a name are numbered by their place in the circle.
[[noreturn]] void Report(const Circle& circle) {
  Sentence sentence;
  sentence.Add("deadlock at %lld.%06lld s: ", static_cast<long long>(VirtualNow() / kSecond),
               static_cast<long long>(VirtualNow() % kSecond / kMicrosecond));
  for (int i = 0; i < circle.count; ++i) {
    const Thread* const next = circle.threads[(i + 1) % circle.count];
    if (i != 0) sentence.Add("; ");
    sentence.AddName(circle.threads[i]);
    sentence.Add(" waits for ");
    AddAwaited(sentence, EndlessWait(circle.threads[i]), i + 1);
    if (next == circle.threads[i]) {
      sentence.Add("itself");
    } else {
      sentence.AddName(next);
    }
  }
  EndRun(kDeadlockStatus, sentence.Text());
}

}  // namespace

void NoteTaken(const void* lock, Hold hold) {
  const Thread* const self = CurrentThread();
  if (Held* row = Find(lock, self)) {
    ++row->depth;
    return;
  }
  Held* const row =
      std::find_if(Rows, Rows + kMaxHeld, [](const Held& held) { return held.lock == nullptr; });
  if (row == Rows + kMaxHeld) EndRun(kRefusedStatus, "more than 1024 locks are held at once");
  *row = {lock, self, 1, hold};
  Used = std::max(Used, static_cast<int>(row - Rows) + 1);
}

bool NoteFreed(const void* lock) {
  Held* row = Find(lock, CurrentThread());
  if (row == nullptr) row = FindAny(lock);
  if (row == nullptr) return true;  // taken before time was under control
  if (--row->depth != 0) return false;
  Clear(*row);
  return true;
}

bool IsHolder(const void* lock) {
  return Find(lock, CurrentThread()) != nullptr;
}

bool IsHolder(const void* lock, Hold hold) {
  const Held* const row = Find(lock, CurrentThread());
  return row != nullptr && row->hold == hold;
}

void ForgetOwner(const Thread* thread) {
  for (int i = 0; i < Used; ++i) {
    if (Rows[i].owner == thread) Rows[i].owner = nullptr;
  }
}

void ForgetOwners() {
  std::fill(NamedLocks, NamedLocks + kLockNames, nullptr);
  std::fill(Rows, Rows + kMaxHeld, Held{});
  Used = 0;
}

Holder HolderOf(const void* lock) {
  const Held* const row = FindAny(lock);
  return row == nullptr ? Holder{false, nullptr} : Holder{true, row->owner};
}

std::uint32_t NameRow(const void* lock, TimeControl& control) {
  const void** const end = NamedLocks + kLockNames;
  const void** row = std::find(NamedLocks, end, lock);
  if (row == end) row = std::find(NamedLocks, end, nullptr);
  const auto number = static_cast<std::uint32_t>(row - NamedLocks);
  if (row == end || *row == lock) return number + 1;
  *row = lock;
  char* const name = control.lockNames[number];
  if (!WriteSymbol(lock, name, kLockNameSize)) name[0] = '\0';
  return number + 1;
}

void EndAtCircle(const Thread* thread) {
  Circle circle = {{thread}, 1};
  Circle tried = {{}, 0};
  if (Closes(circle, tried)) Report(circle);
}

}  // namespace rack
