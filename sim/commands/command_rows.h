// What tools say of each command of the program language, beside the controller's own table in synx.h.
#pragma once

#include <cstddef>
#include <iterator>
#include <string_view>

#include "synx.h"

namespace rack {

// What a command takes besides slot and channel, and what can be wrong with it.
enum class Parameter {
  Nothing,    // it takes none, or does nothing with it
  Unlooked,   // its form asks for a field that no card looks at
  OnOff,      // OUT: 1 switches on, everything else off
  Level,      // LD: 0 or 1
  Position,   // DG: 0 to 15, -1, -2
  Count,      // ROW: a count of the encoder
  Move,       // MOT: numbers separated by "&"
  Condition,  // IF: level&block&block
  Block,      // FL: the name of a block
  Millis,     // DLY, G_ST
  Label       // GO, #LE
};

// What a task waits or pauses for at a command.
enum class WaitsFor {
  Nothing,
  Input,             // LD
  MotorEnd,          // LMOT
  Count,             // ROW
  CylinderPosition,  // LDG
  CylinderEnd,       // DG: a setup or a reset
  Pause,             // DLY
  PauseBetween,      // G_ST: after this and each later command
  EndPause,          // END: a second
  Label              // GO: repeats while there is no such label
};

// Where the program goes on behind a command.
enum class GoesOn {
  NextLine,
  Block,   // FL, IF
  Label,   // GO
  Caller,  // END: the caller of a block, the program's first line
  Nowhere  // EXIT
};

// What becomes of it when the line is executed again and again without the program's wish.
enum class Again {
  Harmless,
  Writes,  // outputs are written anew
  Moves,   // a move is started anew
  Calls    // a block is called anew
};

struct CommandRow {
  SYNXIDX command;
  Parameter parameter = Parameter::Nothing;
  WaitsFor waitsFor = WaitsFor::Nothing;
  GoesOn goesOn = GoesOn::NextLine;
  Again again = Again::Harmless;
  // Of a command that goes to a card of the card table, null for all others: what happens when the card has no
  // use for the command, and what the controller does when the table has no such entry.
  const char* withoutUse = nullptr;
  const char* withoutCard = nullptr;

  constexpr bool GoesToCard() const { return withoutUse != nullptr; }
};

// What a row says of a card that is not there, or has no use for the command.
namespace text {
inline constexpr const char* kMetAtOnce = "the wait is met at once";
inline constexpr const char* kDoneInName = "the line counts as done, but nothing happens";

inline constexpr const char* kWaits = "waits for ever";
inline constexpr const char* kReports = "reports a failure and goes on";
inline constexpr const char* kPasses = "does nothing and goes on";
}  // namespace text

// clang-format off
inline constexpr CommandRow kCommandRows[] = {
    {SYN_NUL},
    {SYN_LD,    Parameter::Level,     WaitsFor::Input,            GoesOn::NextLine, Again::Harmless, text::kMetAtOnce, text::kWaits},
    {SYN_OUT,   Parameter::OnOff,     WaitsFor::Nothing,          GoesOn::NextLine, Again::Writes,   text::kDoneInName, text::kReports},
    {SYN_FL,    Parameter::Block,     WaitsFor::Nothing,          GoesOn::Block},
    {SYN_PARAM},
    {SYN_DG,    Parameter::Position,  WaitsFor::CylinderEnd,      GoesOn::NextLine, Again::Moves,    text::kDoneInName, text::kPasses},
    {SYN_LINE,  Parameter::Label},
    {SYN_END,   Parameter::Nothing,   WaitsFor::EndPause,         GoesOn::Caller},
    {SYN_MOT,   Parameter::Move,      WaitsFor::Nothing,          GoesOn::NextLine, Again::Moves,    text::kDoneInName, text::kReports},
    {SYN_LDG,   Parameter::Unlooked,  WaitsFor::CylinderPosition, GoesOn::NextLine, Again::Harmless, text::kMetAtOnce, text::kWaits},
    {SYN_DLY,   Parameter::Millis,    WaitsFor::Pause},
    {SYN_GO,    Parameter::Label,     WaitsFor::Label,            GoesOn::Label},
    {SYN_RLY},
    {SYN_MFL0},
    {SYN_MFL1},
    {SYN_MFL2},
    {SYN_MFL0END},
    {SYN_MFL1END},
    {SYN_MFL2END},
    {SYN_EXIT,  Parameter::Nothing,   WaitsFor::Nothing,          GoesOn::Nowhere},
    {SYN_RSTMOT},
    {SYN_LMOT,  Parameter::Unlooked,  WaitsFor::MotorEnd,         GoesOn::NextLine, Again::Harmless, text::kMetAtOnce, text::kWaits},
    {SYN_SMOT},
    {SYN_MOZ},
    {SYN_IF,    Parameter::Condition, WaitsFor::Nothing,          GoesOn::Block,    Again::Calls,    "the whole condition is taken for a block's name", text::kPasses},
    {SYN_RSTMOZ},
    {SYN_LMOZ},
    {SYN_LED},
    {SYN_G_ST,  Parameter::Millis,    WaitsFor::PauseBetween},
    {SYN_DGO},
    {SYN_LDGI},
    {SYN_ROW,   Parameter::Count,     WaitsFor::Count,            GoesOn::NextLine, Again::Harmless, "the task waits for ever", text::kWaits},
    {SYN_ROCLR, Parameter::Unlooked,  WaitsFor::Nothing,          GoesOn::NextLine, Again::Harmless, text::kDoneInName, text::kPasses},
    {SYN_OUTE},
};
// clang-format on
static_assert(std::size(kCommandRows) == SYNMAX, "one row per command");

// What the controller's table says of the command.
struct CommandTraits {
  bool repeats;
  bool acts;  // the runner does something at it
};
inline constexpr CommandTraits kCommandTraits[] = {
#define SYNX_TRAITS(index, enumerator, keyword, form, gate, repeat, action) \
  {LineRepeat::repeat == LineRepeat::UntilMet, std::string_view(#action) != "Nothing"},
    SYNX_COMMANDS(SYNX_TRAITS)
#undef SYNX_TRAITS
};

constexpr bool CommandRowsAreInOrder() {
  for (std::size_t i = 0; i < std::size(kCommandRows); ++i) {
    if (static_cast<std::size_t>(kCommandRows[i].command) != i) return false;
  }
  return true;
}
static_assert(CommandRowsAreInOrder(), "the rows stand in SYNXIDX order");

constexpr bool RepeatedCommandsWait() {
  for (std::size_t i = 0; i < std::size(kCommandRows); ++i) {
    if (kCommandTraits[i].repeats && kCommandRows[i].waitsFor == WaitsFor::Nothing) return false;
  }
  return true;
}
static_assert(RepeatedCommandsWait(), "a command that is repeated until it is met says what it waits for");

constexpr bool ActingCommandsSayWhat() {
  for (std::size_t i = 0; i < std::size(kCommandRows); ++i) {
    const CommandRow& row = kCommandRows[i];
    const bool says = row.parameter != Parameter::Nothing || row.waitsFor != WaitsFor::Nothing ||
                      row.goesOn != GoesOn::NextLine;
    if (kCommandTraits[i].acts && !says) return false;
  }
  return true;
}
static_assert(ActingCommandsSayWhat(),
              "a command that the runner acts at says what it takes, or waits for, or where it leads");

constexpr bool CardCommandsSayBoth() {
  for (const CommandRow& row : kCommandRows) {
    if ((row.withoutUse == nullptr) != (row.withoutCard == nullptr)) return false;
  }
  return true;
}
static_assert(CardCommandsSayBoth(), "a command that goes to a card says what it does without one");

constexpr const CommandRow& RowOf(SYNXIDX command) {
  return kCommandRows[command];
}

}  // namespace rack
