// What a controller of failing_calls.cpp leaves behind: in a file that the test has made.
#pragma once

#include <cstdint>

constexpr int kCallRoles = 11;  // the keypad, the PLC tasks, the network and, last, the main thread
constexpr int kMainRole = 10;

struct CallRecord {
  std::int64_t failed;                 // calls that were made to fail
  std::int64_t made[kCallRoles];       // calls of each thread since its start
  std::int32_t isWaiting[kCallRoles];  // 1: in a call for a datagram
  std::int32_t failedRole;             // of the first call that failed
  char failedAt[256];                  // and what it was about: a path, "bus", "console"
};
