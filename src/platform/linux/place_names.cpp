#include "platform/linux/place_names.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <unicode/locid.h>
#include <unicode/timezone.h>

#include "platform/text/text.h"

namespace kestrin {
namespace {

/// Further away a zone's city is another place in the same country.
constexpr double sameCityKilometres = 60;
constexpr double earthRadiusKilometres = 6371;

std::string countryName(const std::string& code) {
  icu::UnicodeString name;
  icu::Locale("", code.c_str()).getDisplayCountry(icu::Locale::getEnglish(), name);
  std::string out;
  name.toUTF8String(out);
  return out;
}

std::string cityOf(const std::string& zone) {
  return text::replaceAll(zone.substr(zone.rfind('/') + 1), "_", " ");
}

/// "+4852" or "+404251" (degrees, minutes, seconds) to degrees.
double degrees(std::string_view text, size_t degreeDigits) {
  const std::string digits(text.substr(1));
  const auto part = [&](size_t at, size_t length) {
    return at < digits.size() ? std::strtod(digits.substr(at, length).c_str(), nullptr) : 0.0;
  };
  const double value =
      part(0, degreeDigits) + part(degreeDigits, 2) / 60 + part(degreeDigits + 2, 2) / 3600;
  return text[0] == '-' ? -value : value;
}

double kilometres(double latitude1, double longitude1, double latitude2, double longitude2) {
  const double radian = std::acos(-1.0) / 180;
  const double a = std::sin((latitude2 - latitude1) * radian / 2);
  const double b = std::sin((longitude2 - longitude1) * radian / 2);
  const double h = a * a + std::cos(latitude1 * radian) * std::cos(latitude2 * radian) * b * b;
  return 2 * earthRadiusKilometres * std::asin(std::sqrt(std::min(1.0, h)));
}

}  // namespace

std::optional<Place> placeOfTimeZone(const std::string& zone) {
  std::array<char, 8> region{};
  UErrorCode status = U_ZERO_ERROR;
  icu::TimeZone::getRegion(icu::UnicodeString::fromUTF8(zone), region.data(), region.size(),
                           status);
  // "001" is the world: no country.
  if (U_FAILURE(status) || std::string_view(region.data()) == "001" ||
      zone.find('/') == zone.npos) {
    return {};
  }
  return Place{cityOf(zone), "", countryName(region.data()), zone};
}

std::optional<Place> placeNear(double latitude, double longitude, std::string_view zoneTab) {
  std::optional<Place> nearest;
  double best = 0;
  for (const std::string& line : text::split(zoneTab, "\n")) {
    const auto fields = text::split(line, "\t");
    if (line.empty() || line[0] == '#' || fields.size() < 3) continue;
    const std::string& at = fields[1];
    const size_t second = at.find_first_of("+-", 1);
    if (second == at.npos) continue;
    const double away = kilometres(latitude, longitude, degrees(at.substr(0, second), 2),
                                   degrees(at.substr(second), 3));
    if (nearest && away >= best) continue;
    best = away;
    nearest = Place{away <= sameCityKilometres ? cityOf(fields[2]) : "", "", countryName(fields[0]),
                    fields[2]};
  }
  return nearest;
}

Place placeOfDescription(std::string_view description) {
  Place place;
  std::vector<std::string> parts;
  for (const std::string& part : text::split(description, ",")) {
    if (std::string said = text::trim(part); !said.empty()) parts.push_back(std::move(said));
  }
  if (!parts.empty()) place.locality = parts.front();
  if (parts.size() > 1) place.country = parts.back();
  if (parts.size() > 2) place.administrativeArea = parts[1];
  return place;
}

}  // namespace kestrin
