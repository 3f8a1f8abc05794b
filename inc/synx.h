// The program language: its commands, the parser of one line, the hand-over of a command to its card, the
// label search and the step gate.
#pragma once

#include <pthread.h>

#include <cstdio>
#include <string_view>

#include "locks.h"
#include "public.h"

// How the rest of a line is read behind its keyword.
enum class ParseForm {
  KeywordOnly,  // END
  OneWord,      // FL: word            the word is the parameter, the number it begins with the slot index
  OneNumber,    // GO: number          the number is the slot index
  Channel,      // LDG: channel, parameter (slot index 0), or LDG: slot, channel, parameter
  ThreeFields   // OUT: slot, channel, parameter
};

// Whether a task in step mode holds after the command until a release key.
enum class StepGate { Open, Holds };

// Whether the task executes the line again until the card says that the condition is met.
enum class LineRepeat { Once, UntilMet };

// The command table: row(index, enumerator, keyword, ParseForm, StepGate, LineRepeat, action). Everything that is
// made for each command is made from these rows; the action's name is the name of the runner's function
// behind "Run".
// clang-format off
#define SYNX_COMMANDS(row)                                          \
  row(0, SYN_NUL, "NUL", ThreeFields, Open, Once, Nothing)          \
  row(1, SYN_LD, "LD", ThreeFields, Holds, UntilMet, LD)            \
  row(2, SYN_OUT, "OUT", ThreeFields, Holds, Once, OUT)             \
  row(3, SYN_FL, "FL", OneWord, Open, Once, FL)                     \
  row(4, SYN_PARAM, "PARAM", ThreeFields, Open, Once, Nothing)      \
  row(5, SYN_DG, "DG", ThreeFields, Holds, Once, DG)                \
  row(6, SYN_LINE, "#LE", OneNumber, Open, Once, Nothing)           \
  row(7, SYN_END, "END", KeywordOnly, Open, Once, END)              \
  row(8, SYN_MOT, "MOT", ThreeFields, Holds, Once, MOT)             \
  row(9, SYN_LDG, "LDG", Channel, Holds, UntilMet, LDG)             \
  row(10, SYN_DLY, "DLY", OneWord, Open, Once, DLY)                 \
  row(11, SYN_GO, "GO", OneNumber, Open, Once, GO)                  \
  row(12, SYN_RLY, "RLY", ThreeFields, Holds, Once, Nothing)        \
  row(13, SYN_MFL0, "MFL0", ThreeFields, Open, Once, Nothing)       \
  row(14, SYN_MFL1, "MFL1", ThreeFields, Open, Once, Nothing)       \
  row(15, SYN_MFL2, "MFL2", ThreeFields, Open, Once, Nothing)       \
  row(16, SYN_MFL0END, "MFL0END", ThreeFields, Open, Once, Nothing) \
  row(17, SYN_MFL1END, "MFL1END", ThreeFields, Open, Once, Nothing) \
  row(18, SYN_MFL2END, "MFL2END", ThreeFields, Open, Once, Nothing) \
  row(19, SYN_EXIT, "EXIT", KeywordOnly, Open, Once, EXIT)          \
  row(20, SYN_RSTMOT, "RSTMOT", Channel, Open, Once, Nothing)       \
  row(21, SYN_LMOT, "LMOT", Channel, Open, UntilMet, LMOT)          \
  row(22, SYN_SMOT, "SMOT", ThreeFields, Open, Once, Nothing)       \
  row(23, SYN_MOZ, "MOZ", ThreeFields, Holds, Once, Nothing)        \
  row(24, SYN_IF, "IF", ThreeFields, Open, Once, IF)                \
  row(25, SYN_RSTMOZ, "RSTMOZ", ThreeFields, Holds, Once, Nothing)  \
  row(26, SYN_LMOZ, "LMOZ", ThreeFields, Holds, Once, Nothing)      \
  row(27, SYN_LED, "LED", ThreeFields, Holds, Once, Nothing)        \
  row(28, SYN_G_ST, "G_ST", OneWord, Open, Once, G_ST)              \
  row(29, SYN_DGO, "DGO", ThreeFields, Open, Once, Nothing)         \
  row(30, SYN_LDGI, "LDGI", ThreeFields, Open, Once, Nothing)       \
  row(31, SYN_ROW, "ROW", ThreeFields, Open, UntilMet, ROW)         \
  row(32, SYN_ROCLR, "ROCLR", ThreeFields, Open, Once, ROCLR)       \
  row(33, SYN_OUTE, "OUTE", ThreeFields, Holds, Once, Nothing)
// clang-format on

// Command index.
enum SYNXIDX {
#define SYNX_ENUMERATOR(index, enumerator, keyword, form, gate, repeat, action) enumerator = (index),
  SYNX_COMMANDS(SYNX_ENUMERATOR)
#undef SYNX_ENUMERATOR
};

constexpr int SYNMAX = 34;           // commands
constexpr int kSynxCmdSize = 20;     // a keyword, terminating zero included
constexpr int kMaxLineLength = 999;  // characters of a line that is still parsed

// What the parser, the step gate and the runner know of a command besides its keyword.
struct SynxTraits {
  ParseForm Form;
  StepGate Gate;
  LineRepeat Repeat;
};

// Both indexed by SYNXIDX; constant.
extern const char SYNXCMD[SYNMAX][kSynxCmdSize];
extern const SynxTraits kSynxTraits[SYNMAX];

// Why a line yields nothing to execute.
enum class LineFault {
  None,
  Empty,           // blank, or a comment only
  TooLong,         // more than kMaxLineLength characters
  UnknownKeyword,  // in front of the first ":"
  MissingColon,    // the command needs fields
  TooFewFields,
  KeywordNul  // "NUL" is in the table, but nothing to execute
};

// A part of a line that was read as a number. Column: byte of the line where its text begins, counted from 0,
// -1 when the number is not written in the line.
struct LineNumber {
  bool Given = false;
  int Value = 0;
  int Column = -1;
  std::string_view Text;  // trimmed, with what stands behind the digits
};

// A line taken apart. The texts are trimmed and point into the line.
struct ExplainedLine {
  SYNXIDX CmdIdx = SYN_NUL;   // what is to be executed: SYN_NUL with every fault
  SYNXIDX Keyword = SYN_NUL;  // the command that the keyword names, also when its fields are wrong
  int KeywordColumn = 0;
  LineFault Fault = LineFault::None;
  int FaultColumn = 0;  // byte of the line that the fault is about, counted from 0
  LineNumber SlotIdx;
  LineNumber ChIdx;
  bool HasParam = false;
  std::string_view Param;
  int ParamColumn = -1;
  std::string_view Comment;
};

// The parser's core, for the controller and for tools alike: takes a line apart and says why it yields
// nothing. NeedsParam false: a line of the form ThreeFields may end behind its channel.
void ExplainLine(const char* line, ExplainedLine* result, bool needsParam = true);

// Whether a line, as read from its file, is a label, and its number: what GO searches for. Length and comment
// of the line do not count.
bool IsLabel(const char* line, int* number);

// The parser as the PLC tasks use it. Has no state: all tasks share one object without a lock.
class SYNX {
 public:
  SYNX() = default;

  // Takes the line CmdName apart and returns its command, SYN_NUL when there is nothing to execute. SlotIdx
  // and Param are written only by the forms that carry them, ChIdx is -1 unless the form carries a channel,
  // CommentStr is always written. Param (may be null) and CommentStr have room for kMaxParam bytes.
  SYNXIDX Explain(const char* CmdName, int* SlotIdx, int* ChIdx, char* Param, char* CommentStr);
};

extern SYNX SynxClass;
extern pthread_mutex_t SynxLock;  // one decision of the step gate
inline LockRole SynxRole;

// Hand-over of a command to the card in entry SlotIdx of the card table. Result of the card's operation: 1 or
// more done or met, 0 not done or not met, -1 failed; -1 without any access when there is no such entry.
int Task_LD(int SlotIdx, int ChIdx, void* pArgc);
int Task_OUT(int SlotIdx, int ChIdx, void* pArgc);
int Task_MOT(int SlotIdx, int ChIdx, void* pArgc);
int Task_LMOT(int SlotIdx, int ChIdx, void* pArgc);
int Task_DG(int SlotIdx, int ChIdx, void* pArgc);
int Task_LDG(int SlotIdx, int ChIdx, void* pArgc);
int Task_ROW(int SlotIdx, int ChIdx, void* pArgc);
int Task_ROCLR(int SlotIdx, int ChIdx, void* pArgc);
// pArgc: the condition. The card writes the name of the block to call into pOutParameter (room for kMaxName
// bytes) when it returns 1; a card without conditions returns 1 and writes nothing.
int Task_IF(int SlotIdx, int ChIdx, void* pArgc, char* pOutParameter);

// Positions the file behind the first label line "#LE" of that number, searching from its start. 1: found. 0:
// not found, the file is at its end (or there is no file). FileLock is not taken.
int GoFileLine(FILE* Fptr, int LineIdx);

// The step gate. 0: the task may read and execute its next line. 1: it is held in this pass.
// CmdIdx: the command of the line parsed last. Takes SynxLock.
int FilterStep(HKEY InKey, int IsStep, SYNXIDX* CmdIdx);
