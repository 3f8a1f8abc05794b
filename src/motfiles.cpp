#include "motfiles.h"

#include <cstring>

#include "files.h"
#include "locks.h"
#include "plctask.h"

namespace {

constexpr char kStatusFile[] = "SMPOS.DAT";
constexpr char kPosFile[] = "MOZ.POS";

bool HasChannel(int ChIdx) {
  return ChIdx >= 0 && ChIdx < MAXSTEPMOTORNUM;
}

}  // namespace

int STEPPOS::GetStepMotorStatus(int ChIdx) {
  if (!HasChannel(ChIdx)) return -1;
  const ScopedLock files(FileLock);
  return StepMotorStatus[ChIdx];
}

void STEPPOS::SaveStepMotorStatus(int ChIdx, int Status) {
  if (!HasChannel(ChIdx)) return;
  const ScopedLock files(FileLock);
  const ScopedFile file(kStatusFile, "wb");
  if (!file.IsOpen()) return;
  StepMotorStatus[ChIdx] = Status;
  (void)!std::fwrite(StepMotorStatus, sizeof StepMotorStatus, 1, file.Get());
}

void STEPPOS::LoadStepMotorStatus() {
  const ScopedLock files(FileLock);
  const ScopedFile file(kStatusFile, "rb");
  if (!file.IsOpen()) return;
  int32_t table[MAXSTEPMOTORNUM];
  if (std::fread(table, sizeof table, 1, file.Get()) != 1) return;
  std::memcpy(StepMotorStatus, table, sizeof table);
}

void MOZPOS::LoadPos() {
  const ScopedLock files(FileLock);
  const ScopedFile file(kPosFile, "rb");
  if (!file.IsOpen()) return;
  // A short file is no error: the bytes it has are taken.
  (void)!std::fread(POS, 1, sizeof POS, file.Get());
}
