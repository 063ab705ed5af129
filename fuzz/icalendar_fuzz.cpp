#include <cstdint>
#include <cstdlib>

#include "platform/linux/icalendar.h"
#include "platform/text/text.h"

/// Whatever a file holds, its instances lie in the range, end after they begin, and are bounded.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace std::chrono_literals;
  const kestrin::Date from{1'775'000'000s}, to = from + std::chrono::days(31);
  const auto found =
      kestrin::readIcalendar({reinterpret_cast<const char*>(data), size}, from, to, "Europe/Paris");
  if (found.size() > kestrin::mostInstances) abort();
  for (const auto& record : found) {
    if (record.end < record.start || record.start >= to ||
        !kestrin::text::isValidUtf8(record.title))
      abort();
  }
  return 0;
}
