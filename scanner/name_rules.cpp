// The scanner's text layer: header values, parameters, encoded words and attachment extensions.
#include <string>
#include <string_view>

#include "kvs/ascii.h"
#include "scanner/message_scanner.h"
#include "scanner/mime_decoder.h"
#include "scanner/zip_directory.h"

namespace {

constexpr std::size_t npos = std::string_view::npos;

// The first occurrence of `what` at or after `from`, remembering the last answer: the walk over
// encoded words only moves forward, so a long name full of "=?" stays linear.
class ForwardFind {
 public:
  ForwardFind(std::string_view text, std::string_view what) : text_(text), what_(what) {}
  std::size_t from(std::size_t pos) {
    if (!searched_ || (found_ != npos && found_ < pos)) {
      found_ = text_.find(what_, pos);
      searched_ = true;
    }
    return found_;
  }

 private:
  std::string_view text_, what_;
  std::size_t found_ = npos;
  bool searched_ = false;
};

}  // namespace

bool MessageScanner::headerValue(std::string_view name, std::string_view line, std::string& value) {
  if (line.size() <= name.size() || !kvs::startsWithIgnoreCase(line, name)) return false;
  // Trailing blanks stay: only CR, LF and ";" are dropped there.
  value.assign(kvs::trimRight(kvs::trimLeft(line.substr(name.size())), "\r\n;"));
  return true;
}

bool MessageScanner::paramValue(std::string_view param, std::string_view fieldValue,
                                std::string& out) {
  if (fieldValue.size() <= param.size()) return false;
  // Found anywhere, case-sensitively: "name=" is also found inside "filename=".
  const std::size_t at = fieldValue.find(param);
  if (at == npos) return false;
  std::size_t s = at + param.size();
  if (s >= fieldValue.size()) return false;
  if (fieldValue[s] == '"') {
    const std::size_t close = fieldValue.find('"', s + 1);
    if (close == npos) return false;
    out.assign(fieldValue.substr(s + 1, close - s - 1));
    return true;
  }
  while (s < fieldValue.size() && kvs::isSpace(static_cast<unsigned char>(fieldValue[s]))) ++s;
  std::size_t e = s;
  while (e < fieldValue.size() && fieldValue[e] != ';' &&
         !kvs::isSpace(static_cast<unsigned char>(fieldValue[e])))
    ++e;
  out.assign(fieldValue.substr(s, e - s));
  return true;
}

bool MessageScanner::messageBoundary(std::string_view line, std::string& boundary) {
  // The search starts after "content-type:" would have begun its value; the rest of the line
  // counts, whatever the media type, and an unquoted value runs to the end of the line.
  const std::size_t start = kvs::startsWithIgnoreCase(line, kMultipart) ? 11 : 10;
  if (start >= line.size()) return false;
  const std::size_t at = line.find(kBoundary, start);
  if (at == npos) return false;
  const std::size_t s = at + kBoundary.size();
  if (s < line.size() && line[s] == '"') {
    const std::size_t close = line.find('"', s + 1);
    boundary.assign(line.substr(s + 1, close == npos ? npos : close - s - 1));
  } else {
    boundary.assign(line.substr(s));
  }
  return true;
}

std::string MessageScanner::attachmentExtension(std::string_view name) {
  // Encoded words are replaced left to right; only the lower-case markers count, so a word
  // written with ?Q? or ?B? stays as raw text.
  std::string decoded;
  ForwardFind opener(name, "=?"), qMarker(name, "?q?"), bMarker(name, "?b?"), closer(name, "?=");
  std::size_t copied = 0, from = 0;
  for (;;) {
    const std::size_t open = opener.from(from);
    if (open == npos) break;
    std::size_t marker = qMarker.from(open + 2);
    if (marker == npos) marker = bMarker.from(open + 2);
    if (marker == npos) {
      from = open + 2;
      continue;
    }
    const std::size_t text = marker + 3;
    const std::size_t close = closer.from(text);
    if (close == npos) {
      from = marker + 3;
      continue;
    }
    decoded.append(name.substr(copied, open - copied));
    const std::string_view encoded = name.substr(text, close - text);
    if (kvs::toLower(static_cast<unsigned char>(name[marker + 1])) == 'b') {
      decoded += Decoder::MIME::Base64::decode(encoded);
    } else {
      decoded += Decoder::MIME::QuotedPrintable::decode(encoded, true);
    }
    copied = from = close + 2;
  }
  decoded.append(name.substr(copied));

  // As a stored name's extension, except that a name ending in "." has none either.
  if (decoded.ends_with('.')) return "...";
  return scanner::storedNameExtension(decoded);
}
