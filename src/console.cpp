#define _FILE_OFFSET_BITS \
  64  // else a console that is a large file cannot be looked at where a long has 32 bits
#include "console.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "locks.h"
#include "public.h"

namespace {

constexpr size_t kKeptSize = 65536;  // bytes that are kept, with their heads
constexpr size_t kRestSize = 4096;   // of one line
constexpr int kTaskNos = kTaskNet + 1;

// What a task's next line is: of a first try, the first one of a repeated try, or a later one of it.
enum class Try : unsigned char { First, RepeatBegins, Repeat };
Try Tries[kTaskNos];  // each written by its task's own thread

// In front of each line that is kept, or alone: then for lines that are not shown.
struct KeptHead {
  int32_t Length;   // of the line behind it
  int32_t Hidden;   // lines that are not shown here; 0: a line
  int32_t Repeats;  // number of the task whose repeated try it is of, kNoTask if none
};

// One of the two outputs, with what it has not taken yet, in order.
class Output {
 public:
  constexpr Output(int descriptor, char (&kept)[kKeptSize]) : Descriptor(descriptor), Kept(kept) {}

  void SetSocket() { IsSocket = true; }

  void Print(const char* line, size_t length, int taskNo) {
    const Try kind = taskNo == kNoTask ? Try::First : Tries[taskNo];
    if (kind == Try::RepeatBegins) {
      Tries[taskNo] = Try::Repeat;
      HideRepeats(taskNo);
    }
    if (Offer()) {
      const size_t taken = Write(line, length);
      if (taken == length) return;
      if (taken > 0) return KeepRest(line + taken, length - taken);
    }
    Keep(line, length, kind == Try::First ? kNoTask : taskNo);
  }

  // True when nothing is left.
  bool Offer() {
    if (RestLength > 0 && !OfferRest()) return false;
    while (Begin < End) {
      if (!OfferFirst()) return false;
    }
    Begin = End = 0;
    return true;
  }

 private:
  // Bytes that are done with: taken, or lost because the console is gone. Fewer than all: it takes no more at present.
  size_t Write(const char* text, size_t length) const {
    for (size_t done = 0; done < length;) {
      const ssize_t count =
          IsSocket ? sendto(Descriptor, text + done, length - done, MSG_DONTWAIT | MSG_NOSIGNAL, nullptr, 0)
                   : write(Descriptor, text + done, length - done);
      if (count > 0) done += static_cast<size_t>(count);
      if (count > 0 || (count < 0 && errno == EINTR)) continue;
      return count < 0 && errno == EAGAIN ? done : length;
    }
    return length;
  }

  bool OfferRest() {
    const size_t taken = Write(Rest, RestLength);
    RestLength -= taken;
    std::memmove(Rest, Rest + taken, RestLength);
    return RestLength == 0;
  }

  // False when it was not taken whole.
  bool OfferFirst() {
    const KeptHead head = HeadAt(Begin);
    const char* text = Kept + Begin + sizeof head;
    size_t length = static_cast<size_t>(head.Length);
    char gap[40];
    if (head.Hidden != 0) {
      text = gap;
      length = static_cast<size_t>(std::snprintf(gap, sizeof gap, "-- %d lines not shown --\n", head.Hidden));
    }
    const size_t taken = Write(text, length);
    if (taken == 0) return false;
    Begin += SizeOf(head);
    if (taken < length) KeepRest(text + taken, length - taken);
    return taken == length;
  }

  // The rest of a line that was taken in part goes out before any other.
  void KeepRest(const char* text, size_t length) {
    std::memcpy(Rest, text, length);
    RestLength = length;
  }

  void Keep(const char* line, size_t length, int repeats) {
    const KeptHead head = {static_cast<int32_t>(length), 0, repeats};
    Compact();
    // There is always room for one more head: that of a gap.
    if (End + SizeOf(head) + sizeof head > kKeptSize) return HideNext();
    std::memcpy(Kept + End, &head, sizeof head);
    std::memcpy(Kept + End + sizeof head, line, length);
    Last = End;
    End += SizeOf(head);
  }

  void HideNext() {
    KeptHead head = {0, 1, kNoTask};
    const bool isGap = Begin < End && HeadAt(Last).Hidden != 0;
    if (isGap) {
      head.Hidden += HeadAt(Last).Hidden;
      std::memcpy(Kept + Last, &head, sizeof head);
      return;
    }
    std::memcpy(Kept + End, &head, sizeof head);
    Last = End;
    End += sizeof head;
  }

  // The lines of the task's repeated try become gaps, and gaps side by side become one.
  void HideRepeats(int taskNo) {
    size_t to = Begin;
    size_t gap = kKeptSize;  // where the last one kept lies if that is a gap
    for (size_t from = Begin; from < End;) {
      KeptHead head = HeadAt(from);
      const size_t size = SizeOf(head);
      const size_t text = from + sizeof head;
      from += size;
      if (head.Hidden == 0 && head.Repeats == taskNo) head = {0, 1, kNoTask};
      if (head.Hidden != 0 && gap != kKeptSize) {
        head.Hidden += HeadAt(gap).Hidden;
        std::memcpy(Kept + gap, &head, sizeof head);
        continue;
      }
      gap = head.Hidden != 0 ? to : kKeptSize;
      Last = to;
      std::memmove(Kept + to + sizeof head, Kept + text, static_cast<size_t>(head.Length));
      std::memcpy(Kept + to, &head, sizeof head);
      to += SizeOf(head);
    }
    End = to;
  }

  void Compact() {
    if (Begin == 0) return;
    std::memmove(Kept, Kept + Begin, End - Begin);
    Last = Last >= Begin ? Last - Begin : 0;
    End -= Begin;
    Begin = 0;
  }

  KeptHead HeadAt(size_t place) const {
    KeptHead head;
    std::memcpy(&head, Kept + place, sizeof head);
    return head;
  }
  static size_t SizeOf(const KeptHead& head) { return sizeof head + static_cast<size_t>(head.Length); }

  int Descriptor;
  bool IsSocket = false;
  char Rest[kRestSize] = {};  // of a line that was taken in part
  size_t RestLength = 0;
  char (&Kept)[kKeptSize];  // heads with their lines, from Begin to End
  size_t Begin = 0;
  size_t End = 0;
  size_t Last = 0;  // the head that was put there last
};

// Guards both outputs, and with them the order of the lines. A leaf: nothing is taken and nobody waits under it.
OwnLock ConsoleLock;
// Not within the outputs, whose descriptors are not 0: the program's file would carry 128 KB of zeros.
char KeptLines[kKeptSize];
char KeptErrors[kKeptSize];
Output Lines GUARDED_BY(ConsoleLock)(STDOUT_FILENO, KeptLines);
Output Errors GUARDED_BY(ConsoleLock)(STDERR_FILENO, KeptErrors);

// A pipe or terminal that is opened again can be told not to wait without telling whoever else has it open. One that
// cannot be opened stays as it is. O_NOCTTY: a serial line must not become the controlling terminal.
void OpenAgain(int descriptor) {
  char path[40];
  std::snprintf(path, sizeof path, "/proc/self/fd/%d", descriptor);
  const int again = open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY);
  if (again < 0) return;
  dup2(again, descriptor);
  close(again);
}

void Prepare(Output& output, int descriptor) {
  struct stat status;
  if (fstat(descriptor, &status) != 0) return;
  if (S_ISSOCK(status.st_mode)) output.SetSocket();
  if (S_ISFIFO(status.st_mode) || isatty(descriptor) == 1) OpenAgain(descriptor);
}

}  // namespace

// No thread has been started yet.
void PrepareConsole() NO_THREAD_SAFETY_ANALYSIS {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) < 0 && errno == EBADF) (void)!open("/dev/null", O_RDWR);
  }
  Prepare(Lines, STDOUT_FILENO);
  Prepare(Errors, STDERR_FILENO);
}

void PrintLine(const char* line, size_t length, int TaskNo) {
  const ScopedLock lock(ConsoleLock);
  Lines.Print(line, length, TaskNo >= 0 && TaskNo < kTaskNos ? TaskNo : kNoTask);
}

void PrintError(const char* text) {
  char line[kRestSize];
  const int length = std::snprintf(line, sizeof line, "%s: %s\n", text, std::strerror(errno));
  if (length < 0) return;
  const ScopedLock lock(ConsoleLock);
  Errors.Print(line,
               static_cast<size_t>(length) < sizeof line ? static_cast<size_t>(length) : sizeof line - 1,
               kNoTask);
}

bool OfferConsole() {
  const ScopedLock lock(ConsoleLock);
  const bool isLineLeft = !Lines.Offer();
  const bool isErrorLeft = !Errors.Offer();
  return !isLineLeft && !isErrorLeft;
}

RepeatedTry::RepeatedTry(int taskNo, bool isRepeated) : TaskNo(taskNo) {
  Tries[TaskNo] = isRepeated ? Try::RepeatBegins : Try::First;
}

RepeatedTry::~RepeatedTry() {
  Tries[TaskNo] = Try::First;
}
