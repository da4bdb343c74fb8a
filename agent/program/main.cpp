// SPDX-License-Identifier: Apache-2.0
// The program tarvod: the daemon, its settings' check, and the commands that are run beside it.
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <exception>
#include <iostream>
#include <memory>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "agent/api/Objects.h"
#include "agent/commands/Commands.h"
#include "agent/core/IClock.h"
#include "agent/daemon/Daemon.h"
#include "agent/daemon/Handover.h"
#include "agent/daemon/Settings.h"
#include "agent/engine/CResticEngine.h"
#include "agent/host/Folders.h"
#include "agent/jobs/CAgent.h"
#include "agent/program/CReloadableEngine.h"
#include "support/common/Text.h"

namespace tarvo {
namespace {

constexpr int UsageError = 2;

std::shared_ptr<IEngine> MakeEngine(const SFolders& folders, const SSettings& settings) {
    SResticOptions options;
    options.Program = settings.Restic;
    options.CacheFolder = folders.Cache;
    return MakeResticEngine(options);
}

class CAgentWork final : public IWork {
public:
    CAgentWork(const SFolders& folders, const SSettings& settings, ILog& log)
        : m_folders(folders),
          m_restic(settings.Restic),
          m_engine(std::make_shared<CReloadableEngine>(MakeEngine(folders, settings))),
          m_agent(folders, settings.Work, m_engine, m_clock, log) {}

    std::shared_ptr<zamclientlib::IZamControl> MakeControl(const SPeer& peer) override {
        return api::MakeControl(m_agent, peer);
    }
    void Start() override { m_agent.Start(); }
    void Reload(const SSettings& settings) override {
        if (settings.Restic != m_restic) m_engine->Use(MakeEngine(m_folders, settings));
        m_restic = settings.Restic;
        m_agent.Reload(settings.Work);
    }
    void ClockChanged() noexcept override { m_agent.ClockChanged(); }
    void Stop() noexcept override { m_agent.Stop(); }

private:
    const SFolders m_folders;
    std::string m_restic;
    std::shared_ptr<CReloadableEngine> m_engine;
    CSystemClock m_clock;
    CAgent m_agent;
};

int Run(int readyDescriptor) {
    return RunDaemon([](const SFolders& folders, const SSettings& settings,
                        ILog& log) { return std::make_unique<CAgentWork>(folders, settings, log); },
                     readyDescriptor);
}

/// \param isNamed a file that somebody names is to be there; the usual one may be missing
int CheckConfig(const std::string& path, bool isNamed) {
    if (::access(path.c_str(), F_OK) != 0 && errno == ENOENT) {
        (isNamed ? std::cerr : std::cout)
            << path
            << (isNamed ? ": there is no such file" : ": there is no such file; the defaults are used")
            << std::endl;
        return isNamed ? 1 : 0;
    }
    try {
        ReadSettings(path);
        std::cout << path << ": no mistake was found" << std::endl;
        return 0;
    } catch (const std::exception& error) {
        std::cerr << error.what() << std::endl;
        return 1;
    }
}

int PrintUsage(std::ostream& to) {
    to << "The backup agent's daemon. Usage:\n"
          "  tarvod                        runs the daemon until SIGTERM or SIGINT\n"
          "  tarvod --check-config [FILE]  looks for mistakes in the settings\n"
          "  tarvod --version\n"
          "  tarvod points|files|restore|verify|chains|forget|adopt ...; tarvod COMMAND --help tells more\n";
    return &to == &std::cout ? 0 : UsageError;
}

/// The first Ctrl-C or SIGTERM has the engine end in good order: killed, it would leave the store locked. The second one
/// kills.
std::stop_token StopOfSignals() {
    sigset_t signals;
    ::sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        ::sigaddset(&signals, signal);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::stop_source stop;
    // It waits for as long as the process lives.
    std::thread([signals, stop]() mutable {
        int signal = 0;
        ::sigwait(&signals, &signal);
        stop.request_stop();
        ::pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
        for (;;)
            ::pause();
    }).detach();
    return stop.get_token();
}

bool ReadNumber(const std::string& text, int& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

int RunCommandLine(const std::vector<std::string>& arguments) {
    const std::string first = arguments.empty() ? "" : arguments[0];
    if (arguments.empty()) return Run(-1);
    int descriptor = -1;
    if (first == handover::ReadinessOption && arguments.size() == 2 && ReadNumber(arguments[1], descriptor)) {
        return Run(descriptor);
    }
    if (first == "--check-config" && arguments.size() == 1)
        return CheckConfig(FoldersOfProcess().SettingsFile, false);
    if (first == "--check-config" && arguments.size() == 2 && !arguments[1].starts_with('-'))
        return CheckConfig(arguments[1], true);
    if (commands::IsCommand(first)) {
        const SFolders folders = FoldersOfProcess();
        const auto makeEngine = [&] { return MakeEngine(folders, ReadSettings(folders.SettingsFile)); };
        return commands::Run(arguments, {folders, makeEngine, std::cout, std::cerr, StopOfSignals()});
    }
    if (first == "--version" && arguments.size() == 1) {
        std::cout << "tarvod " ZAM_VERSION << std::endl;
        return 0;
    }
    if (arguments.size() == 1 && (first == "--help" || first == "-h")) return PrintUsage(std::cout);
    const bool isKnown =
        first == "--check-config" || first == "--version" || first == "--help" || first == "-h";
    std::cerr << "tarvod: can't understand " << apigen::common::Quoted(isKnown ? arguments.back() : first)
              << " here\n";
    return PrintUsage(std::cerr);
}

}  // namespace
}  // namespace tarvo

int main(int argc, char** argv) {
    try {
        const int status = tarvo::RunCommandLine({argv + 1, argv + argc});
        if (status != 0 || std::cout.flush()) return status;
        std::cerr << "tarvod: The output could not be written" << std::endl;
        return 1;
    } catch (const std::exception& error) {
        std::cerr << "tarvod: " << error.what() << std::endl;
        return 1;
    }
}
