#include "check/outputs.h"

#include "commands/command_rows.h"
#include "numbers.h"

namespace check {

std::optional<Output> WrittenOutput(const ProgramTree& tree, const Line& line) {
  if (rack::RowOf(line.parsed.CmdIdx).parameter != rack::Parameter::OnOff) return std::nullopt;
  const int slot = line.parsed.SlotIdx.Value;
  const rack::CardCommands* card = tree.CardOf(slot);
  if (card == nullptr) return tree.rack ? std::nullopt : std::optional(Output(slot, line.parsed.ChIdx.Value));
  const rack::CardCommand* command = card->Find(line.parsed.CmdIdx);
  if (command == nullptr) return std::nullopt;
  const int channel = card->Reached(*command, line.parsed.ChIdx.Value);
  return channel < 0 ? std::nullopt : std::optional(Output(slot, channel));
}

bool SwitchesOn(const Line& line) {
  return ToNumber<int>(std::string(line.parsed.Param).c_str()) == 1;
}

std::string OutputText(const ProgramTree& tree, const Output& output) {
  std::string text = "output " + std::to_string(output.first) + "." + std::to_string(output.second);
  if (!tree.rack) return text;
  const rack::SignalName* name = NameOf(tree.rack->file->setup.image, true, output.first, output.second);
  return name == nullptr ? text : text + " (" + name->name + ")";
}

}  // namespace check
