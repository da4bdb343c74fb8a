// SPDX-License-Identifier: Apache-2.0
#include "agent/CAgent.h"

#include <poll.h>
#include <pwd.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "Failure.h"
#include "agent/Interrupt.h"
#include "show/Words.h"

namespace zamctl {

using namespace zamclientlib;  // NOLINT: this file speaks of nothing else

namespace {

using Clock = std::chrono::steady_clock;

/// How long one zamctl waits for another one.
constexpr std::chrono::seconds TurnLimit{10};

constexpr std::string_view NameStart = "zamctl of ";
constexpr std::string_view ProcessWord = ", process ";

// To the agent, a zamctl is one of three owners: one that looks, and lets go at once; a command, for as long as it has
// something to change; or its user, who keeps control from one command to the next. A command's id is made anew each
// time, the other two are random and never to be changed.

// For whoever looks: nothing is changed by this owner, so it need not be one's own.
constexpr const char* LookerId = "{6f1d3c7a-91c4-4f0e-8a53-2b7e5d90c1f4}";
// With the user's number in its last group.
constexpr const char* UserId = "{6f1d3c7b-91c4-4f0e-8a53-000000000000}";

std::string UserName() {
    const passwd* const entry = ::getpwuid(::geteuid());
    return entry != nullptr ? entry->pw_name : std::to_string(::geteuid());
}

/// The owner that one command is. The name tells other commands whether that is still running.
SZamControlOwnerInfo CommandAsOwner(const std::string& user, ZAMOwnerMode mode) {
    SZamControlOwnerInfo owner;
    owner.Id = apigen::Guid::Random();
    owner.Name = std::string(NameStart) + user + std::string(ProcessWord) + std::to_string(::getpid());
    owner.Type = ZAMOwnerType::Local;
    owner.Mode = mode;
    return owner;
}

/// The process that the owner is, when it is a zamctl; else 0.
pid_t ProcessOf(const SZamControlOwnerInfo& owner) {
    const auto at = owner.Name.rfind(ProcessWord);
    if (!std::string_view(owner.Name).starts_with(NameStart) || at == std::string::npos) return 0;
    return std::atoi(owner.Name.c_str() + at + ProcessWord.size());
}

/// The agent is always on this host, and so are its owners that say "process".
bool IsRunning(pid_t process) {
    if (::kill(process, 0) != 0 && errno == ESRCH) return false;
    std::ifstream file("/proc/" + std::to_string(process) + "/comm");
    std::string name;
    // The number may have been given to another program since.
    return !std::getline(file, name) || name == "zamctl";
}

/// Lets others change things, for more than the moment of one who looks.
bool SharesForLong(const SZamControlOwnerInfo& owner) {
    return owner.Mode == ZAMOwnerMode::Shared && owner.Id != apigen::Guid::Parse(LookerId).Value();
}

std::string OwnerWords(const SZamControlOwnerInfo& owner) {
    return (owner.Name.empty() ? "an owner without a name" : Escaped(owner.Name)) + " (" +
           std::string(NameOf(owner.Mode)) + ")";
}

[[noreturn]] void ThrowNoAgent(const apigen::ApiException& error) {
    std::string hint;
    if (dynamic_cast<const apigen::ProcessLaunchError*>(&error) != nullptr) {
        hint = "install the agent, or name its tool with --tool";
    } else if (dynamic_cast<const apigen::TimeoutError*>(&error) != nullptr) {
        hint = "give it longer with --timeout";
    }
    throw CFailure(EExit::NoAgent, std::string("the agent can't be reached: ") + error.what(), hint);
}

void Wait(std::chrono::milliseconds time) {
    pollfd end{Interruption()->Descriptor(), POLLIN, 0};
    ::poll(&end, 1, static_cast<int>(time.count()));
}

}  // namespace

CChange::CChange(CAgent& agent, std::shared_ptr<IZamProduct> product, SZamControlOwnerInfo owner)
    : m_agent(&agent), m_product(std::move(product)), m_owner(std::move(owner)) {}

CChange::CChange(CChange&& other) noexcept
    : m_agent(std::exchange(other.m_agent, nullptr)),
      m_product(std::move(other.m_product)),
      m_owner(std::move(other.m_owner)) {}

CChange::~CChange() {
    if (m_agent != nullptr) m_agent->Release(m_owner);
}

CAgent::CAgent(SAgentOptions options) : m_options(std::move(options)), m_interruptible(Interruption()) {}

IZamControl& CAgent::Control() {
    if (m_control == nullptr) {
        SConnectOptions options;
        options.Tool = m_options.Tool;
        options.ConnectTimeout = m_options.Timeout;
        options.CallTimeout = m_options.Timeout;
        try {
            m_control = ConnectToAgent(options);
        } catch (const apigen::InterruptedError&) {
            throw;
        } catch (const apigen::ApiException& error) {
            ThrowNoAgent(error);
        }
    }
    return *m_control;
}

std::shared_ptr<ITarvoInstaller> CAgent::Installer() {
    SConnectOptions options;
    options.Tool = m_options.InstallerTool;
    options.ConnectTimeout = m_options.Timeout;
    options.CallTimeout = m_options.Timeout;
    try {
        return ConnectToInstaller(options);
    } catch (const apigen::InterruptedError&) {
        throw;
    } catch (const apigen::ApiException& error) {
        throw CFailure(EExit::NoAgent, std::string("the installer tool can't be reached: ") + error.what(),
                       "install it, or name it with --installer-tool");
    }
}

std::shared_ptr<IZamProduct> CAgent::Request(const OwnerInfo& owner, bool isForced) {
    auto product = Control().RequestControl(owner, isForced);
    if (product == nullptr) throw CFailure(EExit::Refused, "the agent does not hand out its product");
    return product;
}

std::shared_ptr<IZamProduct> CAgent::RequestInTurn(const OwnerInfo& owner, bool isToChange) {
    const auto deadline = Clock::now() + TurnLimit;
    while (true) {
        std::string why;
        SZamControlOwnerInfo present;
        if (isToChange) present = Control().GetCurrentOwner();
        // Who shares to look at most would let us in, and refuse the change.
        if (present.Id == apigen::Guid() || SharesForLong(present)) {
            try {
                auto product = Request(owner, false);
                if (!isToChange) return product;
                present = Control().GetCurrentOwner();
                if (present.Id == owner.Id || SharesForLong(present)) return product;
                // Someone who looked came before, with whose going what we have got ends as well.
            } catch (const CGenericException& error) {
                why = error.what();
                present = Control().GetCurrentOwner();
            }
        }
        // Refused for another reason, or because of an owner who has gone meanwhile.
        if (present.Id == apigen::Guid()) {
            if (!why.empty() && Clock::now() > deadline) throw CFailure(EExit::Refused, why);
        } else if (present.Id == UserAsOwner().Id) {
            return Request(present, false);
        } else if (const pid_t process = ProcessOf(present); process != 0 && process != ::getpid()) {
            if (!IsRunning(process)) return Request(owner, true);  // killed, it could give nothing back
            if (Clock::now() > deadline)
                throw CFailure(
                    EExit::Refused,
                    "the agent is controlled by " + OwnerWords(present) + ", which is still at work",
                    "wait for it to end");
        } else if (isToChange && m_options.IsForced) {
            if (m_options.AskForce) m_options.AskForce(present);
            return Request(owner, true);
        } else {
            throw CFailure(EExit::Refused, "the agent is controlled by " + OwnerWords(present),
                           isToChange ? "ask for it to be given back, or take it with --force"
                                      : "nobody else may look at it; ask for control to be given back");
        }
        Wait(std::chrono::milliseconds(20));
        if (InterruptedBy() != 0) throw CFailure(EExit::Interrupted, "interrupted");
    }
}

std::shared_ptr<IZamProduct> CAgent::Look() {
    if (m_product != nullptr) return m_product;
    // For a moment only: a user's name takes longer to look up.
    SZamControlOwnerInfo owner = CommandAsOwner(std::to_string(::geteuid()), ZAMOwnerMode::Shared);
    owner.Id = apigen::Guid::Parse(LookerId).Value();
    m_product = RequestInTurn(owner, false);
    try {
        // A product can be looked at by whoever has it. Where another one is the owner, this is refused.
        Control().ReleaseControl(owner);
    } catch (const CGenericException&) {  // NOLINT(bugprone-empty-catch)
    }
    return m_product;
}

CChange CAgent::Change() {
    const SZamControlOwnerInfo owner = CommandAsOwner(UserName(), ZAMOwnerMode::Exclusive);
    auto product = RequestInTurn(owner, true);
    // Where another one shares control, or the user has kept it, giving it back is refused in the end, which is right.
    return {*this, std::move(product), owner};
}

void CAgent::Release(const OwnerInfo& owner) noexcept {
    // What ends the command must not keep control from being given back.
    m_interruptible.reset();
    try {
        const apigen::CCallDeadline limit(std::chrono::seconds(5));
        if (!GetConnectionState(m_control).IsAlive) Reconnect();
        Control().ReleaseControl(owner);
    } catch (const CGenericException&) {  // NOLINT(bugprone-empty-catch): another one's by now
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zamctl: control of the agent was not given back: %s\n",
                     Escaped(error.what()).c_str());
    }
    try {
        m_interruptible.emplace(Interruption());
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): calls go on, uninterrupted
    }
}

SZamControlOwnerInfo CAgent::Take(const std::string& name, ZAMOwnerMode mode) {
    SZamControlOwnerInfo owner = UserAsOwner();
    if (!name.empty()) owner.Name = name;
    owner.Mode = mode;
    m_product = RequestInTurn(owner, true);
    // Who had let us in as a guest is the owner still.
    const auto present = Control().GetCurrentOwner();
    if (present.Id == owner.Id) {
        // He may have had control before, on other terms.
        if (present.Name != owner.Name || present.Mode != owner.Mode) m_product = Request(owner, false);
    } else {
        if (!m_options.IsForced)
            throw CFailure(EExit::Refused, "the agent is controlled by " + OwnerWords(present),
                           "ask for it to be given back, or take it with --force");
        if (m_options.AskForce) m_options.AskForce(present);
        m_product = Request(owner, true);
    }
    return Control().GetCurrentOwner();
}

SZamControlOwnerInfo CAgent::UserAsOwner() {
    SZamControlOwnerInfo owner;
    owner.Id = apigen::Guid::Parse(UserId).Value();
    const auto user = static_cast<std::uint32_t>(::geteuid());
    for (std::size_t i = 0; i < 4; ++i)
        owner.Id.Data4[4 + i] = static_cast<std::uint8_t>(user >> (8 * (3 - i)));
    owner.Name = "user " + UserName();
    owner.Type = ZAMOwnerType::Local;
    return owner;
}

void CAgent::Reconnect() {
    m_product.reset();
    m_control.reset();
}

}  // namespace zamctl
