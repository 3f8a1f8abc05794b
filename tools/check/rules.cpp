#include "check/rules.h"

#include <algorithm>
#include <cstddef>
#include <sstream>

#include "cards/rows.h"

namespace check {

namespace {

constexpr Severity kError = Severity::Error;
constexpr Severity kWarning = Severity::Warning;

// clang-format off
constexpr Rule kRules[] = {
    {RuleId::UnknownKeyword, "unknown-keyword", kError, "the text in front of \":\" is no command",
     "The controller skips the line: nothing is executed, nothing is logged.",
     "OUTT: 1, 3, 1\nEND", "OUT: 1, 3, 1\nEND"},
    {RuleId::MissingColon, "missing-colon", kError, "a command that needs fields has no \":\"",
     "The controller skips the line: nothing is executed, nothing is logged.",
     "DLY 500\nDLY\nEND", "DLY: 500\nEND"},
    {RuleId::TooFewFields, "too-few-fields", kError, "a command has fewer fields than it needs",
     "The controller skips the line: nothing is executed, nothing is logged. The last field may be empty, but its\n"
     "comma must be there.",
     "LMOT: 2\nOUT: 1, 3\nEND", "MOT: 2, 0, 4000&20&1\nLMOT: 2, 0,\nOUT: 1, 3, 1\nEND"},
    {RuleId::LineTooLong, "line-too-long", kError, "a line has more than 999 characters",
     "The controller skips the line, whether the characters are code or comment: nothing is executed, nothing is\n"
     "logged. Only GO finds a label in it.",
     "OUT: 1, 3, 1 ;(990 more characters)\nEND", "OUT: 1, 3, 1\n;(990 more characters)\nEND"},
    {RuleId::LineSplit, "line-split", kError, "a piece of a line with more than 1023 bytes is executed",
     "The controller reads it in pieces of 1023 bytes and takes each piece as a line of its own: this one is a command\n"
     "or a label, though it was meant as a comment.",
     ";(1022 more characters)OUT: 1, 3, 1\nEND", ";(500 more characters)\n;(522 more characters)OUT: 1, 3, 1\nEND"},
    {RuleId::WrongSeparator, "wrong-separator", kError, "a character that only looks like a separator, a digit, a letter or a blank",
     "The controller knows the ASCII characters only: for it this one is a letter of the keyword or field. The line\n"
     "is then usually skipped; in front of a number it makes the number 0, so that another output switches. A byte\n"
     "order mark becomes part of the first keyword. Names of blocks and comments may have any character.",
     "OUT： 1, 3, 1\nEND", "OUT: 1, 3, 1\nEND"},
    {RuleId::MissingLabel, "missing-label", kError, "GO names a label that is not in the same file",
     "The controller executes the GO line again and again, until the minus key. It searches only the file that the GO\n"
     "stands in.",
     "#LE: 1\nDLY: 500\nGO: 2", "#LE: 1\nDLY: 500\nGO: 1"},
    {RuleId::MissingBlock, "missing-block", kError, "a called block file is not there, in exactly this letter case",
     "In a main program the controller passes over the call without a message. In a block it closes that block and\n"
     "the task idles until the minus key.",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nFL: drill.plc\nEND\n== plc1/DRILL.PLC\nOUT: 1, 0, 1\nEND",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nFL: DRILL.PLC\nEND\n== plc1/DRILL.PLC\nOUT: 1, 0, 1\nEND"},
    {RuleId::BlockName, "block-name", kError, "a block's name is too long",
     "A name of 200 characters or more, or one whose path \"plcN/name\" is that long, is a block that cannot be\n"
     "opened. An IF with such a name calls nothing at all.",
     "FL: A(200 more characters)\nEND",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nFL: A.PLC\nEND\n== plc1/A.PLC\nOUT: 1, 0, 1\nEND"},
    {RuleId::NoReset, "no-reset", kError, "a task's directory has no RESET.PLC",
     "The controller reports \"RESET.PLC lost Task quit!\" at the start, and the task ends; no key brings it back.\n"
     "Letter case counts.",
     "== plc1/Reset.plc\nEXIT\n== plc1/FLOW.PLC\nDLY: 100\nEND",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nDLY: 100\nEND"},
    {RuleId::NoFlow, "no-flow", kError, "a task's directory has no FLOW.PLC",
     "The Enter key closes the reset program and then fails: the task idles. Letter case counts.",
     "== plc1/RESET.PLC\nEXIT\n== plc1/flow.plc\nDLY: 100\nEND",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nDLY: 100\nEND"},
    {RuleId::NoTaskDirectory, "no-task-directory", kError, "a task has no directory",
     "Tasks 1 to N run, N being the CPU card's switch (the rack file's task count) or the highest directory without a\n"
     "rack file. A task without directory plcN ends at the start for want of RESET.PLC.",
     "== plc2/RESET.PLC\nEXIT\n== plc2/FLOW.PLC\nDLY: 100\nEND",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nDLY: 100\nEND"},
    {RuleId::IdleDirectory, "idle-directory", kError, "no task runs the programs of this directory",
     "Tasks are numbered 1 to 8, and only as many run as the CPU card's switch says (the rack file's task_count): none for\n"
     "0, one for more than 8. Without the bus device (device = \"none\") none runs.",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nDLY: 100\nEND\n== plc9/RESET.PLC\nEXIT",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nDLY: 100\nEND"},
    {RuleId::NoSuchSlot, "no-such-slot", kError, "the card table has no such entry",
     "OUT and MOT report a failure, DG and IF do nothing, LD, LDG, LMOT and ROW wait for ever. The number is the\n"
     "card's position in the list printed at the start (0 is the CPU card), not its slot in the rack.",
     "LD: 7, 0, 1\nEND", "LD: 1, 0, 1\nEND"},
    {RuleId::BadChannel, "bad-channel", kError, "the card has no such channel",
     "The number wraps onto another channel of the card, or the command has no effect, or waits for ever: the message\n"
     "says which.",
     "OUT: 1, 25, 1\nEND", "OUT: 1, 17, 1\nEND"},
    {RuleId::WrongCard, "wrong-card", kError, "the addressed card does nothing with this command",
     "The card answers \"done\" without doing anything, so that a wait is met at once; ROW waits for ever. IF takes\n"
     "the whole condition for the name of a block.",
     "MOT: 1, 0, 4000&20&1\nLMOT: 1, 0,\nEND", "MOT: 2, 0, 4000&20&1\nLMOT: 2, 0,\nEND"},
    {RuleId::TwoFieldWait, "two-field-wait", kError, "LDG or LMOT with two fields asks the CPU card",
     "With two fields the line is \"channel, parameter\" for entry 0, which has neither motors nor cylinders: the wait\n"
     "is met at once while the axis still moves. Write slot, channel and a last comma.",
     "MOT: 2, 1, 4000&20&1\nLMOT: 1,\nEND", "MOT: 2, 1, 4000&20&1\nLMOT: 2, 1,\nEND"},
    {RuleId::MotFields, "mot-fields", kError, "MOT with fewer than three fields, or with a field that is too long",
     "The card refuses the move: \"Task_MOT Fail[0]\", and the program goes on with the axis standing. Fields are\n"
     "separated by \"&\": steps, frequency code, direction.",
     "MOT: 2, 0, 4000&20\nEND", "MOT: 2, 0, 4000&20&1\nLMOT: 2, 0,\nEND"},
    {RuleId::MotFlag, "mot-flag", kError, "a flag of MOT that is not 0 or 1, or an external stop channel above 3",
     "The control byte is put together without masks: the value spills into the flags beside it or is cut off.",
     "MOT: 2, 0, 4000&20&2\nLMOT: 2, 0,\nEND", "MOT: 2, 0, 4000&20&1\nLMOT: 2, 0,\nEND"},
    {RuleId::ValueCut, "value-cut", kError, "a number is wider than what takes it",
     "The controller cuts the number to the width of its register (\"300\" is 44 in 8 bits) and goes on without a\n"
     "message. Step counts are doubled on their way to the card.",
     "MOT: 2, 0, 4000&300&1\nLMOT: 2, 0,\nEND", "MOT: 2, 0, 4000&200&1\nLMOT: 2, 0,\nEND"},
    {RuleId::IfFields, "if-fields", kError, "IF without its three fields",
     "The condition is level, block if equal, block otherwise, separated by \"&\"; NUL stands for no block. With fewer\n"
     "fields nothing is called, whatever the level.",
     "IF: 1, 0, 1&NUL\nEND",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nIF: 1, 0, 1&NUL&A.PLC\nEND\n== plc1/A.PLC\nDLY: 100\nEND"},
    {RuleId::DgPosition, "dg-position", kError, "a DG number that sends nothing",
     "0 to 15 move, -1 sets up, -2 resets the alarm. Other numbers are cut to 8 bits, and above 15 nothing is sent;\n"
     "the cylinder stays where it is and LDG is met.",
     "DG: 3, 0, 16\nLDG: 3, 0,\nEND", "DG: 3, 0, 15\nLDG: 3, 0,\nEND"},
    {RuleId::LevelNever, "level-never", kError, "a level that an input never has",
     "An input is 0 or 1. LD with another level waits for ever; IF with another level always takes its second block.",
     "LD: 1, 0, 2\nEND", "LD: 1, 0, 1\nEND"},
    {RuleId::PauseRange, "pause-range", kError, "a negative pause, or one above 2147483647 ms",
     "A negative DLY pauses 0 ms, a negative G_ST leaves the pause as it is. A larger number is cut to 32 bits.",
     "DLY: -500\nEND", "DLY: 500\nEND"},
    {RuleId::EndlessAction, "endless-action", kError, "a file ends without END or EXIT after OUT, MOT or DG",
     "At the end of a file the line read last is executed again and again: outputs are written at every pass, a move\n"
     "is started anew before it has ended.",
     "OUT: 1, 3, 0\nMOT: 2, 0, 4000&20&1", "OUT: 1, 3, 0\nMOT: 2, 0, 4000&20&1\nLMOT: 2, 0,\nEND"},
    {RuleId::ConfUnread, "conf-unread", kError, "the controller does not find this line of Velmo.conf",
     "A group's line is its name alone: no blank, tab, carriage return or item may follow. An item belongs in its own\n"
     "group, and nothing may stand between it and its \"=\". Only the first group of a name is read. What is not found\n"
     "counts as absent: the UDP port is 2017.",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nDLY: 100\nEND\n== Velmo.conf\n[UDP]\nPort = 8000",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nDLY: 100\nEND\n== Velmo.conf\n[UDP]\nPort=8000"},
    {RuleId::ConfPort, "conf-port", kError, "a port of Velmo.conf that is out of range",
     "A UDP port is 1 to 65535; another number is cut to 16 bits and some other port, or none, answers. The function\n"
     "keys' port is 9 to 255; another one is refused and counts as absent.",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nDLY: 100\nEND\n== Velmo.conf\n[UDP]\nPort=80000",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nDLY: 100\nEND\n== Velmo.conf\n[UDP]\nPort=8000"},
    {RuleId::NoAction, "no-action", kWarning, "a keyword that is accepted but does nothing",
     "The controller logs the line, pauses and goes on.",
     "LED: 0, 0, 1\nEND", "OUT: 0, 0, 1\nEND"},
    {RuleId::OddNumber, "odd-number", kWarning, "a number with other text in it, or none at all",
     "Reading stops at the first character that is no digit, and no digits at all are 0: \"1O\" is 1, \"O\" is 0.",
     "DLY: 5OO\nEND", "DLY: 500\nEND"},
    {RuleId::OutValue, "out-value", kWarning, "OUT with anything but 0 or 1",
     "Only the number 1 switches on; everything else switches off, also ON, 2 and an empty field.",
     "OUT: 1, 3, ON\nEND", "OUT: 1, 3, 1\nEND"},
    {RuleId::LostText, "lost-text", kWarning, "text that the controller does not look at",
     "A second \":\" ends the fields, a second \";\" ends the comment, and fields beyond those that a command takes are\n"
     "dropped. A parameter cannot contain \",\", \":\" or \";\". Of MOT, the card leaves out what it has no use for: the\n"
     "stepper card field 5, the servo card 7 and 8, both the stop count unless field 9 is 1. A 0 may fill a place.",
     "OUT: 1, 3, 1, 1\nEND", "OUT: 1, 3, 1\nEND"},
    {RuleId::DuplicateLabel, "duplicate-label", kWarning, "a label's number stands twice in a file",
     "GO goes to the first one from the top of the file; the second is never reached by GO.",
     "#LE: 1\nDLY: 100\n#LE: 1\nGO: 1", "#LE: 1\nDLY: 100\n#LE: 2\nGO: 1"},
    {RuleId::OpenEnd, "open-end", kWarning, "a file ends without END or EXIT",
     "At the end of a file the line read last is executed again and again, until the minus key. End a program with\n"
     "END or EXIT, a block with END.",
     "OUT: 1, 3, 0\nLD: 1, 0, 1", "OUT: 1, 3, 0\nLD: 1, 0, 1\nEND"},
    {RuleId::Unreachable, "unreachable", kWarning, "no path reaches this line",
     "The lines before it always end the program or go elsewhere, or call a block that never comes back: one that loops for\n"
     "ever, or comes to EXIT.",
     "#LE: 1\nDLY: 100\nGO: 1\nOUT: 1, 3, 1\nEND", "#LE: 1\nDLY: 100\nOUT: 1, 3, 1\nGO: 1"},
    {RuleId::BlockInBlock, "block-in-block", kWarning, "a block calls a block",
     "Blocks do not nest: the called block replaces this one, whose further lines are not executed, and its END\n"
     "returns to the main program.",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nFL: A.PLC\nEND\n== plc1/A.PLC\nFL: B.PLC\n"
     "== plc1/B.PLC\nOUT: 1, 0, 1\nEND",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nFL: A.PLC\nFL: B.PLC\nEND\n== plc1/A.PLC\nOUT: 1, 0, 0\nEND\n"
     "== plc1/B.PLC\nOUT: 1, 0, 1\nEND"},
    {RuleId::BusyLoop, "busy-loop", kWarning, "a loop with neither pause nor wait while G_ST is 0",
     "The task runs through the loop as fast as the processor allows and takes time from all others.",
     "G_ST: 0\n#LE: 1\nOUT: 1, 3, 1\nOUT: 1, 3, 0\nGO: 1", "G_ST: 0\n#LE: 1\nOUT: 1, 3, 1\nOUT: 1, 3, 0\nDLY: 5\nGO: 1"},
    {RuleId::EmptyBlock, "empty-block", kWarning, "a called block has no command",
     "A block without lines repeats the line that called it, without a pause; one of comments only never returns.",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nFL: A.PLC\nEND\n== plc1/A.PLC\n",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nFL: A.PLC\nEND\n== plc1/A.PLC\nEND"},
    {RuleId::UnawaitedMove, "unawaited-move", kWarning, "a new MOT on a channel whose last move nothing waited for",
     "The card programs the running motor anew: the first move does not end where it should. Wait with LMOT or ROW,\n"
     "also ahead of an END that leads back to the MOT, and of the EXIT of RESET.PLC. A LD counts as the wait for a move\n"
     "with the external stop; if the rack file wires the axis, the LD of a switch or stop of that axis.",
     "MOT: 4, 0, 4000&20&1\nMOT: 4, 0, 4000&20&0\nLMOT: 4, 0,\nEND",
     "MOT: 4, 0, 4000&20&1\nLMOT: 4, 0,\nMOT: 4, 0, 4000&20&0\nLMOT: 4, 0,\nEND"},
    {RuleId::OtherChannel, "other-channel", kWarning,
     "LMOT or ROCLR after another channel of the card was addressed, or none",
     "The stepper card answers for the channel selected last, which MOT and ROW do; LMOT and ROCLR select none. So does\n"
     "the servo card for ROCLR. At the start channel 7 is selected, after the minus key the one of before. Wait for each\n"
     "motor before the next is started, or wait with ROW; write ROCLR behind a MOT or ROW of its channel.",
     "MOT: 2, 0, 4000&20&1\nMOT: 2, 1, 4000&20&1\nLMOT: 2, 0,\nLMOT: 2, 1,\nEND",
     "MOT: 2, 0, 4000&20&1\nLMOT: 2, 0,\nMOT: 2, 1, 4000&20&1\nLMOT: 2, 1,\nEND"},
    {RuleId::ResetFirstLine, "reset-first-line", kWarning, "MOT, DG or IF is the first line of RESET.PLC",
     "While the minus key is down RESET.PLC is opened anew in each pass and its first line executed each time. Begin\n"
     "the file with a comment or an OUT.",
     "== plc1/RESET.PLC\nDG: 3, 0, -1\nEXIT\n== plc1/FLOW.PLC\nDLY: 100\nEND",
     "== plc1/RESET.PLC\n; home\nDG: 3, 0, -1\nEXIT\n== plc1/FLOW.PLC\nDLY: 100\nEND"},
    {RuleId::LongDelay, "long-delay", kWarning, "a DLY of a second or more",
     "A task looks at the keys once per line: during the pause it is deaf, and a key pressed shorter is missed. Wait\n"
     "in a loop of short pauses, or for an input.",
     "DLY: 1000\nEND", "DLY: 500\nDLY: 499\nEND"},
    {RuleId::SharedOutput, "shared-output", kWarning, "two tasks write the same output",
     "The level is that of the task that wrote last: each undoes what the other has done.",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nOUT: 1, 3, 1\nEND\n"
     "== plc2/RESET.PLC\nEXIT\n== plc2/FLOW.PLC\nOUT: 1, 3, 0\nEND",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nOUT: 1, 3, 1\nEND\n"
     "== plc2/RESET.PLC\nEXIT\n== plc2/FLOW.PLC\nOUT: 1, 4, 0\nEND"},
    {RuleId::UnknownIgnore, "unknown-ignore", kWarning, "words to the checker that it does not understand",
     "Nothing is silenced. The words are \"check: ignore\" and the names of rules, with a comma between two names;\n"
     "--list-rules prints them.",
     "DLY: 500 ; check: ignore long-dely\nEND", "DLY: 1000 ; check: ignore long-delay\nEND"},
    {RuleId::RackFile, "rack-file", kError, "the rack file is wrong",
     "velmo-rack does not start a machine whose rack file it cannot read. The checker goes on without it and leaves\n"
     "out what depends on the cards; what [check] ignores it takes as far as it is right.",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nDLY: 100\nEND\n== rack.toml\n[slots]\n1 = \"oi\"",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nDLY: 100\nEND\n== rack.toml\n[slots]\n1 = \"io\""},
    {RuleId::UnawaitedTravel, "unawaited-travel", kWarning, "a new DG on a cylinder whose last travel nothing waited for",
     "The card replaces the running travel: the cylinder goes to the new position from where it is and does not come to\n"
     "the first. Wait with LDG. A LD counts as a wait; if the rack file wires the cylinder, the LD of its switch.",
     "DG: 3, 0, 15\nDG: 3, 0, 0\nLDG: 3, 0,\nEND",
     "DG: 3, 0, 15\nLDG: 3, 0,\nDG: 3, 0, 0\nLDG: 3, 0,\nEND"},
    {RuleId::SharedAxis, "shared-axis", kWarning, "two tasks move the same motor or cylinder",
     "The move that comes last replaces one that still runs, and each task's wait is met by the other's move. DG with -1\n"
     "or -2 from another task is help, not a move.",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nMOT: 4, 0, 4000&20&1\nLMOT: 4, 0,\nEND\n"
     "== plc2/RESET.PLC\nEXIT\n== plc2/FLOW.PLC\nMOT: 4, 0, 4000&20&0\nLMOT: 4, 0,\nEND",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nMOT: 4, 0, 4000&20&1\nLMOT: 4, 0,\nEND\n"
     "== plc2/RESET.PLC\nEXIT\n== plc2/FLOW.PLC\nMOT: 4, 1, 4000&20&0\nLMOT: 4, 1,\nEND"},
    {RuleId::SharedCard, "shared-card", kWarning, "LMOT or ROCLR on a card of which another task addresses another channel",
     "The card answers for the channel that was addressed last, whichever task did: LMOT is met while the task's own axis\n"
     "still moves, or waits for the other's; ROCLR clears the other's counter. The servo card does so for ROCLR only.",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nMOT: 2, 0, 4000&20&1\nLMOT: 2, 0,\nEND\n"
     "== plc2/RESET.PLC\nEXIT\n== plc2/FLOW.PLC\nDLY: 50\nMOT: 2, 1, 1&20&0\nLMOT: 2, 1,\nEND",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nMOT: 2, 0, 4000&20&1\nLMOT: 2, 0,\nEND\n"
     "== plc2/RESET.PLC\nEXIT\n== plc2/FLOW.PLC\nDLY: 50\nMOT: 4, 1, 1&20&0\nLMOT: 4, 1,\nEND"},
    {RuleId::WaitWithoutMove, "wait-without-move", kWarning, "LMOT or LDG for an axis that no task ever starts",
     "What stands is waited for: the wait is met at once. The stepper card answers for another motor, the one addressed\n"
     "last. Usually the channel is another one than in the MOT or DG.",
     "MOT: 4, 0, 4000&20&1\nLMOT: 4, 1,\nLMOT: 4, 0,\nEND", "MOT: 4, 0, 4000&20&1\nLMOT: 4, 0,\nEND"},
    {RuleId::NoPulse, "no-pulse", kError, "MOT with frequency code 0",
     "The card makes no pulse: the motor stands, but its move never ends, and LMOT and ROW wait for ever.",
     "MOT: 2, 0, 4000&0&1\nLMOT: 2, 0,\nEND", "MOT: 2, 0, 4000&20&1\nLMOT: 2, 0,\nEND"},
    {RuleId::CountStop, "count-stop", kError, "MOT with the count stop on and no stop count",
     "The stop count is then 0: the move ends with its first pulse, and LMOT is met. The tenth field switches the count\n"
     "stop on, the eleventh is the count.",
     "MOT: 2, 0, 4000&20&1&0&0&0&0&0&0&1\nLMOT: 2, 0,\nEND",
     "MOT: 2, 0, 4000&20&1&0&0&0&0&0&0&1&3000\nLMOT: 2, 0,\nEND"},
    {RuleId::StaleCount, "stale-count", kWarning, "a second ROW on a channel without ROCLR between",
     "The counter still stands where the first wait found it, and either direction counts: a ROW of the same count or\n"
     "less is met at once, before the second move has gone anywhere.",
     "MOT: 4, 0, 4000&20&1\nROW: 4, 0, 3000\nLMOT: 4, 0,\nMOT: 4, 0, 4000&20&0\nROW: 4, 0, 3000\nLMOT: 4, 0,\nROCLR: 4, 0,\nEND",
     "MOT: 4, 0, 4000&20&1\nROW: 4, 0, 3000\nLMOT: 4, 0,\nROCLR: 4, 0,\n"
     "MOT: 4, 0, 4000&20&0\nROW: 4, 0, 3000\nLMOT: 4, 0,\nROCLR: 4, 0,\nEND"},
    {RuleId::LeftMoving, "left-moving", kWarning, "a block leaves an axis moving, and another motor is started",
     "END waits for no axis: the next motor starts while the block's motor or cylinder is still under way, and nothing\n"
     "waits for that later. Wait in the block, with LMOT, ROW or LDG. A part that the axis lets arrive tells nothing\n"
     "of it in the next round.",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nFL: TURN.PLC\nMOT: 4, 1, 4000&20&1\nLMOT: 4, 1,\nEXIT\n"
     "== plc1/TURN.PLC\nMOT: 4, 0, 40000&20&1\nEND",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nFL: TURN.PLC\nMOT: 4, 1, 4000&20&1\nLMOT: 4, 1,\nEXIT\n"
     "== plc1/TURN.PLC\nMOT: 4, 0, 40000&20&1\nLMOT: 4, 0,\nEND"},
    {RuleId::ExitInBlock, "exit-in-block", kError, "EXIT in a block without END right behind it",
     "EXIT closes the main program, not the block: the controller still executes what stands behind it, up to END.\n"
     "At the end of a file without END it stays in the block: FLOW.PLC, which Enter opens, is closed by the next EXIT\n"
     "or never read. Only the minus key leads out.",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nFL: DONE.PLC\nEND\n== plc1/DONE.PLC\nDLY: 300\nEXIT",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nFL: DONE.PLC\nEND\n== plc1/DONE.PLC\nDLY: 300\nEXIT\nEND"},
    {RuleId::MainAsBlock, "main-as-block", kError, "RESET.PLC or FLOW.PLC is called as a block",
     "It then runs as a block: a call in it replaces it, its END returns behind the call, and Enter and EXIT concern the\n"
     "caller. One that calls itself begins anew at each call, without a pause. The keys start the main programs.",
     "== plc1/RESET.PLC\n; home, then go on\nFL: FLOW.PLC\nEXIT\n== plc1/FLOW.PLC\nFL: A.PLC\nOUT: 1, 3, 0\nEND\n"
     "== plc1/A.PLC\nDLY: 100\nEND",
     "== plc1/RESET.PLC\n; home, then wait for Enter\nEXIT\n== plc1/FLOW.PLC\nFL: A.PLC\nOUT: 1, 3, 0\nEND\n"
     "== plc1/A.PLC\nDLY: 100\nEND"},
    {RuleId::RowCount, "row-count", kError, "ROW with a negative count or 0",
     "The encoder has always counted that far: the wait is met at once. A count goes from 1 on and is met in either\n"
     "direction. 0 has its use right before ROCLR or LMOT of that channel, for ROW selects it.",
     "MOT: 2, 0, 4000&20&0\nROW: 2, 0, -2000\nOUT: 1, 3, 1\nLMOT: 2, 0,\nROCLR: 2, 0,\nOUT: 1, 3, 0\nEND",
     "MOT: 2, 0, 4000&20&0\nROW: 2, 0, 2000\nOUT: 1, 3, 1\nLMOT: 2, 0,\nROCLR: 2, 0,\nOUT: 1, 3, 0\nEND"},
    {RuleId::IdleIf, "idle-if", kWarning, "IF with NUL for both blocks",
     "The controller reads the input and goes on, whatever its level: nothing is ever called.",
     "IF: 1, 3, 1&NUL&NUL\nEND",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nIF: 1, 3, 1&A.PLC&NUL\nEND\n== plc1/A.PLC\nDLY: 100\nEND"},
    {RuleId::BusyWait, "busy-wait", kWarning, "LD, LDG, LMOT or ROW while G_ST is 0",
     "Without the pause the line is executed again, and logged, as fast as the processor and the bus allow, until it is\n"
     "met: the task takes time from all others. A few milliseconds are enough. One finding for each part of a program in\n"
     "which the pause may be 0, at its first wait.",
     "G_ST: 0\nLD: 1, 3, 1\nEND", "G_ST: 5\nLD: 1, 3, 1\nEND"},
    {RuleId::LongPause, "long-pause", kWarning, "a G_ST of a second or more",
     "A task looks at the keys once per line: with such a pause after each command it is nearly always deaf, and a key\n"
     "pressed shorter is missed. Use DLY where the pause is wanted, in pieces below a second.",
     "G_ST: 1000\n#LE: 1\nLD: 1, 0, 1\nGO: 1", "G_ST: 50\n#LE: 1\nLD: 1, 0, 1\nDLY: 900\nGO: 1"},
    {RuleId::HandshakeLock, "handshake-lock", kError, "tasks wait for each other, and none goes on",
     "Each task waits for the sensor of an output, or for the switch of an axis or cylinder, that only another waiting\n"
     "task would switch or move. The lines are executed\n"
     "again and again until the minus key. Let one task give before it waits. The order of the lines that leads there\n"
     "is told; it comes about whether moves and people are quick or slow. Taken for granted: OUT alone switches\n"
     "outputs, the sensor of a [[valve]] follows its output, the switches of an [[axis]] or [[cylinder]] change when it\n"
     "is moved by a program, every other input takes the level that is waited for,\n"
     "Enter is pressed when all reset programs have ended or gone round once, and a level that comes while a task waits\n"
     "for it is seen: a shorter one than the task's pause (G_ST) can be missed.",
     "== rack.toml\n[[valve]]\noutput = \"1.0\"\nsensor = \"1.8\"\n[[valve]]\noutput = \"1.1\"\nsensor = \"1.9\"\n"
     "== plc1/RESET.PLC\nOUT: 1, 0, 0\nEXIT\n== plc1/FLOW.PLC\nLD: 1, 9, 1\nOUT: 1, 0, 1\nLD: 1, 9, 0\nOUT: 1, 0, 0\nEND\n"
     "== plc2/RESET.PLC\nOUT: 1, 1, 0\nEXIT\n== plc2/FLOW.PLC\nLD: 1, 8, 1\nOUT: 1, 1, 1\nLD: 1, 8, 0\nOUT: 1, 1, 0\nEND",
     "== rack.toml\n[[valve]]\noutput = \"1.0\"\nsensor = \"1.8\"\n[[valve]]\noutput = \"1.1\"\nsensor = \"1.9\"\n"
     "== plc1/RESET.PLC\nOUT: 1, 0, 0\nEXIT\n== plc1/FLOW.PLC\nOUT: 1, 0, 1\nLD: 1, 9, 1\nOUT: 1, 0, 0\nLD: 1, 9, 0\nEND\n"
     "== plc2/RESET.PLC\nOUT: 1, 1, 0\nEXIT\n== plc2/FLOW.PLC\nLD: 1, 8, 1\nOUT: 1, 1, 1\nLD: 1, 8, 0\nOUT: 1, 1, 0\nEND"},
    {RuleId::WaitNeverMet, "wait-never-met", kError, "a wait that by the rack file nothing can meet from there",
     "The sensor follows an output that stands at the other level, and no other task switches it; or it is a switch of\n"
     "an axis or cylinder that stands, and no other task moves it. The line is executed again and again until the\n"
     "minus key. The same is taken for granted as for handshake-lock.",
     "== rack.toml\n[[valve]]\noutput = \"1.0\"\nsensor = \"1.8\"\n"
     "== plc1/RESET.PLC\nOUT: 1, 0, 0\nEXIT\n== plc1/FLOW.PLC\nOUT: 1, 0, 1\nLD: 1, 8, 1\nOUT: 1, 0, 0\nLD: 1, 8, 1\nEND",
     "== rack.toml\n[[valve]]\noutput = \"1.0\"\nsensor = \"1.8\"\n"
     "== plc1/RESET.PLC\nOUT: 1, 0, 0\nEXIT\n== plc1/FLOW.PLC\nOUT: 1, 0, 1\nLD: 1, 8, 1\nOUT: 1, 0, 0\nLD: 1, 8, 0\nEND"},
    {RuleId::OpposedOutputs, "opposed-outputs", kWarning, "two outputs that move one thing in two directions are on together",
     "Such are x and x_back, and outputs of which a [[valve]] row says that they lead to different switches of one\n"
     "[[axis]] or [[cylinder]]. The controller switches each output as it is told and knows of no other: both are on until one is switched off.\n"
     "Switch one off before the other goes on. The same is taken for granted as for handshake-lock.",
     "== rack.toml\n[outputs]\nslide = \"1.0\"\nslide_back = \"1.1\"\n"
     "== plc1/RESET.PLC\nOUT: 1, 0, 0\nOUT: 1, 1, 0\nEXIT\n"
     "== plc1/FLOW.PLC\nOUT: 1, 0, 1\nDLY: 300\nOUT: 1, 1, 1\nOUT: 1, 0, 0\nDLY: 300\nOUT: 1, 1, 0\nEND",
     "== rack.toml\n[outputs]\nslide = \"1.0\"\nslide_back = \"1.1\"\n"
     "== plc1/RESET.PLC\nOUT: 1, 0, 0\nOUT: 1, 1, 0\nEXIT\n"
     "== plc1/FLOW.PLC\nOUT: 1, 0, 1\nDLY: 300\nOUT: 1, 0, 0\nOUT: 1, 1, 1\nDLY: 300\nOUT: 1, 1, 0\nEND"},
    {RuleId::BrokenRule, "broken-rule", kError, "the programs can break a [[rule]] of the rack file",
     "The controller knows no rules: it executes the lines, and what must not be together is. Looked at are rules with\n"
     "never_together and with while, as far as they are about levels of outputs and of the sensors of valves; all\n"
     "others are left to the runs. The same is taken for granted as for handshake-lock.",
     "== rack.toml\n[inputs]\nclamped = \"1.8\"\n[outputs]\nspindle = \"1.0\"\nclamp = \"1.1\"\n[[valve]]\noutput = \"clamp\"\n"
     "sensor = \"clamped\"\non_delay = \"100 ms\"\n[[rule]]\nname = \"the spindle turns in a held part only\"\n"
     "never_together = [\"spindle on\", \"clamped off\"]\n"
     "== plc1/RESET.PLC\nOUT: 1, 0, 0\nOUT: 1, 1, 0\nEXIT\n"
     "== plc1/FLOW.PLC\nOUT: 1, 1, 1\nOUT: 1, 0, 1\nDLY: 300\nOUT: 1, 0, 0\nOUT: 1, 1, 0\nEND",
     "== rack.toml\n[inputs]\nclamped = \"1.8\"\n[outputs]\nspindle = \"1.0\"\nclamp = \"1.1\"\n[[valve]]\noutput = \"clamp\"\n"
     "sensor = \"clamped\"\non_delay = \"100 ms\"\n[[rule]]\nname = \"the spindle turns in a held part only\"\n"
     "never_together = [\"spindle on\", \"clamped off\"]\n"
     "== plc1/RESET.PLC\nOUT: 1, 0, 0\nOUT: 1, 1, 0\nEXIT\n"
     "== plc1/FLOW.PLC\nOUT: 1, 1, 1\nLD: 1, 8, 1\nOUT: 1, 0, 1\nDLY: 300\nOUT: 1, 0, 0\nOUT: 1, 1, 0\nEND"},
    {RuleId::KeyPort, "key-port", kWarning, "FunctionPort and the rack file's function_port differ",
     "The controller asks for the function keys at the port that Velmo.conf names, and without one not at all. At another\n"
     "port than that of the machine it reads no key: a task in step mode then stays where it has stopped.",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nDLY: 100\nEND\n== Velmo.conf\n[KEYPAD]\nFunctionPort=11\n"
     "== rack.toml\n[rack]\nfunction_port = 12",
     "== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nDLY: 100\nEND\n== Velmo.conf\n[KEYPAD]\nFunctionPort=12\n"
     "== rack.toml\n[rack]\nfunction_port = 12"},
    {RuleId::OutputLeftOn, "output-left-on", kWarning, "an output is switched on in each round of production and never off",
     "The first round switches it on, and in all others the line changes nothing: what waits for its effect is met at\n"
     "once. What is to stay on stands ahead of the round, or at the beginning of a program that END repeats. A block that\n"
     "IF calls is looked at when it waits or pauses behind the line; else the output may be a message until the reset. A\n"
     "machine whose reset programs neither write nor move anything is not looked at.",
     "== plc1/RESET.PLC\nOUT: 1, 3, 0\nEXIT\n== plc1/FLOW.PLC\n#LE: 1\nLD: 1, 0, 1\nOUT: 1, 3, 1\nDLY: 200\nGO: 1",
     "== plc1/RESET.PLC\nOUT: 1, 3, 0\nEXIT\n== plc1/FLOW.PLC\n#LE: 1\nLD: 1, 0, 1\nOUT: 1, 3, 1\nDLY: 200\nOUT: 1, 3, 0\nGO: 1"},
    {RuleId::OutputNotReset, "output-not-reset", kWarning,
     "an output that production switches on and no reset program writes",
     "No key switches an output off. When the minus key ends production while it is on, it stays on, also over a restart\n"
     "of the controller. A machine whose reset programs neither write nor move anything is not looked at.",
     "== plc1/RESET.PLC\nOUT: 1, 4, 0\nEXIT\n== plc1/FLOW.PLC\nOUT: 1, 3, 1\nLD: 1, 1, 1\nOUT: 1, 3, 0\nEND",
     "== plc1/RESET.PLC\nOUT: 1, 3, 0\nOUT: 1, 4, 0\nEXIT\n== plc1/FLOW.PLC\nOUT: 1, 3, 1\nLD: 1, 1, 1\nOUT: 1, 3, 0\nEND"},
    {RuleId::UnnamedSignal, "unnamed-signal", kWarning, "an input or output that the rack file does not name",
     "The controller reads and writes the channel like any other: an input on which nothing hangs is off, so that a wait\n"
     "for it never ends. The inputs, or outputs, of a card are looked at when the rack file names at least as many of them\n"
     "as programs use without a name. A channel of which it says anything else has its use, too. One finding for each\n"
     "channel of a program.",
     "== rack.toml\n[inputs]\npart_there = \"1.5\"\n== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nLD: 1, 15, 1\nEND",
     "== rack.toml\n[inputs]\npart_there = \"1.5\"\n== plc1/RESET.PLC\nEXIT\n== plc1/FLOW.PLC\nLD: 1, 5, 1\nEND"},
};
// clang-format on

static_assert(rack::AreRowsOf(kRules, &Rule::id, static_cast<std::size_t>(RuleId::Count)),
              "one row per rule, in RuleId order");

std::string Indented(const char* text) {
  std::istringstream lines(text);
  std::string line;
  std::string indented;
  while (std::getline(lines, line)) indented += "    " + line + "\n";
  return indented;
}

}  // namespace

const std::vector<Rule>& Rules() {
  static const std::vector<Rule> rules(std::begin(kRules), std::end(kRules));
  return rules;
}

const Rule& RuleOf(RuleId id) {
  return kRules[static_cast<std::size_t>(id)];
}

const Rule* FindRule(std::string_view name) {
  const auto* rule =
      std::find_if(std::begin(kRules), std::end(kRules), [&](const Rule& row) { return row.name == name; });
  return rule == std::end(kRules) ? nullptr : rule;
}

std::vector<std::string> RuleNames() {
  std::vector<std::string> names;
  for (const Rule& rule : kRules) names.emplace_back(rule.name);
  return names;
}

const char* SeverityName(Severity level) {
  return level == Severity::Error ? "error" : "warning";
}

std::string ExplainRule(const Rule& rule) {
  std::string text = rule.name;
  text += std::string("\n\n") + SeverityName(rule.level) + ": " + rule.summary + "\n\n";
  text += std::string(rule.explanation) + "\n\nWrong:\n\n" + Indented(rule.wrong);
  return text + "\nRight:\n\n" + Indented(rule.right);
}

std::string ListRules() {
  std::string text;
  for (const Rule& rule : kRules) {
    std::string name = rule.name;
    name.resize(19, ' ');
    std::string level = SeverityName(rule.level);
    level.resize(9, ' ');
    text += name + level + rule.summary + "\n";
  }
  return text;
}

}  // namespace check
