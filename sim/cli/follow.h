// Following the journal of a machine.
#pragma once

#include <functional>
#include <string>

#include "machine/machine.h"

namespace rack::cli {

struct FollowOptions {
  bool once = false;  // end when all is handed on that happened so far
  Nanos lasts = -1;   // end after this time; negative: when the run ends or this process is told to
};

struct FollowSummary {
  std::uint64_t records = 0;
  std::uint64_t lost = 0;
};

// Hands every record on in order; `lost` is told how many records were overwritten since it was told last, at most
// once a second.
FollowSummary Follow(Machine& machine, PatientReader& reader, const FollowOptions& options,
                     const std::function<void(const JournalRecord&)>& record,
                     const std::function<void(std::uint64_t)>& lost);

// "complete, 12 records" or "12 records, 3 lost".
std::string SummaryText(const FollowSummary& summary);

// The options' time: false when the text is none. Without a text there is no limit.
bool ParseLimit(const std::string& text, FollowOptions& options, std::string& error);

}  // namespace rack::cli
