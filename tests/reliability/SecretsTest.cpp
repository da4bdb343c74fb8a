// SPDX-License-Identifier: Apache-2.0
// A canary as every password: it may be in a request, and nowhere else.
#include <apigen/CXmlData.h>
#include <apigen/Serialize.h>
#include <zamclientlib/ZamClientLib.h>

#include <fcntl.h>
#include <gmock/gmock.h>

#include <cstdio>
#include <sstream>

#include "tests/FindInMemory.h"
#include "tests/api/CMemoryLogger.h"
#include "tests/reliability/Reliability.h"

namespace reliability {
namespace {

using namespace zamclientlib;  // NOLINT: for tests alone

/// Of one kind for each secret, so that a finding says which one it was.
std::string Canary(const std::string& kind) {
    return "canary-7f3a-" + kind;
}
const std::string Mark = "canary-7f3a-";

SCredentials Credentials(const std::string& kind) {
    return {"login", "domain", Canary(kind)};
}

SBackupJobConfigurationInfo Job(const std::string& name, const apigen::Guid& repository) {
    SBackupJobConfigurationInfo job;
    job.JobName = name;
    job.RepositoryId = repository;
    job.Source.BackupMode = JobBackupMode::FileLevel;
    job.Source.IncludeDirs = {"/etc"};
    job.StorageInfo.EncryptionSettings = SEncryptionSettings{Canary("encryption"), "the usual"};
    job.AapInfo.OracleInfo = SOracleInfo{{}, Credentials("oracle"), {}, false};
    SMySQLInfo mysql;
    mysql.Credentials = Credentials("mysql");
    job.AapInfo.MySQLInfo = mysql;
    SPostgreSQLInfo postgres;
    postgres.Credentials = Credentials("postgres");
    job.AapInfo.PostgreSQLInfo = postgres;
    return job;
}

template <class T>
std::string DocumentOf(const T& value) {
    const auto data = apigen::CXmlData::CreateNew();
    apigen::Serialize(*data, "K", value);
    return apigen::CXmlData::Serialize(*data);
}

std::string WholeFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream all;
    all << file.rdbuf();
    return all.str();
}

/// The processes that run `program`.
std::vector<pid_t> ProcessesOf(const std::string& program) {
    std::vector<pid_t> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const pid_t pid = std::atoi(entry.path().filename().c_str());
        std::error_code error;
        if (pid > 0 && std::filesystem::read_symlink(entry.path() / "exe", error) == program)
            found.push_back(pid);
    }
    return found;
}

class Secrets : public CReliabilityTest {
protected:
    Secrets() {
        const char* const path = std::getenv("PATH");  // NOLINT(concurrency-mt-unsafe): one thread
        m_path = path != nullptr ? path : "";
        ::setenv("PATH", (std::string(TEST_AGENT_FOLDER) + ':' + m_path).c_str(), 1);  // NOLINT: one thread
    }
    ~Secrets() override {
        ::setenv("PATH", m_path.c_str(), 1);  // NOLINT(concurrency-mt-unsafe): one thread
        ::unsetenv("ZAM_TESTAGENT_SCRIPT");   // NOLINT(concurrency-mt-unsafe): one thread
    }

    std::shared_ptr<IZamControl> Agent(const std::string& script = "{}", std::chrono::seconds timeout = 30s) {
        m_folder.Write("script.json", script);
        ::setenv("ZAM_TESTAGENT_SCRIPT", m_folder.Path("script.json").c_str(), 1);  // NOLINT: one thread
        return GetZamControl(timeout, true, m_logger);
    }

    static std::shared_ptr<IZamProduct> Product(IZamControl& control) {
        SZamControlOwnerInfo owner;
        owner.Id = apigen::Guid::Deserialize("{11111111-2222-3333-4444-555555555555}");
        owner.Name = "tester";
        owner.Mode = ZAMOwnerMode::Exclusive;
        return control.RequestControl(owner, false);
    }

    void ExpectNone(const std::string& text, const std::string& where) const {
        const std::size_t at = text.find(Mark);
        EXPECT_EQ(at, std::string::npos)
            << where << " holds " << (at == std::string::npos ? "" : text.substr(at, Mark.size() + 12));
    }

    void ExpectNoneLogged() const {
        const auto lines = m_logger->Lines();
        EXPECT_FALSE(lines.empty());
        for (const std::string& line : lines)
            ExpectNone(line, "the log");
    }

    /// What action's failure says.
    template <class Action>
    void ExpectFailureWithout(const std::string& what, Action&& action) const {
        const SOutcome outcome = OutcomeOf(action);
        EXPECT_NE(outcome.Kind, EOutcome::Success) << what;
        ExpectNone(outcome.Text, "the failure of " + what);
    }

    std::shared_ptr<zamtest::CMemoryLogger> m_logger = std::make_shared<zamtest::CMemoryLogger>();

private:
    std::string m_path;
};

TEST_F(Secrets, OfEveryKindGoInAndComeOutNowhere) {
    const auto control = Agent();
    CEventsStream events(control->GetEventConfig(), m_logger);
    const auto product = Product(*control);

    SBackupRepositoryInfo repository;
    repository.Name = "share";
    repository.Type = static_cast<BackupTargetType>(2);
    repository.Location = "//host/share";
    repository.SharedFolderInfo = SSharedFolderInfo{{}, "/d", "user", "domain", Canary("share")};
    const auto made = product->GetRepositoryManager()->CreateRepository(repository);
    ExpectNone(DocumentOf(made), "the repository");
    const auto job = product->CreateBackupJob(Job("nightly", made.Id));
    ExpectNone(DocumentOf(job->GetConfigurationInfo()), "the job");
    auto changed = Job("changed", made.Id);
    job->UpdateConfigurationInfo(changed);
    ExpectNone(DocumentOf(job->GetConfigurationInfo()), "the changed job");

    SBackupServerInfo server;
    server.Name = "server";
    server.Connection = {{"host", 1}};
    server.Username = "user";
    server.Password = Canary("server");
    ExpectNone(DocumentOf(product->GetBackupServerManager()->AddBackupServer(server)), "the server");
    for (const auto& each : product->GetBackupServerManager()->GetBackupServers())
        ExpectNone(DocumentOf(each), "the servers");
    SCloudServiceProviderInfo provider;
    provider.Name = "cloud";
    provider.Connection = {{"host", 1}};
    provider.Username = "user";
    provider.Password = SCloudServiceProviderPassword{Canary("cloud"), {}};
    ExpectNone(DocumentOf(product->GetCloudServiceProviderManager()->AddCloudServiceProvider(provider)),
               "the provider");

    // Twice the same names: refusals of the agent.
    ExpectFailureWithout("a second job", [&] { product->CreateBackupJob(Job("changed", made.Id)); });
    ExpectFailureWithout("a second server",
                         [&] { product->GetBackupServerManager()->AddBackupServer(server); });
    ExpectFailureWithout("a second repository",
                         [&] { product->GetRepositoryManager()->CreateRepository(repository); });

    int count = 0;
    while (const auto event = events.ReadUntil(Clock::now() + 100ms)) {
        ExpectNone(DocumentOf(*event), "an event");
        ++count;
    }
    EXPECT_GT(count, 1);
    control->GrabLogs(m_folder.Path("grabbed"));
    EXPECT_NE(WholeFile(m_folder.Path("grabbed")), "");
    ExpectNone(WholeFile(m_folder.Path("grabbed")), "the agent's log");

    const auto agents = ProcessesOf(std::string(TEST_AGENT_FOLDER) + "/tarvoconfig");
    EXPECT_FALSE(agents.empty());
    for (const pid_t pid : agents) {
        for (const char* const file : {"cmdline", "environ"})
            ExpectNone(WholeFile("/proc/" + std::to_string(pid) + '/' + file), file);
    }
    ExpectNoneLogged();
}

TEST_F(Secrets, StandInNoTextOfAFailure) {
    for (const std::string rule :
         {R"("action": "throw", "type": "CJobIsRunning", "message": "busy")",
          R"("action": "throw", "type": "CNobodyKnowsIt", "message": "busy")",
          R"("action": "internal-error", "message": "broken")", R"("action": "malformed")",
          R"("action": "garbage", "message": "Segmentation fault")", R"("action": "exit", "code": 3)",
          R"("action": "kill")"}) {
        const auto product = Product(*Agent(R"({"rules": [{"method": "CreateBackupJob", )" + rule + "}]}"));
        ExpectFailureWithout(rule, [&] { product->CreateBackupJob(Job("nightly", {})); });
        OutcomeOf([&] { product->GetBackupJobs(); });
    }
    const auto product =
        Product(*Agent(R"({"rules": [{"method": "CreateBackupJob", "action": "delay", "ms": 1500}]})", 1s));
    ExpectFailureWithout("a time-out", [&] { product->CreateBackupJob(Job("nightly", {})); });
    ExpectFailureWithout("a connection that is given up", [&] { product->GetBackupJobs(); });
    ExpectNoneLogged();
}

TEST_F(Secrets, StandInNoTextOfARequestThatIsNotUnderstood) {
    auto control = Agent();
    const auto product = Product(*control);
    const auto& proxy = dynamic_cast<IZamProduct_Proxy&>(*product);
    const auto whole = apigen::CXmlData::CreateNew();
    apigen::Serialize(*whole, "config", Job("nightly", {}));
    const std::string text = apigen::CXmlData::Serialize(*whole);
    int refused = 0;
    // With one element's name made another's, the document is still one, and a field is missing.
    std::vector<std::size_t> open;
    for (std::size_t at = text.find('<'); at != std::string::npos; at = text.find('<', at + 1)) {
        const std::size_t end = text.find('>', at);
        if (text[at + 1] != '/') {
            if (text[end - 1] != '/') open.push_back(at);
            continue;
        }
        const std::string name = text.substr(at + 2, end - at - 2);
        std::string broken = text;
        broken.replace(at + 2, name.size(), "Other");
        broken.replace(open.back() + 1, name.size(), "Other");
        open.pop_back();
        const auto request = apigen::CXmlData::Unserialize(broken);
        const SOutcome outcome = OutcomeOf(
            [&] { proxy.InvokeMethod("CreateBackupJob_7735468983597979500", "CreateBackupJob", request); });
        refused += outcome.Kind != EOutcome::Success;
        ExpectNone(outcome.Text, "the failure without " + name);
    }
    EXPECT_GT(refused, 20);
    // A secret where a record is wanted, and the other way round.
    for (const std::string& odd :
         {"<Data><config>" + Canary("text") + "</config></Data>",
          "<Data><obId>" + Canary("guid") + "</obId></Data>",
          "<Data><config><StorageInfo>" + Canary("node") + "</StorageInfo></config></Data>"}) {
        const SOutcome outcome = OutcomeOf([&] {
            proxy.InvokeMethod("CreateBackupJob_7735468983597979500", "CreateBackupJob",
                               apigen::CXmlData::Unserialize(odd));
        });
        EXPECT_NE(outcome.Kind, EOutcome::Success);
        ExpectNone(outcome.Text, "the failure of " + odd.substr(0, 20));
    }
    ExpectNoneLogged();
}

TEST_F(Secrets, StandInNoTextOfALaunch) {
    const auto logger = m_logger;
    const std::string nul = Canary("argument") + std::string(1, '\0');
    const SOutcome outcome = OutcomeOf([&] { Invoker({nul}, 1s, logger); });
    EXPECT_EQ(outcome.Kind, EOutcome::Launch) << outcome;
    ExpectNone(outcome.Text, "the failure");
    for (const std::string& line : logger->Lines())
        ExpectNone(line, "the log");
}

// The stream's input, the text of the request and the decoded arguments; what the implementation kept goes with it.
TEST_F(Secrets, LeaveTheMemoryOfAServiceThatIsDoneWithThem) {
    if (IsSanitized) GTEST_SKIP() << "a sanitizer keeps what is freed";
    const std::string program = m_folder.Path("service");  // so that no other process runs it
    std::filesystem::copy_file(RELIABILITY_SERVICE, program);
    for (const std::size_t padding : {0U, 200U, 5'000U, 300'000U}) {
        // Inverted it is what is looked for, so that the search does not find itself.
        const std::string hidden = tests::Inverted("canary-in-memory-" + std::to_string(padding));
        const auto invoker = Invoker({}, 30s, nullptr, program);
        const auto root = std::make_shared<ITarvoInstaller_Proxy>(invoker, invoker->GetRootHandle());
        const auto secret = [&] { return std::string(padding, 'p') + tests::Inverted(hidden); };
        {
            const auto packages = root->GetPackageManager();
            packages->InstalLocalPackages({secret(), "another"});
            EXPECT_NE(root->FindService(secret()), nullptr);  // kept as long as the object
        }
        for (int i = 0; i < 3; ++i)
            EXPECT_TRUE(root->IsSystemSupported());
        const auto services = ProcessesOf(program);
        ASSERT_EQ(services.size(), 1U);
        EXPECT_THAT(tests::FindInMemory(services[0], hidden), testing::IsEmpty())
            << "behind " << padding << " bytes";
    }
}

}  // namespace
}  // namespace reliability
