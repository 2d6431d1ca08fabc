// velmora, except that a message file whose name asks for it is removed or replaced between the
// engine's check and the scan, where the server may take a queued file away: no timing involved.
#include <filesystem>
#include <iostream>

#include "kvs/platform/platform.h"
#include "scanner/attachment_filter.h"
#include "tests/support/support.h"

namespace {

namespace fs = std::filesystem;

class VanishingFilter : public AttachmentFilter {
 public:
  cgp::Verdict filterMessage(int seqID, const std::string& path) override {
    const std::string fate = fs::path(path).extension().string();
    std::error_code ignored;
    if (fate == ".removed" || fate.rfind(".to-", 0) == 0) fs::remove(path, ignored);
    if (fate == ".to-directory") fs::create_directory(path, ignored);
    if (fate == ".to-socket") test_support::makeSocketFile(path);
    if (fate == ".to-dangling-link") fs::create_symlink(path + ".nowhere", path, ignored);
    return AttachmentFilter::filterMessage(seqID, path);
  }
};

}  // namespace

int main(int argc, char** argv) {
  kvs::platform::prepareStandardStreams();
  std::ios::sync_with_stdio(false);
  VanishingFilter filter;
  return filter.run(argc, argv);
}
