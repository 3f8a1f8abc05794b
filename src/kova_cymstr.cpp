#include "kova_cymstr.h"

#include <cstdio>

#include "numbers.h"
#include "waits.h"

namespace {

// Command bytes.
constexpr unsigned char kReset = 0x10;
constexpr unsigned char kSetup = 0x20;
constexpr unsigned char kMoveTo = 0x30;  // or-ed with the position
constexpr unsigned char kLastPos = 15;

// Status bits.
constexpr unsigned char kAlarm = D7;
constexpr unsigned char kPosHigh = D6;
constexpr unsigned char kMoving = D5;
constexpr unsigned char kPosLow = D4;
constexpr unsigned char kResetting = D3;
constexpr unsigned char kTaken = D0;      // the card has taken the command
constexpr unsigned char kHandshake = D0;  // of the handshake byte

constexpr unsigned char kDelayWhileRunning = 0xFE;
constexpr clock_t kHandshakeTicks = 10;
constexpr int kEndSeconds = 60;
constexpr int kPosReads = 3;
constexpr int kMaxResets = 6;
constexpr int kFree = -100;

bool HasChannel(int ChIdx) {
  return ChIdx >= 0 && ChIdx < MAXDGNUM;
}

// Position bits that stand for "in position", and for the end of a setup.
bool PosReached(unsigned char status) {
  return (status & (kPosHigh | kPosLow)) == kPosLow;
}

bool SetupHasEnded(unsigned char status) {
  return (status & kAlarm) != 0 || PosReached(status);
}

bool ResetHasEnded(unsigned char status) {
  return (status & (kPosLow | kAlarm)) != 0 || (status & kResetting) == 0;
}

}  // namespace

// A command that is waited for until its channel's status says that it has ended.
struct CkOVA_CYMSTR::LongCommand {
  unsigned char Byte;
  bool (*HasEnded)(unsigned char status);
  const char* Name;
};
const CkOVA_CYMSTR::LongCommand CkOVA_CYMSTR::kSetupCommand = {kSetup, SetupHasEnded, "setup"};
const CkOVA_CYMSTR::LongCommand CkOVA_CYMSTR::kResetCommand = {kReset, ResetHasEnded, "reset"};

void DGPOS::SetDGPos(int ChIdx, int Pos) {
  if (HasChannel(ChIdx)) DGPos[ChIdx] = Pos;
}

int DGPOS::GetDGPos(int ChIdx, char* szParam) {
  const int pos = HasChannel(ChIdx) ? DGPos[ChIdx] : kFree;
  if (szParam != nullptr) std::snprintf(szParam, 12, "%d", pos);
  return pos;
}

CkOVA_CYMSTR::~CkOVA_CYMSTR() {
  Console("CYMSTR: ~kOVA_CYMSTR\n");
}

int CkOVA_CYMSTR::Cmd_DG(int ChIdx, void* pArgc) {
  if (pArgc == nullptr) return 0;
  const int position = ToNumber<int>(static_cast<const char*>(pArgc));
  const unsigned char channel = static_cast<unsigned char>(ChIdx);
  if (position == -1) {
    GoBackDG(channel);
  } else if (position == -2) {
    ResetDG(channel);
  } else {
    OutDG(channel, static_cast<unsigned char>(position));
  }
  return 1;
}

int CkOVA_CYMSTR::Cmd_LDG(int ChIdx, void*) {
  const unsigned char channel = static_cast<unsigned char>(ChIdx);
  if (IsAlarmDG(channel) == 1) return -1;
  return IsPosDG(channel);
}

void CkOVA_CYMSTR::SelectedWrite(unsigned char ChIdx, unsigned int addr, unsigned char byte) {
  OutB(static_cast<unsigned short>(DGChAddr), ChIdx);
  OutB(static_cast<unsigned short>(addr), byte);
}

unsigned char CkOVA_CYMSTR::SelectedRead(unsigned char ChIdx, unsigned int addr) {
  OutB(static_cast<unsigned short>(DGChAddr), ChIdx);
  return InB(static_cast<unsigned short>(addr));
}

void CkOVA_CYMSTR::OutportDG(unsigned char ChIdx, unsigned char Byte) {
  if (!HasChannel(ChIdx)) return;
  const ScopedLock hold(CardLock);
  SelectedWrite(ChIdx, DGAddr, Byte);
  // Acknowledge in the status, release in the handshake byte. Both phases go on when the time is over.
  PollUntil(ProcessorTicks(kHandshakeTicks), kNoPause, [&] {
    CardLock.AssertHeld();
    return (SelectedRead(ChIdx, DGAddr) & kTaken) != 0;
  });
  PollUntil(ProcessorTicks(kHandshakeTicks), kNoPause, [&] {
    CardLock.AssertHeld();
    return (SelectedRead(ChIdx, DGChAddr) & kHandshake) == 0;
  });
}

unsigned char CkOVA_CYMSTR::InportDG(unsigned char ChIdx) {
  if (!HasChannel(ChIdx)) return 0;
  const ScopedLock hold(CardLock);
  return SelectedRead(ChIdx, DGAddr);
}

void CkOVA_CYMSTR::SetDGDelay(unsigned char Delay) {
  OutB(static_cast<unsigned short>(DGDelayAddr), Delay);
}

// The status of a refused channel never shows the end of a setup, so it is refused before anything is
// written.
int CkOVA_CYMSTR::SetupDG(unsigned char ChIdx) {
  if (!HasChannel(ChIdx)) return -1;
  return RunToEnd(ChIdx, kSetupCommand);
}

int CkOVA_CYMSTR::ResetDG(unsigned char ChIdx) {
  AddValidDGCh(ChIdx);
  return RunToEnd(ChIdx, kResetCommand);
}

int CkOVA_CYMSTR::RunToEnd(unsigned char ChIdx, const LongCommand& command) {
  SetDGDelay(kDelayWhileRunning);
  OutportDG(ChIdx, command.Byte);
  const bool ended = WaitEnd(ChIdx, command);
  if (!ended) Console("CYMSTR: DG%d no end of %s\n", ChIdx, command.Name);
  SetDGDelay(DGDELAYTMR);
  return ended ? 1 : -1;
}

bool CkOVA_CYMSTR::WaitEnd(unsigned char ChIdx, const LongCommand& command) {
  return PollUntil(RealSeconds(kEndSeconds), kNoPause, [&] {
    GiveWayOnBus();
    return command.HasEnded(InportDG(ChIdx));
  });
}

int CkOVA_CYMSTR::GoBackDG(unsigned char ChIdx) {
  for (int Cnt = 0;; ++Cnt) {
    if (SetupDG(ChIdx) < 0) return -1;
    if (IsAlarmDG(ChIdx) == 0) return 1;
    if (Cnt >= kMaxResets) return -1;
    if (ResetDG(ChIdx) < 0) return -1;
  }
}

void CkOVA_CYMSTR::OutDG(unsigned char ChIdx, unsigned char Pos) {
  if (Pos <= kLastPos) OutportDG(ChIdx, static_cast<unsigned char>(Pos | kMoveTo));
}

void CkOVA_CYMSTR::WaitSetupEnd(unsigned char ChIdx) {
  WaitEnd(ChIdx, kSetupCommand);
}

void CkOVA_CYMSTR::WaitResetEnd(unsigned char ChIdx) {
  WaitEnd(ChIdx, kResetCommand);
}

int CkOVA_CYMSTR::IsAlarmDG(unsigned char ChIdx) {
  return (InportDG(ChIdx) & kAlarm) != 0 ? 1 : 0;
}

int CkOVA_CYMSTR::IsPosDG(unsigned char ChIdx) {
  unsigned char Reg = 0;
  const bool stands = PollUntil(Attempts(kPosReads), 1, [&] {
    Reg = InportDG(ChIdx);
    return (Reg & kAlarm) != 0 || PosReached(Reg) || (Reg & kMoving) == 0;
  });
  if (!stands) return 0;
  return (Reg & kAlarm) != 0 ? -1 : 1;
}

int CkOVA_CYMSTR::IsBusyDG(unsigned char) {
  return 1;
}

int CkOVA_CYMSTR::IsMotRunEnd(unsigned char ChIdx) {
  return (InportDG(ChIdx) & D0) == 0 ? 1 : 0;
}

int CkOVA_CYMSTR::AddValidDGCh(int ChIdx) {
  if (!HasChannel(ChIdx)) return 0;
  const ScopedLock hold(CardLock);
  if (ValidChIdxPos < 0) ValidChIdxPos = 0;
  if (ValidChIdxPos >= MAXDGNUM) ValidChIdxPos = MAXDGNUM - 1;
  for (const int listed : ValidChIdx) {
    if (listed == ChIdx) return 0;
  }
  ValidChIdx[ValidChIdxPos] = ChIdx;
  ValidChIdxPos++;
  return 1;
}

// The channels of the alarm list in list order, copied, since what is done to them takes CardLock; their
// number.
int CkOVA_CYMSTR::ListedChannels(int (&channels)[MAXDGNUM]) {
  const ScopedLock hold(CardLock);
  int count = 0;
  for (int i = 0; i < MAXDGNUM && i < ValidChIdxPos; ++i) {
    if (HasChannel(ValidChIdx[i])) channels[count++] = ValidChIdx[i];
  }
  return count;
}

int CkOVA_CYMSTR::FindDGAlarm() {
  int channels[MAXDGNUM];
  const int count = ListedChannels(channels);
  for (int i = 0; i < count; ++i) {
    if (IsAlarmDG(static_cast<unsigned char>(channels[i])) == 0) continue;
    const ScopedLock hold(CardLock);
    ErrDGChIdx = channels[i];
    for (int& listed : ValidChIdx) listed = kFree;
    for (unsigned char& reg : OutDGReg) reg = 0;
    ValidChIdxPos = 0;
    return 1;
  }
  return 0;
}

int CkOVA_CYMSTR::ClearCurDGAlarm() {
  int found = kFree;
  {
    const ScopedLock hold(CardLock);
    found = ErrDGChIdx;
  }
  const unsigned char channel = static_cast<unsigned char>(found);
  ResetDG(channel);
  PauseMicros(200);
  const int P = DGPos.GetDGPos(found, nullptr);
  if (P == kReset) return 1;
  if (P == kSetup) {
    SetupDG(channel);
  } else {
    OutDG(channel, static_cast<unsigned char>(P - kMoveTo));
  }
  return found;
}

int CkOVA_CYMSTR::ClearAllDGAlarm() {
  int channels[MAXDGNUM];
  const int count = ListedChannels(channels);
  for (int i = 0; i < count; ++i) ResetDG(static_cast<unsigned char>(channels[i]));
  return 1;
}

int CkOVA_CYMSTR::RePosDGPos() {
  int channels[MAXDGNUM];
  const int count = ListedChannels(channels);
  for (int i = 0; i < count; ++i) {
    const unsigned char channel = static_cast<unsigned char>(channels[i]);
    if (IsPosDG(channel) != 0) continue;
    OutDG(channel, static_cast<unsigned char>(DGPos.GetDGPos(channels[i], nullptr)));
  }
  return 1;
}
