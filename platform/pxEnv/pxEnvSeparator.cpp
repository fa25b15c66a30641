// The path separator of the naming functions, a process-wide setting.
#include "pxEnvSeparator.h"

#include <atomic>

namespace {

// Atomic so that a container setting it while another thread names files is no data race.
#if defined(_WIN32)
std::atomic<char16_t> g_separator{u'\\'};
#else
std::atomic<char16_t> g_separator{u'/'};
#endif

} // namespace

namespace pxenv {

char16_t pathSeparator() {
    return g_separator.load(std::memory_order_relaxed);
}

void setPathSeparator(char16_t separator) {
    g_separator.store(separator, std::memory_order_relaxed);
}

} // namespace pxenv
