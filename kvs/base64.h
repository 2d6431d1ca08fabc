// Base64 in two alphabets: the standard one with "=" padding, and the modified one of mailbox
// names, with "," for "/" and no padding.
#pragma once

#include <string>
#include <string_view>

namespace kvs {

[[nodiscard]] std::string base64Encode(std::string_view bytes, bool modified = false);
// Decodes what base64Encode writes. Characters outside the alphabet (line ends, blanks) are
// skipped, padding ends the data, and a last lone character is dropped.
[[nodiscard]] std::string base64Decode(std::string_view text, bool modified = false);
// The value of a character of the alphabet (0-63); -1 for any other character.
[[nodiscard]] int base64Value(unsigned char c, bool modified = false);

}  // namespace kvs
