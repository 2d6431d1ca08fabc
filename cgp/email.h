// An e-mail address as the server's data sees it: an account part and a domain part.
#pragma once

#include <string>
#include <string_view>

namespace cgp {

struct EMail {
  std::string account;
  std::string domain;

  EMail() = default;
  EMail(std::string accountPart, std::string domainPart)
      : account(std::move(accountPart)), domain(std::move(domainPart)) {}

  // Splits at the last "@": an account part may itself hold "@" (a routed address can), a
  // domain part never does. Without any "@" the whole text is the account part.
  [[nodiscard]] static EMail parse(std::string_view text) {
    const std::size_t at = text.rfind('@');
    if (at == std::string_view::npos) return EMail(std::string(text), std::string());
    return EMail(std::string(text.substr(0, at)), std::string(text.substr(at + 1)));
  }

  // account "@" domain; the account alone when there is no domain part.
  [[nodiscard]] std::string text() const {
    return domain.empty() ? account : account + "@" + domain;
  }
};

}  // namespace cgp
