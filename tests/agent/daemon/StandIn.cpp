// SPDX-License-Identifier: Apache-2.0
// A daemon whose work is nothing but answers that tests can tell apart: what is tested is the process around the work.
#include <zamclientlib/Exceptions.h>

#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>

#include "agent/daemon/Daemon.h"

namespace {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

std::atomic<unsigned> g_atOnce;

std::string InHome(const char* name) {
    return std::string(std::getenv("TARVO_HOME")) + '/' + name;
}

void AwaitFile(const std::string& path) {
    while (!std::filesystem::exists(path))
        ::poll(nullptr, 0, 1);
}

class CStandIn final : public IZamControl {
public:
    CStandIn(tarvo::SPeer peer, apigen::Guid run) : m_peer(std::move(peer)), m_run(run) {}

    std::shared_ptr<IZamProduct> RequestControl(SZamControlOwnerInfo /*owner*/, bool /*force*/) override {
        return nullptr;
    }
    void ReleaseControl(SZamControlOwnerInfo /*owner*/) override {}

    /// Who the client is, and what the settings say.
    SZamProductInfo GetProductInfo() const override {
        return {m_run, {}, m_peer.UserName + ' ' + std::to_string(m_peer.Process), std::to_string(g_atOnce)};
    }
    void SetOwnerMode(apigen::Guid /*ownerId*/, ZAMOwnerMode /*mode*/) override {
        throw CGenericException("refused, as always");
    }

    /// An answer that fills every pipe.
    SZamControlOwnerInfo GetCurrentOwner() const override {
        SZamControlOwnerInfo owner;
        owner.Name = std::string(200'000, 'x');
        return owner;
    }
    SEventConfig GetEventConfig() const override { return {}; }
    apigen::Guid GetSessionId() const override { return m_run; }
    bool IsOsxFDAGranted() const override { return false; }

    /// Lasts until the file is there.
    void GrabLogs(std::string path) const override {
        std::filesystem::create_directory(path + ".begun");
        AwaitFile(path);
    }

private:
    tarvo::SPeer m_peer;
    apigen::Guid m_run;
};

class CWork final : public tarvo::IWork {
public:
    explicit CWork(const tarvo::SSettings& settings) {
        if (std::filesystem::exists(InHome("broken"))) throw std::runtime_error("broken on purpose");
        if (std::filesystem::exists(InHome("slow"))) AwaitFile(InHome("go"));
        CWork::Reload(settings);
        std::random_device random;
        m_run.Data1 = random();
    }
    std::shared_ptr<IZamControl> MakeControl(const tarvo::SPeer& peer) override {
        if (std::filesystem::exists(InHome("refusing"))) throw CGenericException("no control on purpose");
        return std::make_shared<CStandIn>(peer, m_run);
    }
    void Start() override {}
    void Reload(const tarvo::SSettings& settings) override { g_atOnce = settings.Work.AtOnce; }
    void ClockChanged() noexcept override {
        ++m_clockChanges;
        std::ofstream(InHome("clock.new")) << m_clockChanges;
        std::rename(InHome("clock.new").c_str(), InHome("clock").c_str());
    }
    void Stop() noexcept override {}

private:
    apigen::Guid m_run;
    int m_clockChanges = 0;
};

}  // namespace

int main(int argc, char** argv) {
    const bool isStarted = argc == 3 && std::string(argv[1]) == "--ready-fd";
    return tarvo::RunDaemon(
        [](const tarvo::SFolders&, const tarvo::SSettings& settings, tarvo::ILog& log) {
            log.Info("a stand-in\nin \x1b[31m two lines");
            return std::make_unique<CWork>(settings);
        },
        isStarted ? std::atoi(argv[2]) : -1);
}
