#include "Velmo.h"

#include <pthread.h>
#include <sys/reboot.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "console.h"
#include "drvlib.h"
#include "files.h"
#include "numbers.h"
#include "synx.h"
#include "udpserver.h"
#include "waits.h"

std::atomic<int> g_Flag{0};

namespace {

constexpr int kMaxLocalPath = 256;
constexpr int kTasksForTooMany = 1;
constexpr int kSupervisorPeriodMillis = 5000;
constexpr int kRestartCommand = 0x01234567;
constexpr int kConsoleRestSeconds = 1;  // for what the console has not taken yet
constexpr int kConsolePauseMicros = 10000;
constexpr int kNetworkPauseMicros = 100;
constexpr int kLastTaskWithLongIdLine = 5;
char RebootFile[] = "reboot.txt";

struct LockRow {
  pthread_mutex_t* Lock;
  const char* FailText;
};

constexpr LockRow kLocks[] = {
    {&FileLock, "FileLock mutex_lock fail"},   {&HardLockOut, "HardLock mutex_lock fail"},
    {&HardLockIn, "HardLock mutex_lock fail"}, {&HardLock, "HardLock mutex_lock fail"},
    {&DispLock, "DispLock mutex_lock fail"},   {&SynxLock, "DispLock mutex_lock fail"},
    {&UdpLock, "UdpLock mutex_lock fail"},
};

using ThreadEntry = void* (*)(void*);
constexpr ThreadEntry kPlcThreads[kMaxPlcTask] = {thread_Task1, thread_Task2, thread_Task3, thread_Task4,
                                                  thread_Task5, thread_Task6, thread_Task7, thread_Task8};

unsigned ProcessNo() {
  return static_cast<unsigned>(getpid());
}
unsigned ThreadNo() {
  return static_cast<unsigned>(gettid());
}

void* RunPlcThread(int taskNo) {
  Wprintf(taskNo, "Load TaskPLC%d.\n", taskNo);
  if (taskNo <= kLastTaskWithLongIdLine) {
    Wprintf(taskNo, "ID:%u, TID is %u, g_Flag: %d.\n", ProcessNo(), ThreadNo(), g_Flag.load());
  } else {
    Wprintf(taskNo, "ID: %u, TID: %u, g_Flag: %d.\n", ProcessNo(), ThreadNo(), g_Flag.load());
  }
  g_Flag = 1;
  TaskPLC(taskNo);
  Wprintf(taskNo, "Leave TaskPLC%d.\n", taskNo);
  return nullptr;
}

void* RunServiceThread(const char* loadLine, void (*body)(int), int taskNo) {
  Console("%s\n", loadLine);
  Console("ID: %u, TID: %u, g_Flag: %d.\n", ProcessNo(), ThreadNo(), g_Flag.load());
  g_Flag = 1;
  body(taskNo);
  return nullptr;
}

void PrintBanner(const char* localPath) {
  Console("Velmo System Software Ver:%s \n", SOFTVERSION);
  Console("Support 8 PLCs.\n");
  Console("Velmo Machine Works\n");
  Console("RunEnv: %s\n\n", localPath);
}

void MakeLocks() {
  for (const LockRow& row : kLocks) {
    errno = pthread_mutex_init(row.Lock, nullptr);
    if (errno == 0) continue;
    PrintError(row.FailText);
    std::exit(EXIT_FAILURE);
  }
}

int ChooseTaskNum(int argc, char** argv, int scanResult) {
  int taskNum = argc > 1 ? ToNumber<int>(argv[1]) : scanResult;
  if (taskNum > kMaxPlcTask) taskNum = kTasksForTooMany;
  Console("Allow PLC[%d]: %d\n", argc, taskNum);
  return taskNum;
}

void StartThread(ThreadEntry entry) {
  pthread_t thread;
  const int error = pthread_create(&thread, nullptr, entry, nullptr);
  if (error != 0) {
    Console("%s: %s\n", "main", std::strerror(error));
    return;
  }
  pthread_detach(thread);
}

void StartThreads(int taskNum) {
  for (int i = 0; i < taskNum; ++i) StartThread(kPlcThreads[i]);
  StartThread(thread_Task0);
  StartThread(thread_TaskNet);
}

// False when the request cannot be taken away: it would restart the machine again at each start.
bool RestartMachine() {
  Console("Velmo: Reboot!\n");
  if (std::remove(RebootFile) != 0 && errno != ENOENT) {
    Console("%s cannot be removed: %s, no restart\n", RebootFile, std::strerror(errno));
    return false;
  }
  sync();
  PollUntil(RealSeconds(kConsoleRestSeconds), kConsolePauseMicros, [] { return OfferConsole(); });
  // Without the privilege the call fails, and supervision goes on.
  reboot(kRestartCommand);
  return true;
}

[[noreturn]] void Supervise(char* localPath) {
  bool isRefused = false;  // until the request is seen to be gone
  for (;;) {
    const bool isRequested = FindFile(localPath, RebootFile) != 0;
    if (!isRequested) isRefused = false;
    if (isRequested && !isRefused) isRefused = !RestartMachine();
    PauseMillis(kSupervisorPeriodMillis);
  }
}

}  // namespace

void* thread_Task1(void*) {
  return RunPlcThread(1);
}
void* thread_Task2(void*) {
  return RunPlcThread(2);
}
void* thread_Task3(void*) {
  return RunPlcThread(3);
}
void* thread_Task4(void*) {
  return RunPlcThread(4);
}
void* thread_Task5(void*) {
  return RunPlcThread(5);
}
void* thread_Task6(void*) {
  return RunPlcThread(6);
}
void* thread_Task7(void*) {
  return RunPlcThread(7);
}
void* thread_Task8(void*) {
  return RunPlcThread(8);
}
void* thread_Task0(void*) {
  return RunServiceThread("Load TaskKey.", TaskKey, kTaskKey);
}
void* thread_TaskNet(void*) {
  return RunServiceThread("Load TaskNet.", TaskUdp, kTaskNet);
}

void TaskUdp(int TaskNo) {
  UDPServer.Init(TaskNo);
  char message[MAX_MSG_SIZE];
  for (;;) {
    const int count = UDPServer.Recv(message);
    if (count <= 0) {
      PauseMicros(kNetworkPauseMicros);
      continue;
    }
    Wprintf(TaskNo, "Server received[%d]:%.*s\n", count, count, message);
    UDPServer.Send("Hello! i am OK.\n");
  }
}

int main(int argc, char** argv) {
  // A console at the other end of a pipe may go away; the machine runs on.
  std::signal(SIGPIPE, SIG_IGN);
  char localPath[kMaxLocalPath];
  if (getcwd(localPath, sizeof localPath) == nullptr) std::strcpy(localPath, ".");
  PrintBanner(localPath);
  ChangFileMod();
  MakeLocks();
  const int scanResult = Hardware.ScanCard(&CardInfo);
  StartThreads(ChooseTaskNum(argc, argv, scanResult));
  Supervise(localPath);
}
