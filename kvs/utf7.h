// Modified UTF-7 for mailbox names: printable ASCII passes, "&" is written "&-", and every other
// run is "&", the modified base64 of its UTF-16 code units, and "-".
#pragma once

#include <string>
#include <string_view>

namespace kvs {

// The input is UTF-8; a byte that does not start a valid UTF-8 sequence is taken as the Latin-1
// character of that value.
[[nodiscard]] std::string utf7Encode(std::string_view utf8);
// Back to UTF-8. A "&...-" section that does not decode is kept as it stands.
[[nodiscard]] std::string utf7Decode(std::string_view utf7);

}  // namespace kvs
