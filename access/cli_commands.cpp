// The CLI command set: the table rows of cli_commands.inc expanded into member bodies, the
// commands with lines of their own, and the list of every command with its data flag.
#include <algorithm>
#include <type_traits>

#include "access/cli_session.h"
#include "cgp/dataset_text.h"

namespace cgp {
namespace {

// Builds one command line. Names go in as they are (no escaping, not even inside the quotes
// that keywords put around them); datasets in their one-line written form.
class Line {
 public:
  explicit Line(const char* command) : text_(command) {}

  // A required name after a blank.
  Line& arg(const std::string& name) {
    CLISession::checkArgument(name);
    text_ += ' ';
    text_ += name;
    return *this;
  }
  // A name after a blank, left out when empty.
  Line& optional(const std::string& name) {
    if (!name.empty()) {
      text_ += ' ';
      text_ += name;
    }
    return *this;
  }
  // Keyword text exactly as given (its own blanks and quotes included).
  Line& word(std::string_view keyword) {
    text_ += keyword;
    return *this;
  }
  // A required name right after the previous keyword.
  Line& name(const std::string& value) {
    CLISession::checkArgument(value);
    text_ += value;
    return *this;
  }
  // A required name between quotes, after a blank.
  Line& quoted(const std::string& value) { return word(" \"").name(value).word("\""); }
  // keyword + name (+ closing text), only when the name is given.
  Line& optionalAfter(std::string_view keyword, const std::string& value,
                      std::string_view close = {}) {
    if (!value.empty()) {
      text_ += keyword;
      text_ += value;
      text_ += close;
    }
    return *this;
  }
  Line& auth(const std::string& account) { return optionalAfter(" AUTH ", account); }
  Line& flag(bool on, std::string_view keyword) {
    if (on) text_ += keyword;
    return *this;
  }
  // A dataset of the given kind after a blank.
  Line& value(const DataSet& data, DataSet::Kind kind) {
    CLISession::checkArgument(data, kind);
    text_ += ' ';
    text_ += writeDataSet(data, true);
    return *this;
  }
  // A dataset that is optional: left out when empty, else checked like value().
  Line& optionalValue(const DataSet& data, DataSet::Kind kind) {
    return data.isEmpty() ? *this : value(data, kind);
  }
  // Free text (blanks, quotes, line ends) written as a dataset string; directly after the
  // previous keyword when `afterKeyword`.
  Line& text(const std::string& free, bool afterKeyword = false) {
    const DataSet wrapped(free);
    CLISession::checkArgument(wrapped, DataSet::Text);
    if (!afterKeyword) text_ += ' ';
    text_ += writeDataSet(wrapped, true);
    return *this;
  }
  Line& number(std::uint64_t n) {
    text_ += std::to_string(n);
    return *this;
  }

  const std::string& str() const { return text_; }

 private:
  std::string text_;
};

// Sends a built line: a command answered with data returns the data, the others nothing.
template <class R>
R run(CLISession& session, const Line& line) {
  if constexpr (std::is_void_v<R>) {
    session.execute(line.str());
  } else {
    return session.query(line.str());
  }
}

}  // namespace

// ---- Rows of the table ----

// One member body: the parameter list, then the calls that build the line after the command's
// name.
#define CLI_BODY(R, N, PARAMETERS, ...)         \
  R CLISession::N PARAMETERS {                  \
    return run<R>(*this, Line(#N) __VA_ARGS__); \
  }
#define CLI_NONE(R, N) CLI_BODY(R, N, (), )
#define CLI_ONE(R, N, a) CLI_BODY(R, N, (const std::string& a), .arg(a))
#define CLI_OPT(R, N, a) CLI_BODY(R, N, (const std::string& a), .optional(a))
#define CLI_KW(R, N, a, kw, b) \
  CLI_BODY(R, N, (const std::string& a, const std::string& b), .arg(a).word(kw).name(b))
#define CLI_KWOPT(R, N, a, kw, b) \
  CLI_BODY(R, N, (const std::string& a, const std::string& b), .arg(a).optionalAfter(kw, b))
#define CLI_DICT(R, N) CLI_BODY(R, N, (const DataSet& v), .value(v, DataSet::Dictionary))
#define CLI_ARRAY(R, N) CLI_BODY(R, N, (const DataSet& v), .value(v, DataSet::Array))
#define CLI_ONE_DICT(R, N, a) \
  CLI_BODY(R, N, (const std::string& a, const DataSet& v), .arg(a).value(v, DataSet::Dictionary))
#define CLI_OPT_DICT(R, N, a)                              \
  CLI_BODY(R, N, (const std::string& a, const DataSet& v), \
           .optional(a).value(v, DataSet::Dictionary))
#define CLI_ONE_ARRAY(R, N, a) \
  CLI_BODY(R, N, (const std::string& a, const DataSet& v), .arg(a).value(v, DataSet::Array))
#define CLI_ONE_DICTOPT(R, N, a)                           \
  CLI_BODY(R, N, (const std::string& a, const DataSet& v), \
           .arg(a).optionalValue(v, DataSet::Dictionary))
#define CLI_TEXT(R, N, a) CLI_BODY(R, N, (const std::string& a), .text(a))
#define CLI_ONE_TEXT(R, N, a, kw, b) \
  CLI_BODY(R, N, (const std::string& a, const std::string& b), .arg(a).word(kw).text(b, true))
#define CLI_QUOTED(R, N, a) CLI_BODY(R, N, (const std::string& a), .quoted(a))
#define CLI_SKIN(R, N, a)                                           \
  CLI_BODY(R, N, (const std::string& domain, const std::string& a), \
           .arg(domain).word(" SKIN").quoted(a))

#include "access/cli_commands.inc"
#undef CLI_BODY

// ---- Commands with a line of their own ----

// The settings come before the flag: the order the server's own syntax gives.
void CLISession::CreateAccount(const std::string& account, const DataSet& settings, bool external) {
  execute(Line("CreateAccount")
              .arg(account)
              .optionalValue(settings, DataSet::Dictionary)
              .flag(external, " external")
              .str());
}

namespace {
// account MAILBOX "mailbox" (or MAILBOXES when the sub-mailboxes are meant)
Line& mailboxOf(Line& line, const std::string& account, const std::string& mailbox,
                bool withSubMailboxes = false) {
  return line.arg(account)
      .word(withSubMailboxes ? " MAILBOXES \"" : " MAILBOX \"")
      .name(mailbox)
      .word("\"");
}
}  // namespace

void CLISession::CreateMailbox(const std::string& account, const std::string& mailbox,
                               const std::string& auth) {
  Line line("CreateMailbox");
  execute(mailboxOf(line, account, mailbox).auth(auth).str());
}

void CLISession::DeleteMailbox(const std::string& account, const std::string& mailbox,
                               bool withSubMailboxes, const std::string& auth) {
  Line line("DeleteMailbox");
  execute(mailboxOf(line, account, mailbox, withSubMailboxes).auth(auth).str());
}

void CLISession::RenameMailbox(const std::string& account, const std::string& oldName,
                               const std::string& newName, bool withSubMailboxes,
                               const std::string& auth) {
  Line line("RenameMailbox");
  mailboxOf(line, account, oldName, withSubMailboxes);
  execute(line.word(" INTO \"").name(newName).word("\"").auth(auth).str());
}

DataSet CLISession::GetMailboxInfo(const std::string& account, const std::string& mailbox,
                                   const std::string& auth) {
  Line line("GetMailboxInfo");
  return query(mailboxOf(line, account, mailbox).auth(auth).str());
}

DataSet CLISession::GetMailboxACL(const std::string& account, const std::string& mailbox,
                                  const std::string& auth) {
  Line line("GetMailboxACL");
  return query(mailboxOf(line, account, mailbox).auth(auth).str());
}

void CLISession::SetMailboxACL(const std::string& account, const std::string& mailbox,
                               const DataSet& acl, const std::string& auth) {
  Line line("SetMailboxACL");
  execute(mailboxOf(line, account, mailbox).auth(auth).value(acl, DataSet::Dictionary).str());
}

DataSet CLISession::GetMailboxRights(const std::string& account, const std::string& mailbox,
                                     const std::string& auth) {
  Line line("GetMailboxRights");
  return query(mailboxOf(line, account, mailbox).word(" AUTH ").name(auth).str());
}

void CLISession::SetMailboxClass(const std::string& account, const std::string& mailbox,
                                 const std::string& mailboxClass, const std::string& auth) {
  Line line("SetMailboxClass");
  execute(
      mailboxOf(line, account, mailbox).auth(auth).word(" CLASS ").text(mailboxClass, true).str());
}

void CLISession::UpdateMailboxInfo(const std::string& account, const std::string& mailbox,
                                   const DataSet& info) {
  Line line("UpdateMailboxInfo");
  execute(mailboxOf(line, account, mailbox).value(info, DataSet::Dictionary).str());
}

DataSet CLISession::ListMailboxes(const std::string& account, const std::string& filter,
                                  const std::string& auth) {
  return query(Line("ListMailboxes")
                   .arg(account)
                   .optionalAfter(" FILTER \"", filter, "\"")
                   .auth(auth)
                   .str());
}

DataSet CLISession::ListSubscribers(const std::string& list, const std::string& filter) {
  return query(Line("ListSubscribers").arg(list).optionalAfter(" FILTER \"", filter, "\"").str());
}

// The flags follow the subscriber, in the order the command table of this library gives.
void CLISession::List(const std::string& list, const std::string& operation,
                      const std::string& subscriber, bool silently, bool confirm) {
  execute(Line("List")
              .arg(list)
              .arg(operation)
              .arg(subscriber)
              .flag(silently, " silently")
              .flag(confirm, " confirm")
              .str());
}

void CLISession::ProcessBounce(const std::string& list, const std::string& subscriber, bool fatal) {
  execute(
      Line("ProcessBounce").arg(list).flag(fatal, " FATAL").word(" FOR ").name(subscriber).str());
}

void CLISession::SetPostingMode(const std::string& list, const std::string& subscriber,
                                const std::string& mode) {
  execute(Line("SetPostingMode").arg(list).word(" FOR ").name(subscriber).arg(mode).str());
}

DataSet CLISession::Route(const std::string& address, bool mail) {
  return query(Line("Route").arg(address).flag(mail, " mail").str());
}

void CLISession::DeleteDomain(const std::string& domain, bool force) {
  execute(Line("DeleteDomain").arg(domain).flag(force, " force").str());
}

DataSet CLISession::CreateWebUserSession(const std::string& account, const std::string& ipAddress,
                                         const std::string& skin) {
  return query(Line("CreateWebUserSession")
                   .arg(account)
                   .word(" ADDRESS ")
                   .name(ipAddress)
                   .optionalAfter(" SKIN \"", skin, "\"")
                   .str());
}

namespace {
// [domain SKIN] "skin"
Line& skinOf(Line& line, const std::string* domain, const std::string& skin) {
  if (domain != nullptr) line.arg(*domain).word(" SKIN");
  return line.quoted(skin);
}

std::string renameSkin(const char* command, const std::string* domain, const std::string& oldSkin,
                       const std::string& newSkin) {
  Line line(command);
  return skinOf(line, domain, oldSkin).word(" INTO \"").name(newSkin).word("\"").str();
}

std::string skinFile(const char* command, const std::string* domain, const std::string& skin,
                     const std::string& file) {
  Line line(command);
  return skinOf(line, domain, skin).word(" FILE \"").name(file).word("\"").str();
}

std::string storeSkinFile(const char* command, const std::string* domain, const std::string& skin,
                          const std::string& file, const std::string& data) {
  Line line(command);
  skinOf(line, domain, skin).word(" FILE \"").name(file);
  return line.word("\" DATA \"").name(data).word("\"").str();
}

// Deleting a skin file is a store with DELETE where the data would go.
std::string deleteSkinFile(const char* command, const std::string* domain, const std::string& skin,
                           const std::string& file) {
  Line line(command);
  return skinOf(line, domain, skin).word(" FILE \"").name(file).word("\" DELETE").str();
}
}  // namespace

void CLISession::RenameClusterSkin(const std::string& oldSkin, const std::string& newSkin) {
  execute(renameSkin("RenameClusterSkin", nullptr, oldSkin, newSkin));
}
void CLISession::RenameServerSkin(const std::string& oldSkin, const std::string& newSkin) {
  execute(renameSkin("RenameServerSkin", nullptr, oldSkin, newSkin));
}
void CLISession::RenameDomainSkin(const std::string& domain, const std::string& oldSkin,
                                  const std::string& newSkin) {
  execute(renameSkin("RenameDomainSkin", &domain, oldSkin, newSkin));
}

DataSet CLISession::ReadClusterSkinFile(const std::string& skin, const std::string& file) {
  return query(skinFile("ReadClusterSkinFile", nullptr, skin, file));
}
DataSet CLISession::ReadServerSkinFile(const std::string& skin, const std::string& file) {
  return query(skinFile("ReadServerSkinFile", nullptr, skin, file));
}
DataSet CLISession::ReadDomainSkinFile(const std::string& domain, const std::string& skin,
                                       const std::string& file) {
  return query(skinFile("ReadDomainSkinFile", &domain, skin, file));
}

void CLISession::StoreClusterSkinFile(const std::string& skin, const std::string& file,
                                      const std::string& data) {
  execute(storeSkinFile("StoreClusterSkinFile", nullptr, skin, file, data));
}
void CLISession::StoreClusterSkinFile(const std::string& skin, const std::string& file) {
  execute(deleteSkinFile("StoreClusterSkinFile", nullptr, skin, file));
}
void CLISession::StoreServerSkinFile(const std::string& skin, const std::string& file,
                                     const std::string& data) {
  execute(storeSkinFile("StoreServerSkinFile", nullptr, skin, file, data));
}
void CLISession::StoreServerSkinFile(const std::string& skin, const std::string& file) {
  execute(deleteSkinFile("StoreServerSkinFile", nullptr, skin, file));
}
void CLISession::StoreDomainSkinFile(const std::string& domain, const std::string& skin,
                                     const std::string& file, const std::string& data) {
  execute(storeSkinFile("StoreDomainSkinFile", &domain, skin, file, data));
}
void CLISession::StoreDomainSkinFile(const std::string& domain, const std::string& skin,
                                     const std::string& file) {
  execute(deleteSkinFile("StoreDomainSkinFile", &domain, skin, file));
}

namespace {
// owner FILE "file"
Line& fileOf(Line& line, const std::string& owner, const std::string& file) {
  return line.arg(owner).word(" FILE \"").name(file).word("\"");
}
}  // namespace

DataSet CLISession::GetWebFile(const std::string& account, const std::string& file) {
  Line line("GetWebFile");
  return query(fileOf(line, account, file).str());
}

DataSet CLISession::GetWebFile(const std::string& account, const std::string& file,
                               std::uint64_t offset, std::uint64_t size) {
  Line line("GetWebFile");
  fileOf(line, account, file).word(" OFFSET ").number(offset).word(" SIZE ").number(size);
  return query(line.str());
}

// Any non-empty value goes as the data; the server sends and takes file contents as blocks.
void CLISession::PutWebFile(const std::string& account, const std::string& file,
                            const DataSet& data) {
  Line line("PutWebFile");
  execute(fileOf(line, account, file).word(" DATA").value(data, DataSet::Empty).str());
}

void CLISession::PutWebFile(const std::string& account, const std::string& file,
                            std::uint64_t offset, const DataSet& data) {
  Line line("PutWebFile");
  fileOf(line, account, file).word(" OFFSET ").number(offset);
  execute(line.word(" DATA").value(data, DataSet::Empty).str());
}

void CLISession::PutWebUserInterface(const std::string& domain, const std::string& file,
                                     const DataSet& data) {
  Line line("PutWebUserInterface");
  execute(fileOf(line, domain, file).word(" DATA").value(data, DataSet::Empty).str());
}

void CLISession::DeleteWebFile(const std::string& account, const std::string& file) {
  Line line("DeleteWebFile");
  execute(fileOf(line, account, file).str());
}

void CLISession::DeleteWebUserInterface(const std::string& domain, const std::string& file) {
  Line line("DeleteWebUserInterface");
  execute(fileOf(line, domain, file).str());
}

DataSet CLISession::GetWebUserInterface(const std::string& domain, const std::string& file) {
  Line line("GetWebUserInterface");
  return query(fileOf(line, domain, file).str());
}

DataSet CLISession::ListWebUserInterface(const std::string& domain, const std::string& file) {
  Line line("ListWebUserInterface");
  return query(fileOf(line, domain, file).str());
}

void CLISession::RenameWebFile(const std::string& account, const std::string& oldName,
                               const std::string& newName) {
  Line line("RenameWebFile");
  fileOf(line, account, oldName);
  execute(line.word(" INTO \"").name(newName).word("\"").str());
}

DataSet CLISession::ListWebFiles(const std::string& account, const std::string& path) {
  return query(Line("ListWebFiles").arg(account).optionalAfter(" PATH \"", path, "\"").str());
}

void CLISession::WriteLog(std::uint32_t level, const std::string& text) {
  execute(Line("WriteLog").word(" ").number(level).text(text).str());
}

void CLISession::RejectQueueMessage(const std::string& messageId, const std::string& report) {
  Line line("RejectQueueMessage");
  line.arg(messageId);
  if (!report.empty()) line.text(report);
  execute(line.str());
}

// ---- The list of commands ----

const std::vector<CLISession::CommandInfo>& CLISession::commands() {
  static const std::vector<CommandInfo> all = [] {
    std::vector<CommandInfo> list;
#define VELMORA_ROW(R, N, ...) list.push_back({#N, !std::is_void_v<R>});
#define CLI_NONE VELMORA_ROW
#define CLI_ONE VELMORA_ROW
#define CLI_OPT VELMORA_ROW
#define CLI_KW VELMORA_ROW
#define CLI_KWOPT VELMORA_ROW
#define CLI_DICT VELMORA_ROW
#define CLI_ARRAY VELMORA_ROW
#define CLI_ONE_DICT VELMORA_ROW
#define CLI_OPT_DICT VELMORA_ROW
#define CLI_ONE_ARRAY VELMORA_ROW
#define CLI_ONE_DICTOPT VELMORA_ROW
#define CLI_TEXT VELMORA_ROW
#define CLI_ONE_TEXT VELMORA_ROW
#define CLI_QUOTED VELMORA_ROW
#define CLI_SKIN VELMORA_ROW
#define CLI_IRREGULAR VELMORA_ROW
#include "access/cli_commands.inc"
#undef VELMORA_ROW
    return list;
  }();
  return all;
}

const CLISession::CommandInfo* CLISession::findCommand(std::string_view name) {
  const auto& all = commands();
  const auto found =
      std::find_if(all.begin(), all.end(), [&](const CommandInfo& c) { return name == c.name; });
  return found == all.end() ? nullptr : &*found;
}

}  // namespace cgp
