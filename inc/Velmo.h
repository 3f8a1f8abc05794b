// The controller's start-up: its threads and what they share.
#pragma once

#include <atomic>

#include "plctask.h"
#include "public.h"

// 1 as soon as a thread has printed its start-up lines; only shown in the lines of the next one.
extern std::atomic<int> g_Flag;

// Thread entries: the PLC tasks (they end when the reset program is missing), the keypad, the network. The
// argument is not used.
void* thread_Task1(void* arg);
void* thread_Task2(void* arg);
void* thread_Task3(void* arg);
void* thread_Task4(void* arg);
void* thread_Task5(void* arg);
void* thread_Task6(void* arg);
void* thread_Task7(void* arg);
void* thread_Task8(void* arg);
void* thread_Task0(void* arg);
void* thread_TaskNet(void* arg);

// Body of the network task (TaskNo 9): answers every datagram that is not empty. Never returns.
void TaskUdp(int TaskNo);
