// SPDX-License-Identifier: Apache-2.0
#include "installer/CSystemdService.h"

#include <zamclientlib/Exceptions.h>

#include <systemd/sd-bus.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <map>
#include <utility>

#include "support/common/Text.h"

namespace installer {
namespace {

using apigen::common::ErrorText;
using apigen::common::Escaped;
using apigen::common::Quoted;
using zamclientlib::CGenericException;
using zamclientlib::EServiceStatus;
using Clock = std::chrono::steady_clock;

constexpr const char* destination = "org.freedesktop.systemd1";
constexpr const char* managerPath = "/org/freedesktop/systemd1";
constexpr const char* managerInterface = "org.freedesktop.systemd1.Manager";
constexpr const char* unitInterface = "org.freedesktop.systemd1.Unit";

constexpr std::string_view serviceSuffix = ".service";
constexpr std::size_t longestUnitName = 255;

struct SState {
    std::string_view ActiveState;
    EServiceStatus Status;
};
constexpr SState states[]{
    {"active", EServiceStatus::Running},      {"reloading", EServiceStatus::Running},
    {"refreshing", EServiceStatus::Running},  {"inactive", EServiceStatus::Stopped},
    {"activating", EServiceStatus::Starting}, {"deactivating", EServiceStatus::Stopping},
    {"failed", EServiceStatus::Failed},
};

// Errors that mean: nobody stands behind systemd's name on this bus.
constexpr std::string_view absenceErrors[]{
    SD_BUS_ERROR_SERVICE_UNKNOWN,
    SD_BUS_ERROR_NAME_HAS_NO_OWNER,
};
constexpr std::string_view activationErrors = "org.freedesktop.DBus.Error.Spawn.";

[[noreturn]] void ThrowNoSystemd(const std::string& reason) {
    throw CGenericException("systemd is not running on this host (" + reason +
                            "): services can't be managed.");
}

// The unit name for a service's name as people write it.
std::string UnitName(const std::string& name) {
    const auto isAllowed = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               std::string_view(":-_.\\@").find(c) != std::string_view::npos;
    };
    std::string unit = name.ends_with(serviceSuffix) ? name : name + std::string(serviceSuffix);
    if (unit.size() == serviceSuffix.size() || unit.size() > longestUnitName ||
        !std::all_of(unit.begin(), unit.end(), isAllowed)) {
        throw CGenericException(Quoted(name) +
                                " is no service name: a name has 1 to 247 letters, digits and ':-_.\\@'.");
    }
    return unit;
}

template <class T, T* (*Unref)(T*)>
struct Releaser {
    void operator()(T* object) const noexcept { Unref(object); }
};
using MessagePtr = std::unique_ptr<sd_bus_message, Releaser<sd_bus_message, sd_bus_message_unref>>;
// Not flushed before: with a bus that doesn't answer, flushing alone takes a minute and a half.
using BusPtr = std::unique_ptr<sd_bus, Releaser<sd_bus, sd_bus_close_unref>>;

class CBusError {
public:
    CBusError() = default;
    CBusError(const CBusError&) = delete;
    CBusError& operator=(const CBusError&) = delete;
    ~CBusError() { sd_bus_error_free(&m_error); }

    sd_bus_error* Get() noexcept { return &m_error; }

    bool TellsOfAbsence() const {
        const std::string_view name = m_error.name == nullptr ? "" : m_error.name;
        return name.starts_with(activationErrors) ||
               std::find(std::begin(absenceErrors), std::end(absenceErrors), name) != std::end(absenceErrors);
    }
    std::string Text(int result) const {
        return m_error.message == nullptr ? ErrorText(-result) : Escaped(m_error.message);
    }

private:
    sd_bus_error m_error{};
};

std::uint64_t Microseconds(std::chrono::nanoseconds duration) {
    const auto count = std::chrono::ceil<std::chrono::microseconds>(duration).count();
    return static_cast<std::uint64_t>(std::max<decltype(count)>(count, 0));
}

// A connection to systemd on the system bus.
class CSystemd {
public:
    explicit CSystemd(std::chrono::milliseconds callLimit) {
        sd_bus* bus = nullptr;
        const int result = sd_bus_open_system(&bus);
        if (result < 0) ThrowNoSystemd("no connection to the system bus: " + ErrorText(-result));
        m_bus.reset(bus);
        sd_bus_set_method_call_timeout(bus, Microseconds(callLimit));
        AwaitReady(Clock::now() + callLimit);
    }

    // The path of the unit's object. systemd gives one for every name, also where no such unit exists.
    std::string LoadUnit(const std::string& unit) {
        return ObjectPath(Call("LoadUnit", "Can't look up the service " + Quoted(unit), "s", unit.c_str()));
    }

    std::string UnitProperty(const std::string& unit, const char* property) {
        CBusError error;
        char* value = nullptr;
        const int result = sd_bus_get_property_string(m_bus.get(), destination, LoadUnit(unit).c_str(),
                                                      unitInterface, property, error.Get(), &value);
        Require(result, error, "Can't read the state of the service " + Quoted(unit));
        const std::unique_ptr<char, decltype(&std::free)> owner(value, &std::free);
        return value;
    }

    // Runs `method` (StartUnit, ...) and returns the result of the job that it makes.
    std::string RunJob(const char* method, const std::string& unit, const std::string& attempt,
                       std::chrono::milliseconds limit) {
        // Listening begins before the job does: a short one would end unheard.
        const int matched = sd_bus_match_signal(m_bus.get(), nullptr, destination, managerPath,
                                                managerInterface, "JobRemoved", OnJobRemoved, &m_endedJobs);
        Require(matched, CBusError(), attempt);
        Call("Subscribe", attempt, "");
        const auto deadline = Clock::now() + limit;
        const std::string job = ObjectPath(Call(method, attempt, "ss", unit.c_str(), "replace"));
        while (m_endedJobs.count(job) == 0) {
            if (!ProcessUntil(deadline, attempt)) {
                throw CGenericException(attempt + ": it is still under way after " +
                                        std::to_string(limit.count()) + " ms.");
            }
        }
        return m_endedJobs[job];
    }

private:
    // What to do with a negative result.
    void Require(int result, const CBusError& error, const std::string& attempt) const {
        if (result >= 0) return;
        if (error.TellsOfAbsence()) ThrowNoSystemd(error.Text(result));
        throw CGenericException(attempt + ": " + error.Text(result) + ".");
    }

    template <class... Arguments>
    MessagePtr Call(const char* method, const std::string& attempt, const char* types,
                    Arguments... arguments) {
        CBusError error;
        sd_bus_message* reply = nullptr;
        const int result = sd_bus_call_method(m_bus.get(), destination, managerPath, managerInterface, method,
                                              error.Get(), &reply, types, arguments...);
        MessagePtr owner(reply);
        Require(result, error, attempt);
        return owner;
    }

    static std::string ObjectPath(const MessagePtr& reply) {
        const char* path = nullptr;
        if (sd_bus_message_read(reply.get(), "o", &path) < 0 || path == nullptr) {
            throw CGenericException("systemd's answer on the bus holds no object path.");
        }
        return path;
    }

    static int OnJobRemoved(sd_bus_message* signal, void* endedJobs, sd_bus_error* /*error*/) noexcept {
        std::uint32_t id = 0;
        const char* job = nullptr;
        const char* unit = nullptr;
        const char* result = nullptr;
        if (sd_bus_message_read(signal, "uoss", &id, &job, &unit, &result) >= 0) {
            try {
                (*static_cast<std::map<std::string, std::string>*>(endedJobs))[job] = result;
            } catch (const std::bad_alloc&) {
                return -ENOMEM;
            }
        }
        return 0;
    }

    void AwaitReady(Clock::time_point deadline) {
        while (sd_bus_is_ready(m_bus.get()) == 0) {
            if (!ProcessUntil(deadline, "Can't sign in to the system bus")) {
                throw CGenericException("The system bus does not answer: services can't be managed.");
            }
        }
    }

    // Handles what has come or waits for something to come; false when the deadline has passed.
    bool ProcessUntil(Clock::time_point deadline, const std::string& attempt) {
        const auto now = Clock::now();
        if (now >= deadline) return false;
        int result = sd_bus_process(m_bus.get(), nullptr);
        if (result == 0) result = sd_bus_wait(m_bus.get(), Microseconds(deadline - now));
        if (result < 0 && result != -EINTR) {
            throw CGenericException(attempt +
                                    ": the connection to the system bus broke: " + ErrorText(-result) + ".");
        }
        return true;
    }

    std::map<std::string, std::string> m_endedJobs;  // path to result
    BusPtr m_bus;
};

}  // namespace

std::shared_ptr<CSystemdService> CSystemdService::Find(const SInstallerContext& context,
                                                       const std::string& name,
                                                       const SServiceLimits& limits) {
    std::string unit = UnitName(name);
    if (!context.IsRunningSystem()) {
        throw CGenericException("The services of " + Quoted(context.Root.string()) +
                                " can't be managed: it is not the running system.");
    }
    if (CSystemd(limits.Call).UnitProperty(unit, "LoadState") == "not-found") return nullptr;
    return std::shared_ptr<CSystemdService>(new CSystemdService(context, std::move(unit), limits));
}

EServiceStatus CSystemdService::GetServiceStatus() const {
    const std::string state = CSystemd(m_limits.Call).UnitProperty(m_unit, "ActiveState");
    const auto* const found = std::find_if(std::begin(states), std::end(states),
                                           [&](const SState& row) { return row.ActiveState == state; });
    return found == std::end(states) ? EServiceStatus::Unknown : found->Status;
}

void CSystemdService::Start() {
    RunJob("StartUnit", "start");
}

void CSystemdService::Stop() {
    RunJob("StopUnit", "stop");
}

void CSystemdService::RunJob(const char* method, std::string_view verb) const {
    const std::string what = std::string(verb) + " the service '" + m_unit + "'";
    m_context.Log->Info("Begin to " + what);
    const std::string result =
        Escaped(CSystemd(m_limits.Call).RunJob(method, m_unit, "Can't " + what, m_limits.Job));
    m_context.Log->Info("Result of the attempt to " + what + ": " + result);
    if (result != "done") {
        throw CGenericException("Can't " + what + ": systemd's job ended with '" + result +
                                "'. See 'systemctl status " + m_unit + "' and its journal.");
    }
}

}  // namespace installer
