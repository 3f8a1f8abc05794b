// The parameter text of MOT, common to the stepper and the servo card: eleven numbers separated by "&".
#pragma once

// Positions of the fields. Further fields are ignored.
enum MotIdx {
  MOT_Step,
  MOT_StepFreq,
  MOT_Dir,
  MOT_Force,
  MOT_EnExtSTop,
  MOT_ExtStopCH,
  MOT_StopSensorDir,
  MOT_StartStep,
  MOT_CompensateStep,
  MOT_EnCntStop,
  MOT_StepStop,
  kMotFieldNum
};

struct MotField {
  const char* Name;
  int Bits;       // a number is cut to this width
  bool Required;  // an optional field is 0 when missing; an empty field counts as present
};
extern const MotField MotFieldTable[kMotFieldNum];  // in MotIdx order

constexpr int kMaxMotField = 500;  // largest fieldLimit

struct MotFields {
  unsigned int Value[kMotFieldNum];

  unsigned int operator[](MotIdx idx) const { return Value[idx]; }
  unsigned char Byte(MotIdx idx) const { return static_cast<unsigned char>(Value[idx]); }
  unsigned short Word(MotIdx idx) const { return static_cast<unsigned short>(Value[idx]); }
  int Int(MotIdx idx) const { return static_cast<int>(Value[idx]); }  // as the console shows it
};

// 1: read. 0: text null, a required field missing, or a field of fieldLimit or more characters: a field that
// is lost could switch off an end stop.
int ReadMotFields(const char* text, int fieldLimit, MotFields* fields);
