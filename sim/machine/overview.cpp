#include "machine/overview.h"

#include <algorithm>

#include "machine/why.h"
#include "toml/characters.h"
#include "toml/words.h"

namespace rack {

namespace {

constexpr int kGroupColumns = 9;
constexpr int kAddressColumns = 6;
constexpr int kGap = 2;
constexpr const char* kIndent = "  ";

bool BeginsCharacter(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
}

int Columns(const std::string& text) {
  return static_cast<int>(std::count_if(text.begin(), text.end(), BeginsCharacter));
}

int Columns(const ScreenRow& row) {
  int columns = 0;
  for (const Piece& piece : row) columns += Columns(piece.text);
  return columns;
}

// The first so many columns of a text.
std::string Cut(const std::string& text, int columns) {
  int seen = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (BeginsCharacter(text[i]) && ++seen > columns) return text.substr(0, i);
  }
  return text;
}

ScreenRow Cut(const ScreenRow& row, int columns) {
  ScreenRow cut;
  for (const Piece& piece : row) {
    const std::string text = Cut(piece.text, columns);
    columns -= Columns(text);
    if (!text.empty()) cut.push_back({text, piece.look});
  }
  return cut;
}

std::string Padded(const std::string& text, int columns) {
  return text + std::string(static_cast<std::size_t>(std::max(0, columns - Columns(text))), ' ');
}

// A sentence on as many rows as it needs, the further ones indented.
void AddWrapped(std::vector<ScreenRow>& rows, const Piece& sentence, int columns) {
  std::string line;
  bool begins = true;
  for (const std::string& word : Split(sentence.text)) {
    if (!begins && Columns(line) + 1 + Columns(word) > columns) {
      rows.push_back({{line, sentence.look}});
      line = kIndent;
      begins = true;
    }
    line += (begins ? "" : " ") + word;
    begins = false;
  }
  rows.push_back({{line, sentence.look}});
}

Look LookOf(Stand stand) {
  switch (stand) {
    case Stand::Waits:
      return Look::Waiting;
    case Stand::Held:
    case Stand::Idle:
      return Look::Standing;
    case Stand::GoesOn:
      break;
  }
  return Look::Plain;
}

Piece PieceOf(const Snapshot& snapshot, const TaskView& task) {
  const Explanation explanation = Explain(snapshot, task);
  return {Printable(TaskSentence(task, explanation)), LookOf(explanation.stand)};
}

// What comes first, in its order.
std::vector<Piece> Sentences(const Snapshot& snapshot) {
  std::vector<Piece> sentences;
  for (const TaskView& task : snapshot.tasks) sentences.push_back(PieceOf(snapshot, task));
  for (const std::string& fault : snapshot.faults)
    sentences.push_back({"fault " + Printable(fault), Look::Faulty});
  return sentences;
}

int CountForced(const Snapshot& snapshot) {
  int forced = 0;
  for (const CardView& card : snapshot.cards) {
    for (unsigned bits = card.forced; bits != 0; bits &= bits - 1) ++forced;
  }
  return forced;
}

ScreenRow Head(const Snapshot& snapshot) {
  ScreenRow row = {{snapshot.running ? "running" : "not running"}};
  if (snapshot.timeMode == TimeMode::Virtual) row.push_back({", virtual time"});
  if (snapshot.standing.stands) row.push_back({" stands", Look::Standing});
  row.push_back({" at " + Seconds(snapshot.nowNanos)});
  if (snapshot.noDriver) row.push_back({"  no driver", Look::Faulty});
  for (const CounterView& counter : snapshot.counters) {
    row.push_back({"  " + Printable(counter.name) + " " + std::to_string(counter.count) +
                   (counter.goal != 0 ? " of " + std::to_string(counter.goal) : "")});
  }
  const std::size_t faults = snapshot.faults.size();
  if (faults != 0) row.push_back({"  faults: " + std::to_string(faults), Look::Faulty});
  const int forced = CountForced(snapshot);
  if (forced != 0) row.push_back({"  forced (!): " + std::to_string(forced), Look::Forced});
  return row;
}

// A channel on the screen.
struct Cell {
  const char* group;
  bool isSignal;
  std::string label;  // its name, or its address
  std::string address;
  std::string text;
  Look look = Look::Plain;
  bool used = false;
};

std::string Address(int entry, std::size_t channel) {
  return std::to_string(entry) + "." + std::to_string(channel);
}

// Whether the rack file hangs anything on the signal.
bool Hangs(const Snapshot& snapshot, SignalKind kind, int entry, int channel) {
  const auto same = [&](SignalRef signal) {
    return signal.kind == kind && signal.entry == entry && signal.channel == channel;
  };
  return std::any_of(snapshot.links.begin(), snapshot.links.end(), [&](const LinkView& view) {
    return same(view.link.source) || same(view.link.target) || same(view.link.removal);
  });
}

// The same of a motor or cylinder.
bool Hangs(const Snapshot& snapshot, int entry, std::size_t channel) {
  return std::any_of(snapshot.links.begin(), snapshot.links.end(), [&](const LinkView& view) {
    const PlantLink& link = view.link;
    return link.when != Condition::Signal && link.entry == entry && link.channel == channel;
  });
}

void AddSignals(std::vector<Cell>& cells, const Snapshot& snapshot, SignalKind kind, int entry) {
  const CardView& card = snapshot.cards[static_cast<std::size_t>(entry)];
  const bool input = kind == SignalKind::Input;
  const int count = input ? RowOf(card.kind).inputs : RowOf(card.kind).outputs;
  for (int channel = 0; channel < count; ++channel) {
    const std::uint32_t levels = input ? card.inputs : card.outputs;
    const bool on = (levels >> channel & 1) != 0;
    const bool forced = input && (card.forced >> channel & 1) != 0;
    const std::string address = Address(entry, static_cast<std::size_t>(channel));
    const std::string label = SignalLabel(snapshot, kind, entry, channel);
    cells.push_back({input ? "in" : "out", true, label, address,
                     std::string(on ? "#" : ".") + (forced ? "!" : " "), forced ? Look::Forced : Look::Plain,
                     on || forced || label != address || Hangs(snapshot, kind, entry, channel)});
  }
}

std::string MotorText(const CardView& card, std::size_t channel) {
  const MotorView& motor = card.motors[channel];
  std::string text = Padded(motor.busy ? "moves" : "stands", 7) +
                     Padded("at " + std::to_string(motor.position), 14) + "count " +
                     std::to_string(card.counts[channel]);
  if (motor.busy) text += motor.endsInNanos < 0 ? ", never ends" : ", ends in " + Seconds(motor.endsInNanos);
  const std::string held = HeldBy(motor);
  return text + (held.empty() ? "" : ", " + held);
}

std::string CylinderText(const CylinderView& cylinder) {
  const char* state = (cylinder.status & kCylinderMoving) != 0 ? "moves" : "stands";
  if (cylinder.jammed) state = "jammed";
  if ((cylinder.status & kCylinderAlarm) != 0) state = "alarm";
  return Padded(state, 7) + Padded("at " + PlaceText(cylinder), 14) + "to " + std::to_string(cylinder.target);
}

void AddMotors(std::vector<Cell>& cells, const Snapshot& snapshot, int entry) {
  const CardView& card = snapshot.cards[static_cast<std::size_t>(entry)];
  for (std::size_t i = 0; i < card.motors.size(); ++i) {
    const MotorView& motor = card.motors[i];
    const bool used = motor.busy || motor.blocked || motor.position != 0 || motor.rate != 0;
    cells.push_back({"motor", false, Address(entry, i), Address(entry, i), MotorText(card, i),
                     HeldBy(motor).empty() ? Look::Plain : Look::Faulty, used || Hangs(snapshot, entry, i)});
  }
}

void AddCylinders(std::vector<Cell>& cells, const Snapshot& snapshot, int entry) {
  const CardView& card = snapshot.cards[static_cast<std::size_t>(entry)];
  for (std::size_t i = 0; i < card.cylinders.size(); ++i) {
    const CylinderView& cylinder = card.cylinders[i];
    const bool faulty = (cylinder.status & kCylinderAlarm) != 0 || cylinder.jammed;
    const bool used = cylinder.thousandths != 0 || cylinder.target != 0 || faulty;
    cells.push_back({"cylinder", false, Address(entry, i), Address(entry, i), CylinderText(cylinder),
                     faulty ? Look::Faulty : Look::Plain, used || Hangs(snapshot, entry, i)});
  }
}

// "part_there #!", "2.3   stands ...".
std::string TextOf(const Cell& cell) {
  const std::string label = Printable(cell.label);
  return (cell.isSignal ? label + " " : Padded(label, kAddressColumns)) + cell.text;
}

std::vector<Cell> CellsOf(const Snapshot& snapshot) {
  std::vector<Cell> cells;
  const int entries = static_cast<int>(snapshot.cards.size());
  for (int entry = 0; entry < entries; ++entry) AddSignals(cells, snapshot, SignalKind::Input, entry);
  for (int entry = 0; entry < entries; ++entry) AddSignals(cells, snapshot, SignalKind::Output, entry);
  for (int entry = 0; entry < entries; ++entry) AddMotors(cells, snapshot, entry);
  for (int entry = 0; entry < entries; ++entry) AddCylinders(cells, snapshot, entry);
  return cells;
}

// Signals stand in columns that do not move while levels change; everything else has a row.
std::vector<ScreenRow> Arranged(const std::vector<Cell>& cells, int columns) {
  int widest = 0;
  for (const Cell& cell : cells) {
    if (cell.isSignal) widest = std::max(widest, Columns(TextOf(cell)) + kGap);
  }
  std::vector<ScreenRow> rows;
  const char* group = "";
  for (const Cell& cell : cells) {
    const bool begins = std::string(cell.group) != group;
    if (begins || !cell.isSignal || Columns(rows.back()) + widest - kGap > columns)
      rows.push_back({{Padded(begins ? cell.group : "", kGroupColumns)}});
    group = cell.group;
    const int width = cell.isSignal ? widest - kGap : 0;
    rows.back().push_back({Padded(TextOf(cell), width), cell.look});
    if (cell.isSignal) rows.back().push_back({std::string(kGap, ' ')});
  }
  return rows;
}

// Tasks and faults, each on as many rows as it needs if all of them leave some room, else on one.
std::vector<ScreenRow> First(const Snapshot& snapshot, ScreenSize size) {
  std::vector<ScreenRow> whole;
  std::vector<ScreenRow> single;
  for (const Piece& sentence : Sentences(snapshot)) {
    AddWrapped(whole, sentence, size.columns);
    single.push_back({sentence});
  }
  const bool fits = static_cast<int>(whole.size()) + 1 <= size.rows * 3 / 4;
  return fits ? whole : single;
}

void Append(std::vector<ScreenRow>& rows, const std::vector<ScreenRow>& more, std::size_t from,
            std::size_t count) {
  for (std::size_t i = from; i < from + count && i < more.size(); ++i) rows.push_back(more[i]);
}

}  // namespace

std::string Overview::Unknown(const Snapshot& snapshot) const {
  std::vector<std::string> names;
  std::vector<std::string> addresses;
  for (const Cell& cell : CellsOf(snapshot)) {
    addresses.push_back(cell.address);
    if (cell.label != cell.address) names.push_back(cell.label);
  }
  for (const std::string& name : names_) {
    if (IsOneOf(name, names) || IsOneOf(name, addresses)) continue;
    return "nothing is called \"" + name + "\"" + Suggestion(name, names) + " (names: " + Join(names, ", ") +
           "; or entry.channel such as 0.5)";
  }
  return "";
}

std::vector<ScreenRow> Overview::Rows(const Snapshot& snapshot, ScreenSize size, bool all, int skipped) {
  std::vector<Cell> wanted;
  for (const Cell& cell : CellsOf(snapshot)) {
    const std::string key = cell.group + cell.address;
    if (cell.used) used_.insert(key);
    const bool named = IsOneOf(cell.label, names_) || IsOneOf(cell.address, names_);
    if (names_.empty() ? all || used_.count(key) != 0 : named) wanted.push_back(cell);
  }
  const std::vector<ScreenRow> things = Arranged(wanted, size.columns);
  const std::vector<ScreenRow> first = First(snapshot, size);
  std::vector<ScreenRow> rows = {Head(snapshot)};
  Append(rows, first, 0, first.size());

  const auto height = static_cast<std::size_t>(std::max(0, size.rows));
  std::size_t room = height > rows.size() ? height - rows.size() : 0;
  const std::size_t over = things.size() > room ? things.size() - room : 0;
  const std::size_t from = std::min(static_cast<std::size_t>(std::max(0, skipped)), over);
  const bool more = from < over && room > 0;
  if (more) --room;  // for the row that says so
  Append(rows, things, from, room);
  if (more)
    rows.push_back(
        {{std::to_string(things.size() - from - room) + " rows more: cursor down, or a higher window"}});
  if (rows.size() > height) rows.resize(height);
  for (ScreenRow& row : rows) row = Cut(row, size.columns);
  return rows;
}

}  // namespace rack
