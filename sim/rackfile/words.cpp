#include "rackfile/rackfile.h"

namespace rack {

namespace {

constexpr RackWord kWords[] = {
    {"", "rack", "the rack as a whole"},
    {"", "slots", "which card stands in which slot"},
    {"", "inputs", "names of inputs"},
    {"", "outputs", "names of outputs and relays"},
    {"", "axis", "[[axis]]: switches along the way of a motor, hard stops at its ends"},
    {"", "cylinder", "[[cylinder]]: switches at the positions of a cylinder, its alarm"},
    {"", "valve", "[[valve]]: an input that follows an output"},
    {"", "arrival", "[[arrival]]: a part that arrives when something has happened"},
    {"", "stop", "[[stop]]: what stops a motor through its external stop"},
    {"", "counter", "[[counter]]: counts how often something happens"},
    {"", "check", "what velmo-check is to leave out"},
    {"", "rule", "[[rule]]: what must hold at every moment"},
    {"", "explore", "what may happen when the machine is explored, and when it goes on"},
    {"rack", "device", "\"em_isa\", \"em335x_isa\" or \"none\": the device name that exists"},
    {"rack", "task_count", "the task-count switch, 0 to 255"},
    {"rack", "settings", "the settings byte, 0 to 255"},
    {"rack", "function_port", "port of the function-key register, 9 to 255; 0: there is none"},
    {"rack", "on_at_start", "inputs that are on at power-on"},
    {"rack", "bus_access_ns", "virtual time: what a bus access costs, 10 to 1000000"},
    {"rack", "console_baud",
     "virtual time: speed of the console, 300 to 10000000; 0: it takes every line at once"},
    {"slot", "card", "the kind of the card"},
    {"slot", "name", "what scenarios call the card"},
    {"axis", "motor", "the motor, \"entry.channel\""},
    {"axis", "home", "input that is on at the home position"},
    {"axis", "home_at", "home position in steps, 0 unless given"},
    {"axis", "low", "input that is on at and below low_at"},
    {"axis", "low_at", "position in steps"},
    {"axis", "high", "input that is on at and above high_at"},
    {"axis", "high_at", "position in steps"},
    {"axis", "stop_low", "position in steps at which the way ends"},
    {"axis", "stop_high", "position in steps at which the way ends"},
    {"cylinder", "cylinder", "the cylinder, \"entry.channel\""},
    {"cylinder", "switches", "table: position = input that is on there"},
    {"cylinder", "alarm", "input that is on while the cylinder is in alarm"},
    {"valve", "output", "the output or relay"},
    {"valve", "sensor", "input that follows it"},
    {"valve", "on_delay", "time until the sensor goes on"},
    {"valve", "off_delay", "time until the sensor goes off"},
    {"arrival", "input", "input that goes on"},
    {"arrival", "delay", "time from the event to the arrival"},
    {"arrival", "removed_by", "output that takes the part away"},
    {"arrival", "leaves_after",
     "time from the removal, or from the end of the condition, to the input's going off"},
    {"arrival", "there_at_start", "true: a part lies there at power-on"},
    {"stop", "motor", "the motor, \"entry.channel\"; on a servo card the channel is a stop input"},
    {"counter", "name", "what the counter is called"},
    {"counter", "goal", "count at which production is complete; 0: none"},
    {"rule", "name", "what the rule is called"},
    {"rule", "never_together", "list of states that must not be together"},
    {"rule", "for", "of never_together: being together shorter than this is no harm"},
    {"rule", "while", "a state during which `always` must hold"},
    {"rule", "always", "of while: the state that must hold"},
    {"rule", "after", "what must be followed by `comes`"},
    {"rule", "within", "of after: the time in which it must come"},
    {"rule", "comes", "of after: what must come"},
    {"explore", "leave_out", "list of disturbances that do not happen"},
    {"explore", "goes_on", "what production does again after a disturbance"},
    {"explore", "within", "the time in which it goes on"},
    {"explore", "way_back", "list of keys to press after the last disturbance, and times between them"},
    {"explore", "known", "list of tables with find and reason: what has been found and is kept"},
    {"when", "when_input", "condition: this input is on"},
    {"when", "when_output", "condition: this output or relay is on"},
    {"when", "when_motor", "condition: this motor stands from `from` to `to`"},
    {"when", "from", "of when_motor: lowest position in steps"},
    {"when", "to", "of when_motor: highest position in steps"},
    {"when", "when_cylinder", "condition: this cylinder stands at position `at`"},
    {"when", "at", "of when_cylinder: position 0 to 15"},
    {"when", "when_alarm", "condition: this cylinder is in alarm"},
    {"check", "ignore", "list: rules of velmo-check that say nothing about this machine"},
    {"when", "inverted", "true: the condition is turned round"},
};

// The words above, and the settings of each kind of card.
std::vector<RackWord> AllWords() {
  std::vector<RackWord> words(std::begin(kWords), std::end(kWords));
  for (const CardRow& card : kCardRows) {
    for (const CardSetting& setting : card.settings())
      words.push_back({"slot", setting.word, setting.meaning});
  }
  return words;
}

}  // namespace

const std::vector<RackWord>& RackWords() {
  static const std::vector<RackWord> words = AllWords();
  return words;
}

}  // namespace rack
