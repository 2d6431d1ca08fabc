// The dataset reader: a small scanner and a parser with an explicit stack, so that no input,
// however deeply nested, can overflow the machine stack.
//
// Grammar (what the server writes, and a little more):
//   value   := <nothing> | atom | string | block | "(" ")" | "(" value ("," value)* ")"
//            | "{" (key "=" value ";")* "}"
//   key     := atom | string
// Atoms are runs of the 64 atom characters; there are no comments and no number literals. A
// block's text runs to the first "]" and loses its whitespace.
#include <cstdio>
#include <string>
#include <vector>

#include "cgp/dataset_text.h"
#include "kvs/ascii.h"
#include "kvs/escape.h"
#include "kvs/log.h"
#include "kvs/mutex.h"

namespace cgp {
namespace {

kvs::MutexInterface& parseLock() {
  static kvs::MutexInterface lock;
  return lock;
}

// Both are only touched under the parse lock.
bool errorOutput = true;
std::size_t errorCount = 0;

enum class Tok {
  End,
  Atom,
  String,
  Block,
  LParen,
  RParen,
  Comma,
  LBrace,
  RBrace,
  Equals,
  Semicolon,
  Bad,         // a byte that starts no token
  Unfinished,  // a quoted string or block without its end
};

struct Token {
  Tok type = Tok::End;
  std::string_view written;  // the token as it stands in the input
  std::string value;         // atoms, strings and blocks: their text
  int line = 1;
  int column = 1;
};

class Scanner {
 public:
  explicit Scanner(std::string_view text) : text_(text) {}

  Token next() {
    while (pos_ < text_.size() && kvs::isSpace(static_cast<unsigned char>(text_[pos_]))) {
      advance(1);
    }
    Token token;
    token.line = line_;
    token.column = column_;
    const std::size_t start = pos_;
    if (pos_ == text_.size()) return token;
    const unsigned char c = static_cast<unsigned char>(text_[pos_]);
    std::size_t length = 1;
    if (isAtomChar(c)) {
      while (start + length < text_.size() &&
             isAtomChar(static_cast<unsigned char>(text_[start + length]))) {
        ++length;
      }
      token.type = Tok::Atom;
      token.value.assign(text_.substr(start, length));
    } else if (c == '"') {
      length = quotedLength(start);
      if (length == 0) {
        token.type = Tok::Unfinished;
        length = text_.size() - start;
      } else {
        token.type = Tok::String;
        token.value = kvs::unescapeString(text_.substr(start + 1, length - 2));
      }
    } else if (c == '[') {
      const std::size_t close = text_.find(']', start);
      if (close == std::string_view::npos) {
        token.type = Tok::Unfinished;
        length = text_.size() - start;
      } else {
        token.type = Tok::Block;
        length = close - start + 1;
        for (char b : text_.substr(start + 1, length - 2)) {
          if (!kvs::isSpace(static_cast<unsigned char>(b))) token.value.push_back(b);
        }
      }
    } else {
      token.type = punctuation(c);
    }
    token.written = text_.substr(start, length);
    advance(length);
    return token;
  }

 private:
  static Tok punctuation(unsigned char c) {
    constexpr std::string_view kBytes = "(),{}=;";
    constexpr Tok kTokens[] = {Tok::LParen, Tok::RParen, Tok::Comma,    Tok::LBrace,
                               Tok::RBrace, Tok::Equals, Tok::Semicolon};
    const std::size_t at = kBytes.find(static_cast<char>(c));
    return at == std::string_view::npos ? Tok::Bad : kTokens[at];
  }

  // The length of the longest quoted string at `start`, quotes included; 0 when none ends.
  // A backslash before a quote escapes it when the string can go on to a later quote, and
  // otherwise is a lone backslash kept at the end of the string.
  std::size_t quotedLength(std::size_t start) const {
    std::size_t candidate = 0;
    std::size_t i = start + 1;
    while (i < text_.size()) {
      const char c = text_[i];
      if (c == '"') return i - start + 1;
      if (c == '\\' && i + 1 < text_.size()) {
        if (text_[i + 1] == '"') candidate = i + 2 - start;
        i += 2;
        continue;
      }
      ++i;
    }
    return candidate;
  }

  // The one place where the position moves, so line and column cannot drift apart.
  void advance(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i, ++pos_) {
      if (text_[pos_] == '\n') {
        ++line_;
        column_ = 1;
      } else {
        ++column_;
      }
    }
  }

  std::string_view text_;
  std::size_t pos_ = 0;
  int line_ = 1;
  int column_ = 1;
};

struct ParseError {
  const char* message;
};

class Parser {
 public:
  Parser(std::string_view text) : scanner_(text) {}

  // Throws ParseError, leaving the offending token in token_.
  DataSet run() {
    token_ = scanner_.next();
    State state = State::Value;
    for (;;) {
      switch (state) {
        case State::Value:
          state = value();
          break;
        case State::AfterValue:
          if (stack_.empty()) {
            if (token_.type != Tok::End) throw ParseError{"syntax error"};
            return result_;
          }
          state = afterValue();
          break;
        case State::Key:
          state = key();
          break;
      }
    }
  }

  const Token& token() const { return token_; }

 private:
  enum class State { Value, AfterValue, Key };
  struct Frame {
    DataSet container;
    std::string key;  // dictionaries: the key whose value is being read
  };

  void advance() { token_ = scanner_.next(); }

  State deliver(const DataSet& value) {
    if (stack_.empty()) {
      result_ = value;
    } else if (stack_.back().container.isArray()) {
      stack_.back().container.append(value);
    } else {
      stack_.back().container.set(stack_.back().key, value);
    }
    return State::AfterValue;
  }

  void open(DataSet container) {
    if (stack_.size() >= kMaxDataSetDepth) throw ParseError{"memory exhausted"};
    stack_.push_back(Frame{std::move(container), {}});
  }

  State close() {
    DataSet done = stack_.back().container;
    stack_.pop_back();
    advance();
    return deliver(done);
  }

  State value() {
    switch (token_.type) {
      case Tok::Atom:
      case Tok::String: {
        DataSet text(token_.value);
        advance();
        return deliver(text);
      }
      case Tok::Block: {
        DataSet block = DataSet::block(token_.value);
        advance();
        return deliver(block);
      }
      case Tok::LParen:
        open(DataSet::array());
        advance();
        // "()" is an empty array rather than an array of one empty value.
        if (token_.type == Tok::RParen) return close();
        return State::Value;
      case Tok::LBrace:
        open(DataSet::dictionary());
        advance();
        return State::Key;
      default:
        // An empty value: the token is left for whatever follows the value.
        return deliver(DataSet());
    }
  }

  State afterValue() {
    if (stack_.back().container.isArray()) {
      if (token_.type == Tok::Comma) {
        advance();
        return State::Value;
      }
      if (token_.type == Tok::RParen) return close();
      throw ParseError{"syntax error"};
    }
    if (token_.type != Tok::Semicolon) throw ParseError{"syntax error"};
    advance();
    return State::Key;
  }

  State key() {
    if (token_.type == Tok::RBrace) return close();
    if (token_.type != Tok::Atom && token_.type != Tok::String) throw ParseError{"syntax error"};
    stack_.back().key = token_.value;
    advance();
    if (token_.type != Tok::Equals) throw ParseError{"syntax error"};
    advance();
    return State::Value;
  }

  Scanner scanner_;
  Token token_;
  std::vector<Frame> stack_;
  DataSet result_;
};

}  // namespace

void setParseErrorOutput(bool on) {
  kvs::ScopedLock lock(parseLock());
  errorOutput = on;
}

std::size_t parseErrorCount() {
  kvs::ScopedLock lock(parseLock());
  return errorCount;
}

DataSet parseDataSet(std::string_view text, const std::string& sourceName) {
  kvs::ScopedLock lock(parseLock());
  Parser parser(text);
  DataSet result;
  try {
    result = parser.run();
  } catch (const ParseError& error) {
    ++errorCount;
    if (errorOutput) {
      const Token& at = parser.token();
      std::string line = "* while parsing \"" + sourceName + "\" file: " + error.message +
                         " : near \"" + std::string(at.written) + "\" (" + std::to_string(at.line) +
                         ":" + std::to_string(at.column) + ")\n";
      kvs::writeOutput(line);
    }
    return DataSet();
  }
  // The value that a text holding one array of one element stands for is that element.
  if (result.isArray() && result.count() == 1) return result.at(0);
  return result;
}

}  // namespace cgp
