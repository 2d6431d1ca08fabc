// The byte rules of the two transfer decodings, apart from any stream: each core decodes one run
// of bytes into room the caller provides, keeps where it stands between runs in a small state,
// and hands each complaint to a callback.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace Decoder::MIME {

// A complaint's text, and whether it counts as an error.
using Complain = std::function<void(const std::string& text, bool counted)>;

inline const char kBase64IllegalText[] =
    "Found illegal character in base64 stream. Resuming to next.";
inline const char kBase64EndText[] = "Unexpected end of file in Base64 decoding.";

// Base64 as the program has always read it: "=" is the value 0 and drops a byte of its group,
// "{" is read as "0", bytes up to 32 are skipped, anything else outside the alphabet (bytes of
// 128 and more too) is complained about and dropped.
struct Base64Group {  // the significant characters of the group being collected
  unsigned char value[4] = {};
  bool pad[4] = {};
  int count = 0;
};

// Decodes [p, e) into `out`, which has room for (e - p) / 4 * 3 + 3 bytes, and moves `out` past
// what it wrote. Returns where it stopped: at e, or (with `stop` set) just after a group that
// yielded no byte, which ends the decoding. `wide` false: the plain loop alone, one character at
// a time, the reference the faster paths (whole groups, SSSE3 blocks) are held to.
const unsigned char* decodeRun(const unsigned char* p, const unsigned char* e, Base64Group& g,
                               char*& out, bool& stop, const Complain& complain, bool wide = true);

// What decodeRun would do with [p, e), without writing a byte: the same complaints and the same
// stop, and the number of bytes it would write added to `written`. With `stop` clear it returns
// at e, or earlier at the first place after `written` has reached `pauseAt` where no group is
// open: decodeRun started there with a fresh group writes the bytes that follow, so a caller can
// note the place and decode from it later. `wide` false: the plain loop alone. `blocksOnly`:
// it returns, too, where the plain loop would take over (no vector path, a 64-byte block with
// any other byte than alphabet characters and bytes up to 32, or fewer than 64 bytes left).
const unsigned char* countRun(const unsigned char* p, const unsigned char* e, Base64Group& g,
                              std::uint64_t& written, bool& stop, const Complain& complain,
                              std::uint64_t pauseAt, bool wide = true, bool blocksOnly = false);
// Whether countRun has a vector path on this processor; without one it is slower than decoding.
[[nodiscard]] bool countsFast();

// Quoted-printable: "=XX" escapes, "=" before the line end a soft break; with `encodedWord`
// (the Q encoding of a header word) "_" stands for a blank.
struct QuotedPrintableState {
  enum Step : unsigned char { Text, AfterEquals, SoftBreak, Escape } step = Text;
  unsigned char high = 0;  // the first character of an escape
};

// Decodes [p, e) into `out` (never more bytes than it reads); returns the new end of `out`.
char* decodeBytes(const char* p, const char* e, QuotedPrintableState& s, bool encodedWord,
                  char* out, const Complain& complain);
// The input has ended: an escape cut short is a complaint; a soft break cut short is not.
void finishBytes(QuotedPrintableState& s, const Complain& complain);

}  // namespace Decoder::MIME
