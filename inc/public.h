// What the whole controller shares: its version, the keypad's keys, levels and task numbers.
#pragma once

constexpr const char* SOFTVERSION = "0.0.0.4";

// Task numbers, as the console tags its lines: 0 the keypad, 1 to 8 the PLC tasks, 9 the network.
constexpr int kTaskKey = 0;
constexpr int kMaxPlcTask = 8;
constexpr int kTaskNet = 9;

// Sizes of the text buffers that modules hand to each other, terminating zero included.
constexpr int kMaxLine = 1024;   // a program line as read from its file
constexpr int kMaxParam = 1000;  // a parameter or a comment of a program line
constexpr int kMaxName = 200;    // a file name or path of a program

// Level of an input or output.
enum HILOW { LOW = 0, HI = 1 };

// A keypad key. The keypad yields HKEY_NUL and HKEY_1 to HKEY_Enter; RUN, STEP, ZERO and CANCEL are function keys.
enum HKEY {
  HKEY_NUL = 0,
  HKEY_RUN,
  HKEY_STEP,
  HKEY_ZERO,
  HKEY_CANCEL,
  HKEY_1,
  HKEY_2,
  HKEY_3,
  HKEY_4,
  HKEY_5,
  HKEY_6,
  HKEY_7,
  HKEY_8,
  HKEY_9,
  HKEY_0,
  HKEY_Slash,
  HKEY_Num,
  HKEY_Star,
  HKEY_Dec,
  HKEY_Plus,
  HKEY_Enter
};
