// The program's filter: walks each queued message and answers with the attachment findings.
#pragma once

#include <string>

#include "host/helper.h"

class AttachmentFilter : public cgp::ExtFilter {
 public:
  AttachmentFilter();
  ~AttachmentFilter() override;

  cgp::Verdict filterMessage(int seqID, const std::string& path) override;
  // Banner, program directory, the command loop; the process's exit code.
  int run(int argc, char** argv);

  std::string programDirectory;
};
