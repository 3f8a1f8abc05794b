// What the addressed card makes of a command: entry, channel and parameter.
#include <algorithm>
#include <map>
#include <string>

#include "check/topics.h"
#include "commands/command_rows.h"
#include "drvlib.h"
#include "kova_man.h"
#include "numbers.h"
#include "public.h"

namespace check {

namespace {

constexpr const char* kReadAs = ": the controller takes it for ";

// Largest value of a MOT field that arrives whole, and whether the field is a flag (or a few bits) that shares
// its register with others.
struct MotLimit {
  unsigned int largest;
  bool sharesByte;
};
constexpr MotLimit kFlag = {1, true};

MotLimit MotLimitOf(MotIdx field) {
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
    case MOT_Dir:
    case MOT_Force:
    case MOT_EnExtSTop:
    case MOT_StopSensorDir:
    case MOT_EnCntStop:
    case kMotFieldNum:
      break;
  }
  return kFlag;
}

class CardRules {
 public:
  // lastMove: the line above that has started something that this one may wait for; null: none.
  CardRules(const ProgramTree& tree, const Program& program, const Line& line, const Line* lastMove,
            Report* report)
      : tree_(tree),
        inProgram_(program),
        ofLine_(line),
        lastMove_(lastMove),
        parsed_(line.parsed),
        command_(rack::RowOf(line.parsed.CmdIdx)),
        keyword_(SYNXCMD[line.parsed.CmdIdx]),
        param_(line.parsed.Param),
        out_(*report) {}

  void Check() {
    if (!command_.GoesToCard() || HasLookAlike(ofLine_)) return;
    if (parsed_.SlotIdx.Column < 0) return CheckTwoFields();
    if (!CheckSlot()) return;
    card_ = tree_.CardOf(parsed_.SlotIdx.Value);
    if (card_ != nullptr && card_->Find(parsed_.CmdIdx) == nullptr) {
      return Add(parsed_.KeywordColumn, RuleId::WrongCard,
                 "entry " + Slot() + " is " + card_->name + ", which has no " + keyword_ + ": " +
                     command_.withoutUse + "; another entry or command was probably meant" + Entries());
    }
    CheckChannel();
    CheckParam();
  }

 private:
  void Add(int byte, RuleId rule, const std::string& message) {
    out_.Add(inProgram_, ofLine_, byte, rule, message);
  }

  std::string Slot() const { return std::to_string(parsed_.SlotIdx.Value); }

  // "; there are 0 cpu, 1 io, 2 stepper"
  std::string Entries() const {
    if (!tree_.rack) return "";
    std::string list;
    for (size_t i = 0; i < tree_.rack->entries.size(); ++i) {
      list += (i == 0 ? "; there are " : ", ") + std::to_string(i) + " " +
              rack::RowOf(tree_.rack->entries[i]->kind).word;
    }
    return list;
  }

  void CheckTwoFields() {
    const std::string channel = std::to_string(parsed_.ChIdx.Value);
    const std::string whole = WholeWait();
    Add(parsed_.KeywordColumn, RuleId::TwoFieldWait,
        keyword_ + " with two fields is channel " + channel +
            " of the CPU card: the wait is met at once, while the axis still moves" +
            (whole.empty() ? "; write slot, channel and a last comma"
                           : DidYouMean(keyword_ + ": " + whole + ",")));
  }

  // Slot and channel that were probably meant: of the motor or cylinder that was started last, when the line has
  // its channel or its slot only. Empty when nothing was started.
  std::string WholeWait() const {
    const int written = parsed_.ChIdx.Value;
    if (!param_.empty()) return std::to_string(written) + ", " + param_;
    if (lastMove_ == nullptr) return written == 0 ? "" : std::to_string(written) + ", 0";
    const int slot = lastMove_->parsed.SlotIdx.Value;
    const int channel = written == slot ? lastMove_->parsed.ChIdx.Value : written;
    return std::to_string(slot) + ", " + std::to_string(channel);
  }

  bool CheckSlot() {
    const int slot = parsed_.SlotIdx.Value;
    const int entries = tree_.rack ? static_cast<int>(tree_.rack->entries.size()) : MAXCARDNO;
    if (slot >= 0 && slot < entries) return true;
    const std::string there =
        tree_.rack ? Entries() : "; a rack has at most entries 0 to " + std::to_string(entries - 1);
    Add(parsed_.SlotIdx.Column, RuleId::NoSuchSlot,
        "there is no entry " + Slot() + ": the controller " + command_.withoutCard + there);
    return false;
  }

  void CheckChannel() {
    if (card_ == nullptr) return;
    const rack::CardCommand& command = *card_->Find(parsed_.CmdIdx);
    const int channels = card_->Channels(command);
    const int channel = parsed_.ChIdx.Value;
    if (channel >= 0 && channel < channels) return;
    const int reached = card_->Reached(command, channel);
    const std::string effect = reached < 0 ? std::string(command.outside)
                                           : "the controller takes channel " + std::to_string(reached);
    Add(parsed_.ChIdx.Column, RuleId::BadChannel,
        keyword_ + ": " + card_->name + " has no channel " + std::to_string(channel) + ": " + effect +
            "; channels are 0 to " + std::to_string(channels - 1));
  }

  void CheckParam() {
    switch (command_.parameter) {
      case rack::Parameter::OnOff:
        return CheckOut();
      case rack::Parameter::Level:
        return CheckLd();
      case rack::Parameter::Position:
        return CheckDg();
      case rack::Parameter::Count:
        return CheckRow();
      case rack::Parameter::Move:
        return CheckMot();
      case rack::Parameter::Condition:
        return CheckIf();
      // Looked at with the line itself, or with the flow of the program.
      case rack::Parameter::Nothing:
      case rack::Parameter::Unlooked:
      case rack::Parameter::Millis:
      case rack::Parameter::Block:
      case rack::Parameter::Label:
        return;
    }
  }

  // Value of the number, which the controller cuts to 32 bits.
  int Number(const std::string& text, int column) {
    CheckNumberText(inProgram_, ofLine_, column, text, &out_);
    const int value = ToNumber<int>(text.c_str());
    if (ToWideNumber(text.c_str()) != value) {
      Add(column, RuleId::ValueCut,
          "\"" + text + "\" does not fit 32 bits" + kReadAs + std::to_string(value));
    }
    return value;
  }

  void CheckOut() {
    const bool hasDigit = param_.find_first_of("0123456789") != std::string::npos;
    const int value = ToNumber<int>(param_.c_str());
    if (hasDigit && (value == 0 || value == 1)) {
      Number(param_, parsed_.ParamColumn);
      return;
    }
    Add(parsed_.ParamColumn, RuleId::OutValue,
        "OUT with \"" + param_ + "\": the controller switches off; 1 switches on, 0 off");
  }

  void CheckLd() { CheckLevel(param_, parsed_.ParamColumn, "waits for ever"); }

  void CheckLevel(const std::string& text, int column, const char* effect) {
    const int level = Number(text, column);
    if (level == LOW || level == HI) return;
    Add(column, RuleId::LevelNever,
        "an input is never " + std::to_string(level) + ": the controller " + effect + "; a level is 0 or 1");
  }

  void CheckDg() {
    constexpr int kSetup = -1;
    constexpr int kReset = -2;
    constexpr int kLastPosition = 15;
    const int position = Number(param_, parsed_.ParamColumn);
    if (position == kSetup || position == kReset || (position >= 0 && position <= kLastPosition)) return;
    const int sent = position & 0xFF;
    if (sent <= kLastPosition) {
      return Add(parsed_.ParamColumn, RuleId::ValueCut,
                 "position " + std::to_string(position) + " does not fit 8 bits" + kReadAs +
                     std::to_string(sent) + "; positions are 0 to 15");
    }
    Add(parsed_.ParamColumn, RuleId::DgPosition,
        "there is no position " + std::to_string(position) +
            ": the controller sends nothing; 0 to 15 move, -1 sets up, -2 resets the alarm");
  }

  void CheckRow() { Number(param_, parsed_.ParamColumn); }

  int MotFieldLimit() const { return card_ != nullptr ? card_->motFieldLimit : kMaxMotField; }

  void CheckMot() {
    for (int i = 0; i < kMotFieldNum; ++i) {
      const std::optional<std::string> field = PieceOf(param_, i, '&');
      if (!field) {
        if (!MotFieldTable[i].Required) return;
        return Add(
            parsed_.ParamColumn, RuleId::MotFields,
            "MOT without " + std::string(MotFieldTable[i].Name) +
                ": the controller reports a failure and nothing moves; the parameter is \"steps&frequency&"
                "direction\"");
      }
      CheckMotField(static_cast<MotIdx>(i), *field);
    }
    const int behind = kMotFieldNum;
    if (!PieceOf(param_, behind, '&')) return;
    Add(parsed_.ParamColumn + PieceColumn(param_, behind, '&'), RuleId::LostText,
        "the controller does not look at what stands behind the eleventh field of MOT");
  }

  void CheckMotField(MotIdx idx, const std::string& text) {
    const MotField& row = MotFieldTable[idx];
    const int column = parsed_.ParamColumn + PieceColumn(param_, idx, '&');
    if (static_cast<int>(text.size()) >= MotFieldLimit()) {
      return Add(column, RuleId::MotFields,
                 std::string(row.Name) + " has " + std::to_string(MotFieldLimit()) +
                     " characters or more: the controller reports a failure and nothing moves");
    }
    if (text.empty() && !row.Required) return;
    CheckNumberText(inProgram_, ofLine_, column, text, &out_);
    if (card_ != nullptr && card_->LeavesUnused(idx)) {
      return;
    }
    CheckMotValue(idx, column, ToWideNumber(text.c_str()));
  }

  void CheckMotValue(MotIdx idx, int column, long long value) {
    const MotField& row = MotFieldTable[idx];
    const MotLimit limit = MotLimitOf(idx);
    if (value >= 0 && value <= static_cast<long long>(limit.largest)) return;
    const std::string name = std::string(row.Name) + " " + std::to_string(value);
    const std::string largest = "; the card takes 0 to " + std::to_string(limit.largest);
    if (limit.sharesByte) {
      return Add(
          column, RuleId::MotFlag,
          name + ": the controller does not mask it, it is cut off or sets the flags beside it" + largest);
    }
    const long long cut = value & ((1LL << row.Bits) - 1);
    const std::string effect = cut != value
                                   ? "cuts it to " + std::to_string(cut)
                                   : "doubles it, which does not fit " + std::to_string(row.Bits) + " bits";
    Add(column, RuleId::ValueCut, name + " does not fit: the controller " + effect + largest);
  }

  void CheckIf() {
    for (const int field : {0, 1, 2}) {
      const std::optional<std::string> text = PieceOf(param_, field, '&');
      const int column = parsed_.ParamColumn + PieceColumn(param_, field, '&');
      if (!text) {
        return Add(parsed_.ParamColumn, RuleId::IfFields,
                   "IF without its three fields: the controller calls nothing; the condition is "
                   "\"level&block&block\", "
                   "NUL for no block");
      }
      if (field == 0)
        CheckLevel(*text, column, "always takes the second block");
      else if (text->size() >= kMaxName) {
        return Add(column, RuleId::BlockName,
                   "a block's name of 200 characters or more: the controller calls nothing; shorten it");
      }
    }
    CheckBranches();
    if (!PieceOf(param_, 3, '&')) return;
    Add(parsed_.ParamColumn + PieceColumn(param_, 3, '&'), RuleId::LostText,
        "the controller does not look at what stands behind the third field of IF");
  }

  void CheckBranches() {
    for (const int branch : {1, 2}) {
      if (stricmp(PieceOf(param_, branch, '&').value_or("").c_str(), "NUL") != 0) return;
    }
    Add(parsed_.ParamColumn, RuleId::IdleIf,
        "neither level calls a block: the controller reads the input and goes on; name a block");
  }

  const ProgramTree& tree_;
  const Program& inProgram_;
  const Line& ofLine_;
  const Line* lastMove_;
  const ExplainedLine& parsed_;
  const rack::CommandRow& command_;
  const std::string keyword_;
  const std::string param_;
  Report& out_;
  const rack::CardCommands* card_ = nullptr;
};

}  // namespace

void CheckCardCommands(const ProgramTree& tree, const Program& program, Report* report) {
  std::map<SYNXIDX, const Line*> last;  // by the command that starts a move
  for (const Line& line : program.lines) {
    const rack::WaitsFor waitsFor = rack::RowOf(line.parsed.CmdIdx).waitsFor;
    const Line* lastMove = nullptr;
    if (waitsFor == rack::WaitsFor::MotorEnd) lastMove = last[SYN_MOT];
    if (waitsFor == rack::WaitsFor::CylinderPosition) lastMove = last[SYN_DG];
    CardRules(tree, program, line, lastMove, report).Check();
    const rack::CardCommands* card = tree.CardOf(line.parsed.SlotIdx.Value);
    const bool isTaken = card == nullptr || card->Find(line.parsed.CmdIdx) != nullptr;
    if (isTaken && rack::RowOf(line.parsed.CmdIdx).again == rack::Again::Moves)
      last[line.parsed.CmdIdx] = &line;
  }
}

}  // namespace check
