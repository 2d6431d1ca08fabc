// cgp::CLISession: a logged-in session with the server's CLI administration interface, and one
// member for each administration command it offers.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "access/socket.h"
#include "cgp/dataset.h"
#include "kvs/exception.h"

namespace cgp {

// The process-wide settings that the default constructor reads. Set them before sessions are
// made on other threads: they carry no lock.
struct CLISettings {
  std::uint32_t loginMethod = 1;  // 0 plain, 1 digest, 2 web user
  std::uint16_t port = 106;
  std::string host = kvs::sock::kLocalHost;
  std::string user;
  std::string password;
};

// One answer line taken apart.
struct CLIAnswer {
  int code = 0;
  std::string status;  // "OK" for 200 and 201, else the server's text, trimmed
  std::string data;    // for 200 and 201: the text after the code, line end included
};

class CLISession : public kvs::sock::socket {
 public:
  enum LoginMethod : std::uint32_t { kPlain = 0, kDigest = 1, kWebUser = 2 };

  static CLISettings& settings();

  // Connects and logs in with the process-wide settings, or with the given ones. Throws the
  // socket errors, kvs::InvalidLoginException or kvs::InvalidServerPromptException.
  CLISession();
  CLISession(const std::string& host, std::uint16_t port, const std::string& user,
             const std::string& password, std::uint32_t method);
  ~CLISession() override = default;

  // Logs in on a throw-away session to the configured server. Never throws: on failure puts
  // the error's text into `error` and returns false; `reached` tells whether the server
  // answered at all (false: nothing listens there, or the connection broke).
  static bool testLogin(const std::string& user, const std::string& password, std::uint32_t method,
                        std::string& error, bool& reached);

  // The text that a user of the session is shown for one of its errors.
  static std::string describe(const kvs::Exception& error);

  // Takes an answer apart. Throws kvs::InvalidServerResponseException for an answer that
  // begins with a blank and kvs::ProtocolException for one without a code.
  static CLIAnswer parseAnswer(std::string_view raw);

  // Argument checks of every command: an empty name, or a dataset that is not of `kind` (a
  // text must not be empty, nor an array or dictionary), throws kvs::ProtocolException.
  static void checkArgument(const std::string& name);
  static void checkArgument(const DataSet& value, DataSet::Kind kind);

  void sendCommand(const std::string& line);
  // Reads and parses one answer into the last-answer fields; a code other than 200 and 201
  // throws cgp::CLIException when asked.
  void readAnswer(bool throwOnError);
  // Sends a line and checks its answer; for a data command returns the answer's dataset.
  void execute(const std::string& line);
  DataSet query(const std::string& line);

  // The commands (all of them, the irregular ones included) and whether each returns data.
  struct CommandInfo {
    const char* name;
    bool returnsData;
  };
  static const std::vector<CommandInfo>& commands();
  // The entry of one command by its exact name, or nullptr.
  static const CommandInfo* findCommand(std::string_view name);

  [[nodiscard]] int lastCode() const { return lastCode_; }
  [[nodiscard]] const std::string& lastStatus() const { return lastStatus_; }
  [[nodiscard]] const std::string& lastData() const { return lastData_; }

  // ---- The command set (rows in access/cli_commands.inc) ----
#define CLI_NONE(R, N) R N();
#define CLI_ONE(R, N, a) R N(const std::string& a);
#define CLI_OPT(R, N, a) R N(const std::string& a = std::string());
#define CLI_KW(R, N, a, kw, b) R N(const std::string& a, const std::string& b);
#define CLI_KWOPT(R, N, a, kw, b) R N(const std::string& a, const std::string& b = std::string());
#define CLI_DICT(R, N) R N(const DataSet& value);
#define CLI_ARRAY(R, N) R N(const DataSet& value);
#define CLI_ONE_DICT(R, N, a) R N(const std::string& a, const DataSet& value);
#define CLI_OPT_DICT(R, N, a) R N(const std::string& a, const DataSet& value);
#define CLI_ONE_ARRAY(R, N, a) R N(const std::string& a, const DataSet& value);
#define CLI_ONE_DICTOPT(R, N, a) R N(const std::string& a, const DataSet& settings = DataSet());
#define CLI_TEXT(R, N, a) R N(const std::string& a);
#define CLI_ONE_TEXT(R, N, a, kw, b) R N(const std::string& a, const std::string& b);
#define CLI_QUOTED(R, N, a) R N(const std::string& a);
#define CLI_SKIN(R, N, a) R N(const std::string& domain, const std::string& a);
#include "access/cli_commands.inc"

  // The commands with a line of their own. An empty acting account (`auth`) adds no AUTH part.
  void CreateAccount(const std::string& account, const DataSet& settings = DataSet(),
                     bool external = false);
  void CreateMailbox(const std::string& account, const std::string& mailbox,
                     const std::string& auth = std::string());
  // With `withSubMailboxes` the mailbox's sub-mailboxes go too (MAILBOXES).
  void DeleteMailbox(const std::string& account, const std::string& mailbox,
                     bool withSubMailboxes = false, const std::string& auth = std::string());
  void RenameMailbox(const std::string& account, const std::string& oldName,
                     const std::string& newName, bool withSubMailboxes = false,
                     const std::string& auth = std::string());
  DataSet GetMailboxInfo(const std::string& account, const std::string& mailbox,
                         const std::string& auth = std::string());
  DataSet GetMailboxACL(const std::string& account, const std::string& mailbox,
                        const std::string& auth = std::string());
  void SetMailboxACL(const std::string& account, const std::string& mailbox, const DataSet& acl,
                     const std::string& auth = std::string());
  DataSet GetMailboxRights(const std::string& account, const std::string& mailbox,
                           const std::string& auth);
  void SetMailboxClass(const std::string& account, const std::string& mailbox,
                       const std::string& mailboxClass, const std::string& auth = std::string());
  void UpdateMailboxInfo(const std::string& account, const std::string& mailbox,
                         const DataSet& info);
  DataSet ListMailboxes(const std::string& account, const std::string& filter = std::string(),
                        const std::string& auth = std::string());
  DataSet ListSubscribers(const std::string& list, const std::string& filter = std::string());
  void List(const std::string& list, const std::string& operation, const std::string& subscriber,
            bool silently = false, bool confirm = false);
  void ProcessBounce(const std::string& list, const std::string& subscriber, bool fatal = false);
  void SetPostingMode(const std::string& list, const std::string& subscriber,
                      const std::string& mode);
  DataSet Route(const std::string& address, bool mail = false);
  void DeleteDomain(const std::string& domain, bool force = false);
  DataSet CreateWebUserSession(const std::string& account, const std::string& ipAddress,
                               const std::string& skin = std::string());
  void RenameClusterSkin(const std::string& oldSkin, const std::string& newSkin);
  void RenameServerSkin(const std::string& oldSkin, const std::string& newSkin);
  void RenameDomainSkin(const std::string& domain, const std::string& oldSkin,
                        const std::string& newSkin);
  DataSet ReadClusterSkinFile(const std::string& skin, const std::string& file);
  DataSet ReadServerSkinFile(const std::string& skin, const std::string& file);
  DataSet ReadDomainSkinFile(const std::string& domain, const std::string& skin,
                             const std::string& file);
  // Stores `data` (sent between quotes as it is, typically base64) in a skin file; the
  // two-argument forms delete the file, which the server does through the same command.
  void StoreClusterSkinFile(const std::string& skin, const std::string& file,
                            const std::string& data);
  void StoreClusterSkinFile(const std::string& skin, const std::string& file);
  void StoreServerSkinFile(const std::string& skin, const std::string& file,
                           const std::string& data);
  void StoreServerSkinFile(const std::string& skin, const std::string& file);
  void StoreDomainSkinFile(const std::string& domain, const std::string& skin,
                           const std::string& file, const std::string& data);
  void StoreDomainSkinFile(const std::string& domain, const std::string& skin,
                           const std::string& file);
  void DeleteClusterSkinFile(const std::string& skin, const std::string& file) {
    StoreClusterSkinFile(skin, file);
  }
  void DeleteServerSkinFile(const std::string& skin, const std::string& file) {
    StoreServerSkinFile(skin, file);
  }
  void DeleteDomainSkinFile(const std::string& domain, const std::string& skin,
                            const std::string& file) {
    StoreDomainSkinFile(domain, skin, file);
  }
  DataSet GetWebFile(const std::string& account, const std::string& file);
  DataSet GetWebFile(const std::string& account, const std::string& file, std::uint64_t offset,
                     std::uint64_t size);
  void PutWebFile(const std::string& account, const std::string& file, const DataSet& data);
  void PutWebFile(const std::string& account, const std::string& file, std::uint64_t offset,
                  const DataSet& data);
  void PutWebUserInterface(const std::string& domain, const std::string& file, const DataSet& data);
  void DeleteWebFile(const std::string& account, const std::string& file);
  void DeleteWebUserInterface(const std::string& domain, const std::string& file);
  DataSet GetWebUserInterface(const std::string& domain, const std::string& file);
  DataSet ListWebUserInterface(const std::string& domain, const std::string& file);
  void RenameWebFile(const std::string& account, const std::string& oldName,
                     const std::string& newName);
  DataSet ListWebFiles(const std::string& account, const std::string& path = std::string());
  void WriteLog(std::uint32_t level, const std::string& text);
  // `report` (optional) is the text of the rejection report, written as a dataset string.
  void RejectQueueMessage(const std::string& messageId, const std::string& report = std::string());

 private:
  void open(const std::string& host, std::uint16_t port, const std::string& user,
            const std::string& password, std::uint32_t method);
  void login(const std::string& user, const std::string& password, std::uint32_t method);
  // One answer's raw text, up to and with its line feed.
  std::string readAnswerText();

  int lastCode_ = 0;
  std::string lastStatus_;
  std::string lastData_;
};

}  // namespace cgp
