#include "motfiles.h"

namespace {

constexpr char kStatusFile[] = "SMPOS.DAT";
constexpr char kPosFile[] = "MOZ.POS";

bool HasChannel(int ChIdx) {
  return ChIdx >= 0 && ChIdx < MAXSTEPMOTORNUM;
}

// Bytes read.
template <class Table>
size_t ReadImage(const ScopedFile& file, Table& table) {
  return std::fread(&table, 1, sizeof table, file.Get());
}

}  // namespace

int STEPPOS::GetStepMotorStatus(int ChIdx) {
  if (!HasChannel(ChIdx)) return -1;
  const ScopedLock files(FileLock, FileRole);
  return StepMotorStatus[ChIdx];
}

void STEPPOS::SaveStepMotorStatus(int ChIdx, int Status) {
  if (!HasChannel(ChIdx)) return;
  const ScopedLock files(FileLock, FileRole);
  const ScopedFile file(kStatusFile, "wb");
  if (!file.IsOpen()) return;
  StepMotorStatus[ChIdx] = Status;
  (void)!std::fwrite(StepMotorStatus, sizeof StepMotorStatus, 1, file.Get());
}

void STEPPOS::LoadStepMotorStatus() {
  const ScopedLock files(FileLock, FileRole);
  const ScopedFile file(kStatusFile, "rb");
  if (!file.IsOpen()) return;
  int32_t table[MAXSTEPMOTORNUM];
  if (ReadImage(file, table) != sizeof table) return;
  for (int i = 0; i < MAXSTEPMOTORNUM; ++i) StepMotorStatus[i] = table[i];
}

void MOZPOS::LoadPos() {
  const ScopedLock files(FileLock, FileRole);
  const ScopedFile file(kPosFile, "rb");
  if (!file.IsOpen()) return;
  // A short file is no error: the bytes it has are taken.
  ReadImage(file, POS);
}
