// Filter subcommands of pximg (filter, stats).
#include "pximgCommands.h"

namespace pximg {

void addFilterCommands(CLI::App &) {}

} // namespace pximg
