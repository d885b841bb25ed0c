// The session's memory budget, and how amounts are told.
#include "core/memory_budget.h"

#include <cstdio>

#include "core/messages.h"
#include "host/base/memory.h"
#include "host/base/session_context.h"

namespace ovhost {

std::string BytesText(std::uint64_t bytes) {
  const char* const units[] = {"bytes", "kB", "MB", "GB", "TB", "PB", "EB"};
  auto amount = static_cast<double>(bytes);
  int unit = 0;
  for (; amount >= 999.5 && unit < 6; ++unit) amount /= 1000;
  char text[32];
  std::snprintf(text, sizeof text, amount < 9.95 && unit > 0 ? "%.1f %s" : "%.0f %s", amount, units[unit]);
  return text;
}

std::string CopiesText(std::uint64_t copies, std::uint64_t bytes, std::uint64_t budget) {
  return trCountText(copies) + (copies == 1 ? " copy, " : " copies, ") + BytesText(bytes) + "; budget " +
         BytesText(budget);
}

}  // namespace ovhost

std::uint64_t trMemoryBudget() {
  const std::uint64_t bytes = ovhost::SessionContext::Current().memoryBudget;
  return bytes ? bytes : ovhost::FreeMemory() / 4 * 3;
}

void trRefuseCopies(const trString& name, std::uint64_t copies, std::uint64_t bytes) {
  ++ovhost::SessionContext::Current().memoryRefusals;
  trError(name + ": " + ovhost::CopiesText(copies, bytes, trMemoryBudget()) + ". That doesn't fit.");
}

trString trCountText(std::uint64_t count) {
  const trString digits = std::to_string(count);
  trString text;
  for (std::size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) text += ' ';
    text += digits[i];
  }
  return text;
}
