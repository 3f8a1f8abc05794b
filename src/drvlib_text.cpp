// Console, comparison and numeric routines: no hardware behind them, so tools can link them.
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "console.h"
#include "drvlib.h"
#include "locks.h"
#include "public.h"

pthread_mutex_t DispLock;

namespace {

// Longer than any line: a program line or a datagram with what is said about it.
constexpr size_t kConsoleSize = 4096;

class ConsoleLine {
 public:
  void Add(const char* format, ...) __attribute__((format(printf, 2, 3))) {
    va_list arguments;
    va_start(arguments, format);
    AddList(format, arguments);
    va_end(arguments);
  }

  // %s and %d, nearly all that a running program prints, are put here: the C library's way through them would be more than
  // half of what a program line costs.
  void AddList(const char* format, va_list arguments) {
    while (const char* const conversion = std::strchr(format, '%')) {
      AddText(format, static_cast<size_t>(conversion - format));
      if (conversion[1] == 's') {
        const char* const text = va_arg(arguments, const char*);
        AddText(text, std::strlen(text));
      } else if (conversion[1] == 'd') {
        AddNumber(va_arg(arguments, int));
      } else {
        return AddFormatted(conversion, arguments);
      }
      format = conversion + 2;
    }
    AddText(format, std::strlen(format));
  }

  void Print(int taskNo) const { PrintLine(Text, Length, taskNo); }

 private:
  void AddText(const char* text, size_t length) {
    const size_t room = sizeof Text - 1 - Length;
    const size_t count = length < room ? length : room;
    std::memcpy(Text + Length, text, count);
    Length += count;
  }

  void AddNumber(int number) {
    char digits[12];
    AddText(digits, static_cast<size_t>(std::to_chars(digits, digits + sizeof digits, number).ptr - digits));
  }

  void AddFormatted(const char* format, va_list arguments) {
    const int count = std::vsnprintf(Text + Length, sizeof Text - Length, format, arguments);
    if (count > 0) Length += static_cast<size_t>(count);
    if (Length >= sizeof Text) Length = sizeof Text - 1;
  }

  char Text[kConsoleSize];
  size_t Length = 0;
};

int UpperCase(char character) {
  const int byte = static_cast<unsigned char>(character);
  return byte >= 'a' && byte <= 'z' ? byte - 'a' + 'A' : byte;
}

unsigned long Median(unsigned long first, unsigned long second, unsigned long third) {
  const unsigned long larger = first > second ? first : second;
  const unsigned long smaller = first > second ? second : first;
  if (third >= larger) return larger;
  return third >= smaller ? third : smaller;
}

void PrintTagged(int taskNo, const char* format, va_list arguments) REQUIRES(DispRole) {
  ConsoleLine line;
  if (taskNo == kTaskKey) {
    line.Add("PLCKey: ");
  } else if (taskNo == kTaskNet) {
    line.Add("PLCNet: ");
  } else {
    line.Add("PLC%d: ", taskNo);
  }
  line.AddList(format, arguments);
  line.Print(taskNo);
}

}  // namespace

int Wprintf(int TaskNo, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  {
    const ScopedLock lock(DispLock, DispRole);
    PrintTagged(TaskNo, format, arguments);
  }
  va_end(arguments);
  return -1;
}

void Console(const char* format, ...) {
  ConsoleLine line;
  va_list arguments;
  va_start(arguments, format);
  line.AddList(format, arguments);
  va_end(arguments);
  line.Print(kNoTask);
}

int stricmp(const char* str1, const char* str2) {
  if (str1 == nullptr) return str2 == nullptr ? 0 : -1;
  if (str2 == nullptr) return 1;
  for (; *str1 != '\0' && *str2 != '\0'; ++str1, ++str2) {
    if (*str1 == *str2) continue;
    const int difference = UpperCase(*str1) - UpperCase(*str2);
    if (difference != 0) return difference;
  }
  return static_cast<int>(std::strlen(str1)) - static_cast<int>(std::strlen(str2));
}

int MidValueFilter(unsigned long* DatBuf, long DatLen) {
  const long last = DatLen - 1;
  if (DatLen < 3) return static_cast<int>(last);
  unsigned long before = DatBuf[0];
  for (long i = 1; i < last; ++i) {
    const unsigned long sample = DatBuf[i];
    DatBuf[i] = Median(before, sample, DatBuf[i + 1]);
    before = sample;
  }
  DatBuf[0] = DatBuf[1];
  DatBuf[last] = DatBuf[last - 1];
  return static_cast<int>(last);
}

int Sort(float* DatBuf, long DatLen) {
  for (long i = 0; i < DatLen - 1; ++i) {
    for (long j = i + 1; j < DatLen; ++j) {
      if (!(DatBuf[i] > DatBuf[j])) continue;
      const float larger = DatBuf[i];
      DatBuf[i] = DatBuf[j];
      DatBuf[j] = larger;
    }
  }
  return static_cast<int>(DatLen);
}

void FastDelay(int Delay) {
  for (volatile int count = 0; count < Delay;) count = count + 1;
}
