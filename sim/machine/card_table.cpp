#include "machine/card_table.h"

#include <cstdio>

namespace rack {

namespace {

std::string Code(int code) {
  char text[8];
  std::snprintf(text, sizeof text, "0x%02X", static_cast<unsigned>(code));
  return text;
}

// What is wrong with a slot; empty when nothing is.
std::string Difference(const ScannedSlot& scanned, CardKind kind) {
  if (scanned.probe == Probe::Unreadable) return "";
  const bool expected = kind != CardKind::None;
  if (!expected && scanned.listed == 0) return "";
  if (expected && scanned.listed != 0 && scanned.listedCode == RowOf(kind).type) return "";
  const std::string read = "the controller has read " +
                           Code(scanned.listed != 0 ? scanned.listedCode : scanned.code) +
                           (scanned.listed != 0 ? " and lists a card" : " and knows no such card");
  return read + ", the rack file has " +
         (expected ? std::string("a card \"") + RowOf(kind).word + "\" (" + Code(RowOf(kind).type) + ") there"
                   : "nothing there");
}

}  // namespace

std::vector<std::string> CardTableWatch::operator()() {
  std::vector<std::string> differences;
  // A copy costs more than this look, and the scan is over once a start.
  const std::uint32_t seen = state_.live.scan.over.load(std::memory_order_relaxed);
  if (seen == 0 || seen == told_ || !CopyLive(state_.live, *copy_)) return differences;
  const ScanRecord& scan = copy_->scan;
  const std::uint32_t start = scan.over.load(std::memory_order_relaxed);
  if (start == 0 || start == told_) return differences;
  told_ = start;
  for (int slot = 1; slot < kSlots; ++slot) {
    const CardKind kind = copy_->cards[slot].kind;
    if (kind != CardKind::None && EntryOfSlot(state_.image, slot) < 0) continue;
    const std::string difference = Difference(scan.slots[slot], kind);
    if (!difference.empty()) differences.push_back("slot " + std::to_string(slot) + ": " + difference);
  }
  return differences;
}

}  // namespace rack
