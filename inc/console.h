// The console: standard output and standard error. No call here waits for them: a task goes on while its console stands
// still. What a console does not take at once is kept and offered again.
#pragma once

#include <cstddef>

constexpr int kNoTask = -1;

// Fills standard descriptors that are closed, and opens standard output and error again where they may stand still. Before
// anything else is opened: the device would get the number of the console, and what is printed would go out on the bus.
void PrepareConsole();

// A whole line, its line feed included, on standard output: at once and in one system call if the console keeps up.
// TaskNo: whose line it is, kNoTask if nobody's.
void PrintLine(const char* line, size_t length, int TaskNo);
// On standard error the text and what errno says, as perror does it.
void PrintError(const char* text);
// Offers what is kept to the console. True when nothing is left.
bool OfferConsole();

// While it lives, a task tries the line that it waits with once more. On a console that is behind, what this try prints
// takes the place of what the task's try before has printed. By the task's own thread.
class RepeatedTry {
 public:
  RepeatedTry(int TaskNo, bool isRepeated);
  ~RepeatedTry();
  RepeatedTry(const RepeatedTry&) = delete;
  RepeatedTry& operator=(const RepeatedTry&) = delete;

 private:
  int TaskNo;
};
