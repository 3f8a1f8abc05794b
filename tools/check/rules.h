// The rules of the program checker: what can be wrong with a machine's programs.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace check {

enum class RuleId {
  UnknownKeyword,
  MissingColon,
  TooFewFields,
  LineTooLong,
  LineSplit,
  WrongSeparator,
  MissingLabel,
  MissingBlock,
  BlockName,
  NoReset,
  NoFlow,
  NoTaskDirectory,
  IdleDirectory,
  NoSuchSlot,
  BadChannel,
  WrongCard,
  TwoFieldWait,
  MotFields,
  MotFlag,
  ValueCut,
  IfFields,
  DgPosition,
  LevelNever,
  PauseRange,
  EndlessAction,
  ConfUnread,
  ConfPort,
  NoAction,
  OddNumber,
  OutValue,
  LostText,
  DuplicateLabel,
  OpenEnd,
  Unreachable,
  BlockInBlock,
  BusyLoop,
  EmptyBlock,
  UnawaitedMove,
  OtherChannel,
  ResetFirstLine,
  LongDelay,
  SharedOutput,
  UnknownIgnore,
  RackFile,
  UnawaitedTravel,
  SharedAxis,
  SharedCard,
  WaitWithoutMove,
  NoPulse,
  CountStop,
  StaleCount,
  LeftMoving,
  ExitInBlock,
  MainAsBlock,
  RowCount,
  IdleIf,
  BusyWait,
  LongPause,
  HandshakeLock,
  WaitNeverMet,
  OpposedOutputs,
  BrokenRule,
  KeyPort,
  OutputLeftOn,
  OutputNotReset,
  UnnamedSignal,
  Count  // behind the last one
};

enum class Severity { Error, Warning };

// Examples are program lines of a task's FLOW.PLC; one with lines "== path" is a whole machine, each such line
// followed by the content of that file. Entries 0 to 4 of the card table: CPU, I/O, stepper, cylinder, servo; a
// "rack.toml" with [rack] or [slots] stands as it is, another one below these cards.
// "(N more characters)" stands for as many.
struct Rule {
  RuleId id;
  const char* name;
  Severity level;
  const char* summary;
  const char* explanation;  // what the controller does, and what to write
  const char* wrong;
  const char* right;
};

// In RuleId order.
const std::vector<Rule>& Rules();
const Rule& RuleOf(RuleId id);
// Null when there is none of that name.
const Rule* FindRule(std::string_view name);
std::vector<std::string> RuleNames();

const char* SeverityName(Severity level);

// The rule with its examples, as Markdown.
std::string ExplainRule(const Rule& rule);
// One line per rule.
std::string ListRules();

}  // namespace check
