#include "view/Http.h"

#include <algorithm>
#include <array>

namespace nuveqcam {
namespace {

char ToLower(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

std::string TwoDigits(long long number) { return (number < 10 ? "0" : "") + std::to_string(number); }

}  // namespace

bool AreEqualIgnoringCase(std::string_view a, std::string_view b) {
  return std::ranges::equal(a, b, [](char x, char y) { return ToLower(x) == ToLower(y); });
}

std::optional<std::string> ValueOf(const HttpRequest& request, std::string_view name) {
  std::optional<std::string> value;
  for (const HttpField& field : request.fields) {
    if (AreEqualIgnoringCase(field.name, name)) {
      if (value) {
        value->append(", ").append(field.value);
      } else {
        value = field.value;
      }
    }
  }
  return value;
}

// Independent of the locale and thread-safe, unlike the functions of the C library.
std::string HttpDate(std::chrono::system_clock::time_point time) {
  constexpr std::array kDays{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  constexpr std::array kMonths{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(std::chrono::floor<std::chrono::seconds>(time - day));
  return std::string(kDays.at(std::chrono::weekday(day).c_encoding())) + ", " +
         TwoDigits(static_cast<unsigned>(date.day())) + " " +
         kMonths.at(static_cast<unsigned>(date.month()) - 1) + " " +
         std::to_string(static_cast<int>(date.year())) + " " + TwoDigits(clock.hours().count()) + ":" +
         TwoDigits(clock.minutes().count()) + ":" + TwoDigits(clock.seconds().count()) + " GMT";
}

}  // namespace nuveqcam
