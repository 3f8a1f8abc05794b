#include "scenario/happening.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "machine/key_names.h"
#include "machine/signals.h"
#include "toml/words.h"

namespace rack::scenario {

namespace {

struct Speaker {
  const char* word;
  int who;
};
constexpr Speaker kSpeakers[] = {{"console", kAnyone}, {"keypad", 0}, {"plc1", 1},   {"plc2", 2},
                                 {"plc3", 3},          {"plc4", 4},   {"plc5", 5},   {"plc6", 6},
                                 {"plc7", 7},          {"plc8", 8},   {"network", 9}};

// The verbs of a motor and of a cylinder; with a number or without.
struct Verb {
  const char* word;
  HappeningKind kind;
  bool number;
};
constexpr Verb kMotorVerbs[] = {{"starts", HappeningKind::MotorMoves, false},
                                {"stands", HappeningKind::MotorStands, false},
                                {"at", HappeningKind::MotorAt, true},
                                {"counts", HappeningKind::MotorCount, true},
                                {"pulses", HappeningKind::MotorPulses, true}};
constexpr Verb kCylinderVerbs[] = {{"at", HappeningKind::CylinderAt, true},
                                   {"alarm", HappeningKind::CylinderAlarm, false}};

constexpr const char* kForms =
    "such as \"clamped on\", \"motor 2.0 at 800\", \"cylinder 3.0 alarm\", \"counter parts 5\", \"key "
    "Enter\", "
    "\"line plc1/FLOW.PLC:4\", \"plc1 prints TEXT\", \"restart\" or the name of an event";

std::vector<std::string> Words(const std::string& text) {
  std::vector<std::string> words;
  std::size_t at = 0;
  while ((at = text.find_first_not_of(' ', at)) != std::string::npos) {
    const std::size_t end = std::min(text.find(' ', at), text.size());
    words.push_back(text.substr(at, end - at));
    at = end;
  }
  return words;
}

// "800" or "795..805".
bool ParseRange(const std::string& text, Happening& happening) {
  const auto number = [](std::string_view digits, std::int64_t& value) {
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return error == std::errc() && end == digits.data() + digits.size();
  };
  const std::size_t dots = text.find("..");
  if (dots == std::string::npos) {
    if (!number(text, happening.low)) return false;
    happening.high = happening.low;
    return true;
  }
  const std::string_view whole = text;
  return number(whole.substr(0, dots), happening.low) && number(whole.substr(dots + 2), happening.high) &&
         happening.low <= happening.high;
}

class Parser {
 public:
  Parser(const std::string& text, const Snapshot& machine, const std::vector<std::string>& events)
      : machine_(machine), events_(events), words_(Words(text)) {
    choice_.happening.text = text;
  }

  HappeningChoice Parse() {
    if (words_.empty()) return Refuse(std::string("something that can happen is wanted here, ") + kForms);
    if (!ParseEvent()) ParseRest();
    return choice_;
  }

 private:
  HappeningChoice Refuse(std::string error) {
    choice_.error = std::move(error);
    return choice_;
  }

  bool ParseEvent() {
    const std::string& text = choice_.happening.text;
    if (std::find(events_.begin(), events_.end(), text) == events_.end()) return false;
    choice_.happening.kind = HappeningKind::Event;
    choice_.happening.words = text;
    return true;
  }

  void ParseRest() {
    const std::string& first = words_[0];
    if (words_.size() >= 3 && words_[1] == "prints") return ParsePrints();
    if (first == "motor") return ParseMover(kMotorVerbs, ChannelSort::Motor);
    if (first == "cylinder") return ParseMover(kCylinderVerbs, ChannelSort::Cylinder);
    if (first == "counter") return ParseCounter();
    if (first == "key") return ParseKey();
    if (first == "line") return ParseLine();
    if (first == "restart" && words_.size() == 1) {
      choice_.happening.kind = HappeningKind::Restart;
      return;
    }
    if (words_.back() == "on" || words_.back() == "off") return ParseLevel();
    const std::string near = Suggestion(choice_.happening.text, events_);
    Refuse("\"" + choice_.happening.text + "\" is nothing that can happen" +
           (near.empty() ? std::string(": ") + kForms : near));
  }

  void ParsePrints() {
    const auto* const speaker = std::find_if(std::begin(kSpeakers), std::end(kSpeakers),
                                             [&](const Speaker& row) { return words_[0] == row.word; });
    if (speaker == std::end(kSpeakers)) {
      Refuse("nobody is called \"" + words_[0] +
             "\": plc1 to plc8, keypad, network, or console for anyone can print");
      return;
    }
    const std::string& text = choice_.happening.text;
    choice_.happening.kind = HappeningKind::Prints;
    choice_.happening.who = speaker->who;
    choice_.happening.words = text.substr(text.find("prints ") + 7);
  }

  template <std::size_t Count>
  void ParseMover(const Verb (&verbs)[Count], ChannelSort sort) {
    std::vector<std::string> known;
    for (const Verb& verb : verbs) known.push_back(verb.number ? std::string(verb.word) + " N" : verb.word);
    const std::string usage = "write \"" + words_[0] + " ENTRY.CHANNEL " + Join(known, "|") +
                              "\", N a number or a range such as 795..805";
    const auto* const verb = words_.size() < 3
                                 ? std::end(verbs)
                                 : std::find_if(std::begin(verbs), std::end(verbs),
                                                [&](const Verb& row) { return words_[2] == row.word; });
    if (verb == std::end(verbs) || words_.size() != (verb->number ? 4U : 3U) ||
        (verb->number && !ParseRange(words_[3], choice_.happening))) {
      Refuse(usage);
      return;
    }
    const SignalChoice channel = ChooseChannel(machine_, sort, words_[1]);
    choice_.happening.kind = verb->kind;
    TakePlace(channel);
  }

  void TakePlace(const SignalChoice& channel) {
    if (!channel.found) {
      Refuse(channel.error);
      return;
    }
    choice_.happening.entry = channel.entry;
    choice_.happening.channel = channel.channel;
    choice_.happening.slot = machine_.cards[static_cast<std::size_t>(channel.entry)].slot;
  }

  void ParseCounter() {
    if (words_.size() != 3 || !ParseRange(words_[2], choice_.happening)) {
      Refuse("write \"counter NAME N\", N a number or a range such as 4..6");
      return;
    }
    std::vector<std::string> names;
    for (const CounterView& counter : machine_.counters) {
      names.push_back(counter.name);
      if (counter.name != words_[1]) continue;
      choice_.happening.kind = HappeningKind::Counter;
      choice_.happening.channel = counter.link;
      return;
    }
    Refuse("no counter is called \"" + words_[1] + "\"" + Suggestion(words_[1], names));
  }

  void ParseKey() {
    const std::optional<Key> key = words_.size() == 2 ? FindKey(words_[1]) : std::nullopt;
    if (!key || key->function) {
      Refuse(
          "write \"key NAME\" with a key that the controller takes: 0 to 9, Enter, Dec, Plus, Num, Star, "
          "Slash, Point");
      return;
    }
    choice_.happening.kind = HappeningKind::KeyTaken;
    choice_.happening.low = choice_.happening.high = key->code;
  }

  void ParseLine() {
    const std::size_t colon = words_.size() == 2 ? words_[1].rfind(':') : std::string::npos;
    const int line = colon == std::string::npos ? 0 : WholeNumber(words_[1].substr(colon + 1)).value_or(0);
    const bool path = words_.size() == 2 && words_[1].rfind("plc", 0) == 0 && words_[1].size() > 5 &&
                      words_[1][3] >= '1' && words_[1][3] <= '8' && words_[1][4] == '/';
    if (line < 1 || !path) {
      Refuse("write \"line plcN/FILE:LINE\", such as \"line plc1/FLOW.PLC:4\"");
      return;
    }
    choice_.happening.kind = HappeningKind::Line;
    choice_.happening.who = words_[1][3] - '0';
    choice_.happening.words = words_[1].substr(0, colon);
    choice_.happening.low = choice_.happening.high = line;
  }

  void ParseLevel() {
    Happening& happening = choice_.happening;
    happening.kind = HappeningKind::Level;
    happening.low = happening.high = words_.back() == "on" ? 1 : 0;
    if (words_.size() == 3 && (words_[0] == "input" || words_[0] == "output")) {
      happening.signal = words_[0] == "input" ? SignalKind::Input : SignalKind::Output;
      return TakePlace(ChooseSignal(machine_, happening.signal, words_[1]));
    }
    if (words_.size() != 2) {
      Refuse("write \"SIGNAL on\" or \"SIGNAL off\"; with an address \"input 1.1 on\" or \"output 1.1 on\"");
      return;
    }
    std::vector<std::string> names;
    for (const NamedSignal& signal : machine_.signals) {
      names.push_back(signal.name);
      if (signal.name != words_[0]) continue;
      happening.signal = signal.kind;
      return TakePlace(ChooseSignal(machine_, signal.kind, words_[0]));
    }
    if (words_[0].find('.') != std::string::npos) {
      Refuse("\"" + words_[0] + "\" may be an input or an output: write \"input " + happening.text +
             "\" or \"output " + happening.text + "\"");
      return;
    }
    Refuse("no signal is called \"" + words_[0] + "\"" + Suggestion(words_[0], names));
  }

  const Snapshot& machine_;
  const std::vector<std::string>& events_;
  std::vector<std::string> words_;
  HappeningChoice choice_;
};

}  // namespace

HappeningChoice ParseHappening(const std::string& text, const Snapshot& machine,
                               const std::vector<std::string>& events) {
  return Parser(text, machine, events).Parse();
}

bool IsState(HappeningKind kind) {
  return kind == HappeningKind::Counter || (IsOnCard(kind) && kind != HappeningKind::MotorPulses);
}

bool IsOnCard(HappeningKind kind) {
  switch (kind) {
    case HappeningKind::Level:
    case HappeningKind::MotorMoves:
    case HappeningKind::MotorStands:
    case HappeningKind::MotorAt:
    case HappeningKind::MotorCount:
    case HappeningKind::MotorPulses:
    case HappeningKind::CylinderAt:
    case HappeningKind::CylinderAlarm:
      return true;
    default:
      return false;
  }
}

}  // namespace rack::scenario
