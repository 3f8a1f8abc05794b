// Motor status and position tables with their files in the working directory, raw images of the arrays.
#pragma once

#include <cstdint>

#include "files.h"

constexpr int MAXSTEPMOTORNUM = 8;

// The tables of all stepper cards share the two files: the last save wins. Tables and files are used under
// FileLock.
struct STEPPOS {
  int32_t StepMotorStatus[MAXSTEPMOTORNUM] GUARDED_BY(FileRole) = {-1, -1, -1, -1, -1, -1, -1, -1};

  // -1 for a channel outside 0 to 7.
  int GetStepMotorStatus(int ChIdx);
  // Writes the whole table to "SMPOS.DAT". Nothing changes when the file cannot be opened or there is no such
  // channel.
  void SaveStepMotorStatus(int ChIdx, int Status);
  // Nothing changes unless "SMPOS.DAT" holds a whole table.
  void LoadStepMotorStatus();
};

struct MOZPOS {
  int32_t POS[10][32] GUARDED_BY(FileRole) = {};

  // A shorter "MOZ.POS" fills the leading bytes only; what is longer is ignored.
  void LoadPos();
};
