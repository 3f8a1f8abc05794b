#include "kova_asda.h"

#include "waits.h"

namespace {
constexpr int kFieldLimit = 200;  // characters of a MOT field, terminator included
constexpr long long kPollMicros = 1;
}  // namespace

CkOVA_ASDA::~CkOVA_ASDA() {
  Console("ASDA: ~CkOVA_ASDA\n");
}

// The version register wants a slot selection of its own ahead of the access.
int CkOVA_ASDA::GetHardVer() {
  OutB(static_cast<unsigned short>(CPUAddr), SlotID);
  return InB(static_cast<unsigned short>(VerAddr));
}

int CkOVA_ASDA::Cmd_OUT(int, void*) {
  Console("ASDA: Cmd_Out\n");
  return 1;
}

int CkOVA_ASDA::Cmd_LD(int, void*) {
  Console("ASDA: Cmd_Ld\n");
  return 1;
}

int CkOVA_ASDA::Cmd_MOT(int ChIdx, void* pArgc) {
  MotFields mot;
  if (ReadMotFields(static_cast<const char*>(pArgc), kFieldLimit, &mot) == 0) return 0;
  // The colon behind ExtStopCH is the full-width one, as the console has always shown it.
  Console(
      "ASDA: Mot ChIdx:%d, Step:%d, Dir:%d, Force:%d, EnExtSTop:%d, ExtStopCH\xEF\xBC\x9A%d, "
      "StopSensorDir:%d, "
      "StepFreq:%d, EnCntStop:%d, StepStop:%d \n",
      ChIdx, mot.Int(MOT_Step), mot.Int(MOT_Dir), mot.Int(MOT_Force), mot.Int(MOT_EnExtSTop),
      mot.Int(MOT_ExtStopCH), mot.Int(MOT_StopSensorDir), mot.Int(MOT_StepFreq), mot.Int(MOT_EnCntStop),
      mot.Int(MOT_StepStop));
  Run(static_cast<unsigned char>(ChIdx), mot);
  return 1;
}

int CkOVA_ASDA::Cmd_LMOT(int ChIdx, void*) {
  const unsigned int bit = static_cast<unsigned char>(ChIdx);
  const unsigned int busy = InB(ServoBusyAddr);
  if (bit >= 8) return 1;
  return ((busy >> bit) & 1U) != 0 ? 0 : 1;
}

void CkOVA_ASDA::SetMotorParamter(unsigned char ChIdx, unsigned char MotorDir, unsigned char ExtStopCH,
                                  unsigned char STOPDir, unsigned char Force, unsigned char EnExStop,
                                  unsigned char EnCntStop) {
  const unsigned char control = MotorControl(MotorDir, STOPDir, Force, EnCntStop, EnExStop);
  const ScopedLock hold(CardLock);
  ProgramControl(ChIdx, static_cast<unsigned char>(control | ExtStopCH));
}

void CkOVA_ASDA::ProgramControl(unsigned char ChIdx, unsigned char control) {
  OutB(ServoCHAddr, ChIdx);
  ServoMotorCtrlReg = control;
  OutB(ServoMotorCtrlAddr, ServoMotorCtrlReg);
}

void CkOVA_ASDA::SetMotorRunParamter(unsigned char ChIdx, unsigned char StepFreq, unsigned int StepNum,
                                     unsigned int StepStopNum) {
  const ScopedLock hold(CardLock);
  ProgramRun(ChIdx, StepFreq, StepNum, StepStopNum);
}

void CkOVA_ASDA::ProgramRun(unsigned char ChIdx, unsigned char StepFreq, unsigned int StepNum,
                            unsigned int StepStopNum) {
  OutB(ServoCHAddr, ChIdx);
  ServoFreqReg = StepFreq;
  OutB(ServoFreqAddr, ServoFreqReg);
  ServoNumReg = StepNum * 2;
  WriteCount(*this, {ServoNum08Addr, ServoNumL8Addr, ServoNumM8Addr, ServoNumH8Addr}, ServoNumReg);
  ServoNumStopReg = StepStopNum * 2;
  WriteCount(*this, {ServoNumStop08Addr, ServoNumStopL8Addr, ServoNumStopM8Addr, ServoNumStopH8Addr},
             ServoNumStopReg);
}

void CkOVA_ASDA::StepMotorRun(unsigned char ChIdx, unsigned int Step, unsigned char Dir, unsigned char Force,
                              unsigned char EnExtStop, unsigned char ExtStopCH, unsigned char StopSensorDir,
                              unsigned char StepFreq, unsigned char EnCntStop, unsigned int StepStop) {
  MotFields mot = {};
  mot.Value[MOT_Step] = Step;
  mot.Value[MOT_StepFreq] = StepFreq;
  mot.Value[MOT_Dir] = Dir;
  mot.Value[MOT_Force] = Force;
  mot.Value[MOT_EnExtSTop] = EnExtStop;
  mot.Value[MOT_ExtStopCH] = ExtStopCH;
  mot.Value[MOT_StopSensorDir] = StopSensorDir;
  mot.Value[MOT_EnCntStop] = EnCntStop;
  mot.Value[MOT_StepStop] = StepStop;
  Run(ChIdx, mot);
}

void CkOVA_ASDA::Run(unsigned char ChIdx, const MotFields& mot) {
  if (ChIdx >= kChannels) return;
  const unsigned char control =
      MotorControl(mot.Byte(MOT_Dir), mot.Byte(MOT_StopSensorDir), mot.Byte(MOT_Force),
                   mot.Byte(MOT_EnCntStop), mot.Byte(MOT_EnExtSTop));
  {
    const ScopedLock hold(CardLock);
    ProgramControl(ChIdx, static_cast<unsigned char>(control | mot.Byte(MOT_ExtStopCH)));
    ProgramRun(ChIdx, mot.Byte(MOT_StepFreq), mot[MOT_Step], mot[MOT_StepStop]);
    OutB(ServoStartAddr, 1);
  }
  // The poll sleeps, so it holds no lock.
  PollUntil(ProcessorTicks(kStartTicks), kPollMicros, [&] { return (InB(ServoBusyAddr) & kMoveRuns) != 0; });
}
