// Date formatting with pattern letters, and the RFC 822 date parser.
#include "kvs/date.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdio>
#include <map>
#include <vector>

#include "kvs/ascii.h"
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
  const LeadingNumber n = leadingNumber(s, INT_MAX);
  if (isNumber) *isNumber = n.digits > 0 && !n.over;
  return static_cast<int>(n.value);
}

}  // namespace

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
  std::vector<std::string_view> tokens;
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t stop = std::min(text.find_first_of(" ,", i), text.size());
    if (stop > i) tokens.push_back(text.substr(i, stop - i));
    i = stop + 1;
  }
  const Date invalid;
  if (tokens.size() < 5) return invalid;
  std::size_t k = 0;
  bool numeric = false;
  number(tokens[0], &numeric);
  if (!numeric) {
    if (t.weekdays.count(tokens[0]) == 0 || tokens.size() < 6) return invalid;
    k = 1;
  }
  std::tm tm{};
  tm.tm_mday = number(tokens[k]);
  const auto month = t.months.find(tokens[k + 1]);
  if (month == t.months.end()) return invalid;
  tm.tm_mon = month->second;
  tm.tm_year = number(tokens[k + 2]);
  if (tm.tm_year > 1900) tm.tm_year -= 1900;  // so a two-digit year is 1900 + its value
  if (tm.tm_year > 300) return invalid;
  // The time, split at ":": empty parts read as 0, and so do missing seconds. A number reads
  // only its leading digits, so each part can be read from its start to the end of the token.
  const std::string_view clock = tokens[k + 3];
  const std::size_t colon = clock.find(':');
  if (colon == std::string_view::npos) return invalid;
  const std::size_t second = clock.find(':', colon + 1);
  tm.tm_hour = number(clock);
  tm.tm_min = number(clock.substr(colon + 1));
  tm.tm_sec = second == std::string_view::npos ? 0 : number(clock.substr(second + 1));

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
  namespace chrono = std::chrono;
  const std::int64_t days = chrono::sys_days{chrono::year{1900 + tm.tm_year} / (tm.tm_mon + 1) / 1}
                                .time_since_epoch()
                                .count() +
                            tm.tm_mday - 1;
  const auto instant = static_cast<std::time_t>(days * 86400 + std::int64_t{tm.tm_hour} * 3600 +
                                                std::int64_t{tm.tm_min} * 60 + tm.tm_sec - offset);
  // The fields must also have a local time, and they stand for that instant in local time.
  tm.tm_isdst = -1;
  if (std::mktime(&tm) == static_cast<std::time_t>(-1)) return invalid;
  Date d = fromLocal(instant);
  d.zoneOffset = static_cast<std::int32_t>(offset);
  return d;
}

}  // namespace kvs
