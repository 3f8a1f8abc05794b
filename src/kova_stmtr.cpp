#include "kova_stmtr.h"

#include "waits.h"

namespace {
constexpr int kFieldLimit = 500;  // characters of a MOT field, terminator included
}

CkOVA_STMTR::~CkOVA_STMTR() {
  Console("STMTR: ~kOVA_STMTR\n");
}

int CkOVA_STMTR::Cmd_OUT(int, void*) {
  Console("STMTR: Cmd_OUT\n");
  return 1;
}

int CkOVA_STMTR::Cmd_LD(int, void*) {
  Console("STMTR: Cmd_LD\n");
  return 1;
}

int CkOVA_STMTR::Cmd_MOT(int ChIdx, void* pArgc) {
  MotFields mot;
  if (ReadMotFields(static_cast<const char*>(pArgc), kFieldLimit, &mot) == 0) return 0;
  Console(
      "STMTR: MOT ChIdx:%d, Step:%d, Dir:%d, Force:%d, EnExtSTop:%d, StopSensorDir:%d, StepFreq:%d, "
      "StartStep:%d, "
      "CompensateStep:%d, EnCntStop:%d, StepStop:%d\n",
      ChIdx, mot.Int(MOT_Step), mot.Int(MOT_Dir), mot.Int(MOT_Force), mot.Int(MOT_EnExtSTop),
      mot.Int(MOT_StopSensorDir), mot.Int(MOT_StepFreq), mot.Int(MOT_StartStep), mot.Int(MOT_CompensateStep),
      mot.Int(MOT_EnCntStop), mot.Int(MOT_StepStop));
  Run(static_cast<unsigned char>(ChIdx), mot);
  return 1;
}

int CkOVA_STMTR::Cmd_LMOT(int ChIdx, void*) {
  return IsMotRunEnd(static_cast<unsigned char>(ChIdx));
}

// One read without a channel selection: the card answers for the channel that the last access left selected.
int CkOVA_STMTR::IsMotRunEnd(unsigned char) {
  return (InB(StepBusyAddr) & kMoveRuns) != 0 ? 0 : 1;
}

void CkOVA_STMTR::SetMotorParamter(unsigned char ChIdx, unsigned char MotorDir, unsigned char STOPDir,
                                   unsigned char Force, unsigned char EnExStop, unsigned char EnCntStop) {
  const ScopedLock hold(CardLock);
  ProgramControl(ChIdx, MotorControl(MotorDir, STOPDir, Force, EnCntStop, EnExStop));
}

void CkOVA_STMTR::ProgramControl(unsigned char ChIdx, unsigned char control) {
  OutB(StepCHAddr, ChIdx);
  StepMotorCtrlReg = control;
  OutB(StepMotorCtrlAddr, StepMotorCtrlReg);
}

void CkOVA_STMTR::SetMotorRunParamter(unsigned char ChIdx, unsigned char StepFreq, unsigned short StepStarNum,
                                      unsigned int StepNum, unsigned short StepNumCompensate,
                                      unsigned int StepStopNum) {
  const ScopedLock hold(CardLock);
  ProgramRun(ChIdx, StepFreq, StepStarNum, StepNum, StepNumCompensate, StepStopNum);
}

void CkOVA_STMTR::ProgramRun(unsigned char ChIdx, unsigned char StepFreq, unsigned short StepStarNum,
                             unsigned int StepNum, unsigned short StepNumCompensate,
                             unsigned int StepStopNum) {
  OutB(StepCHAddr, ChIdx);
  StepFreqReg = StepFreq;
  OutB(StepFreqAddr, StepFreqReg);
  StepStarNumReg = static_cast<unsigned short>(StepStarNum * 2);
  WriteUnsettledPair(StepStarNumAddrH, StepStarNumAddrL);
  StepNumReg = StepNum * 2;
  WriteCount(*this, {StepNum08Addr, StepNumL8Addr, StepNumM8Addr, StepNumH8Addr}, StepNumReg);
  StepNumCompensateReg = static_cast<unsigned short>(StepNumCompensate * 2);
  WriteUnsettledPair(StepNumCompensateH, StepNumCompensateL);
  StepNumStopReg = StepStopNum * 2;
  WriteCount(*this, {StepNumStop08Addr, StepNumStopL8Addr, StepNumStopM8Addr, StepNumStopH8Addr},
             StepNumStopReg);
}

// What the start-step and the compensation registers take is not documented. They get 0 and the frequency
// code, with which the machines run today; the images keep the requested values. Only this place changes when
// it is settled.
void CkOVA_STMTR::WriteUnsettledPair(unsigned short portHigh, unsigned short portLow) {
  OutB(portHigh, 0);
  OutB(portLow, StepFreqReg);
}

void CkOVA_STMTR::StepMotorRun(unsigned char ChIdx, unsigned int Step, unsigned char Dir, unsigned char Force,
                               unsigned char EnExtStop, unsigned char StopSensorDir, unsigned char StepFreq,
                               unsigned short StartStep, unsigned short CompensateStep,
                               unsigned char EnCntStop, unsigned int StepStop) {
  MotFields mot = {};
  mot.Value[MOT_Step] = Step;
  mot.Value[MOT_StepFreq] = StepFreq;
  mot.Value[MOT_Dir] = Dir;
  mot.Value[MOT_Force] = Force;
  mot.Value[MOT_EnExtSTop] = EnExtStop;
  mot.Value[MOT_StopSensorDir] = StopSensorDir;
  mot.Value[MOT_StartStep] = StartStep;
  mot.Value[MOT_CompensateStep] = CompensateStep;
  mot.Value[MOT_EnCntStop] = EnCntStop;
  mot.Value[MOT_StepStop] = StepStop;
  Run(ChIdx, mot);
}

void CkOVA_STMTR::Run(unsigned char ChIdx, const MotFields& mot) {
  if (ChIdx >= kChannels) return;
  // Programming, start and the short poll are one step: the busy register answers for the selected channel.
  const ScopedLock hold(CardLock);
  ProgramControl(ChIdx, MotorControl(mot.Byte(MOT_Dir), mot.Byte(MOT_StopSensorDir), mot.Byte(MOT_Force),
                                     mot.Byte(MOT_EnCntStop), mot.Byte(MOT_EnExtSTop)));
  ProgramRun(ChIdx, mot.Byte(MOT_StepFreq), mot.Word(MOT_StartStep), mot[MOT_Step],
             mot.Word(MOT_CompensateStep), mot[MOT_StepStop]);
  OutB(StepStartAddr, 1);
  PollUntil(ProcessorTicks(kStartTicks), kNoPause, [&] { return (InB(StepBusyAddr) & kMoveRuns) != 0; });
}

void CkOVA_STMTR::AllowMileageCount(int, int) {}
double CkOVA_STMTR::GetMileageCount(int) {
  return 0.0;
}
