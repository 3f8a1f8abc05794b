// Servo card: four channels that command servo drives by a pulse train, each with an encoder counter.
#pragma once

#include "kova_motion.h"

class CkOVA_ASDA : public MotionCard<CkOVA_ASDA> {
 public:
  static constexpr char kName[] = "kOVA_ASDA";
  static constexpr int kChannels = 4;

  ~CkOVA_ASDA();

  int GetHardVer() override;
  // Accepted, print a line, change nothing.
  int Cmd_OUT(int ChIdx, void* pArgc) override;
  int Cmd_LD(int ChIdx, void* pArgc) override;
  // 1: move issued, also for a channel (cut to 8 bits) that does not exist. 0: parameter refused.
  int Cmd_MOT(int ChIdx, void* pArgc) override;
  // 1: the channel's own busy bit is clear. Channels (modulo 256) above 7 have none and are never busy.
  int Cmd_LMOT(int ChIdx, void* pArgc) override;

  // The control byte of a channel. ExtStopCH is or-ed in as it is.
  void SetMotorParamter(unsigned char ChIdx, unsigned char MotorDir, unsigned char ExtStopCH,
                        unsigned char STOPDir, unsigned char Force, unsigned char EnExStop,
                        unsigned char EnCntStop);
  // Frequency code and counts of a channel. The card takes twice the pulses (32 bits, wrapping).
  void SetMotorRunParamter(unsigned char ChIdx, unsigned char StepFreq, unsigned int StepNum,
                           unsigned int StepStopNum);
  // Programs and starts a move, and waits until the card shows it, for about 10 us of processor time at most.
  void StepMotorRun(unsigned char ChIdx, unsigned int Step, unsigned char Dir, unsigned char Force,
                    unsigned char EnExtStop, unsigned char ExtStopCH, unsigned char StopSensorDir,
                    unsigned char StepFreq, unsigned char EnCntStop, unsigned int StepStop);

  unsigned short ChannelPort() const { return ServoCHAddr; }
  unsigned short ClearPort() const { return ServoClrAddr; }

  // Register map. "ch": of the channel last written to ServoCHAddr.
  unsigned int CPUAddr = 0;               // W    slot select
  unsigned int VerAddr = 3;               // R    version
  unsigned int TypeAddr = 4;              // R    type
  unsigned char SlotID = 1;               //
  unsigned short ServoCHAddr = 5;         // W    channel select, 0 to 3
  unsigned short ServoNum08Addr = 12;     // W ch pulse count, bits 0 to 7
  unsigned short ServoNumL8Addr = 13;     // W ch pulse count, bits 8 to 15
  unsigned short ServoNumM8Addr = 14;     // W ch pulse count, bits 16 to 23
  unsigned short ServoNumH8Addr = 15;     // W ch pulse count, bits 24 to 31
  unsigned short ServoMotorCtrlAddr = 8;  // W ch control byte, bits: MotorControl; 1, 0 external stop channel
  unsigned short ServoFreqAddr = 9;       // W ch frequency code
  unsigned short ServoClrAddr = 18;       // W ch generator clear
  unsigned short EnCodeClrAddr = 19;      // W ch encoder counter clear
  unsigned short EnCode08Addr = 20;       // R ch encoder counter, bits 0 to 7
  unsigned short EnCodeL8Addr = 21;       // R ch encoder counter, bits 8 to 15
  unsigned short EnCodeM8Addr = 22;       // R ch encoder counter, bits 16 to 23
  unsigned short EnCodeH8Addr = 23;       // R ch encoder counter, bits 24 to 31
  unsigned short ServoBusyAddr = 24;      // R    bit n set while channel n moves; the port of ServoStartAddr
  unsigned short ServoStartAddr = 24;     // W    1 starts the programmed move
  unsigned short ServoNumStop08Addr = 26;  // W ch stop count, bits 0 to 7
  unsigned short ServoNumStopL8Addr = 27;  // W ch stop count, bits 8 to 15
  unsigned short ServoNumStopM8Addr = 28;  // W ch stop count, bits 16 to 23
  unsigned short ServoNumStopH8Addr = 29;  // W ch stop count, bits 24 to 31

  // What the last move was programmed with.
  unsigned char ServoMotorCtrlReg GUARDED_BY(CardLock) = 0;
  unsigned char ServoFreqReg GUARDED_BY(CardLock) = 0;
  unsigned int ServoNumReg GUARDED_BY(CardLock) = 0;
  unsigned int ServoNumStopReg GUARDED_BY(CardLock) = 0;

 private:
  void Run(unsigned char ChIdx, const MotFields& mot);
  // As the public operations.
  void ProgramControl(unsigned char ChIdx, unsigned char control) REQUIRES(CardLock);
  void ProgramRun(unsigned char ChIdx, unsigned char StepFreq, unsigned int StepNum, unsigned int StepStopNum)
      REQUIRES(CardLock);
};
