// The PLC tasks, which run the program files, and the keypad task, which gives them the operator's keys.
#pragma once

#include <pthread.h>

#include <atomic>

#include "public.h"

constexpr int MAXKEYTASK = MAXPLCTASK + 1;  // entries of the key mailbox: the keypad task and the PLC tasks

// One entry of the key mailbox. Assigning a key wakes whoever waits for one.
class KEYENTRY {
 public:
  KEYENTRY() = default;
  KEYENTRY(const KEYENTRY&) = delete;
  KEYENTRY& operator=(const KEYENTRY&) = delete;

  HKEY operator=(HKEY key) {
    store(key);
    return key;
  }
  operator HKEY() const { return load(); }

  void store(HKEY key);
  HKEY load() const { return Key; }
  // Returns once the entry holds a key; at once if it does.
  void WaitForKey();

 private:
  std::atomic<HKEY> Key{HKEY_NUL};
  pthread_mutex_t Lock = PTHREAD_MUTEX_INITIALIZER;  // between a look at the key and the wait for it; a leaf
  pthread_cond_t Posted = PTHREAD_COND_INITIALIZER;
};

// The key of the last poll for each task number, HKEY_NUL when there was none. No queue: each poll overwrites
// all entries. One writer: the keypad task.
extern KEYENTRY GlobeHKey[MAXKEYTASK];

// One open, close or line read of a program file; also the motor files.
extern pthread_mutex_t FileLock;

// Body of PLC task TaskNo (1 to 8). Returns only when the reset program cannot be opened at start.
void TaskPLC(int TaskNo);

// Body of the keypad task (TaskNo 0): polls the CPU card's keypad about every 100 ms. Never returns.
void TaskKey(int TaskNo);
