// SPDX-License-Identifier: Apache-2.0
// A process that has run out of descriptors, of processes, of disk.
#include <zamclientlib/ApiClient.h>
#include <zamclientlib/CSimpleLogger.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include "tests/events/Sockets.h"
#include "tests/reliability/Reliability.h"

namespace reliability {
namespace {

constexpr int NotPossibleHere = 77;
constexpr const char* NeedsDescriptors = "a sanitizer needs descriptors itself";

class Shortage : public CReliabilityTest {};

/// Leaves the process so many descriptors more than it has, for as long as the object lives.
class CDescriptorLimit {
public:
    explicit CDescriptorLimit(std::size_t left) {
        ::getrlimit(RLIMIT_NOFILE, &m_before);
        rlimit limit = m_before;
        for (limit.rlim_cur = 0; left != 0 || ::fcntl(static_cast<int>(limit.rlim_cur), F_GETFD) >= 0;
             ++limit.rlim_cur)
            if (::fcntl(static_cast<int>(limit.rlim_cur), F_GETFD) < 0) --left;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
    CDescriptorLimit(const CDescriptorLimit&) = delete;
    CDescriptorLimit& operator=(const CDescriptorLimit&) = delete;
    ~CDescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &m_before); }

private:
    rlimit m_before{};
};

TEST_F(Shortage, OfDescriptorsIsALaunchErrorOrNoHindrance) {
    if (IsSanitized) GTEST_SKIP() << NeedsDescriptors;
    bool hasFailed = false;
    bool hasWorked = false;
    for (std::size_t left = 0; left <= 16; ++left) {
        SOutcome outcome;
        int error = 0;
        {
            const CDescriptorLimit limit(left);
            outcome = OutcomeOf([&] {
                try {
                    const Packages packages = ConnectPackages({"answer=echo"});
                    if (packages->GetPackageNameFromFile("a") != "a") std::abort();
                } catch (const apigen::ProcessLaunchError& failure) {
                    error = failure.ErrorNumber();
                    throw;
                }
            });
        }
        if (outcome.Kind == EOutcome::Launch) {
            hasFailed = true;
            EXPECT_EQ(error, EMFILE) << left << ": " << outcome;
        } else {
            hasWorked = true;
            EXPECT_EQ(outcome.Kind, EOutcome::Success) << left << ": " << outcome;
        }
        if (!ExpectNothingLeft(std::to_string(left) + " descriptors")) return;
    }
    EXPECT_TRUE(hasFailed && hasWorked);
}

TEST_F(Shortage, OfDescriptorsLetsNoVersionQueryHang) {
    if (IsSanitized) GTEST_SKIP() << NeedsDescriptors;
    m_folder.Write(
        "tool",
        std::string("#!/bin/sh\nexec '") + RELIABILITY_PEER +
            "' 'print=<Data><SCompatibilityInfo><protocolVersion><major>2</major><minor>0</minor>"
            "<revision>0</revision><build>0</build></protocolVersion></SCompatibilityInfo></Data>'\n");
    std::filesystem::permissions(m_folder.Path("tool"), std::filesystem::perms::all);
    for (std::size_t left = 0; left <= 12; ++left) {
        SOutcome outcome;
        {
            const CDescriptorLimit limit(left);
            outcome = OutcomeOf([&] { zamclientlib::IsInstallerApiCompatible(m_folder.Path("tool")); });
        }
        // The shell and the peer find themselves under the limit too.
        EXPECT_LT(outcome.Kind, EOutcome::Refused) << left << ": " << outcome;
        if (!ExpectNothingLeft(std::to_string(left) + " descriptors")) return;
    }
}

TEST_F(Shortage, OfDescriptorsIsASystemErrorOfAnEventStream) {
    if (IsSanitized) GTEST_SKIP() << NeedsDescriptors;
    const std::string path = m_folder.Path("socket");
    const tests::CRawServer server(path);
    bool hasWorked = false;
    for (std::size_t left = 0; left <= 4; ++left) {
        SOutcome outcome;
        {
            const CDescriptorLimit limit(left);
            outcome = OutcomeOf([&] { zamclientlib::CEventsStream(tests::ConfigFor(path), nullptr).Stop(); });
        }
        hasWorked = outcome.Kind == EOutcome::Success;
        EXPECT_TRUE(hasWorked || outcome.Kind == EOutcome::System) << left << ": " << outcome;
    }
    EXPECT_TRUE(hasWorked);
}

TEST_F(Shortage, OfProcessesIsALaunchErrorWithItsErrno) {
    constexpr uid_t Nobody = 65534;
    const std::string peer = m_folder.Path("peer");
    std::filesystem::copy_file(RELIABILITY_PEER, peer);
    std::filesystem::permissions(peer, std::filesystem::perms::all);
    const int result = InAProcessOfItsOwn([&] {
        const rlimit none{0, 0};
        if (::setrlimit(RLIMIT_NPROC, &none) != 0 || ::setresuid(Nobody, Nobody, Nobody) != 0)
            return NotPossibleHere;
        const auto descriptors = OpenDescriptors();
        try {
            Invoker({}, 5s, nullptr, peer);
            return 2;
        } catch (const apigen::ProcessLaunchError& error) {
            if (error.ErrorNumber() != EAGAIN) return 3;
        }
        return OpenDescriptors() == descriptors && !HasChild() ? 0 : 4;
    });
    if (result == NotPossibleHere) GTEST_SKIP() << "needs the right to become another user";
    EXPECT_EQ(result, 0);
}

TEST_F(Shortage, OfDiskCostsALogItsLinesAndACallerNothing) {
    const std::string folder = m_folder.Path("small");
    std::filesystem::create_directory(folder);
    const int result = InAProcessOfItsOwn([&] {
        if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0 ||
            ::mount("none", folder.c_str(), "tmpfs", 0, "size=64k") != 0)
            return NotPossibleHere;
        {
            const auto logger = std::make_shared<zamclientlib::CSimpleLogger>(folder, "a.log");
            std::ofstream(folder + "/filler") << std::string(1'000'000, 'x');
            for (int i = 0; i < 2000; ++i)
                logger->Info(std::string(100, 'l'));
            const Packages packages = ConnectPackages({"answer=echo"}, 20s, logger);
            if (packages->GetPackageNameFromFile("a") != "a") return 2;
            std::filesystem::remove(folder + "/filler");
            logger->Info("there is room again");
        }
        const auto lines = zamtest::LinesOf(folder + "/a.log");
        if (std::none_of(lines.begin(), lines.end(), [](const std::string& line) {
                return line.find("]    there is room again") != std::string::npos;
            }))
            return 3;
        {  // and a disk that is full when the log is to be made
            std::ofstream(folder + "/filler") << std::string(1'000'000, 'x');
            const auto logger = std::make_shared<zamclientlib::CSimpleLogger>(folder, "b.log");
            if (ConnectPackages({"answer=echo"}, 20s, logger)->GetPackageNameFromFile("a") != "a") return 4;
        }
        return 0;
    });
    if (result == NotPossibleHere) GTEST_SKIP() << "needs the right to mount";
    EXPECT_EQ(result, 0);
}

}  // namespace
}  // namespace reliability
