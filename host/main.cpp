// The velmora program: the content filter the mail server starts as a helper process.
#include <iostream>

#include "kvs/platform/platform.h"
#include "scanner/attachment_filter.h"

int main(int argc, char** argv) {
  kvs::platform::prepareStandardStreams();
  std::ios::sync_with_stdio(false);
  AttachmentFilter filter;
  return filter.run(argc, argv);
}
