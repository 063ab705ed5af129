#include <cstdint>
#include <cstdlib>

#include "platform/linux/icalendar.h"
#include "platform/text/text.h"

namespace {

using namespace std::chrono_literals;
const kestrin::Date from{1'775'000'000s}, to = from + std::chrono::days(31);

void check(const std::vector<kestrin::CalendarRecord>& found) {
  if (found.size() > kestrin::mostInstances) abort();
  for (const auto& record : found) {
    if (record.end < record.start || record.start >= to ||
        !kestrin::text::isValidUtf8(record.title))
      abort();
  }
}

}  // namespace

/// Whatever a file or a piece of a calendar holds, its instances lie in the range, end after they
/// begin, and are bounded.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  check(kestrin::readIcalendar(text, from, to, "Europe/Paris"));
  const std::vector<std::string> pieces{text.substr(size / 2), text, text};
  (void)kestrin::needsOf(pieces);
  check(kestrin::readIcalendarObjects(pieces, from, to, "Europe/Paris"));
  return 0;
}
