// Container subcommands of pximg (container write, container read).
#include "pximgCommands.h"

namespace pximg {

void addContainerCommands(CLI::App &) {}

} // namespace pximg
