// SPDX-License-Identifier: Apache-2.0
// Memory that ends at any allocation. This program replaces the global operator new, so it stands alone.
#include <zamclientlib/AgentProxies.h>

#include <cstdlib>
#include <new>
#include <thread>

#include "tests/events/Sockets.h"
#include "tests/reliability/Reliability.h"

namespace {

// Of this thread alone, so that a test's helpers are not hit.
thread_local long g_allocationsLeft = -1;  // NOLINT: -1 for all that are wanted
thread_local bool g_failsFromThereOn = false;
thread_local bool g_hasFailed = false;

void* Allocate(std::size_t size, std::size_t alignment) {
    if (g_allocationsLeft == 0) {
        if (!g_failsFromThereOn) g_allocationsLeft = -1;
        g_hasFailed = true;
        return nullptr;
    }
    if (g_allocationsLeft > 0) --g_allocationsLeft;
    if (alignment <= alignof(std::max_align_t)) return std::malloc(size != 0 ? size : 1);
    return std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
}

void* AllocateOrThrow(std::size_t size, std::size_t alignment) {
    void* const memory = Allocate(size, alignment);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

constexpr std::size_t Normal = alignof(std::max_align_t);

}  // namespace

void* operator new(std::size_t size) {
    return AllocateOrThrow(size, Normal);
}
void* operator new[](std::size_t size) {
    return AllocateOrThrow(size, Normal);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return AllocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return AllocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return Allocate(size, Normal);
}
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return Allocate(size, Normal);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::align_val_t /*alignment*/) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
    std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t& /*tag*/) noexcept {
    std::free(memory);
}

namespace reliability {
namespace {

/// How `action` ends when its allocation number `count` fails, and with `fromThereOn` all later ones.
template <class Action>
SOutcome WithShortMemory(long count, bool fromThereOn, Action&& action) {
    g_hasFailed = false;
    g_failsFromThereOn = fromThereOn;
    g_allocationsLeft = count;
    SOutcome outcome;
    try {
        action();
        g_allocationsLeft = -1;
    } catch (...) {
        g_allocationsLeft = -1;
        outcome = OutcomeOf([] { throw; });
    }
    return outcome;
}

/// Once for every allocation that `round` makes while it is armed, and once with none failing.
class ShortMemory : public CReliabilityTest, public testing::WithParamInterface<bool> {
protected:
    /// `round(count)` returns false when nothing has failed.
    template <class Round>
    void ForEachAllocation(Round&& round) {
        long count = 0;
        while (round(count) && !HasFailure())
            ++count;
        EXPECT_GT(count, 0) << "nothing was ever allocated";
        RecordProperty("allocations", static_cast<int>(count));
    }

    /// What may come of a shortage: nothing, or an error by which one can tell.
    static bool IsTyped(const SOutcome& outcome) {
        return outcome.Kind != EOutcome::Foreign && outcome.Kind != EOutcome::System;
    }
};

INSTANTIATE_TEST_SUITE_P(OnceAndForGood, ShortMemory, testing::Bool(),
                         [](const auto& test) { return test.param ? "ForGood" : "Once"; });

const std::string ThreeObjects =
    "<Data><__handle><item>3</item></__handle><__handle><item>4</item></__handle>"
    "<__handle><item>5</item></__handle></Data>";
/// The same, as only a container takes it.
const std::string ThreeObjectsOddly = "<?xml version='1.0'?><!-- odd -->" + ThreeObjects;

TEST_P(ShortMemory, AtAnyAllocationOfAConnectIsATypedErrorOrNoHindrance) {
    ForEachAllocation([&](long count) {
        Root root;
        const SOutcome outcome = WithShortMemory(count, GetParam(), [&] { root = Connect({}); });
        const bool hasFailed = g_hasFailed;
        EXPECT_TRUE(IsTyped(outcome)) << count << ": " << outcome;
        EXPECT_EQ(root != nullptr, outcome.Kind == EOutcome::Success);
        EXPECT_TRUE(root == nullptr || root->IsSystemSupported()) << count;
        root.reset();
        ExpectNothingLeft("allocation " + std::to_string(count));
        return hasFailed;
    });
}

TEST_P(ShortMemory, AtAnyAllocationOfACallIsATypedErrorAndTheConnectionWorksOrIsClosedForGood) {
    for (const std::string& answer : {ThreeObjects, ThreeObjectsOddly}) {
        ForEachAllocation([&](long count) {
            auto invoker = Invoker({"answer=" + answer});
            const auto handle = invoker->GetRootHandle();
            auto product = std::make_shared<zamclientlib::IZamProduct_Proxy>(std::move(invoker), handle);
            std::vector<std::shared_ptr<zamclientlib::IBackupJob>> jobs;
            const SOutcome outcome =
                WithShortMemory(count, GetParam(), [&] { jobs = product->GetBackupJobs(); });
            const bool hasFailed = g_hasFailed;
            EXPECT_TRUE(IsTyped(outcome)) << count << ": " << outcome;
            EXPECT_EQ(jobs.size(), outcome.Kind == EOutcome::Success ? 3U : 0U) << count;
            const SOutcome later = OutcomeOf([&] { EXPECT_EQ(product->GetBackupJobs().size(), 3U); });
            EXPECT_TRUE(later.Kind == EOutcome::Success || later.Kind == EOutcome::Gone)
                << count << ": " << later << " after " << outcome;
            EXPECT_TRUE(outcome.Kind != EOutcome::Success || later.Kind == EOutcome::Success) << later;
            jobs.clear();
            product.reset();
            ExpectNothingLeft("allocation " + std::to_string(count));
            return hasFailed;
        });
    }
}

TEST_P(ShortMemory, AtAnyAllocationOfALargeCallIsATypedErrorAndTheConnectionWorksOrIsClosedForGood) {
    const std::string text = TextOfSize(300 * 1024);
    ForEachAllocation([&](long count) {
        Packages packages = ConnectPackages({"answer=echo"});
        std::string answer;
        const SOutcome outcome =
            WithShortMemory(count, GetParam(), [&] { answer = packages->GetPackageNameFromFile(text); });
        const bool hasFailed = g_hasFailed;
        EXPECT_TRUE(IsTyped(outcome)) << count << ": " << outcome;
        EXPECT_TRUE(outcome.Kind != EOutcome::Success || answer == text);
        const SOutcome later = OutcomeOf([&] { EXPECT_EQ(packages->GetPackageNameFromFile("b"), "b"); });
        EXPECT_TRUE(later.Kind == EOutcome::Success || later.Kind == EOutcome::Gone)
            << count << ": " << later;
        packages.reset();
        ExpectNothingLeft("allocation " + std::to_string(count));
        return hasFailed;
    });
}

TEST_P(ShortMemory, AtAnyAllocationOfAFailureLeavesATypedError) {
    const std::string refusal =
        "<Data><__exception_obj><type>CJobIsRunning</type><Exception><ApiException><exc_msg>a job is running "
        "now"
        "</exc_msg></ApiException></Exception></__exception_obj></Data>";
    ForEachAllocation([&](long count) {
        Packages packages = ConnectPackages({"answer=" + refusal});
        const SOutcome outcome =
            WithShortMemory(count, GetParam(), [&] { packages->GetPackageNameFromFile("a"); });
        const bool hasFailed = g_hasFailed;
        EXPECT_TRUE(IsTyped(outcome)) << count << ": " << outcome;
        EXPECT_NE(outcome.Kind, EOutcome::Success);
        packages.reset();
        ExpectNothingLeft("allocation " + std::to_string(count));
        return hasFailed;
    });
    ForEachAllocation([&](long count) {
        Packages packages = ConnectPackages({"out=45", "then=kill"});
        const SOutcome outcome =
            WithShortMemory(count, GetParam(), [&] { packages->GetPackageNameFromFile("a"); });
        const bool hasFailed = g_hasFailed;
        EXPECT_TRUE(IsTyped(outcome)) << count << ": " << outcome;
        EXPECT_NE(outcome.Kind, EOutcome::Success);
        EXPECT_EQ(OutcomeOf([&] { packages->GetPackageNameFromFile("a"); }).Kind, EOutcome::Gone);
        packages.reset();
        ExpectNothingLeft("allocation " + std::to_string(count));
        return hasFailed;
    });
}

TEST_P(ShortMemory, AtAnyAllocationOfAReleaseIsNobodysDeath) {
    ForEachAllocation([&](long count) {
        Root root = Connect({"answer=<Data><__handle>2</__handle></Data>"});
        auto service = root->GetZAMService();
        WithShortMemory(count, GetParam(), [&] { service.reset(); });
        bool hasFailed = g_hasFailed;
        const SOutcome later = OutcomeOf([&] { root->GetZAMService(); });
        EXPECT_TRUE(later.Kind == EOutcome::Success || later.Kind == EOutcome::Gone)
            << count << ": " << later;
        // The last one closes the connection and collects the tool.
        WithShortMemory(count, GetParam(), [&] { root.reset(); });
        hasFailed = hasFailed || g_hasFailed;
        ExpectNothingLeft("allocation " + std::to_string(count));
        return hasFailed;
    });
}

TEST_P(ShortMemory, AtAnyAllocationOfAnEventStreamIsATypedErrorOrNoHindrance) {
    const std::string path = m_folder.Path("socket");
    ForEachAllocation([&](long count) {
        const tests::CRawServer server(path);
        std::unique_ptr<zamclientlib::CEventsStream> stream;
        const auto config = tests::ConfigFor(path);
        const SOutcome outcome = WithShortMemory(count, GetParam(), [&] {
            stream = std::make_unique<zamclientlib::CEventsStream>(config, nullptr);
        });
        EXPECT_TRUE(IsTyped(outcome)) << count << ": " << outcome;
        std::filesystem::remove(path);
        return g_hasFailed;
    });
}

TEST_P(ShortMemory, AtAnyAllocationOfAnEventReadLosesTheStreamOrNoEvent) {
    const std::string path = m_folder.Path("socket");
    auto large = tests::NumberedEvent(2);
    large.eventBackupJobCreated->Username = TextOfSize(300 * 1024);
    const std::string frames = tests::EventFrame(1) + tests::EventFrame(large) + tests::EventFrame(3);
    for (const unsigned long failing : {1UL, 2UL}) {
        ForEachAllocation([&](long count) {
            const tests::CRawServer server(path);
            auto stream = std::make_unique<zamclientlib::CEventsStream>(tests::ConfigFor(path), nullptr);
            std::thread source([&] {
                const tests::CSocket socket = server.Accept();
                try {
                    socket.Receive(4);
                    socket.Send(frames);
                } catch (const std::system_error&) {  // the reader has left
                }
            });
            bool hasFailed = false;
            for (unsigned long next = 1; next <= 3;) {
                unsigned long id = 0;
                const auto read = [&] { id = stream->Read().Id; };
                const bool isShort = next == failing && !hasFailed;
                const SOutcome outcome = isShort ? WithShortMemory(count, GetParam(), read) : OutcomeOf(read);
                EXPECT_TRUE(IsTyped(outcome)) << count << ": " << outcome;
                if (isShort && !g_hasFailed) {
                    EXPECT_EQ(outcome.Kind, EOutcome::Success) << outcome;
                    break;
                }
                hasFailed = hasFailed || isShort;
                if (outcome.Kind == EOutcome::Success) {
                    // The event that met the shortage comes after all, or is known to be lost by the error.
                    EXPECT_TRUE(id == next || id == next + 1) << count << ": " << id << " for " << next;
                    next = id + 1;
                } else if (!isShort) {
                    EXPECT_EQ(outcome.Kind, EOutcome::Gone) << count << ": " << outcome;
                    break;
                }
            }
            stream.reset();
            source.join();
            std::filesystem::remove(path);
            return hasFailed;
        });
    }
}

}  // namespace
}  // namespace reliability
