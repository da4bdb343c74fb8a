// SPDX-License-Identifier: Apache-2.0
// One connection used by several threads; client and service in one process.
#include <apigen/ApiException.h>
#include <apigen/CInterruptibleIoDev.h>
#include <apigen/CXmlData.h>
#include <apigen/StreamedXmlInvokerImpl.h>
#include <zamclientlib/CApiExceptionGenerator.h>
#include <zamclientlib/Exceptions.h>
#include <zamclientlib/InstallerProxies.h>
#include <zamservice/Service.h>

#include <gmock/gmock.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <thread>

#include "tests/api/FakeInstaller.h"
#include "tests/service/ToolTest.h"

namespace zamtest {
namespace {

using namespace std::chrono_literals;
using zamclientlib::ITarvoInstaller;

/// Calls from several threads; each must get the answers to its own questions.
void CallFromManyThreads(const std::shared_ptr<ITarvoInstaller>& root) {
    constexpr int Threads = 4;
    constexpr int Calls = 150;
    const auto packages = root->GetPackageManager();
    std::atomic<int> right = 0;
    std::vector<std::thread> threads;
    for (int id = 0; id < Threads; ++id) {
        threads.emplace_back([&, id] {
            for (int i = 0; i < Calls; ++i) {
                const std::string path = std::to_string(id) + '/' + std::to_string(i);
                right += packages->GetPackageNameFromFile(path) == "name of " + path;
                const auto service = root->FindService(path);  // and its release, in between
                right += service->GetName() == path;
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(right, 2 * Threads * Calls);
}

class ToolThreads : public ToolTest {};

TEST_F(ToolThreads, ShareOneConnectionToATool) {
    { CallFromManyThreads(Connect("serve")); }
    int ends = 0;
    for (const std::string& line : Recorded())
        ends += line == "end IService";
    EXPECT_EQ(ends, 600);
}

TEST_F(ToolThreads, OpenConnectionsAtTheSameTime) {
    Set("ZAM_SCRIPT", "serve");
    std::atomic<int> good = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&good] {
            for (int round = 0; round < 3; ++round)
                good +=
                    zamclientlib::GetTarvoInstaller(SCRIPTED_TOOL, 30s, false, nullptr)->IsSystemSupported();
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(good, 12);
}

TEST_F(ToolThreads, AllFailWhenTheToolDies) {
    const auto packages = Connect("serve")->GetPackageManager();
    std::atomic<int> failures = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            try {
                if (i == 0) packages->GetPackageNameFromFile("die");
                for (;;)
                    packages->GetPackageNameFromFile("x");
            } catch (const apigen::PeerGoneError&) {
                ++failures;
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(failures, 4);
}

/// A service in a thread of its own, at the other end of a socket pair.
class InProcess : public testing::Test {
protected:
    InProcess() {
        std::array<int, 2> ends{};
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) std::abort();
        m_client = std::make_shared<apigen::CInterruptibleIoDev>(ends[0]);
        m_thread = std::thread([this, end = ends[1]] {
            apigen::CInterruptibleIoDev device(end);
            zamservice::CService service(std::make_shared<CFakeInstaller>(m_journal));
            zamservice::Serve(service, device);
        });
    }

    ~InProcess() override { End(); }

    /// The root of the service, once.
    std::shared_ptr<ITarvoInstaller> Connect() {
        m_client->SetDeadline(apigen::IIoDev::Clock::now() + 30s);
        const auto greeting = apigen::CXmlData::Unserialize(m_client->ReadString());
        return std::make_shared<zamclientlib::ITarvoInstaller_Proxy>(
            std::make_shared<apigen::StreamedXmlInvokerImpl>(
                std::move(m_client), std::make_shared<zamclientlib::CApiExceptionGenerator>(nullptr), 30s,
                nullptr),
            apigen::HandleUtils::FromData(greeting));
    }

    void End() {
        m_client.reset();
        if (m_thread.joinable()) m_thread.join();
    }

    Journal m_journal = std::make_shared<SJournal>();
    std::shared_ptr<apigen::CInterruptibleIoDev> m_client;
    std::thread m_thread;
};

TEST_F(InProcess, ServesAClientUntilItLeaves) {
    {
        const auto root = Connect();
        EXPECT_EQ(root->GetToolVersion(), (zamclientlib::SVersion{2, 0, 5, 12}));
        const auto deployer = root->GetZAMDeployer();
        EXPECT_EQ(deployer->GetInstallationInfo("i").PackageForInstall.size(), 2U);
    }
    End();
    EXPECT_THAT(m_journal->Ends, testing::UnorderedElementsAre("ITarvoInstaller", "IZAMDeployer"));
}

TEST_F(InProcess, ServesManyThreads) {
    CallFromManyThreads(Connect());
    End();
    EXPECT_EQ(m_journal->Ends.size(), 602U) << "each object ends once";
}

TEST_F(InProcess, CarriesFailuresOfTheImplementation) {
    const auto root = Connect();
    m_journal->OnCall = [](const std::string&) { throw zamclientlib::CJobIsRunning("busy"); };
    EXPECT_EQ(MessageOf<zamclientlib::CJobIsRunning>([&] { root->IsSystemSupported(); }), "busy");
    m_journal->OnCall = [](const std::string&) { throw 17; };
    MessageOf<zamclientlib::CGenericException>([&] { root->IsSystemSupported(); });
    m_journal->OnCall = nullptr;
    EXPECT_TRUE(root->IsSystemSupported());
}

TEST_F(InProcess, AnswersADocumentThatIsNoRequestAndGoesOn) {
    m_client->ReadString();
    m_client->WriteString("<nonsense");
    EXPECT_THAT(m_client->ReadString(), testing::HasSubstr("__api_internal_err"));
    m_client->WriteString("");
    EXPECT_THAT(m_client->ReadString(), testing::HasSubstr("__api_internal_err"));
    m_client->WriteString(
        "<Data><__handle>1</__handle><__method>IsSystemSupported_6523745946180482134</__method></Data>");
    EXPECT_EQ(m_client->ReadString(), "<Data><__result>true</__result></Data>");
}

}  // namespace
}  // namespace zamtest
