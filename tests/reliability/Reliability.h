// SPDX-License-Identifier: Apache-2.0
/// \file
/// What the proofs of reliability share: tools that fail where they are told to, what may come of it, and the
/// proof that nothing is left.
#pragma once

#include <apigen/ApiException.h>
#include <apigen/CApiClientInvoker.h>
#include <zamclientlib/CApiExceptionGenerator.h>
#include <zamclientlib/CEventsStream.h>
#include <zamclientlib/Connect.h>
#include <zamclientlib/InstallerProxies.h>

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <new>
#include <ostream>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "tests/Sanitized.h"
#include "tests/api/TemporaryFolder.h"

namespace reliability {

using namespace std::chrono_literals;  // NOLINT: for tests alone
using tests::IsSanitized;
using tests::IsThreadSanitized;
using Clock = std::chrono::steady_clock;
using Arguments = std::vector<std::string>;

#ifdef NDEBUG
inline constexpr bool IsOptimised = true;
#else
inline constexpr bool IsOptimised = false;
#endif

/// With ZAM_RELIABILITY=full every offset is tried, and every loop runs its whole length.
inline bool IsFull() {
    const char* const density = std::getenv("ZAM_RELIABILITY");  // NOLINT(concurrency-mt-unsafe)
    return density != nullptr && std::string_view(density) == "full";
}

template <class T>
T FullOr(T full, T otherwise) {
    return IsFull() ? full : otherwise;
}

/// The offsets of a message of `size` bytes that are worth a try: all of a small one. Of a large one those at
/// its ends and around the sizes in which pipes and buffers think, and some between.
inline std::vector<std::size_t> Offsets(std::size_t size, std::size_t stride = 4999) {
    constexpr std::size_t Near = 48;
    std::vector<std::size_t> offsets;
    for (std::size_t at = 0; at <= size; ++at) {
        const bool isNearABlock = at % 65536 < 3 || at % 65536 > 65533 || (at % 4096 == 0 && at < 20000);
        if (IsFull() || at < Near || at + Near > size || at % stride == 0 || isNearABlock)
            offsets.push_back(at);
    }
    return offsets;
}

enum class EOutcome {
    Success,
    Launch,
    Gone,
    Broken,
    Timeout,
    Internal,  // another ApiInternalError
    Refused,   // another ApiException
    NoMemory,
    System,   // std::system_error
    Foreign,  // nothing that a caller is promised
};

struct SOutcome {
    EOutcome Kind = EOutcome::Success;
    std::string Text = {};
    std::chrono::milliseconds Took{};
};

inline std::ostream& operator<<(std::ostream& out, const SOutcome& outcome) {
    return out << "outcome " << static_cast<int>(outcome.Kind) << " after " << outcome.Took.count()
               << " ms: " << outcome.Text.substr(0, 400);
}

/// How `action` ends. An unwinding that is no exception goes on.
template <class Action>
SOutcome OutcomeOf(Action&& action) {
    const auto start = Clock::now();
    const auto ended = [&](EOutcome kind, const char* text) {
        return SOutcome{kind, text,
                        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start)};
    };
    try {
        action();
        return ended(EOutcome::Success, "");
    } catch (const apigen::ProcessLaunchError& error) {
        return ended(EOutcome::Launch, error.what());
    } catch (const apigen::PeerGoneError& error) {
        return ended(EOutcome::Gone, error.what());
    } catch (const apigen::BrokenMessageError& error) {
        return ended(EOutcome::Broken, error.what());
    } catch (const apigen::TimeoutError& error) {
        return ended(EOutcome::Timeout, error.what());
    } catch (const apigen::ApiInternalError& error) {
        return ended(EOutcome::Internal, error.what());
    } catch (const apigen::ApiException& error) {
        return ended(EOutcome::Refused, error.what());
    } catch (const std::bad_alloc& error) {
        return ended(EOutcome::NoMemory, error.what());
    } catch (const std::system_error& error) {
        return ended(EOutcome::System, error.what());
    } catch (const std::exception& error) {
        return ended(EOutcome::Foreign, error.what());
    } catch (int) {
        return ended(EOutcome::Foreign, "an int");
    }
}

inline std::ptrdiff_t OpenDescriptors() {
    const std::filesystem::directory_iterator folder("/proc/self/fd");
    return std::distance(begin(folder), end(folder));
}

/// What they are, for a message.
inline std::string DescriptorList() {
    std::string all;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        const auto target = std::filesystem::read_symlink(entry.path(), ignored);
        all += ' ' + entry.path().filename().string() + '=' + target.string();
    }
    return all;
}

/// Whether any child, running or a zombie, is there. Collects none.
inline bool HasChild() {
    siginfo_t info{};
    return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

/// Whether a child has ended and nobody has collected it.
inline bool HasZombie() {
    siginfo_t info{};
    return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid != 0;
}

/// Waits until `condition` holds; false when it does not in time.
template <class Condition>
bool Eventually(Condition&& condition, std::chrono::milliseconds patience = 20s) {
    const auto limit = Clock::now() + patience;
    while (!condition()) {
        if (Clock::now() > limit) return false;
        ::poll(nullptr, 0, 1);
    }
    return true;
}

inline std::size_t MemoryOf(const std::string& status, const std::string& key) {
    std::ifstream file(status);
    for (std::string line; std::getline(file, line);)
        if (line.rfind(key + ':', 0) == 0)
            return std::strtoul(line.c_str() + key.size() + 1, nullptr, 10) * 1024;
    return 0;
}

/// The tool of this folder, at `program`, as a service of the installer.
inline std::shared_ptr<apigen::CApiClientInvoker> Invoker(
    const Arguments& arguments, std::chrono::seconds timeout = 20s,
    const std::shared_ptr<apigen::ILogger>& logger = nullptr, const std::string& program = RELIABILITY_PEER) {
    return apigen::CApiClientInvoker::CreateByProcess(
        program, arguments, std::make_shared<zamclientlib::CApiExceptionGenerator>(logger), timeout, logger);
}

using Root = std::shared_ptr<zamclientlib::ITarvoInstaller>;
using Packages = std::shared_ptr<zamclientlib::IPackageManager>;

inline Root Connect(const Arguments& arguments, std::chrono::seconds timeout = 20s,
                    const std::shared_ptr<apigen::ILogger>& logger = nullptr) {
    auto invoker = Invoker(arguments, timeout, logger);
    const auto handle = invoker->GetRootHandle();
    return std::make_shared<zamclientlib::ITarvoInstaller_Proxy>(std::move(invoker), handle);
}

/// The root object as if it were a package manager, whose calls carry texts.
inline Packages ConnectPackages(const Arguments& arguments, std::chrono::seconds timeout = 20s,
                                const std::shared_ptr<apigen::ILogger>& logger = nullptr) {
    auto invoker = Invoker(arguments, timeout, logger);
    const auto handle = invoker->GetRootHandle();
    return std::make_shared<zamclientlib::IPackageManager_Proxy>(std::move(invoker), handle);
}

/// The text that the tool answers with when it is told a size.
inline std::string TextOfSize(std::size_t size) {
    std::string text;
    while (text.size() < size)
        text += std::to_string(text.size()) + ' ';
    text.resize(size);
    return text;
}

inline constexpr std::size_t HeaderBytes = 4;
inline const std::string Greeting = "<Data><__handle>1</__handle></Data>";
inline const std::string TrueAnswer = "<Data><__result>true</__result></Data>";

/// Each test starts and ends without a child, and ends with the descriptors that it started with.
class CReliabilityTest : public testing::Test {
protected:
    CReliabilityTest() : m_descriptors(OpenDescriptors()) {}
    ~CReliabilityTest() override { ExpectNothingLeft("the test"); }

    /// \return false after a failure, so that a loop can end with its first
    bool ExpectNothingLeft(const std::string& after) const {
        EXPECT_FALSE(HasChild()) << "a child is left after " << after;
        EXPECT_EQ(OpenDescriptors(), m_descriptors)
            << "descriptors differ after " << after << ':' << DescriptorList();
        return !HasFailure();
    }

    zamtest::CTemporaryFolder m_folder;

private:
    std::ptrdiff_t m_descriptors;
};

/// How `check` ends in a forked copy of this process, in which it may change what belongs to the whole process:
/// its result, or -1 when it threw, died or took more than `seconds`.
template <class Check>
int InAProcessOfItsOwn(Check&& check, unsigned seconds = 60) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::alarm(seconds);
        int result = 255;
        try {
            result = check();
        } catch (const std::exception& error) {
            std::fprintf(stderr, "in the child: %s\n", error.what());
        } catch (...) {
        }
        ::_exit(result);
    }
    int status = -1;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) != 255 ? WEXITSTATUS(status) : -1;
}

}  // namespace reliability
