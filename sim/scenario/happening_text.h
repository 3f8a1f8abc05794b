// The text of a happening, read word by word.
#pragma once

#include <string>
#include <vector>

#include "machine/signals.h"
#include "scenario/happening_row.h"

namespace rack::scenario {

class HappeningText {
 public:
  HappeningText(const std::string& text, const Snapshot& machine, const std::vector<std::string>& events);

  HappeningChoice Choose();

  // Whether the text fits a row.
  bool IsEvent(const HappeningRow& row) const;
  bool IsWord(const HappeningRow& row) const;
  bool HasFirst(const HappeningRow& row) const;
  bool HasSecond(const HappeningRow& row) const;
  bool HasThird(const HappeningRow& row) const;
  bool EndsInLevel(const HappeningRow& row) const;

  // What a text that fits says.
  void ReadLevel(const HappeningRow& row);
  void ReadMotor(const HappeningRow& row);
  void ReadCylinder(const HappeningRow& row);
  void ReadCounter(const HappeningRow& row);
  void ReadKey(const HappeningRow& row);
  void ReadLine(const HappeningRow& row);
  void ReadPrints(const HappeningRow& row);
  void ReadProtests(const HappeningRow& row);
  void ReadEvent(const HappeningRow& row);
  void ReadNothing(const HappeningRow& row);

 private:
  void Refuse(std::string error);
  void CheckNumber(const HappeningRow& row);
  std::string Between(const std::string& first, const std::string& last) const;
  bool ReadRange(const std::string& text);
  void ReadMover(const HappeningRow& row, ChannelSort sort);
  bool HasVerb(const HappeningRow& row);
  void CheckWay();
  void TakePlace(const SignalChoice& channel);

  const Snapshot& machine_;
  const std::vector<std::string>& events_;
  std::vector<std::string> words_;
  HappeningChoice choice_;
};

}  // namespace rack::scenario
