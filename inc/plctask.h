// The PLC tasks, which run the program files, and the keypad task, which gives them the operator's keys.
#pragma once

#include <pthread.h>

#include <atomic>

#include "locks.h"
#include "public.h"

constexpr int kMaxKeyTask = kMaxPlcTask + 1;  // entries of the key mailbox: the keypad task and the PLC tasks

// One entry of the key mailbox. Assigning a key wakes whoever waits for one.
class KeyEntry {
 public:
  KeyEntry() = default;
  KeyEntry(const KeyEntry&) = delete;
  KeyEntry& operator=(const KeyEntry&) = delete;

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
  void Sleep() REQUIRES(Lock) { pthread_cond_wait(&Posted, &Lock.Mutex); }
  void Wake() REQUIRES(Lock) { pthread_cond_broadcast(&Posted); }

  std::atomic<HKEY> Key{HKEY_NUL};
  OwnLock Lock;  // from a look at the key to the wait for it; a leaf
  pthread_cond_t Posted = PTHREAD_COND_INITIALIZER;
};

// The key of the last poll for each task number, HKEY_NUL when there was none. No queue: each poll overwrites
// all entries. One writer: the keypad task.
extern KeyEntry GlobeHKey[kMaxKeyTask];

// Body of PLC task TaskNo (1 to 8). Returns only when the reset program cannot be opened at start.
void TaskPLC(int TaskNo);

// Body of the keypad task (TaskNo 0): polls the CPU card's keypad about every 100 ms. Never returns.
void TaskKey(int TaskNo);
