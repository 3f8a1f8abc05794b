// A scenario's file, read word by word.
#pragma once

#include <string>
#include <vector>

#include "rackfile/exploration.h"
#include "scenario/scenario.h"

namespace rack::scenario {

class ScenarioReader : public ExploringReader {
 public:
  ScenarioReader(Scenario& scenario, std::vector<std::string>& errors)
      : ExploringReader(scenario.path, errors), scenario_(scenario) {}

  // How what is done is read, for the rows of the actions.
  void ReadKey(const Value& table, const std::string& word, Event& event);
  void ReadInput(const Value& table, const std::string& word, Event& event);
  void ReadFault(const Value& table, const std::string& word, Event& event);
  void ReadDatagram(const Value& table, const std::string& word, Event& event);
  void ReadRestart(const Value& table, const std::string& word, Event& event);
  void ReadProgram(const Value& table, const std::string& word, Event& event);

 private:
  // What a table can be: the word that says so, and those that go with it.
  struct Sort {
    std::string word;
    Words with;
  };

  void ReadRoot(const Value& root) override;
  bool ReadMachine(const Value& root);
  void ReadRackChoice(const Value& root, std::string& file, std::vector<TimeChange>& changes);
  void ReadExplore(const Value& root);
  std::string BesideScenario(const std::string& path) const;
  // Which of the sorts a table is, with all its words checked.
  bool SortOf(const Value& owner, const std::vector<Sort>& sorts, const Words& always, std::string& sort);
  void CheckTime(const Value& table, const std::string& word, Nanos time);
  int Happens(const Value& value);
  const Happening& HappeningAt(int index) const {
    return scenario_.happenings[static_cast<std::size_t>(index)];
  }
  bool ReadAfter(const Value& table, Moment& moment);

  void ReadEventNames(const Value& root);
  void ReadEvent(const Value& table);
  void ReadMoment(const Value& table, Moment& when);
  Nanos EarliestOf(const Moment& moment, std::size_t depth) const;
  void CheckMoments();
  void ExpectEvents();
  int TaskCount() const;
  void CheckPlaces();
  std::string WhyNotThere(const Happening& happening) const;

  void ReadExpectation(const Value& table);
  void ReadThat(const Value& table, Expectation& expectation);
  bool FindThat(const Value& table, Demand& demand);
  void CheckLasting(const Value& value, const Expectation& expectation, const std::string& who);
  void ReadNever(const Value& table, Expectation& expectation);
  void ReadThen(const Value& table, Expectation& expectation);
  void ReadEnd(const Value& table);
  static std::vector<Sort> Sentences();
  std::string AfterText(const Moment& moment) const;

  // An event's moment, for what can be told of it when all are known.
  struct NamedMoment {
    const Value* table;
    std::string name;
    Moment when;
  };
  struct Place {
    const Value* value;
    int happening;
  };

  Scenario& scenario_;
  std::vector<NamedMoment> moments_;
  std::vector<Place> places_;       // where each happening stands in the file
  std::vector<std::string> names_;  // of events
  Snapshot machine_;
};

}  // namespace rack::scenario
