// The fields of MOT, one beside the other: a move that does not go where its steps say, numbers without effect.
#include <string>

#include "check/topics.h"
#include "commands/command_rows.h"
#include "motfields.h"
#include "numbers.h"

namespace check {

namespace {

class MoveRules {
 public:
  MoveRules(const ProgramTree& tree, const Program& program, const Line& line, Report* report)
      : inProgram_(program),
        ofLine_(line),
        param_(line.parsed.Param),
        card_(tree.CardOf(line.parsed.SlotIdx.Value)),
        out_(*report) {}

  void Check() {
    if (card_ != nullptr && card_->Find(SYN_MOT) == nullptr) return;
    const int limit = card_ == nullptr ? kMaxMotField : card_->motFieldLimit;
    if (ReadMotFields(param_.c_str(), limit, &fields_) == 0) return;
    CheckFrequency();
    CheckCountStop();
    CheckUnused();
  }

 private:
  void Add(MotIdx field, RuleId rule, const std::string& message) {
    const int column = PieceOf(param_, field, '&') ? PieceColumn(param_, field, '&') : 0;
    out_.Add(inProgram_, ofLine_, ofLine_.parsed.ParamColumn + column, rule, message);
  }

  // As written: what is cut to 0 on its way is found there.
  bool IsZero(MotIdx field) const { return ToWideNumber(TextOf(field).c_str()) == 0; }
  std::string TextOf(MotIdx field) const { return PieceOf(param_, field, '&').value_or(""); }

  void CheckFrequency() {
    if (!IsZero(MOT_StepFreq) || IsZero(MOT_Step)) return;
    Add(MOT_StepFreq, RuleId::NoPulse,
        "frequency code 0 makes no pulse: the motor stands, the move never ends, and LMOT waits for ever; "
        "codes are 1 to 255");
  }

  void CheckCountStop() {
    if (fields_[MOT_EnCntStop] != 1 || !IsZero(MOT_StepStop)) return;
    Add(MOT_EnCntStop, RuleId::CountStop,
        "the count stop is on, but its count is 0: the move ends with its first pulse; the eleventh field is "
        "the count, or the tenth 0");
  }

  // A 0 may fill a place.
  void CheckUnused() {
    for (int i = 0; i < kMotFieldNum; ++i) {
      const MotIdx field = static_cast<MotIdx>(i);
      if (card_ == nullptr || !card_->LeavesUnused(field) || IsZero(field)) continue;
      Add(field, RuleId::LostText,
          std::string(card_->name) + " does not look at " + MotFieldTable[i].Name + ": \"" + TextOf(field) +
              "\" has no effect");
    }
    if (IsZero(MOT_StepStop) || !IsZero(MOT_EnCntStop)) return;
    Add(MOT_StepStop, RuleId::LostText,
        "the card looks at the stop count only when the tenth field is 1: \"" + TextOf(MOT_StepStop) +
            "\" has no effect");
  }

  const Program& inProgram_;
  const Line& ofLine_;
  const std::string param_;
  const rack::CardCommands* card_;
  Report& out_;
  MotFields fields_{};
};

}  // namespace

void CheckMoves(const ProgramTree& tree, const Program& program, Report* report) {
  for (const Line& line : program.lines) {
    if (rack::RowOf(line.parsed.CmdIdx).parameter == rack::Parameter::Move)
      MoveRules(tree, program, line, report).Check();
  }
}

}  // namespace check
