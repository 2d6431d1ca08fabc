// System-independent part of the platform layer; the rest is in Unix/ or Windows/.
#include "kvs/platform/platform.h"

#ifdef _WIN32
#include "Windows/platform.inc"
#else
#include "Unix/platform.inc"
#endif
