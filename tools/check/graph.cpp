#include "check/graph.h"

#include <algorithm>
#include <map>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

#include "check/flow.h"
#include "check/topics.h"
#include "commands/command_rows.h"
#include "numbers.h"
#include "toml/words.h"

namespace check {

namespace {

constexpr const char* kHead = R"(digraph machine {
  graph [fontname="Helvetica", fontsize=12, nodesep=0.25, ranksep=0.4, newrank=true];
  node [shape=plain, fontname="Courier", fontsize=10];
  edge [fontname="Helvetica", fontsize=9, arrowsize=0.7];
)";
constexpr const char* kSignalEdge = "color=\"#c62828\", style=dashed, constraint=false";
constexpr const char* kWaitColour = "#fff0b8";
constexpr const char* kJumpColour = "#e6edf7";
constexpr const char* kPlainColour = "#ffffff";
constexpr size_t kShownText = 46;  // characters of a line

// Bytes of the UTF-8 character that begins here; 0: it is none, or a control character.
size_t CharacterLength(const std::string& text, size_t at) {
  const auto first = static_cast<unsigned char>(text[at]);
  if (first < 0x20 || first == 0x7F) return 0;
  if (first < 0x80) return 1;
  const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC2 ? 2 : 0;
  if (first > 0xF4 || length == 0 || at + length > text.size()) return 0;
  for (size_t i = 1; i < length; ++i) {
    if ((static_cast<unsigned char>(text[at + i]) & 0xC0) != 0x80) return 0;
  }
  return length;
}

// For a label in Graphviz's HTML, cut where it is long.
std::string Escaped(const std::string& text) {
  static const std::map<char, const char*> entities = {
      {'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}};
  std::string shown;
  size_t count = 0;
  for (size_t i = 0; i < text.size(); ++count) {
    if (count == kShownText) return shown + "...";
    const size_t length = CharacterLength(text, i);
    const auto entity = entities.find(text[i]);
    if (entity != entities.end())
      shown += entity->second;
    else if (length == 0)
      shown += text[i] == '\t' ? " " : "?";
    else
      shown += text.substr(i, length);
    i += std::max<size_t>(length, 1);
  }
  return shown;
}

// Whether its comment says no more than which rules are silenced.
bool IsForTheChecker(const Line& line) {
  const std::string comment = rack::Join(rack::Split(std::string(line.parsed.Comment)), " ");
  return comment.rfind("check: ignore", 0) == 0;
}

// Code and comment, with one blank where several stand.
std::string Shown(const Line& line) {
  const size_t code = std::min(line.text.find(';'), line.text.size());
  const size_t end = line.text.find(';', code + 1);
  std::string narrowed;
  for (const char byte : line.text.substr(0, IsForTheChecker(line) ? code : end)) {
    if (byte != ' ' || narrowed.empty() || narrowed.back() != ' ') narrowed += byte;
  }
  return narrowed;
}

// What a command moves or reads, by the sort of its card's channels.
struct Place {
  rack::ChannelSort sort;
  int slot;
  int channel;

  bool operator<(const Place& other) const {
    return std::tuple(sort, slot, channel) < std::tuple(other.sort, other.slot, other.channel);
  }
};

class Graph {
 public:
  explicit Graph(const ProgramTree& tree) : tree_(tree) {
    FindLinks();
    FindUses();
    FindSignals();
  }

  std::string Draw() {
    std::string text = kHead;
    for (const Task& task : tree_.tasks) {
      if (IsRun(tree_, task)) text += ClusterOf(task);
    }
    for (const auto& [give, read] : signals_) AddEdge(rows_[give] + ":e", rows_[read] + ":e", kSignalEdge);
    return text + edges_ + "}\n";
  }

 private:
  using Row = std::pair<const Program*, size_t>;  // a line by its index

  // A line that moves or reads something.
  struct Use {
    const Task* task;
    Row row;
    int level;  // of outputs and inputs; kAnyLevel where a move decides
  };
  static constexpr int kAnyLevel = -1;

  // What moves the input: of the rack's links all but stops and counters.
  void FindLinks() {
    if (!tree_.rack) return;
    const rack::PlantState& plant = tree_.rack->file->setup.plant;
    for (std::uint32_t i = 0; i < plant.linkCount; ++i) {
      const rack::PlantLink& link = plant.links[i];
      const bool drives = link.then == rack::Effect::Follow || link.then == rack::Effect::Arrive;
      if (!drives) continue;
      const Place input{rack::ChannelSort::Input, link.target.entry, link.target.channel};
      links_[SourceOf(link)].insert(input);
    }
  }

  static Place SourceOf(const rack::PlantLink& link) {
    switch (link.when) {
      case rack::Condition::Signal:
        return {link.source.kind == rack::SignalKind::Input ? rack::ChannelSort::Input
                                                            : rack::ChannelSort::Output,
                link.source.entry, link.source.channel};
      case rack::Condition::MotorWithin:
        return {rack::ChannelSort::Motor, link.entry, link.channel};
      case rack::Condition::CylinderStands:
      case rack::Condition::CylinderAlarm:
        return {rack::ChannelSort::Cylinder, link.entry, link.channel};
    }
    return {};
  }

  static bool IsShown(const Program& program) { return program.isMain || program.isCalled; }

  static std::string Named(const Task& task) { return "plc" + std::to_string(task.number); }

  static std::string NodeOf(const Task& task, const Program& program, const Line& line) {
    const auto number = std::distance(task.programs.begin(), task.programs.find(program.name));
    return Named(task) + "_" + std::to_string(number) + "_" + std::to_string(line.number) +
           (line.IsPiece() ? "_" + std::to_string(line.pieceStart) : "");
  }

  std::string ClusterOf(const Task& task) {
    const std::string name = Named(task);
    std::string text =
        "  subgraph cluster_" + name + " {\n    label=\"" + name + "\"; fontsize=16; color=\"#808080\";\n";
    int number = 0;
    for (const auto& [file, program] : task.programs) {
      ++number;
      if (!IsShown(program)) continue;
      text += "    subgraph cluster_" + name + "_" + std::to_string(number) + " {\n      label=<" +
              Escaped(file) + ">; style=\"rounded\"; color=\"#b0b0b0\";\n" + BoxesOf(task, program) +
              "    }\n";
    }
    AddEnterEdge(task);
    return text + "  }\n";
  }

  // Lines that follow each other in any case stand in one box.
  std::string BoxesOf(const Task& task, const Program& program) {
    const size_t end = program.lines.size();
    const Flow flow = FlowOf(task, program);
    // By index of a line: the command that is executed when the program comes there.
    std::vector<size_t> command(end + 1, end);
    for (size_t i = end; i-- > 0;) command[i] = program.lines[i].IsCommand() ? i : command[i + 1];
    std::vector<bool> begins(end + 1, false);
    begins[command[0]] = true;
    for (size_t i = 0; i < end; ++i) {
      if (!program.lines[i].IsCommand() || GoesOnOf(program.lines[i]) == rack::GoesOn::NextLine) continue;
      begins[command[i + 1]] = true;
      for (const size_t next : flow.next[i]) begins[command[next]] = true;
    }
    std::string text;
    std::string box;  // name of the one that is open
    for (size_t i = 0; i < end; ++i) {
      const Line& line = program.lines[i];
      if (!line.IsCommand()) continue;
      if (begins[i]) {
        if (!box.empty()) text += "</TABLE>>];\n";
        box = NodeOf(task, program, line);
        text += "      " + box +
                " [label=<<TABLE BORDER=\"1\" CELLBORDER=\"0\" CELLSPACING=\"0\" CELLPADDING=\"2\">";
      }
      const std::string port = "l" + std::to_string(i);
      rows_[{&program, i}] = std::string(box).append(":").append(port);
      text += "\n        <TR><TD ALIGN=\"LEFT\" PORT=\"" + port + "\" BGCOLOR=\"" + ColourOf(line) + "\">" +
              std::to_string(line.number) + "&nbsp;&nbsp;" + Escaped(Shown(line)) + BadgeOf({&program, i}) +
              "</TD></TR>";
    }
    if (!box.empty()) text += "</TABLE>>];\n";
    AddEdges(task, program, flow, command, begins);
    return text;
  }

  // The name of the input that another task moves, beside the line.
  std::string BadgeOf(const Row& row) const {
    const auto input = inputs_.find(row);
    if (input == inputs_.end()) return "";
    return "&nbsp;&nbsp;<FONT COLOR=\"#c62828\">" + Escaped(input->second) + "</FONT>";
  }

  static rack::GoesOn GoesOnOf(const Line& line) { return rack::RowOf(line.parsed.CmdIdx).goesOn; }

  static const char* ColourOf(const Line& line) {
    const rack::CommandRow& row = rack::RowOf(line.parsed.CmdIdx);
    if (rack::kCommandTraits[line.parsed.CmdIdx].repeats) return kWaitColour;
    return row.goesOn == rack::GoesOn::NextLine ? kPlainColour : kJumpColour;
  }

  void AddEdges(const Task& task, const Program& program, const Flow& flow,
                const std::vector<size_t>& command, const std::vector<bool>& begins) {
    const size_t end = program.lines.size();
    for (size_t i = 0; i < end; ++i) {
      const Line& line = program.lines[i];
      if (!line.IsCommand()) continue;
      for (const size_t next : flow.next[i]) {
        const size_t to = command[next];
        if (to == end || !begins[to]) continue;
        const bool jumps = GoesOnOf(line) == rack::GoesOn::Label;
        AddEdge(rows_[{&program, i}], rows_[{&program, to}], jumps ? "color=\"#1f4e9c\"" : "");
      }
      if (GoesOnOf(line) == rack::GoesOn::Caller && program.isMain && command[0] != end)
        AddEdge(rows_[{&program, i}], rows_[{&program, command[0]}], "color=\"#1f4e9c\"");
      AddCalls(task, program, i);
    }
  }

  void AddEdge(const std::string& from, const std::string& to, const std::string& how) {
    edges_ += "  " + from + " -> " + to + (how.empty() ? "" : " [" + how + "]") + ";\n";
  }

  void AddCalls(const Task& task, const Program& program, size_t index) {
    const Line& line = program.lines[index];
    const bool asks = rack::RowOf(line.parsed.CmdIdx).parameter == rack::Parameter::Condition;
    for (const BlockName& block : CalledBlocks(line)) {
      const Program* called = task.Find(block.name);
      const Line* first = called == nullptr ? nullptr : FirstCommand(*called);
      if (first == nullptr) continue;
      std::string how = "color=\"#2e7d32\"";
      if (asks) how += ", label=\"" + BranchText(line, block) + "\"";
      AddEdge(rows_[{&program, index}], NodeOf(task, *called, *first), how);
    }
  }

  // "= 1", or "else" for the second block.
  static std::string BranchText(const Line& line, const BlockName& block) {
    const std::string condition(line.parsed.Param);
    if (block.column != line.parsed.ParamColumn + PieceColumn(condition, 1, '&')) return "else";
    return "= " + std::to_string(ToNumber<int>(condition.c_str()));
  }

  static const Line* FirstCommand(const Program& program) {
    const auto first = std::find_if(program.lines.begin(), program.lines.end(),
                                    [](const Line& line) { return line.IsCommand(); });
    return first == program.lines.end() ? nullptr : &*first;
  }

  void AddEnterEdge(const Task& task) {
    const Program* reset = task.Find(kResetProgram);
    const Program* flow = task.Find(kFlowProgram);
    const Line* first = flow == nullptr ? nullptr : FirstCommand(*flow);
    if (reset == nullptr || first == nullptr) return;
    for (size_t i = 0; i < reset->lines.size(); ++i) {
      if (GoesOnOf(reset->lines[i]) != rack::GoesOn::Nowhere) continue;
      AddEdge(rows_[{reset, i}], NodeOf(task, *flow, *first), "style=dashed, label=\"Enter\"");
    }
  }

  void KeepUse(Use use, const Line& line) {
    const ExplainedLine& parsed = line.parsed;
    const rack::CardCommands* card = tree_.CardOf(parsed.SlotIdx.Value);
    const rack::CardCommand* command = card == nullptr ? nullptr : card->Find(parsed.CmdIdx);
    const int channel = command == nullptr ? -1 : card->Reached(*command, parsed.ChIdx.Value);
    if (channel < 0) return;
    const Place place{command->about, parsed.SlotIdx.Value, channel};
    const int level = ToNumber<int>(std::string(parsed.Param).c_str());
    switch (rack::RowOf(parsed.CmdIdx).parameter) {
      case rack::Parameter::OnOff:
        use.level = level == 1 ? 1 : 0;
        gives_[place].push_back(use);
        return;
      case rack::Parameter::Position:
      case rack::Parameter::Move:
        gives_[place].push_back(use);
        return;
      case rack::Parameter::Level:
      case rack::Parameter::Condition:
        use.level = level;
        reads_[place].push_back(use);
        return;
      case rack::Parameter::Nothing:
      case rack::Parameter::Unlooked:
      case rack::Parameter::Count:
      case rack::Parameter::Block:
      case rack::Parameter::Millis:
      case rack::Parameter::Label:
        return;
    }
  }

  std::string InputText(const Place& input) const {
    const rack::SignalName* name =
        NameOf(tree_.rack->file->setup.image, false, static_cast<std::uint8_t>(input.slot),
               static_cast<std::uint8_t>(input.channel));
    return name != nullptr ? name->name : std::to_string(input.slot) + "." + std::to_string(input.channel);
  }

  void FindUses() {
    for (const Task& task : tree_.tasks) {
      if (!IsRun(tree_, task)) continue;
      mainsAbove_.merge(MainsAbove(task));
      for (const auto& [name, program] : task.programs) {
        if (program.isMain) mainsAbove_[&program].insert(name);
        if (!IsShown(program)) continue;
        for (size_t i = 0; i < program.lines.size(); ++i)
          KeepUse({&task, {&program, i}, kAnyLevel}, program.lines[i]);
      }
    }
  }

  // From the lines that move an input to those of other tasks that read it. Reset programs run at the same time,
  // and production programs do.
  void FindSignals() {
    std::set<std::pair<Row, Row>> known;
    for (const auto& [source, inputs] : links_) {
      for (const Place& input : inputs) {
        for (const Use& give : gives_[source]) {
          for (const Use& read : reads_[input]) {
            const bool fits = give.level == kAnyLevel || give.level == read.level;
            if (give.task == read.task || !RunTogether(give, read) || !fits) continue;
            if (known.emplace(give.row, read.row).second) signals_.emplace_back(give.row, read.row);
            inputs_[read.row] = InputText(input);
          }
        }
      }
    }
  }

  bool RunTogether(const Use& give, const Use& read) const {
    const auto givers = mainsAbove_.find(give.row.first);
    const auto readers = mainsAbove_.find(read.row.first);
    if (givers == mainsAbove_.end() || readers == mainsAbove_.end()) return false;
    return std::any_of(givers->second.begin(), givers->second.end(),
                       [&](const std::string& main) { return readers->second.count(main) > 0; });
  }

  const ProgramTree& tree_;
  std::map<const Program*, std::set<std::string>>
      mainsAbove_;                          // that lead to a program, a main one's own too
  std::map<Place, std::set<Place>> links_;  // from what is moved to the inputs that hang on it
  std::map<Place, std::vector<Use>> gives_;
  std::map<Place, std::vector<Use>> reads_;
  std::vector<std::pair<Row, Row>> signals_;
  std::map<Row, std::string> inputs_;  // what a line reads that another task moves
  std::map<Row, std::string> rows_;    // where a line stands in the graph
  std::string edges_;
};

}  // namespace

std::string GraphOf(const ProgramTree& tree) {
  return Graph(tree).Draw();
}

}  // namespace check
