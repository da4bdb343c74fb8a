// SPDX-License-Identifier: Apache-2.0
// The command line of tarvoinstaller.
//
// No signal is handled here: SIGTERM ends the tool at once, and a package operation that is under way goes
// on to its end in its own session. What the tool was started with is put right for that, see below.
#include <zamclientlib/CSimpleLogger.h>
#include <zamservice/Service.h>

#include <CLI/CLI.hpp>

#include <csignal>
#include <exception>
#include <iostream>
#include <memory>
#include <string>

#include "installer/CInstaller.h"
#include "installer/ProductNames.h"
#include "support/common/Text.h"

namespace {

using apigen::common::Escaped;

constexpr int usageError = 2;

// A starter's leftovers: with SIGCHLD ignored nobody could tell how a package operation has ended, and with
// SIGTERM blocked or ignored nobody could end the tool.
void ResetSignals() {
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
    std::signal(SIGCHLD, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}

// A bare name: the log stands in the product's own folder and nowhere else.
std::string CheckLogName(const std::string& name) {
    const bool isBare = !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
    return isBare ? "" : "it must be a file name without a folder";
}

int Serve(const std::string& root, const std::string& logName) {
    // What is wrong with the root reaches the client as the greeting's error.
    return zamservice::ServeStandardStreams([&] {
        const auto log = std::make_shared<zamclientlib::CSimpleLogger>(installer::logFolder, logName);
        return zamservice::CService(
            std::make_shared<installer::CInstaller>(installer::MakeContext(root, log)));
    });
}

int Run(int argc, char** argv) {
    CLI::App app("Installs and removes the backup agent, and tells about the host.", "tarvoinstaller");
    app.set_version_flag("--version", "tarvoinstaller " ZAM_VERSION);
    // Whether one was given is asked below: asked by the parser, a misspelt one would go unnamed.
    app.require_subcommand(0, 1);
    app.fallthrough();  // --root may stand behind the subcommand too

    std::string root = "/";
    app.add_option("--root", root, "Manage the system in this folder instead of the running one")
        ->type_name("DIR");

    std::string logName;
    CLI::App* const serve =
        app.add_subcommand("start-command-invoker", "Serve calls on the standard streams until they close");
    serve->add_option("--log-name", logName, "Name of the log file in " + std::string(installer::logFolder))
        ->required()
        ->check(CheckLogName)
        ->type_name("NAME");
    CLI::App* const version =
        app.add_subcommand("protocol-version", "Print the version of the protocol as a document");

    try {
        app.parse(argc, argv);
        if (app.get_subcommands().empty()) throw CLI::RequiredError("A subcommand");
    } catch (const CLI::Success& request) {
        const int exitCode = app.exit(request);  // --help, --version
        return std::cout.flush() ? exitCode : 1;
    } catch (const CLI::ParseError& error) {
        std::cerr << "tarvoinstaller: " << Escaped(error.what()) << "\n\n" << app.help();
        return usageError;
    }
    return version->parsed() ? zamservice::PrintProtocolVersion() : Serve(root, logName);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        ResetSignals();
        return Run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "tarvoinstaller: " << Escaped(error.what()) << "\n";
        return 1;
    }
}
