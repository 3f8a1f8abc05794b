#include "plctask.h"

#include <cstdio>
#include <cstring>

#include "console.h"
#include "drvlib.h"
#include "files.h"
#include "kova_man.h"
#include "locks.h"
#include "readini.h"
#include "synx.h"
#include "waits.h"

KeyEntry GlobeHKey[kMaxKeyTask];

namespace {

constexpr const char* kResetProgram = "RESET.PLC";
constexpr const char* kFlowProgram = "FLOW.PLC";

constexpr int kCommandPauseMillis = 10;     // between two commands, until G_ST changes it
constexpr int kNoCommandPauseMicros = 100;  // after a line that holds no command
constexpr int kEndPauseMillis = 1000;
constexpr int kKeyPauseMillis = 50;  // before and after a poll of the keypad
// Between two passes of a task that has nothing to do and sees a key, which stays in the mailbox for about 100 ms.
constexpr int kIdlePauseMillis = 20;

// A program file. Opening, closing and reading a line take FileLock; rewinding and a search do not.
class ProgramFile {
 public:
  ProgramFile() = default;
  ~ProgramFile() { Close(); }
  ProgramFile(const ProgramFile&) = delete;
  ProgramFile& operator=(const ProgramFile&) = delete;

  bool Open(const char* path) {
    Close();
    const ScopedLock lock(FileLock, FileRole);
    OpenAt(path);
    return File != nullptr;
  }

  void Close() {
    if (File == nullptr) return;
    const ScopedLock lock(FileLock, FileRole);
    CloseFile();
  }

  // False at the end of the file or after a failed read: the line is then as it was.
  bool ReadLine(char (&line)[kMaxLine]) {
    char text[kMaxLine];
    const ScopedLock lock(FileLock, FileRole);
    if (!GetLine(text)) return false;
    std::strcpy(line, text);
    return true;
  }

  void Rewind() {
    if (File != nullptr) std::rewind(File);
  }

  bool IsOpen() const { return File != nullptr; }
  FILE* Get() const { return File; }

 private:
  void OpenAt(const char* path) REQUIRES(FileRole) { File = OpenFile(path, "rt"); }
  bool GetLine(char (&text)[kMaxLine]) REQUIRES(FileRole) {
    return std::fgets(text, sizeof text, File) != nullptr;
  }
  void CloseFile() REQUIRES(FileRole) {
    std::fclose(File);
    File = nullptr;
  }

  FILE* File = nullptr;
};

// The state of one PLC task; only its own thread touches it.
struct PlcTask {
  explicit PlcTask(int taskNo) : TaskNo(taskNo) {}

  int TaskNo;
  HKEY HKey = HKEY_NUL;               // key of this pass; HKEY_NUL once consumed
  int IsStep = 0;                     // 1: step mode
  int IsStepIn = 0;                   // 1: step latch, HKEY_Enter does not leave step mode
  int IsWait = 0;                     // 1: the line's condition is not met, the next pass executes it again
  int G_Delay = kCommandPauseMillis;  // ms, after an executed command
  int FunBlock = 0;                   // 1: lines come from the block, not from the main program
  ProgramFile Fptr;                   // main program
  ProgramFile Fptrs;                  // block
  ProgramFile* ComFilePtr = nullptr;  // file of the last line read, null when that has been closed since
  char szMainFile[kMaxName] = "";     // name of the main program, empty after EXIT
  char szLoadFile[kMaxName] = "";     // its path
  char szPath[kMaxName] = "";         // name of the block
  char szLoadFunFile[kMaxName] = "";  // its path
  char szDispFile[kMaxName] = "";     // name shown in the log line
  char Buf[kMaxLine] = "";            // current line
  char szParam1[kMaxParam] = "";      // line logged last
  char Charactor[100] = "";           // end of the log line
  SYNXIDX CmdIdx = SYN_NUL;           // command of the line parsed last, with its parts
  int SlotIdx = 0;
  int ChIdx = 0;
  char szParam[kMaxParam] = "";
  char szComment[kMaxParam] = "";
  int SRes = 0;  // result of the last card operation
};

// Copies a name, cut where it does not fit.
void CopyName(char (&name)[kMaxName], const char* text) {
  const size_t length = strnlen(text, sizeof name - 1);
  std::memcpy(name, text, length);
  name[length] = '\0';
}

// Path of one of the task's files; false when it does not fit.
bool MakePath(const PlcTask& task, char (&path)[kMaxName], const char* name) {
  const int length = std::snprintf(path, sizeof path, "plc%d/%s", task.TaskNo, name);
  return length > 0 && length < static_cast<int>(sizeof path);
}

// GO searches the file of the last line: a closed one must not be searched.
void CloseProgram(PlcTask& task, ProgramFile& file) {
  file.Close();
  if (task.ComFilePtr == &file) task.ComFilePtr = nullptr;
}

bool OpenMain(PlcTask& task, const char* name) {
  CloseProgram(task, task.Fptr);
  CopyName(task.szMainFile, name);
  return MakePath(task, task.szLoadFile, name) && task.Fptr.Open(task.szLoadFile);
}

void ReportLostMain(const PlcTask& task) {
  Wprintf(task.TaskNo, "Load PLC%d Run: [%s] Failed!\n", task.TaskNo, task.szLoadFile);
}

// Actions of the commands. The result says whether the pause between commands follows.
enum class PauseAfter { None, Command };

// The block named by szParam. No message when it cannot be opened.
PauseAfter CallBlock(PlcTask& task) {
  CopyName(task.szPath, task.szParam);
  CloseProgram(task, task.Fptrs);
  if (!MakePath(task, task.szLoadFunFile, task.szParam)) return PauseAfter::Command;
  if (!task.Fptrs.Open(task.szLoadFunFile)) return PauseAfter::Command;
  task.FunBlock = 1;
  return PauseAfter::None;
}

PauseAfter RunNothing(PlcTask&) {
  return PauseAfter::Command;
}

PauseAfter RunLD(PlcTask& task) {
  Wprintf(task.TaskNo, "SYN_LD: SlotIdx:%d  ChIdx:%d %s\n", task.SlotIdx, task.ChIdx, task.szParam);
  task.SRes = Task_LD(task.SlotIdx, task.ChIdx, task.szParam);
  return PauseAfter::Command;
}

PauseAfter RunOUT(PlcTask& task) {
  task.SRes = Task_OUT(task.SlotIdx, task.ChIdx, task.szParam);
  if (task.SRes < 1) {
    Wprintf(task.TaskNo, "Task_OUT Fail[%d]:SlotIDx:%d, ChIdx:%d %s\n", task.SRes, task.SlotIdx, task.ChIdx,
            task.szParam);
  }
  return PauseAfter::Command;
}

PauseAfter RunFL(PlcTask& task) {
  return CallBlock(task);
}

PauseAfter RunDG(PlcTask& task) {
  Wprintf(task.TaskNo, "SYN_DG: SlotIdx:%d ChIdx:%d %s\n", task.SlotIdx, task.ChIdx, task.szParam);
  Task_DG(task.SlotIdx, task.ChIdx, task.szParam);
  return PauseAfter::Command;
}

PauseAfter RunEND(PlcTask& task) {
  Wprintf(task.TaskNo, "SYN_END:%d \n", task.FunBlock);
  PauseMillis(kEndPauseMillis);
  if (task.FunBlock == 1) {
    CloseProgram(task, task.Fptrs);
    task.FunBlock = 0;
  } else {
    task.Fptr.Rewind();
  }
  return PauseAfter::None;
}

PauseAfter RunMOT(PlcTask& task) {
  Wprintf(task.TaskNo, "SYN_MOT: SlotIdx:%d  ChIdx:%d %s\n", task.SlotIdx, task.ChIdx, task.szParam);
  task.SRes = Task_MOT(task.SlotIdx, task.ChIdx, task.szParam);
  Wprintf(task.TaskNo, "Task_MOT %s[%d]:SlotIDx:%d, ChIdx:%d %s\n", task.SRes > 0 ? "OK" : "Fail", task.SRes,
          task.SlotIdx, task.ChIdx, task.szParam);
  return PauseAfter::Command;
}

PauseAfter RunLDG(PlcTask& task) {
  task.SRes = Task_LDG(task.SlotIdx, task.ChIdx, nullptr);
  return PauseAfter::Command;
}

PauseAfter RunDLY(PlcTask& task) {
  PauseMillis(task.SlotIdx);
  return PauseAfter::Command;
}

PauseAfter RunGO(PlcTask& task) {
  if (task.ComFilePtr != nullptr) GoFileLine(task.ComFilePtr->Get(), task.SlotIdx);
  return PauseAfter::Command;
}

PauseAfter RunEXIT(PlcTask& task) {
  task.szMainFile[0] = '\0';
  CloseProgram(task, task.Fptr);
  return PauseAfter::Command;
}

PauseAfter RunLMOT(PlcTask& task) {
  task.SRes = Task_LMOT(task.SlotIdx, task.ChIdx, nullptr);
  return PauseAfter::Command;
}

PauseAfter RunIF(PlcTask& task) {
  Wprintf(task.TaskNo, "SYN_IF: SlotIdx:%d ChIdx:%d %s\n", task.SlotIdx, task.ChIdx, task.szParam);
  CopyName(task.szPath, task.szParam);
  // The card gets the whole condition: the name's place may be too short for it.
  char condition[kMaxParam];
  std::strcpy(condition, task.szParam);
  task.SRes = Task_IF(task.SlotIdx, task.ChIdx, condition, task.szParam);
  return task.SRes > 0 ? CallBlock(task) : PauseAfter::Command;
}

PauseAfter RunG_ST(PlcTask& task) {
  Wprintf(task.TaskNo, "SYN_G_ST: G_Delay:%dms %s\n", task.SlotIdx, task.szParam);
  // A negative pause is a slip of the finger and must not mean full speed.
  if (task.SlotIdx >= 0) task.G_Delay = task.SlotIdx;
  return PauseAfter::Command;
}

PauseAfter RunROW(PlcTask& task) {
  Wprintf(task.TaskNo, "SYN_ROW: SlotIdx:%d ChIdx:%d %s\n", task.SlotIdx, task.ChIdx, task.szParam);
  task.SRes = Task_ROW(task.SlotIdx, task.ChIdx, task.szParam);
  return PauseAfter::Command;
}

PauseAfter RunROCLR(PlcTask& task) {
  Wprintf(task.TaskNo, "SYN_ROCLR: SlotIdx:%d ChIdx:%d %s\n", task.SlotIdx, task.ChIdx, task.szParam);
  task.SRes = Task_ROCLR(task.SlotIdx, task.ChIdx, nullptr);
  return PauseAfter::Command;
}

using RunCommand = PauseAfter (*)(PlcTask& task);

#define SYNX_ACTION(index, enumerator, keyword, form, gate, repeat, action) &Run##action,
constexpr RunCommand kActions[] = {SYNX_COMMANDS(SYNX_ACTION)};
#undef SYNX_ACTION
static_assert(sizeof kActions / sizeof kActions[0] == SYNMAX, "one action per command");

// What a key leaves of the pass.
enum class Pass { GoesOn, Ends };

Pass ResetByKey(PlcTask& task) {
  task.IsStep = 0;
  task.IsStepIn = 0;
  task.IsWait = 0;
  task.FunBlock = 0;
  if (OpenMain(task, kResetProgram)) return Pass::GoesOn;
  ReportLostMain(task);
  return Pass::Ends;
}

Pass RunByKey(PlcTask& task) {
  Wprintf(task.TaskNo, "HKEY_Enter: Task Run[%s]\n", task.szMainFile);
  if (task.IsStepIn == 1) return Pass::GoesOn;
  task.IsStep = 0;
  if (stricmp(task.szMainFile, kFlowProgram) == 0) return Pass::GoesOn;
  if (!OpenMain(task, kFlowProgram)) {
    ReportLostMain(task);
    PauseMicros(1);
    return Pass::Ends;
  }
  Wprintf(task.TaskNo, "PLC%d Run: [%s]\n", task.TaskNo, task.szLoadFile);
  return Pass::GoesOn;
}

// Keys of the keypad are consumed, also those without an effect; function keys go on to the step gate.
Pass HandleKey(PlcTask& task) {
  const HKEY key = task.HKey;
  if (key < HKEY_1 || key > HKEY_Enter) return Pass::GoesOn;
  task.HKey = HKEY_NUL;
  switch (key) {
    case HKEY_6:
      Console("HKEY_6: Task Run\n");
      return Pass::GoesOn;
    case HKEY_Num:
      task.szMainFile[0] = '\0';
      PauseMicros(1);
      return Pass::GoesOn;
    case HKEY_Dec:
      return ResetByKey(task);
    case HKEY_Plus:
      task.IsStep = 1;
      task.IsStepIn = 1;
      return Pass::GoesOn;
    case HKEY_Enter:
      return RunByKey(task);
    default:
      return Pass::GoesOn;
  }
}

// False when there is no file to read from. At the end of the file the line read last stays and is executed
// again.
bool ReadLine(PlcTask& task) {
  ProgramFile& source = task.FunBlock == 1 ? task.Fptrs : task.Fptr;
  if (!source.IsOpen()) return false;
  if (source.ReadLine(task.Buf)) task.ComFilePtr = &source;
  return true;
}

void ParseLine(PlcTask& task) {
  task.szParam[0] = '\0';
  ReadIni.Trim(task.Buf);
  task.CmdIdx = SynxClass.Explain(task.Buf, &task.SlotIdx, &task.ChIdx, task.szParam, task.szComment);
}

void LogLine(PlcTask& task) {
  CopyName(task.szDispFile, task.FunBlock == 1 ? task.szPath : task.szMainFile);
  const bool isRepeat = stricmp(task.Buf, task.szParam1) == 0;
  std::strcpy(task.Charactor, isRepeat ? "\r" : "\n");
  Wprintf(task.TaskNo, "CmdIdx: %s SlotIdx[%d] ChIdx[%d][%s] [%s] [%s]               %s",
          SYNXCMD[task.CmdIdx], task.SlotIdx, task.ChIdx, task.szParam, task.szComment, task.szDispFile,
          task.Charactor);
  std::strcpy(task.szParam1, task.Buf);  // a line with a command is short enough
}

PauseAfter ExecuteLine(PlcTask& task) {
  const PauseAfter pause = kActions[task.CmdIdx](task);
  if (kSynxTraits[task.CmdIdx].Repeat == LineRepeat::UntilMet) task.IsWait = task.SRes < 1 ? 1 : 0;
  return pause;
}

// False when nothing was read and nothing is to be executed: only a key can change that.
bool IsReadyForLine(PlcTask& task) {
  if (HandleKey(task) == Pass::Ends) return false;
  if (FilterStep(task.HKey, task.IsStep, &task.CmdIdx) != 0) return false;
  return task.IsWait == 1 || ReadLine(task);
}

// A task that has nothing to do can only be woken by a key.
void WaitForOtherKey(const PlcTask& task, HKEY seen) {
  if (seen == HKEY_NUL) {
    GlobeHKey[task.TaskNo].WaitForKey();
  } else {
    PauseMillis(kIdlePauseMillis);
  }
}

void RunPass(PlcTask& task) {
  const HKEY key = GlobeHKey[task.TaskNo];
  task.HKey = key;
  if (!IsReadyForLine(task)) return WaitForOtherKey(task, key);
  const bool isRepeated = task.IsWait == 1;
  ParseLine(task);
  if (task.CmdIdx == SYN_NUL) {
    PauseMicros(kNoCommandPauseMicros);
    return;
  }
  const RepeatedTry mark(task.TaskNo, isRepeated);
  LogLine(task);
  if (ExecuteLine(task) == PauseAfter::Command) PauseMillis(task.G_Delay);
}

void PostKey(HKEY key) {
  GlobeHKey[kMaxPlcTask] = key;
  for (int i = kMaxPlcTask; i > 0; --i) GlobeHKey[i - 1] = GlobeHKey[i].load();
}

}  // namespace

void KeyEntry::store(HKEY key) {
  Key = key;
  if (key == HKEY_NUL) return;
  // Whoever looked before the key was there waits by the time that the lock is free.
  const ScopedLock lock(Lock);
  Wake();
}

void KeyEntry::WaitForKey() {
  const ScopedLock lock(Lock);
  while (Key == HKEY_NUL) Sleep();
}

void TaskPLC(int TaskNo) {
  PlcTask task(TaskNo);
  if (!OpenMain(task, kResetProgram)) {
    Wprintf(TaskNo, "%s lost Task quit!\n", task.szMainFile);
    return;
  }
  Wprintf(TaskNo, "Task_PLC%d Running\n", TaskNo);
  for (;;) RunPass(task);
}

void TaskKey(int TaskNo) {
  Console("GlobeHKey Task Load\n");
  for (;;) {
    PauseMillis(kKeyPauseMillis);
    OfferConsole();
    PostKey(kOVA_CardMan[0]->ReadHKey());
    const HKEY LocalHKey = GlobeHKey[0];
    if (LocalHKey != HKEY_NUL) Wprintf(TaskNo, "KeyPad=%x\n", static_cast<unsigned>(LocalHKey));
    PauseMillis(kKeyPauseMillis);
  }
}
