// System-independent part of the platform layer; the rest is in Unix/ or Windows/.
#include "kvs/platform/platform.h"

#ifdef _WIN32
#include "Windows/platform.inc"
#else
#include "Unix/platform.inc"
#endif

namespace kvs::platform {

std::string directoryOf(std::string_view path) {
  std::string p(path);
  for (char& c : p) {
    if (c == '\\') c = '/';
  }
  const std::size_t slash = p.rfind('/');
  return slash == std::string::npos ? std::string("./") : p.substr(0, slash + 1);
}

bool cpuHasSsse3() {
#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
  static const bool have = __builtin_cpu_supports("ssse3") != 0;
  return have;
#else
  return false;
#endif
}

}  // namespace kvs::platform
