// A rack from the text of a rack file, in memory, with the calls that tests make on it.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "rack/rack.h"
#include "rackfile/rackfile.h"

class TestRack {
 public:
  explicit TestRack(const std::string& text) {
    auto setup = std::make_unique<rack::RackSetup>();
    std::vector<std::string> errors;
    if (!rack::ReadRackText(text, "rack.toml", *setup, errors)) ADD_FAILURE() << errors.front();
    rack::PowerOn(*state, *setup, 0);
    bus = std::make_unique<rack::Rack>(*state);
  }

  int Read(std::uint8_t slot, std::uint8_t port, rack::Nanos now) {
    bus->WritePort(0, slot, now);
    return bus->ReadPort(port, now);
  }
  void Write(std::uint8_t slot, std::uint8_t port, std::uint8_t value, rack::Nanos now) {
    bus->WritePort(0, slot, now);
    bus->WritePort(port, value, now);
  }
  // Sends a request, lets it be applied, and says what became of it.
  rack::RequestResult Ask(const rack::Request& request, rack::Nanos now) {
    std::uint32_t number = 0;
    if (!rack::Send(state->requests, request, number)) return rack::RequestResult::Pending;
    bus->AdvanceTo(now);
    return rack::ResultOf(state->requests, number);
  }
  // The journal's records but reads and writes, "ms kind slot.channel=value" with the kind as its number.
  std::string Events() {
    rack::JournalReader reader(state->journal, rack::JournalReader::Start::Oldest);
    rack::JournalRecord record{};
    std::uint64_t lost = 0;
    std::string text;
    while (reader.Next(record, lost) == rack::JournalReader::Result::Record) {
      const bool poll = record.kind == rack::JournalKind::Repeats;
      if (poll || record.kind == rack::JournalKind::Read || record.kind == rack::JournalKind::Write) continue;
      text += std::to_string(record.time / 1000000) + " " + Kind(record.kind) + " " +
              std::to_string(record.slot) + "." + std::to_string(record.port) + "=" +
              std::to_string(record.value) + "\n";
    }
    return text;
  }

  std::unique_ptr<rack::RackState> state = std::make_unique<rack::RackState>();
  std::unique_ptr<rack::Rack> bus;

 private:
  static const char* Kind(rack::JournalKind kind) {
    switch (kind) {
      case rack::JournalKind::ReadFailed:
        return "failed";
      case rack::JournalKind::InputEdge:
        return "input";
      case rack::JournalKind::OutputChange:
        return "output";
      case rack::JournalKind::RelayChange:
        return "relay";
      case rack::JournalKind::Key:
        return "key";
      case rack::JournalKind::KeyTaken:
        return "taken";
      case rack::JournalKind::FunctionKeys:
        return "function";
      case rack::JournalKind::MotorMove:
        return "move";
      case rack::JournalKind::MotorCount:
        return "count";
      case rack::JournalKind::MotorPulses:
        return "pulses";
      case rack::JournalKind::MotorPosition:
        return "position";
      case rack::JournalKind::FaultBegins:
        return "fault";
      case rack::JournalKind::FaultEnds:
        return "cured";
      case rack::JournalKind::CardProtests:
        return "protest";
      case rack::JournalKind::HardStop:
        return "stop";
      default:
        return "other";
    }
  }
};
