#include "check/card_types.h"

#include <algorithm>

namespace check {

namespace {

constexpr const char* kNoBit = "the outputs are written back unchanged";
constexpr const char* kReadsLow = "the level read is 0";
constexpr const char* kNoBranch = "neither block is called";
constexpr const char* kNothingSent = "nothing is sent";
constexpr const char* kMetAtOnce = "the wait is met at once";
constexpr const char* kNoMove = "success is reported, but nothing moves";
constexpr const char* kNeverMet = "the task waits for ever";
constexpr const char* kNotCleared = "nothing is cleared";

const CardType kCpu{rack::CardKind::Cpu,
                    "a CPU card",
                    {{SYN_OUT, 16, Beyond::LastGroup, kNoBit},
                     {SYN_LD, 16, Beyond::LastGroup, kReadsLow},
                     {SYN_IF, 16, Beyond::Refused, kNoBranch}}};

const CardType kIo{rack::CardKind::Io,
                   "an I/O card",
                   {{SYN_OUT, 24, Beyond::LastGroup, kNoBit},
                    {SYN_LD, 16, Beyond::LastGroup, kReadsLow},
                    {SYN_IF, 16, Beyond::Refused, kNoBranch}}};

const CardType kCylinder{
    rack::CardKind::Cylinder,
    "a cylinder card",
    {{SYN_DG, 3, Beyond::LowByte, kNothingSent}, {SYN_LDG, 3, Beyond::LowByte, kMetAtOnce}}};

const CardType kStepper{rack::CardKind::Stepper,
                        "a stepper card",
                        {{SYN_MOT, 8, Beyond::LowByte, kNoMove},
                         {SYN_LMOT, 8, Beyond::Refused, "the card answers for the channel selected last"},
                         {SYN_ROW, 8, Beyond::Refused, kNeverMet},
                         {SYN_ROCLR, 8, Beyond::Refused, kNotCleared}},
                        500,
                        true,
                        {MOT_ExtStopCH}};

const CardType kServo{rack::CardKind::Servo,
                      "a servo card",
                      {{SYN_MOT, 4, Beyond::LowByte, kNoMove},
                       {SYN_LMOT, 4, Beyond::LowByte, kMetAtOnce},
                       {SYN_ROW, 4, Beyond::Refused, "the count is 0, and the task waits for ever"},
                       {SYN_ROCLR, 4, Beyond::Refused, kNotCleared}},
                      200,
                      false,
                      {MOT_StartStep, MOT_CompensateStep}};

const CardType kNone{rack::CardKind::None, "an empty slot", {}};

}  // namespace

const CardCommand* CardType::Find(SYNXIDX command) const {
  const auto found = std::find_if(commands.begin(), commands.end(),
                                  [&](const CardCommand& row) { return row.command == command; });
  return found == commands.end() ? nullptr : &*found;
}

const CardType& CardTypeOf(rack::CardKind kind) {
  for (const CardType* type : {&kCpu, &kIo, &kCylinder, &kStepper, &kServo}) {
    if (type->kind == kind) return *type;
  }
  return kNone;
}

int ReachedChannel(const CardCommand& command, int chIdx) {
  const auto inRange = [&](int channel) { return channel >= 0 && channel < command.channels; };
  if (inRange(chIdx)) return chIdx;
  if (command.wrap == Beyond::LastGroup && chIdx > 0) return command.channels - 8 + chIdx % 8;
  if (command.wrap == Beyond::LowByte && inRange(chIdx & 0xFF)) return chIdx & 0xFF;
  return -1;
}

MotLimit MotLimitOf(MOTIDX field) {
  switch (field) {
    case MOT_Step:
    case MOT_StepStop:
      return {0x7FFFFFFF, false};  // doubled on the way to the card
    case MOT_StartStep:
    case MOT_CompensateStep:
      return {0x7FFF, false};
    case MOT_StepFreq:
      return {0xFF, false};
    case MOT_ExtStopCH:
      return {3, true};
    default:
      return {1, true};
  }
}

const char* WithoutCard(SYNXIDX command) {
  switch (command) {
    case SYN_LD:
    case SYN_LDG:
    case SYN_LMOT:
      return kMetAtOnce;
    case SYN_ROW:
      return kNeverMet;
    case SYN_IF:
      return "the whole condition is taken for a block's name";
    case SYN_OUT:
    case SYN_MOT:
    case SYN_DG:
    case SYN_ROCLR:
      return "the line counts as done, but nothing happens";
    default:
      return nullptr;
  }
}

}  // namespace check
