// Cylinder card: up to three positioning cylinders (DG channels).
#pragma once

#include "kova_man.h"

constexpr int MAXDGNUM = 3;

// Remembered command per channel, -100 when unknown. No operation of the controller sets one, so it needs no
// lock.
struct DGPOS {
  int DGPos[MAXDGNUM] = {-100, -100, -100};

  // Channels outside 0 to 2 are ignored.
  void SetDGPos(int ChIdx, int Pos);
  // The remembered command, also as decimal text in szParam (12 bytes) unless that is null; -100 outside 0
  // to 2.
  int GetDGPos(int ChIdx, char* szParam);
};

// Channels above 2 are refused: nothing is sent, their status reads as 0.
class CkOVA_CYMSTR : public CardBody<CkOVA_CYMSTR> {
 public:
  static constexpr char kName[] = "kOVA_CYMSTR";

  ~CkOVA_CYMSTR();

  // pArgc: 0 to 15 moves to that position, -1 sets up, -2 resets; other numbers are cut to 8 bits and send
  // nothing unless a position is left. 1 whatever became of it; 0 without a parameter.
  int Cmd_DG(int ChIdx, void* pArgc) override;
  // 1: in position. 0: moving. -1: in alarm.
  int Cmd_LDG(int ChIdx, void* pArgc) override;

  // Sends one command byte with its handshake. A card that does not answer within about 10 us of processor
  // time per phase is not reported.
  void OutportDG(unsigned char ChIdx, unsigned char Byte);
  unsigned char InportDG(unsigned char ChIdx);
  void SetDGDelay(unsigned char Delay);

  // Setup (return to the starting point) and reset (clear the alarm), until the channel reports the end.
  // 1: ended. -1: not within 60 s, with a console line; SetupDG also for a refused channel, without bus
  // access.
  int SetupDG(unsigned char ChIdx);
  int ResetDG(unsigned char ChIdx);
  // Setup, repeated after a reset while the channel is in alarm. 1: done. -1: still in alarm after 7 setups
  // and the 6 resets between them, or a setup or reset that did not end.
  int GoBackDG(unsigned char ChIdx);
  void OutDG(unsigned char ChIdx, unsigned char Pos);

  // Poll without a pause, without a lock between reads, for at most 60 s.
  void WaitSetupEnd(unsigned char ChIdx);
  void WaitResetEnd(unsigned char ChIdx);

  int IsAlarmDG(unsigned char ChIdx);
  // 1: in position. 0: not in three reads. -1: in alarm.
  int IsPosDG(unsigned char ChIdx);
  int IsBusyDG(unsigned char ChIdx);
  int IsMotRunEnd(unsigned char ChIdx);

  // Enters a channel into the alarm list. 1: entered. 0: no such channel, or in it already.
  int AddValidDGCh(int ChIdx);
  // Alarm recovery over the alarm list. No command leads here.
  // 1: a channel is in alarm; it is kept in ErrDGChIdx and the list is emptied. 0: none.
  int FindDGAlarm();
  // Resets ErrDGChIdx and repeats its remembered command. 1 when that was a reset, else the channel.
  int ClearCurDGAlarm();
  int ClearAllDGAlarm();
  int RePosDGPos();

  // Register map. "ch": of the channel last written to DGChAddr.
  unsigned int CPUAddr = 0;       // W    slot select
  unsigned int VerAddr = 3;       // R    version
  unsigned int TypeAddr = 4;      // R    type
  unsigned int DGChAddr = 5;      // W    channel select;  R ch handshake, bit 0 set until the card has let go
  unsigned int DGAddr = 6;        // W ch command;  R ch status
  unsigned int DGDelayAddr = 7;   // W    delay
  unsigned int DGDirectAddr = 8;  // -    not used
  unsigned char SlotID = 1;

  // Channels that have been reset, in the order of their first reset; -100: free.
  int ValidChIdx[MAXDGNUM] GUARDED_BY(CardLock) = {-100, -100, -100};
  int ValidChIdxPos GUARDED_BY(CardLock) = 0;  // entries in use
  int ErrDGChIdx GUARDED_BY(CardLock) = -100;  // channel found by FindDGAlarm
  DGPOS DGPos;
  unsigned char OutDGReg[MAXDGNUM] GUARDED_BY(CardLock) = {};

 private:
  void SelectedWrite(unsigned char ChIdx, unsigned int addr, unsigned char byte) REQUIRES(CardLock);
  unsigned char SelectedRead(unsigned char ChIdx, unsigned int addr) REQUIRES(CardLock);
  struct LongCommand;
  static const LongCommand kSetupCommand;
  static const LongCommand kResetCommand;
  // False: no end in time.
  bool WaitEnd(unsigned char ChIdx, const LongCommand& command);
  int RunToEnd(unsigned char ChIdx, const LongCommand& command);
  int ListedChannels(int (&channels)[MAXDGNUM]);
};
