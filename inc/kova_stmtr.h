// Stepper motor card: eight channels, each with a pulse generator that runs by itself and an encoder counter.
#pragma once

#include "kova_motion.h"
#include "motfiles.h"

class CkOVA_STMTR : public MotionCard<CkOVA_STMTR> {
 public:
  static constexpr char kName[] = "kOVA_STMTR";
  static constexpr int kChannels = MAXSTEPMOTORNUM;

  ~CkOVA_STMTR();

  // Accepted, print a line, change nothing.
  int Cmd_OUT(int ChIdx, void* pArgc) override;
  int Cmd_LD(int ChIdx, void* pArgc) override;
  // 1: move issued, also for a channel (cut to 8 bits) that does not exist. 0: parameter refused.
  int Cmd_MOT(int ChIdx, void* pArgc) override;
  // 1: no move runs on the channel that the card has selected last.
  int Cmd_LMOT(int ChIdx, void* pArgc) override;

  int IsMotRunEnd(unsigned char ChIdx);
  // The control byte of a channel.
  void SetMotorParamter(unsigned char ChIdx, unsigned char MotorDir, unsigned char STOPDir,
                        unsigned char Force, unsigned char EnExStop, unsigned char EnCntStop);
  // Frequency code and counts of a channel. The card takes twice the steps (32 and 16 bits, wrapping).
  void SetMotorRunParamter(unsigned char ChIdx, unsigned char StepFreq, unsigned short StepStarNum,
                           unsigned int StepNum, unsigned short StepNumCompensate, unsigned int StepStopNum);
  // Programs and starts a move, and waits until the card shows it, for about 10 us of processor time at most.
  void StepMotorRun(unsigned char ChIdx, unsigned int Step, unsigned char Dir, unsigned char Force,
                    unsigned char EnExtStop, unsigned char StopSensorDir, unsigned char StepFreq,
                    unsigned short StartStep, unsigned short CompensateStep, unsigned char EnCntStop,
                    unsigned int StepStop);

  void AllowMileageCount(int CHIdx, int Allow);  // no effect
  double GetMileageCount(int CHIdx);             // always 0

  unsigned short ChannelPort() const { return StepCHAddr; }
  unsigned short ClearPort() const { return StepClrAddr; }

  // Register map. "ch": of the channel last written to StepCHAddr.
  unsigned char CPUAddr = 0;               // W    slot select
  unsigned int VerAddr = 3;                // R    version
  unsigned int TypeAddr = 4;               // R    type
  unsigned char SlotID = 1;                //
  unsigned short StepCHAddr = 7;           // W    channel select, 0 to 7
  unsigned short StepMotorCtrlAddr = 8;    // W ch control byte, bits: MotorControl
  unsigned short StepFreqAddr = 9;         // W ch frequency code
  unsigned short StepStarNumAddrL = 10;    // W ch start-step register, low
  unsigned short StepStarNumAddrH = 11;    // W ch start-step register, high
  unsigned short StepNum08Addr = 12;       // W ch step count, bits 0 to 7
  unsigned short StepNumL8Addr = 13;       // W ch step count, bits 8 to 15
  unsigned short StepNumM8Addr = 14;       // W ch step count, bits 16 to 23
  unsigned short StepNumH8Addr = 15;       // W ch step count, bits 24 to 31
  unsigned short StepNumCompensateL = 16;  // W ch compensation register, low
  unsigned short StepNumCompensateH = 17;  // W ch compensation register, high
  unsigned short StepClrAddr = 18;         // W ch generator clear
  unsigned short EnCodeClrAddr = 19;       // W ch encoder counter clear
  unsigned short EnCode08Addr = 20;        // R ch encoder counter, bits 0 to 7
  unsigned short EnCodeL8Addr = 21;        // R ch encoder counter, bits 8 to 15
  unsigned short EnCodeM8Addr = 22;        // R ch encoder counter, bits 16 to 23
  unsigned short EnCodeH8Addr = 23;        // R ch encoder counter, bits 24 to 31
  unsigned short StepBusyAddr = 24;        // R    bit 0 set while a move runs; the port of StepStartAddr
  unsigned short StepStartAddr = 24;       // W    1 starts the programmed move
  unsigned short StepNumStop08Addr = 26;   // W ch stop count, bits 0 to 7
  unsigned short StepNumStopL8Addr = 27;   // W ch stop count, bits 8 to 15
  unsigned short StepNumStopM8Addr = 28;   // W ch stop count, bits 16 to 23
  unsigned short StepNumStopH8Addr = 29;   // W ch stop count, bits 24 to 31

  // What the last move was programmed with.
  unsigned char StepMotorCtrlReg GUARDED_BY(CardLock) = 0;
  unsigned char StepFreqReg GUARDED_BY(CardLock) = 0;
  unsigned short StepStarNumReg GUARDED_BY(CardLock) = 0;
  unsigned int StepNumReg GUARDED_BY(CardLock) = 0;
  unsigned short StepNumCompensateReg GUARDED_BY(CardLock) = 0;
  unsigned int StepNumStopReg GUARDED_BY(CardLock) = 0;

  // Position and status tables; no command uses them.
  MOZPOS MozPos;
  STEPPOS StepPos;

 private:
  void Run(unsigned char ChIdx, const MotFields& mot);
  // As the public operations.
  void ProgramControl(unsigned char ChIdx, unsigned char control) REQUIRES(CardLock);
  void ProgramRun(unsigned char ChIdx, unsigned char StepFreq, unsigned short StepStarNum,
                  unsigned int StepNum, unsigned short StepNumCompensate, unsigned int StepStopNum)
      REQUIRES(CardLock);
  void WriteUnsettledPair(unsigned short portHigh, unsigned short portLow) REQUIRES(CardLock);
};
