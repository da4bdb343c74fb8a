// SPDX-License-Identifier: Apache-2.0
// Services against a real message bus of the test's own, with a small systemd of the test behind it.
#include <zamclientlib/Exceptions.h>

#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "TestFolder.h"
#include "installer/CInstaller.h"
#include "installer/CSystemdService.h"

namespace installer::test {
namespace {

using zamclientlib::CGenericException;
using zamclientlib::EServiceStatus;

// A message bus that lives as long as the object.
class CBusDaemon {
public:
    CBusDaemon() {
        const auto config = m_folder.Write(
            "bus.conf", "<busconfig><type>custom</type><listen>" + Address() +
                            "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                            "<allow send_destination=\"*\" eavesdrop=\"true\"/>"
                            "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>");
        std::string program = "dbus-daemon";
        std::string option = "--config-file=" + config.string();
        std::string noFork = "--nofork";
        const std::array<char*, 4> arguments{program.data(), option.data(), noFork.data(), nullptr};
        if (posix_spawnp(&m_pid, program.c_str(), nullptr, nullptr, arguments.data(), environ) != 0) {
            throw std::runtime_error("dbus-daemon is needed");
        }
        if (!Eventually([&] { return Accepts(m_folder.Path() / "bus"); })) {
            throw std::runtime_error("dbus-daemon does not listen");
        }
    }
    CBusDaemon(const CBusDaemon&) = delete;
    CBusDaemon& operator=(const CBusDaemon&) = delete;
    ~CBusDaemon() { Stop(); }

    std::string Address() const { return "unix:path=" + (m_folder.Path() / "bus").string(); }

    void Stop() {
        if (m_pid < 0) return;
        kill(m_pid, SIGTERM);
        waitpid(m_pid, nullptr, 0);
        m_pid = -1;
    }

private:
    /// The file alone is no sign: it is there before anybody listens.
    static bool Accepts(const std::string& path) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        const int probe = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const bool isConnected =
            ::connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        ::close(probe);
        return isConnected;
    }

    CTestFolder m_folder;
    pid_t m_pid = -1;
};

struct SFakeUnit {
    std::string LoadState = "loaded";
    std::string ActiveState = "inactive";
    std::string JobResult = "done";
    bool EndsBeforeTheAnswer = false;  // the job's end is told before the call is answered
    bool NeverEnds = false;
};

// What systemd does on the bus as far as services need it; serves from a thread of its own.
class CFakeSystemd {
public:
    CFakeSystemd(const std::string& address, std::map<std::string, SFakeUnit> units)
        : m_units(std::move(units)) {
        Check(sd_bus_new(&m_bus));
        Check(sd_bus_set_address(m_bus, address.c_str()));
        Check(sd_bus_set_bus_client(m_bus, 1));
        Check(sd_bus_start(m_bus));
        Check(sd_bus_add_object_vtable(m_bus, nullptr, "/org/freedesktop/systemd1",
                                       "org.freedesktop.systemd1.Manager", managerTable, this));
        Check(sd_bus_add_fallback_vtable(m_bus, nullptr, "/org/freedesktop/systemd1/unit",
                                         "org.freedesktop.systemd1.Unit", unitTable, FindUnit, this));
        Check(sd_bus_request_name(m_bus, "org.freedesktop.systemd1", 0));
        m_thread = std::thread([this] {
            while (!m_isStopped) {
                const int result = sd_bus_process(m_bus, nullptr);
                if (result < 0) return;
                if (result == 0) sd_bus_wait(m_bus, 20000);
            }
        });
    }
    CFakeSystemd(const CFakeSystemd&) = delete;
    CFakeSystemd& operator=(const CFakeSystemd&) = delete;
    ~CFakeSystemd() {
        m_isStopped = true;
        m_thread.join();
        sd_bus_flush_close_unref(m_bus);
    }

    int Jobs() const { return m_jobs; }

private:
    static void Check(int result) {
        if (result < 0) throw std::runtime_error("sd-bus failed with " + std::to_string(result));
    }

    SFakeUnit& Unit(const std::string& name) {
        const auto known = m_units.find(name);
        return known != m_units.end() ? known->second : m_units[name] = SFakeUnit{"not-found"};
    }

    static int LoadUnit(sd_bus_message* call, void* self, sd_bus_error* error) {
        const char* name = nullptr;
        sd_bus_message_read(call, "s", &name);
        if (std::string(name) == "refused.service") {
            return sd_bus_error_set(error, SD_BUS_ERROR_ACCESS_DENIED, "Not for you");
        }
        static_cast<CFakeSystemd*>(self)->Unit(name);
        char* path = nullptr;
        sd_bus_path_encode("/org/freedesktop/systemd1/unit", name, &path);
        const std::unique_ptr<char, decltype(&std::free)> owner(path, &std::free);
        return sd_bus_reply_method_return(call, "o", path);
    }

    static int Subscribe(sd_bus_message* call, void* self, sd_bus_error*) {
        static_cast<CFakeSystemd*>(self)->m_isSubscribed = true;
        return sd_bus_reply_method_return(call, "");
    }

    static int StartUnit(sd_bus_message* call, void* self, sd_bus_error*) {
        return static_cast<CFakeSystemd*>(self)->RunJob(call, "active");
    }
    static int StopUnit(sd_bus_message* call, void* self, sd_bus_error*) {
        return static_cast<CFakeSystemd*>(self)->RunJob(call, "inactive");
    }

    int RunJob(sd_bus_message* call, const char* stateAfter) {
        const char* name = nullptr;
        const char* mode = nullptr;
        sd_bus_message_read(call, "ss", &name, &mode);
        SFakeUnit& unit = Unit(name);
        const std::string job = "/org/freedesktop/systemd1/job/" + std::to_string(++m_jobs);
        // Jobs of other units end all the time.
        EndJob("/org/freedesktop/systemd1/job/0", "other.service", "failed");
        if (unit.EndsBeforeTheAnswer) EndJob(job, name, unit.JobResult);
        sd_bus_reply_method_return(call, "o", job.c_str());
        if (unit.NeverEnds) return 1;
        unit.ActiveState = unit.JobResult == "done" ? stateAfter : "failed";
        if (!unit.EndsBeforeTheAnswer) EndJob(job, name, unit.JobResult);
        return 1;
    }

    void EndJob(const std::string& job, const std::string& unit, const std::string& result) {
        // systemd, too, tells only those who asked for it.
        if (!m_isSubscribed) return;
        sd_bus_emit_signal(m_bus, "/org/freedesktop/systemd1", "org.freedesktop.systemd1.Manager",
                           "JobRemoved", "uoss", 1U, job.c_str(), unit.c_str(), result.c_str());
    }

    static int FindUnit(sd_bus*, const char* path, const char*, void* self, void** found, sd_bus_error*) {
        char* name = nullptr;
        if (sd_bus_path_decode(path, "/org/freedesktop/systemd1/unit", &name) <= 0) return 0;
        const std::unique_ptr<char, decltype(&std::free)> owner(name, &std::free);
        *found = &static_cast<CFakeSystemd*>(self)->Unit(name);
        return 1;
    }
    static int GetLoadState(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void* unit,
                            sd_bus_error*) {
        return sd_bus_message_append(reply, "s", static_cast<SFakeUnit*>(unit)->LoadState.c_str());
    }
    static int GetActiveState(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply,
                              void* unit, sd_bus_error*) {
        return sd_bus_message_append(reply, "s", static_cast<SFakeUnit*>(unit)->ActiveState.c_str());
    }

    static const sd_bus_vtable managerTable[];
    static const sd_bus_vtable unitTable[];

    std::map<std::string, SFakeUnit> m_units;
    std::atomic<int> m_jobs{0};
    std::atomic<bool> m_isStopped{false};
    bool m_isSubscribed = false;
    sd_bus* m_bus = nullptr;
    std::thread m_thread;
};

// The macros of the C header leave members out and shift the rules of C++ a little.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic"
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
const sd_bus_vtable CFakeSystemd::managerTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("LoadUnit", "s", "o", CFakeSystemd::LoadUnit, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Subscribe", "", "", CFakeSystemd::Subscribe, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("StartUnit", "ss", "o", CFakeSystemd::StartUnit, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("StopUnit", "ss", "o", CFakeSystemd::StopUnit, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};
const sd_bus_vtable CFakeSystemd::unitTable[] = {
    SD_BUS_VTABLE_START(0), SD_BUS_PROPERTY("LoadState", "s", CFakeSystemd::GetLoadState, 0, 0),
    SD_BUS_PROPERTY("ActiveState", "s", CFakeSystemd::GetActiveState, 0, 0), SD_BUS_VTABLE_END};
#pragma GCC diagnostic pop

class SystemdService : public testing::Test {
protected:
    std::shared_ptr<CSystemdService> Find(const std::string& name, const SServiceLimits& limits = {}) const {
        return CSystemdService::Find(m_context, name, limits);
    }

    CBusDaemon m_bus;
    CEnvironmentVariable m_address{"DBUS_SYSTEM_BUS_ADDRESS", m_bus.Address()};
    SInstallerContext m_context = MakeContext("/", nullptr);
};

TEST_F(SystemdService, StartsAndStopsAndTellsTheState) {
    const CFakeSystemd systemd(m_bus.Address(), {{"tarvod.service", {}}});
    const auto service = Find("tarvod");
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(service->GetName(), "tarvod.service");
    EXPECT_EQ(service->GetServiceStatus(), EServiceStatus::Stopped);
    service->Start();
    EXPECT_EQ(service->GetServiceStatus(), EServiceStatus::Running);
    service->Stop();
    EXPECT_EQ(service->GetServiceStatus(), EServiceStatus::Stopped);
    EXPECT_EQ(systemd.Jobs(), 2);
}

TEST_F(SystemdService, TheRootObjectFindsTheAgentsOwnService) {
    const CFakeSystemd systemd(m_bus.Address(), {{"tarvod.service", {}}});
    CInstaller installer(m_context);
    ASSERT_NE(installer.GetZAMService(), nullptr);
    EXPECT_EQ(installer.GetZAMService()->GetName(), "tarvod.service");
    EXPECT_NE(installer.FindService("tarvod.service"), nullptr);
    EXPECT_EQ(installer.FindService("missing"), nullptr);
}

TEST_F(SystemdService, AMissingServiceIsAnEmptyPointer) {
    const CFakeSystemd systemd(m_bus.Address(), {});
    EXPECT_EQ(Find("missing"), nullptr);
    EXPECT_EQ(Find("some.socket"), nullptr);
}

TEST_F(SystemdService, EveryStateOfAUnitHasItsStatus) {
    const std::map<std::string, EServiceStatus> states{
        {"active", EServiceStatus::Running},        {"reloading", EServiceStatus::Running},
        {"inactive", EServiceStatus::Stopped},      {"activating", EServiceStatus::Starting},
        {"deactivating", EServiceStatus::Stopping}, {"failed", EServiceStatus::Failed},
        {"maintenance", EServiceStatus::Unknown},   {"", EServiceStatus::Unknown}};
    std::map<std::string, SFakeUnit> units;
    for (const auto& [state, status] : states)
        units["x" + state + ".service"] = {"loaded", state};
    units["masked.service"] = {"masked", "inactive"};
    const CFakeSystemd systemd(m_bus.Address(), std::move(units));
    for (const auto& [state, status] : states)
        EXPECT_EQ(Find("x" + state)->GetServiceStatus(), status) << state;
    EXPECT_EQ(Find("masked")->GetServiceStatus(), EServiceStatus::Stopped);
}

TEST_F(SystemdService, AFailedJobIsAnError) {
    SFakeUnit unit;
    unit.JobResult = "timeout";
    const CFakeSystemd systemd(m_bus.Address(), {{"bad.service", unit}});
    EXPECT_THROW_WITH(Find("bad")->Start(), CGenericException,
                      "Can't start the service 'bad.service': systemd's job ended with 'timeout'");
    EXPECT_EQ(Find("bad")->GetServiceStatus(), EServiceStatus::Failed);
}

TEST_F(SystemdService, WhatSystemdSaysIsPassedOnHarmlessly) {
    SFakeUnit unit;
    unit.JobResult = "\x1b[31mbad\nforged";
    const CFakeSystemd systemd(m_bus.Address(), {{"bad.service", unit}});
    class CLog final : public apigen::ILogger {
    public:
        void Info(const std::string& message) override { Text += message; }
        void Error(const std::string& message, std::exception&) override { Text += message; }
        std::string Text;
    };
    const auto log = std::make_shared<CLog>();
    EXPECT_THROW_WITH(CSystemdService::Find(MakeContext("/", log), "bad")->Start(), CGenericException,
                      "systemd's job ended with '\\x1b[31mbad\\nforged'");
    EXPECT_NE(log->Text.find("\\x1b[31mbad\\nforged"), std::string::npos) << log->Text;
    EXPECT_EQ(log->Text.find_first_of("\x1b\n"), std::string::npos) << log->Text;
}

TEST_F(SystemdService, AJobThatEndsBeforeItIsAnnouncedIsNotMissed) {
    SFakeUnit unit;
    unit.EndsBeforeTheAnswer = true;
    const CFakeSystemd systemd(m_bus.Address(), {{"quick.service", unit}});
    Find("quick")->Start();
    EXPECT_EQ(Find("quick")->GetServiceStatus(), EServiceStatus::Running);
}

TEST_F(SystemdService, AJobThatNeverEndsIsWaitedForWithALimit) {
    SFakeUnit unit;
    unit.NeverEnds = true;
    const CFakeSystemd systemd(m_bus.Address(), {{"stuck.service", unit}});
    SServiceLimits limits;
    limits.Job = std::chrono::milliseconds(100);
    EXPECT_THROW_WITH(Find("stuck", limits)->Stop(), CGenericException,
                      "Can't stop the service 'stuck.service': it is still under way after 100 ms");
}

TEST_F(SystemdService, SystemdsOwnRefusalIsPassedOn) {
    const CFakeSystemd systemd(m_bus.Address(), {});
    EXPECT_THROW_WITH(Find("refused"), CGenericException,
                      "Can't look up the service \"refused.service\": Not for you.");
}

TEST_F(SystemdService, NamesThatAreNoneAreRefused) {
    for (const std::string name :
         {"", ".service", "a/b", "../x", "a b", "a\n", "a*", "[a]", "k\xc3\xa4se", "a;b"}) {
        EXPECT_THROW_WITH(Find(name), CGenericException, "is no service name");
    }
    EXPECT_THROW(Find(std::string("a\0b", 3)), CGenericException);
    EXPECT_THROW(Find(std::string(248, 'a')), CGenericException);
}

TEST_F(SystemdService, ABusWithoutSystemdIsToldApart) {
    EXPECT_THROW_WITH(Find("tarvod"), CGenericException, "systemd is not running on this host (");
    EXPECT_THROW_WITH(Find("tarvod"), CGenericException, "services can't be managed");
}

TEST_F(SystemdService, SystemdThatGoesAwayIsAnErrorAndItsReturnMendsIt) {
    auto systemd =
        std::make_unique<CFakeSystemd>(m_bus.Address(), std::map<std::string, SFakeUnit>{{"a.service", {}}});
    const auto service = Find("a");
    systemd.reset();
    EXPECT_THROW(service->Start(), CGenericException);
    systemd =
        std::make_unique<CFakeSystemd>(m_bus.Address(), std::map<std::string, SFakeUnit>{{"a.service", {}}});
    service->Start();
    EXPECT_EQ(service->GetServiceStatus(), EServiceStatus::Running);
    m_bus.Stop();
    EXPECT_THROW_WITH(service->GetServiceStatus(), CGenericException, "no connection to the system bus");
}

TEST(SystemdServiceWithoutABus, SaysThatServicesCannotBeManaged) {
    const CTestFolder folder;
    const CEnvironmentVariable address("DBUS_SYSTEM_BUS_ADDRESS",
                                       "unix:path=" + (folder.Path() / "none").string());
    EXPECT_THROW_WITH(CSystemdService::Find(MakeContext("/", nullptr), "tarvod"), CGenericException,
                      "systemd is not running on this host (no connection to the system bus: No such file");
}

TEST(SystemdServiceWithoutABus, ASilentBusIsNotWaitedForLong) {
    const CTestFolder folder;
    const std::string path = (folder.Path() / "silent").string();
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    path.copy(name.sun_path, sizeof(name.sun_path) - 1);
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&name), sizeof(name)), 0);
    ASSERT_EQ(listen(listener, 5), 0);
    const CEnvironmentVariable address("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + path);
    SServiceLimits limits;
    limits.Call = std::chrono::milliseconds(100);
    EXPECT_THROW_WITH(CSystemdService::Find(MakeContext("/", nullptr), "tarvod", limits), CGenericException,
                      "The system bus does not answer");
    close(listener);
}

}  // namespace
}  // namespace installer::test
