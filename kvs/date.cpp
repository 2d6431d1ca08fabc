// Date formatting with pattern letters, and the RFC 822 date parser.
#include "kvs/date.h"

#include <charconv>
#include <cstdio>
#include <map>
#include <vector>

#include "kvs/platform/platform.h"

namespace kvs {
namespace {

// Sunday's full form is deliberately the three letters "Sun".
const char* const kWeekdays[14] = {"Sun",       "Mon",      "Tue",    "Wed",     "Thu",
                                   "Fri",       "Sat",      "Sun",    "Monday",  "Tuesday",
                                   "Wednesday", "Thursday", "Friday", "Saturday"};
const char* const kMonths[24] = {
    "Jan", "Feb",  "Mar",  "Apr",    "May",       "Jun",      "Jul",      "Aug",
    "Sep", "Oct",  "Nov",  "Dec",    "January",   "February", "March",    "April",
    "May", "June", "July", "August", "September", "October",  "November", "December"};

struct Tables {
  std::map<std::string, int, std::less<>> weekdays;
  std::map<std::string, int, std::less<>> months;
  std::map<std::string, std::int32_t, std::less<>> zones;
};

// Built once, on first use, before any lookup.
const Tables& tables() {
  static const Tables t = [] {
    Tables built;
    for (int i = 0; i < 14; ++i) built.weekdays.emplace(kWeekdays[i], i % 7);
    for (int i = 0; i < 24; ++i) built.months.emplace(kMonths[i], i % 12);
    built.zones = {{"PST", -28800}, {"PDT", -25200}, {"MST", -25200}, {"MDT", -21600},
                   {"CST", -21600}, {"CDT", -18000}, {"EST", -18000}, {"EDT", -14400}};
    return built;
  }();
  return t;
}

std::string padded(int value, int width) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%0*d", width, value);
  return buf;
}

// A number is a token that starts with a decimal digit and whose leading digits fit an int;
// anything else reads as 0.
int number(std::string_view s, bool* isNumber = nullptr) {
  int value = 0;
  const bool ok = !s.empty() && s[0] >= '0' && s[0] <= '9' &&
                  std::from_chars(s.data(), s.data() + s.size(), value).ec == std::errc();
  if (isNumber) *isNumber = ok;
  return ok ? value : 0;
}

std::int64_t daysFromCivil(std::int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

}  // namespace

const char* weekdayName(int index) {
  return index >= 0 && index < 14 ? kWeekdays[index] : "";
}
const char* monthName(int index) {
  return index >= 0 && index < 24 ? kMonths[index] : "";
}

bool zoneOffset(std::string_view name, std::int32_t& offset) {
  const auto& zones = tables().zones;
  auto it = zones.find(name);
  if (it == zones.end()) return false;
  offset = it->second;
  return true;
}

Date Date::fromLocal(std::time_t t) {
  std::tm tm{};
  Date d;
  if (!platform::localTime(t, tm)) return d;
  d.seconds = tm.tm_sec;
  d.minutes = tm.tm_min;
  d.hours = tm.tm_hour;
  d.day = tm.tm_mday;
  d.month = tm.tm_mon;
  d.year = tm.tm_year;
  d.weekday = tm.tm_wday;
  d.valid = true;
  return d;
}

Date Date::now() {
  return fromLocal(std::time(nullptr));
}

std::string Date::format(std::string_view pattern) const {
  const int fullYear = 1900 + year;
  const int wd = ((weekday % 7) + 7) % 7;
  const int mo = ((month % 12) + 12) % 12;
  // Rows Y M D h m s w: what a run of n of the letter stands for, by n. A longer run is
  // spelled from the left, longest form first ("MMMMM" is "MMMM" then "M"); a Y that no form
  // covers stays the byte 0x01. Inserted names are never read as letters.
  const std::string forms[7][5] = {
      {"", "\x01", padded(((fullYear % 100) + 100) % 100, 2), "", padded(fullYear, 4)},
      {"", std::to_string(month + 1), padded(month + 1, 2), kMonths[mo], kMonths[12 + mo]},
      {"", std::to_string(day), padded(day, 2)},
      {"", std::to_string(hours), padded(hours, 2)},
      {"", std::to_string(minutes), padded(minutes, 2)},
      {"", std::to_string(seconds), padded(seconds, 2)},
      {"", kWeekdays[wd], kWeekdays[7 + wd]},
  };
  // The row of a pattern byte; the bytes 0x01-0x07 count as the letters of rows 0-6.
  const auto row = [](char c) {
    return c >= 1 && c <= 7 ? static_cast<std::size_t>(c - 1) : std::string_view("YMDhmsw").find(c);
  };
  std::string out;
  for (std::size_t i = 0; i < pattern.size();) {
    const std::size_t r = row(pattern[i]);
    if (r == std::string_view::npos) {
      out.push_back(pattern[i++]);
      continue;
    }
    std::size_t run = 0;
    for (; i < pattern.size() && row(pattern[i]) == r; ++i) ++run;
    for (std::size_t n = 4; n > 0; --n) {
      for (; run >= n && !forms[r][n].empty(); run -= n) out += forms[r][n];
    }
  }
  return out;
}

std::string Date::rfc822() const {
  return format("w, D MMM YYYY hh:mm:ss") + " GMT";
}

Date Date::parse(std::string_view text) {
  const Tables& t = tables();
  Date d;
  std::vector<std::string_view> tokens;
  std::size_t i = 0;
  while (i < text.size()) {
    const std::size_t end = text.find_first_of(" ,", i);
    const std::size_t stop = end == std::string_view::npos ? text.size() : end;
    if (stop > i) tokens.push_back(text.substr(i, stop - i));
    i = stop + 1;
  }
  if (tokens.size() < 5) return d;
  std::size_t k = 0;
  bool numeric = false;
  number(tokens[0], &numeric);
  if (!numeric) {
    auto wd = t.weekdays.find(tokens[0]);
    if (wd == t.weekdays.end() || tokens.size() < 6) return d;
    k = 1;
  }
  d.day = number(tokens[k]);
  auto mo = t.months.find(tokens[k + 1]);
  if (mo == t.months.end()) return d;
  d.month = mo->second;
  int y = number(tokens[k + 2]);
  if (y > 1900) y -= 1900;
  if (y > 300) return d;
  d.year = y;  // a two-digit year is 1900 + its value

  std::vector<std::string_view> parts;
  std::string_view clock = tokens[k + 3];
  for (std::size_t p = 0; p <= clock.size();) {
    const std::size_t c = clock.find(':', p);
    const std::size_t stop = c == std::string_view::npos ? clock.size() : c;
    parts.push_back(clock.substr(p, stop - p));
    p = stop + 1;
  }
  if (parts.size() < 2) return d;
  d.hours = number(parts[0]);
  d.minutes = number(parts[1]);
  d.seconds = parts.size() > 2 ? number(parts[2]) : 0;

  std::tm tm{};
  tm.tm_sec = d.seconds;
  tm.tm_min = d.minutes;
  tm.tm_hour = d.hours;
  tm.tm_mday = d.day;
  tm.tm_mon = d.month;
  tm.tm_year = d.year;
  tm.tm_isdst = -1;
  if (std::mktime(&tm) == static_cast<std::time_t>(-1)) return d;

  // The zone (there are always enough tokens for one): a table name, or a numeric zone
  // "+hhmm" / "-hhmm" (one or two digits are read as hours). GMT, UT and names the table does
  // not know count as offset 0.
  const std::string_view zone = tokens[k + 4];
  std::int32_t named = 0;
  std::int64_t offset = 0;
  if (kvs::zoneOffset(zone, named)) {
    offset = named;
  } else if (zone[0] == '+' || zone[0] == '-') {
    const std::string_view digits = zone.substr(1);
    const std::int64_t v = number(digits);
    offset = digits.size() <= 2 ? v * 3600 : (v / 100) * 3600 + (v % 100) * 60;
    if (zone[0] == '-') offset = -offset;
  }
  // The written clock time read in that zone; out-of-range fields carry over.
  const std::int64_t days = daysFromCivil(1900 + d.year, d.month + 1, 1) + (d.day - 1);
  const auto instant = static_cast<std::time_t>(days * 86400 + std::int64_t{d.hours} * 3600 +
                                                std::int64_t{d.minutes} * 60 + d.seconds - offset);
  // The fields stand for that instant in local time.
  d = fromLocal(instant);
  d.zoneOffset = static_cast<std::int32_t>(offset);
  return d;
}

}  // namespace kvs
