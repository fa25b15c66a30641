// The path separator that pxEnv's naming functions insert between path parts (internal to pxEnv). The
// path joining and the file naming both read it; keeping it in a module of its own lets the file naming
// depend on the path joining without the path joining depending back on the file naming.
#pragma once

namespace pxenv {

// The separator inserted between path parts: the host's own ('/' or '\') until setPathSeparator. O(1).
// Thread-safe (atomic).
char16_t pathSeparator();

// Sets the separator. O(1). Thread-safe: a path joined while another thread changes it uses either the old
// or the new separator.
void setPathSeparator(char16_t separator);

} // namespace pxenv
