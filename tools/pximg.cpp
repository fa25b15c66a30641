// pximg: the command-line tool of the image library. Parses the command line, runs one subcommand and turns
// every failure into one line on stderr and exit status 1.
#include <algorithm>
#include <exception>
#include <iostream>

#include <CLI/CLI.hpp>

#include "pximgCommands.h"
#include "pximgTool.h"

namespace {

// Prints "pximg: <message>" on one line and gives the failure exit status.
int fail(const std::string &message) {
    std::cerr << "pximg: " << message << '\n';
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app{
        "pximg: inspect, convert, filter and measure image files of the pxImage library, and write and read "
        "grabs",
        "pximg"};
    app.set_version_flag("--version", "pximg " PXIMG_VERSION);
    app.require_subcommand(1);
    pximg::addFileCommands(app);
    pximg::addFilterCommands(app);
    pximg::addContainerCommands(app);
    pximg::addMarkCommands(app);
    pximg::addGeometryCommands(app);
    pximg::addPreprocCommands(app);
    pximg::addWarpCommands(app);
    pximg::installLibraryLog();
    if (argc == 1) { // no command: the usage, and the status of a command that did not run
        std::cout << app.help();
        return 1;
    }
    if (std::string(argv[1]) == "help") { // "pximg help filter box" is "pximg filter box --help"
        argv[1] = const_cast<char *>("--help");
        std::rotate(argv + 1, argv + 2, argv + argc);
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        if (e.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
            return app.exit(e); // --help and --version
        }
        return pximg::reportUsageError(app, e, argc, argv);
    } catch (const pximg::Error &e) {
        return e.what()[0] == '\0' ? 1 : fail(e.what());
    } catch (const std::exception &e) {
        return fail(std::string("unexpected failure: ") + e.what());
    }
    return 0;
}
