// The program's filter: walks each queued message and answers with the attachment findings.
#pragma once

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

  // The header lines for what a finished scan found, in the order the server gets them.
  [[nodiscard]] static std::vector<std::string> headerLines(const MessageScanner& scanner);

  std::string programDirectory;

 private:
  MessageScanner messageScanner_;
};
