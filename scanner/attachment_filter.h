// The program's filter: walks each queued message and answers with the attachment findings.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/helper.h"
#include "scanner/message_scanner.h"

class AttachmentFilter : public cgp::ExtFilter {
 public:
  AttachmentFilter();
  ~AttachmentFilter() override;

  cgp::Verdict filterMessage(int seqID, const std::string& path) override;
  // Banner, program directory, the command loop; the process's exit code.
  int run(int argc, char** argv);

  // Walks the file through `scanner` and gives the header lines for what it found, in the order
  // the server gets them; nothing when the file cannot be opened.
  [[nodiscard]] static std::optional<std::vector<std::string>> scan(MessageScanner& scanner,
                                                                    const std::string& path);

  std::string programDirectory;

 private:
  MessageScanner messageScanner_;
};
