// A broken-down date and time with a pattern formatter and an RFC 822 date parser.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

namespace kvs {

struct Date {
  std::int32_t seconds = 0;
  std::int32_t minutes = 0;
  std::int32_t hours = 0;
  std::int32_t day = 1;      // 1-31
  std::int32_t month = 0;    // 0-11
  std::int32_t year = 70;    // years since 1900
  std::int32_t weekday = 4;  // 0 = Sunday
  bool valid = false;
  // Set by parse(): the zone offset written in the text, in seconds east of GMT.
  std::int32_t zoneOffset = 0;

  static Date now();                     // local time
  static Date fromLocal(std::time_t t);  // invalid when the time has no local form

  // Pattern letters: YYYY YY, MMMM MMM MM M, DD D, hh h, mm m, ss s, ww w (see date.cpp).
  [[nodiscard]] std::string format(std::string_view pattern) const;
  // "w, D MMM YYYY hh:mm:ss GMT"
  [[nodiscard]] std::string rfc822() const;
  // Reads an RFC 822 date; `valid` tells whether it could.
  [[nodiscard]] static Date parse(std::string_view text);
};

// Zone name to offset in seconds from GMT; false for a name not in the table.
[[nodiscard]] bool zoneOffset(std::string_view name, std::int32_t& offset);

}  // namespace kvs
