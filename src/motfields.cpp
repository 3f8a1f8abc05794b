#include "motfields.h"

#include "numbers.h"
#include "readini.h"

const MotField MotFieldTable[kMotFieldNum] = {
    {"Step", 32, true},             // steps or pulses of the move
    {"StepFreq", 8, true},          // frequency code
    {"Dir", 8, true},               // direction
    {"Force", 8, false},            //
    {"EnExtSTop", 8, false},        // enable external stop
    {"ExtStopCH", 8, false},        // external stop channel, servo card only
    {"StopSensorDir", 8, false},    // sense of the stop sensor
    {"StartStep", 16, false},       // stepper card only
    {"CompensateStep", 16, false},  // stepper card only
    {"EnCntStop", 8, false},        // enable count stop
    {"StepStop", 32, false},        // stop count
};

int ReadMotFields(const char* text, int fieldLimit, MotFields* fields) {
  if (text == nullptr || fieldLimit > kMaxMotField) return 0;
  for (int i = 0; i < kMotFieldNum; ++i) {
    const MotField& row = MotFieldTable[i];
    char field[kMaxMotField] = "";
    const int found = BoundedField(text, field, fieldLimit, i, '&');
    if (found < 0 || (found == 0 && row.Required)) return 0;
    const unsigned int mask = row.Bits < 32 ? (1U << row.Bits) - 1 : 0xFFFFFFFFU;
    fields->Value[i] = found == 0 ? 0 : ToNumber<unsigned int>(field) & mask;
  }
  return 1;
}
