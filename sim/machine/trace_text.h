// Journal records as lines for people and for tables.
#pragma once

#include <functional>
#include <string>

#include "machine/snapshot.h"
#include "rack/journal.h"

namespace rack {

// Name of a program file by its number, "" for 0.
using FileNames = std::function<std::string(std::uint32_t)>;

// "    1.250000  plc1  plc1/FLOW.PLC:4  slot 5 stepper: channel select = 2 (0x02)".
std::string TraceLine(const Snapshot& snapshot, const FileNames& files, const JournalRecord& record);

// Who a record's task number means: "key", "plc1" to "plc8", "net", "main", "-".
std::string Who(std::uint8_t task);

// What a record says: "input part_waiting (1.0) on".
std::string EventText(const Snapshot& snapshot, const JournalRecord& record);

// The columns of TraceRow.
extern const char* const kTraceHeader;
std::string TraceRow(const Snapshot& snapshot, const FileNames& files, const JournalRecord& record);

}  // namespace rack
