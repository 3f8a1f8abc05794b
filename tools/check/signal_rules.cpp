// Channels that the rack file does not name.
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <utility>

#include "check/topics.h"
#include "commands/command_rows.h"

namespace check {

namespace {

using rack::SignalKind;
using Side = std::pair<SignalKind, int>;  // the inputs or the outputs of an entry

std::string ListOf(const std::set<int>& channels) {
  std::string list;
  for (const int channel : channels) list += (list.empty() ? "" : ", ") + std::to_string(channel);
  return list;
}

// What the rack file says of the channels: those with a name, and those that it otherwise speaks of.
class NamedSignals {
 public:
  explicit NamedSignals(const rack::RackSetup& setup) {
    for (const rack::SignalName& signal : setup.image.signals) {
      if (signal.name[0] == '\0') break;
      named_[{signal.output != 0 ? SignalKind::Output : SignalKind::Input, signal.entry}].insert(
          signal.channel);
    }
    for (std::uint32_t i = 0; i < setup.plant.linkCount; ++i) {
      const rack::PlantLink& link = setup.plant.links[i];
      for (const rack::SignalRef& signal : {link.source, link.target, link.removal}) KeepUse(signal);
    }
    for (std::uint32_t entry = 0; entry < setup.image.entryCount; ++entry) {
      for (int channel = 0; channel < 16; ++channel) {
        if ((setup.inputsOn[entry] >> channel & 1) != 0)
          used_[{SignalKind::Input, static_cast<int>(entry)}].insert(channel);
      }
    }
  }

  // The channels with a name; null when there is none, or when the rack file speaks of this channel.
  const std::set<int>* OthersThan(const Side& side, int channel) const {
    const auto named = named_.find(side);
    if (named == named_.end() || named->second.count(channel) > 0) return nullptr;
    const auto used = used_.find(side);
    const bool isUsed = used != used_.end() && used->second.count(channel) > 0;
    return isUsed ? nullptr : &named->second;
  }

 private:
  void KeepUse(const rack::SignalRef& signal) {
    if (signal.kind != SignalKind::None) used_[{signal.kind, signal.entry}].insert(signal.channel);
  }

  std::map<Side, std::set<int>> named_;
  std::map<Side, std::set<int>> used_;
};

// The inputs or outputs that the line addresses; nothing for other lines, and where its channel is not one of them.
std::optional<Side> SideOf(const ProgramTree& tree, const Line& line) {
  const ExplainedLine& parsed = line.parsed;
  const rack::CardCommands* card = tree.CardOf(parsed.SlotIdx.Value);
  const rack::CardCommand* command = card == nullptr ? nullptr : card->Find(parsed.CmdIdx);
  if (command == nullptr || HasLookAlike(line)) return std::nullopt;
  if (card->Reached(*command, parsed.ChIdx.Value) != parsed.ChIdx.Value) return std::nullopt;
  switch (command->about) {
    case rack::ChannelSort::Input:
      return Side(SignalKind::Input, parsed.SlotIdx.Value);
    case rack::ChannelSort::Output:
      return Side(SignalKind::Output, parsed.SlotIdx.Value);
    case rack::ChannelSort::Motor:
    case rack::ChannelSort::Counter:
    case rack::ChannelSort::Cylinder:
      break;
  }
  return std::nullopt;
}

class SignalRules {
 public:
  SignalRules(const ProgramTree& tree, Report* report)
      : tree_(tree), signals_(tree.rack->file->setup), out_(*report) {}

  void Check() {
    ForEach([&](const Program&, const Line& line, const Side& side) {
      if (signals_.OthersThan(side, line.parsed.ChIdx.Value) != nullptr)
        unnamed_[side].insert(line.parsed.ChIdx.Value);
    });
    ForEach(
        [&](const Program& program, const Line& line, const Side& side) { CheckLine(program, line, side); });
  }

 private:
  template <class Look>
  void ForEach(Look look) const {
    for (const Task& task : tree_.tasks) {
      for (const auto& [name, program] : task.programs) {
        for (const Line& line : program.lines) {
          if (const std::optional<Side> side = SideOf(tree_, line)) look(program, line, *side);
        }
      }
    }
  }

  // One finding for each channel of a program. With more channels in use that have no name than names, it is the
  // names that are not complete.
  void CheckLine(const Program& program, const Line& line, const Side& side) {
    const int channel = line.parsed.ChIdx.Value;
    const std::set<int>* others = signals_.OthersThan(side, channel);
    if (others == nullptr || unnamed_.at(side).size() > others->size()) return;
    if (!reported_.insert({&program, side, channel}).second) return;
    const bool isInput = side.first == SignalKind::Input;
    out_.Add(program, line, line.parsed.ChIdx.Column, RuleId::UnnamedSignal,
             std::string("the rack file names no ") + (isInput ? "input " : "output ") +
                 std::to_string(side.second) + "." + std::to_string(channel) + ", of this card's " +
                 (isInput ? "inputs" : "outputs") + " it names " + ListOf(*others) +
                 "; another channel was probably meant");
  }

  const ProgramTree& tree_;
  const NamedSignals signals_;
  Report& out_;
  std::map<Side, std::set<int>> unnamed_;  // in use
  std::set<std::tuple<const Program*, Side, int>> reported_;
};

}  // namespace

void CheckSignals(const ProgramTree& tree, Report* report) {
  if (tree.rack) SignalRules(tree, report).Check();
}

}  // namespace check
