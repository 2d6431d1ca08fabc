// Queued message files of the kinds a mail server sees every day.
#include "bench/message_writer.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace bench {

namespace {

constexpr std::array<const char*, 48> kWords = {
    "the",      "meeting",  "report",  "attached", "please",   "review",   "before",  "friday",
    "budget",   "numbers",  "quarter", "customer", "project",  "update",   "thanks",  "regards",
    "schedule", "invoice",  "payment", "delivery", "order",    "shipment", "team",    "draft",
    "proposal", "contract", "signed",  "version",  "changes",  "comments", "agenda",  "minutes",
    "server",   "backup",   "release", "notes",    "question", "answer",   "weekend", "office",
    "travel",   "hotel",    "flight",  "Zürich",   "Müller",   "café",     "naïve",   "résumé"};

constexpr std::array<const char*, 10> kFirstNames = {"Alice", "bob",   "Carla", "dmitri", "Eva",
                                                     "Farid", "grace", "Hiro",  "Ines",   "Jonas"};
constexpr std::array<const char*, 8> kDomains = {
    "example.com",       "Example.ORG", "mail.example.net", "corp.example",
    "lists.example.org", "example.de",  "shop.example.com", "example.co.uk"};

struct FileType {
  const char* mimeType;
  const char* extension;
};
constexpr std::array<FileType, 12> kDocuments = {{{"application/pdf", "pdf"},
                                                  {"application/pdf", "PDF"},
                                                  {"image/jpeg", "jpg"},
                                                  {"image/jpeg", "JPG"},
                                                  {"image/png", "png"},
                                                  {"application/vnd.openxmlformats-"
                                                   "officedocument.wordprocessingml.document",
                                                   "docx"},
                                                  {"application/vnd.openxmlformats-"
                                                   "officedocument.spreadsheetml.sheet",
                                                   "xlsx"},
                                                  {"application/vnd.ms-powerpoint", "pptx"},
                                                  {"application/msword", "doc"},
                                                  {"video/mp4", "mp4"},
                                                  {"application/octet-stream", "bin"},
                                                  {"application/x-gzip", "tar.gz"}}};
constexpr std::array<const char*, 9> kStems = {"report",    "Rechnung_2026-11", "IMG_4031",
                                               "scan0042",  "contract final",   "Präsentation",
                                               "budget Q4", "meeting-notes",    "Überweisung"};
constexpr std::array<const char*, 16> kStoredExtensions = {
    "pdf", "txt", "jpg", "PNG", "exe", "dll", "js", "vbs", "docm", "xml", "html", "csv", "Doc",
    "",  // no extension at all (README, Makefile)
    "lnk", "scr"};
constexpr std::array<const char*, 6> kStoredDirectories = {
    "", "docs/", "images/2026/", "src/lib/", "Invoices November/", "setup/"};

void appendQEncoded(std::string& out, std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  for (unsigned char c : text) {
    if (c == ' ') {
      out += '_';
    } else if (c < 33 || c > 126 || c == '=' || c == '?' || c == '_') {
      out += '=';
      out += kHex[c >> 4];
      out += kHex[c & 15];
    } else {
      out += static_cast<char>(c);
    }
  }
}

std::string base64Word(std::string_view text) {
  std::string encoded;
  appendBase64Lines(encoded, text);
  encoded.erase(std::remove(encoded.begin(), encoded.end(), '\n'), encoded.end());
  return encoded;
}

void toCrlf(std::string& bytes) {
  std::string out;
  out.reserve(bytes.size() + bytes.size() / 30);
  for (char c : bytes) {
    if (c == '\n') out += '\r';
    out += c;
  }
  bytes.swap(out);
}

}  // namespace

std::string MessageWriter::address() {
  std::string local = random_.pick(kFirstNames);
  if (random_.percent(50)) local += std::string(".") + random_.pick(kWords);
  std::string domain = random_.pick(kDomains);
  // Accented words must not reach an address.
  if (std::any_of(local.begin(), local.end(), [](char c) { return c & 0x80; })) local = "info";
  return local + "@" + domain;
}

std::string MessageWriter::envelope(const std::string& from, const std::vector<std::string>& to) {
  std::string lines =
      "P I 21-11-2026 09:14:" + std::to_string(10 + counter_ % 50) + " <" + from + ">\n";
  lines += "S SMTP [192.0.2." + std::to_string(1 + counter_ % 250) + "]\n";
  for (const std::string& recipient : to) {
    lines +=
        "R W 21-11-2026 09:14:" + std::to_string(10 + counter_ % 50) + " <" + recipient + ">\n";
  }
  return lines + "\n";
}

std::string MessageWriter::subject() {
  std::string words;
  for (unsigned i = 0, n = static_cast<unsigned>(random_.between(2, 8)); i < n; ++i) {
    if (i) words += ' ';
    words += random_.pick(kWords);
  }
  if (std::none_of(words.begin(), words.end(), [](char c) { return c & 0x80; })) return words;
  std::string encoded = "=?utf-8?q?";
  appendQEncoded(encoded, words);
  return encoded + "?=";
}

std::string MessageWriter::boundary() {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string tag;
  for (int i = 0; i < 24; ++i) tag += kHex[random_.below(16)];
  switch (random_.below(3)) {
    case 0:
      return "----=_Part_" + std::to_string(counter_) + "_" + tag.substr(0, 10) + "." +
             tag.substr(10);
    case 1:
      return "b1_" + tag;
    default:
      return "000000000000" + tag;
  }
}

std::string MessageWriter::text(std::size_t bytes) {
  std::string out;
  std::size_t column = 0;
  while (out.size() < bytes) {
    const std::string word = random_.pick(kWords);
    if (column + word.size() + 1 > 72) {
      out += random_.percent(12) ? ".\n\n" : "\n";
      column = 0;
    } else if (column) {
      out += ' ';
      ++column;
    }
    out += word;
    column += word.size();
  }
  return out + "\n\n-- \n" + random_.pick(kFirstNames) + "\n";
}

std::string MessageWriter::html(std::size_t bytes) {
  std::string out = "<html><head><meta charset=\"utf-8\"></head><body>\n";
  while (out.size() < bytes) {
    // Editors write a whole paragraph on one line; the transfer encoding folds it.
    out += "<p style=\"margin:0;font-family:Calibri,sans-serif\">";
    const std::size_t room = bytes > out.size() ? (bytes - out.size()) / 8 + 1 : 1;
    const auto words =
        static_cast<unsigned>(std::min<std::uint64_t>(random_.between(10, 120), room));
    for (unsigned i = 0; i < words; ++i) {
      out += random_.percent(5) ? "<b>" + std::string(random_.pick(kWords)) + "</b> "
                                : std::string(random_.pick(kWords)) + " ";
    }
    out += "</p>\n";
  }
  return out + "</body></html>\n";
}

std::string MessageWriter::multipartHeader(std::string_view subtype, const std::string& boundary) {
  return "Content-Type: multipart/" + std::string(subtype) + ";\n\tboundary=\"" + boundary + "\"\n";
}

std::string MessageWriter::multipart(const std::string& boundary,
                                     const std::vector<std::string>& parts) {
  std::string body;
  if (random_.percent(60)) body += "This is a multi-part message in MIME format.\n\n";
  for (const std::string& part : parts) {
    body += "--" + boundary + "\n" + part;
    if (random_.percent(50)) body += "\n";
  }
  body += "--" + boundary + "--\n";
  if (random_.percent(20)) body += "\n";
  return body;
}

std::string MessageWriter::textPart(std::size_t bytes) {
  const std::string content = text(bytes);
  switch (random_.below(4)) {
    case 0:
      return "Content-Type: text/plain; charset=us-ascii\nContent-Transfer-Encoding: 7bit\n\n" +
             content;
    case 1:
      return "Content-Type: text/plain; charset=\"utf-8\"; format=flowed\n"
             "Content-Transfer-Encoding: 8bit\n\n" +
             content;
    default: {
      std::string part =
          "Content-Type: text/plain;\n\tcharset=\"utf-8\"\nContent-Transfer-Encoding: "
          "quoted-printable\n\n";
      appendQuotedPrintable(part, content);
      return part + "\n";
    }
  }
}

std::string MessageWriter::htmlPart(std::size_t bytes) {
  std::string part =
      "Content-Type: text/html; charset=\"utf-8\"\nContent-Transfer-Encoding: "
      "quoted-printable\n\n";
  appendQuotedPrintable(part, html(bytes));
  return part + "\n";
}

std::string MessageWriter::alternativePart(const Sizes& sizes) {
  const std::string inner = boundary();
  const std::size_t bytes = random_.logBetween(sizes.textLow, sizes.textHigh);
  return multipartHeader("alternative", inner) + "\n" +
         multipart(inner, {textPart(bytes / 3), htmlPart(bytes)});
}

std::string MessageWriter::attachmentName(std::string_view extension) {
  std::string stem = random_.pick(kStems);
  if (random_.percent(30)) stem += "_" + std::to_string(random_.below(1000));
  return stem + "." + std::string(extension);
}

// Names come in the forms mail programs write them: in both headers, in one of them, as
// encoded words, or with the extended parameter form beside a plain name.
std::string MessageWriter::attachmentPart(std::string_view type, const std::string& name,
                                          std::string_view content, Expectation& expected) {
  const std::string extension = extensionOf(name);
  std::string headers;
  switch (random_.below(8)) {
    case 0:
      headers = "Content-Type: " + std::string(type) + "; name=\"" + name + "\"\n";
      break;
    case 1:
      headers =
          "Content-Type: application/octet-stream\nContent-Disposition: attachment; "
          "filename=\"" +
          name + "\"\n";
      break;
    case 2: {
      const std::string word = "=?utf-8?b?" + base64Word(name) + "?=";
      headers = "Content-Type: " + std::string(type) + ";\n\tname=\"" + word +
                "\"\nContent-Disposition: attachment;\n\tfilename=\"" + word + "\"\n";
      break;
    }
    case 3: {
      std::string word = "=?iso-8859-1?q?";
      appendQEncoded(word, name);
      headers = "Content-Type: " + std::string(type) + ";\n name=\"" + word + "?=\"\n" +
                "Content-Disposition: attachment; filename*=utf-8''report." + extension + "\n";
      break;
    }
    default:
      headers = "Content-Type: " + std::string(type) + ";\n\tname=\"" + name +
                "\"\nContent-Disposition: attachment;\n\tfilename=\"" + name +
                "\"; size=" + std::to_string(content.size()) + "\n";
  }
  expected.findings.insert(extension);
  std::string part = headers + "Content-Transfer-Encoding: base64\n\n";
  appendBase64Lines(part, content);
  return part;
}

std::vector<ZipEntry> MessageWriter::zipEntries(std::uint64_t size, unsigned count,
                                                bool someEncrypted) {
  std::vector<ZipEntry> entries;
  std::vector<std::string> directories;
  const std::uint64_t average = std::max<std::uint64_t>(1, size / std::max(1U, count));
  for (unsigned i = 0; i < count; ++i) {
    const std::string directory = random_.pick(kStoredDirectories);
    if (!directory.empty() &&
        std::find(directories.begin(), directories.end(), directory) == directories.end()) {
      directories.push_back(directory);
      entries.push_back({directory, "", false});  // the directory's own entry
      if (entries.size() >= count) break;
    }
    ZipEntry entry;
    const std::string extension = random_.pick(kStoredExtensions);
    entry.name = directory + "file_" + std::to_string(i);
    if (!extension.empty()) entry.name += "." + extension;
    random_.appendBytes(entry.data, random_.below(2 * average + 1));
    entry.encrypted = someEncrypted && (entries.empty() || random_.percent(30));
    entries.push_back(std::move(entry));
    if (entries.size() >= count) break;
  }
  return entries;
}

std::string MessageWriter::zipPart(std::uint64_t size, unsigned entries, bool someEncrypted,
                                   Message& message) {
  const std::vector<ZipEntry> stored = zipEntries(size, entries, someEncrypted);
  const std::string image = buildZip(stored);
  message.expected.addZip(stored);
  message.largestZip = std::max<std::uint64_t>(message.largestZip, image.size());
  const char* names[] = {"archive.zip", "Documents.ZIP", "photos.zip", "backup-2026.zipx"};
  return attachmentPart("application/zip", random_.pick(names), image, message.expected);
}

std::string MessageWriter::embeddedMessage(const Sizes& sizes, Expectation& expected) {
  const std::string inner = boundary();
  const FileType& type = random_.pick(kDocuments);
  std::string content;
  random_.appendBytes(content, random_.logBetween(sizes.attachmentLow, sizes.attachmentHigh));
  std::string part = "Content-Type: message/rfc822\n";
  if (random_.percent(50)) {
    part += "Content-Disposition: attachment; filename=\"original message.eml\"\n";
    expected.findings.insert("eml");
  }
  part +=
      "\nFrom: " + address() + "\nTo: " + address() + "\nSubject: " + subject() +
      "\nDate: Fri, 20 Nov 2026 17:02:11 +0100\nMIME-Version: 1.0\n" +
      multipartHeader("mixed", inner) + "\n" +
      multipart(inner,
                {textPart(random_.logBetween(sizes.textLow, sizes.textHigh)),
                 attachmentPart(type.mimeType, attachmentName(type.extension), content, expected)});
  return part;
}

MessageWriter::Message MessageWriter::write(Kind kind, const Sizes& sizes) {
  Draft draft;
  Expectation& expected = draft.message.expected;
  auto textBytes = [&] { return random_.logBetween(sizes.textLow, sizes.textHigh); };
  auto mixed = [&](std::vector<std::string> parts) {
    const std::string outer = boundary();
    draft.contentHeaders = multipartHeader("mixed", outer);
    draft.body = multipart(outer, parts);
  };
  switch (kind) {
    case Kind::kPlain: {
      const std::string part = textPart(textBytes());
      const std::size_t split = part.find("\n\n");
      draft.contentHeaders = part.substr(0, split + 1);
      draft.body = part.substr(split + 2);
      break;
    }
    case Kind::kAlternative: {
      const std::string part = alternativePart(sizes);
      const std::size_t split = part.find("\n\n");
      draft.contentHeaders = part.substr(0, split + 1);
      draft.body = part.substr(split + 2);
      break;
    }
    case Kind::kAttachments: {
      std::vector<std::string> parts = {alternativePart(sizes)};
      const unsigned count = random_.percent(70) ? 1 : random_.percent(70) ? 2 : 3;
      for (unsigned i = 0; i < count; ++i) {
        const FileType& type = random_.pick(kDocuments);
        std::string content;
        random_.appendBytes(content, random_.logBetween(sizes.attachmentLow, sizes.attachmentHigh));
        parts.push_back(
            attachmentPart(type.mimeType, attachmentName(type.extension), content, expected));
      }
      mixed(parts);
      break;
    }
    case Kind::kZip: {
      const std::uint64_t size = random_.logBetween(sizes.attachmentLow, sizes.attachmentHigh);
      const auto entries =
          static_cast<unsigned>(random_.between(std::min<std::uint64_t>(10, size / 100 + 1),
                                                std::min<std::uint64_t>(400, size / 200 + 10)));
      mixed({textPart(textBytes()), zipPart(size, entries, random_.percent(10), draft.message)});
      break;
    }
    case Kind::kSinglePart: {
      // The top-level header block takes its name from Content-Type only; its
      // Content-Disposition is written as senders write it but names nothing for the filter.
      const std::uint64_t size = random_.logBetween(sizes.attachmentLow, sizes.attachmentHigh);
      std::string content, name;
      if (random_.percent(20)) {
        const std::vector<ZipEntry> stored =
            zipEntries(size, static_cast<unsigned>(random_.between(5, 50)), false);
        content = buildZip(stored);
        expected.addZip(stored);
        draft.message.largestZip = content.size();
        name = "documents_" + std::to_string(counter_) + ".zip";
      } else {
        random_.appendBytes(content, size);
        name = "scan_" + std::to_string(counter_) + ".pdf";
      }
      expected.findings.insert(extensionOf(name));
      draft.contentHeaders = "Content-Type: application/" + extensionOf(name) + ";\n\tname=\"" +
                             name + "\"\nContent-Disposition: attachment; filename=\"" + name +
                             "\"\nContent-Transfer-Encoding: base64\n";
      appendBase64Lines(draft.body, content);
      break;
    }
    case Kind::kForward:
      mixed({textPart(textBytes()), embeddedMessage(sizes, expected)});
      break;
    case Kind::kRelated: {
      const std::string outer = boundary();
      std::vector<std::string> parts = {htmlPart(textBytes())};
      for (unsigned i = 0, n = static_cast<unsigned>(random_.between(1, 4)); i < n; ++i) {
        const bool png = random_.percent(60);
        const std::string name = "image00" + std::to_string(i + 1) + (png ? ".png" : ".jpg");
        std::string content;
        random_.appendBytes(content, random_.logBetween(2000, 60000));
        std::string part =
            attachmentPart(png ? "image/png" : "image/jpeg", name, content, expected);
        part.insert(0, "Content-ID: <" + name + "@01DB3C4E>\n");
        parts.push_back(part);
      }
      draft.contentHeaders =
          "Content-Type: multipart/related;\n\ttype=\"text/html\";\n\tboundary=\"" + outer + "\"\n";
      draft.body = multipart(outer, parts);
      break;
    }
    case Kind::kTextFiles: {
      std::vector<std::string> parts = {textPart(textBytes())};
      const std::string invite = "BEGIN:VCALENDAR\nVERSION:2.0\nBEGIN:VEVENT\nSUMMARY:" + text(60) +
                                 "END:VEVENT\n"
                                 "END:VCALENDAR\n";
      parts.push_back(
          "Content-Type: text/calendar; charset=utf-8; method=REQUEST;\n\tname=\"invite.ics\"\n"
          "Content-Transfer-Encoding: 7bit\n\n" +
          invite);
      expected.findings.insert("ics");
      if (random_.percent(60)) {
        std::string part =
            "Content-Type: text/csv; charset=utf-8\nContent-Disposition: attachment; "
            "filename=\"Liste Müller.csv\"\nContent-Transfer-Encoding: quoted-printable\n\n";
        appendQuotedPrintable(part, text(textBytes()));
        parts.push_back(part + "\n");
        expected.findings.insert("csv");
      }
      mixed(parts);
      break;
    }
    case Kind::kEmpty:
      draft.contentHeaders = "Content-Type: text/plain; charset=us-ascii\n";
      draft.body = random_.percent(50) ? "" : "\n\n";
      expected.emptyBody = true;
      break;
  }
  return finish(std::move(draft));
}

MessageWriter::Message MessageWriter::finish(Draft draft) {
  ++counter_;
  const std::string from = address();
  std::vector<std::string> to = {address()};
  while (random_.percent(30) && to.size() < 4) to.push_back(address());

  std::string headers;
  const unsigned hops = compactHeaders_ ? 1 : static_cast<unsigned>(random_.between(2, 5));
  for (unsigned i = 0; i < hops; ++i) {
    headers += "Received: from mx" + std::to_string(i + 1) + ".example.net (mx" +
               std::to_string(i + 1) + ".example.net [198.51.100." + std::to_string(10 + i) +
               "])\n\tby relay.example.com with ESMTPS id " + std::to_string(4711 + counter_) +
               "\n\tfor <" + to.front() + ">; Sat, 21 Nov 2026 09:14:0" + std::to_string(i) +
               " +0000\n";
  }
  if (!compactHeaders_ && random_.percent(60)) {
    std::string signature;
    random_.appendBytes(signature, 256);
    headers +=
        "DKIM-Signature: v=1; a=rsa-sha256; c=relaxed/relaxed; d=example.com; s=mail;\n"
        "\th=from:to:subject:date:message-id; bh=47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU=;\n"
        "\tb=";
    std::string encoded;
    appendBase64Lines(encoded, signature);
    for (std::size_t i = 0; i + 1 < encoded.size(); ++i) {
      headers += encoded[i] == '\n' ? std::string("\n\t ") : std::string(1, encoded[i]);
    }
    headers += "\n";
  }
  headers += "Message-ID: <" + std::to_string(1000000 + counter_) + ".bench@example.com>\n";
  headers += "Date: Sat, 21 Nov 2026 09:14:07 +0000\n";
  headers += "From: " + std::string(random_.pick(kFirstNames)) + " <" + from + ">\n";
  headers += "To: ";
  for (std::size_t i = 0; i < to.size(); ++i) headers += (i ? ",\n\t" : "") + to[i];
  headers += "\nSubject: " + subject() + "\n";
  if (random_.percent(30)) headers += "X-Mailer: Bench Mail 4.2\n";
  headers += "MIME-Version: 1.0\n" + draft.contentHeaders;

  Message& message = draft.message;
  message.bytes = envelope(from, to) + headers + "\n" + draft.body;
  // Some queues keep the line ends as they came in over SMTP.
  if (random_.percent(25)) toCrlf(message.bytes);
  return std::move(message);
}

MessageWriter::Message MessageWriter::writeSmall(std::uint64_t size) {
  compactHeaders_ = size < 3000;
  const unsigned roll = static_cast<unsigned>(random_.below(100));
  Kind kind = roll < 35   ? Kind::kPlain
              : roll < 62 ? Kind::kAlternative
              : roll < 77 ? Kind::kAttachments
              : roll < 87 ? Kind::kZip
              : roll < 95 ? Kind::kTextFiles
              : roll < 97 ? Kind::kEmpty
                          : Kind::kForward;
  // Below this the structure of a message with attachments alone is larger than asked.
  if (size < 2500 && kind != Kind::kAlternative && kind != Kind::kEmpty) kind = Kind::kPlain;
  // How the body budget is shared out per kind (text goes out twice in an alternative).
  std::uint64_t textShare = 1, textParts = 1, attachmentShare = 0;
  switch (kind) {
    case Kind::kAlternative:
      textParts = 2;
      break;
    case Kind::kAttachments:
    case Kind::kForward:
      textParts = 5, attachmentShare = 4;
      break;
    case Kind::kZip:
      textParts = 4, attachmentShare = 2;
      break;
    case Kind::kTextFiles:
      textParts = 3;
      break;
    default:
      break;
  }
  // Header blocks and part counts vary, so the first try can land far off; correct the body
  // budget by the miss and write again (a few rounds at most).
  std::int64_t budget = static_cast<std::int64_t>(size) - (compactHeaders_ ? 650 : 1500);
  Message message;
  for (int attempt = 0; attempt < 12; ++attempt) {
    const std::uint64_t body = static_cast<std::uint64_t>(std::max<std::int64_t>(budget, 300));
    Sizes sizes;
    sizes.textLow = sizes.textHigh = std::max<std::uint64_t>(60, body * textShare / textParts);
    sizes.attachmentLow = sizes.attachmentHigh =
        std::max<std::uint64_t>(100, body * attachmentShare / 16);
    message = write(kind, sizes);
    const auto miss =
        static_cast<std::int64_t>(size) - static_cast<std::int64_t>(message.bytes.size());
    if (kind == Kind::kEmpty || (miss < static_cast<std::int64_t>(size / 5) &&
                                 -miss < static_cast<std::int64_t>(size / 5))) {
      break;
    }
    budget += miss;
  }
  compactHeaders_ = false;
  return message;
}

MessageWriter::Message MessageWriter::writeZipCarrier(std::uint64_t zipSize, unsigned entries,
                                                      bool someEncrypted) {
  Draft draft;
  const std::string outer = boundary();
  draft.contentHeaders = multipartHeader("mixed", outer);
  draft.body = multipart(
      outer, {alternativePart(Sizes{}), zipPart(zipSize, entries, someEncrypted, draft.message)});
  return finish(std::move(draft));
}

MessageWriter::Message MessageWriter::writeDigest(std::uint64_t size) {
  Draft draft;
  draft.contentHeaders =
      "Content-Type: text/plain; charset=utf-8\nContent-Transfer-Encoding: 8bit\n";
  draft.body = text(size);
  return finish(std::move(draft));
}

}  // namespace bench
