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

#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
// The runtime's answers, which also check that the system saves the wide registers.
bool cpuHasSsse3() {
  static const bool have = __builtin_cpu_supports("ssse3") != 0;
  return have;
}

bool cpuHasAvx2() {
  static const bool have = __builtin_cpu_supports("avx2") != 0;
  return have;
}
#else
bool cpuHasSsse3() {
  return false;
}

bool cpuHasAvx2() {
  return false;
}
#endif

}  // namespace kvs::platform
