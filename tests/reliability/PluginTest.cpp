// SPDX-License-Identifier: Apache-2.0
// Errors that cross the border of a plugin, which may be built by another compiler.
#include <dlfcn.h>

#include "tests/reliability/Plugin.h"
#include "tests/reliability/PluginErrors.h"
#include "tests/reliability/Reliability.h"

namespace reliability {
namespace {

class Plugin : public CReliabilityTest, public testing::WithParamInterface<const char*> {
protected:
    void SetUp() override {
        if (std::string_view(GetParam()).empty())
            GTEST_SKIP() << "the other compiler was not there at the build";
        m_library = ::dlopen(GetParam(), RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(m_library, nullptr) << ::dlerror();  // NOLINT(concurrency-mt-unsafe): one thread
        m_throw = reinterpret_cast<ThrowFunction>(::dlsym(m_library, "ReliabilityThrow"));
        m_catch = reinterpret_cast<CatchFunction>(::dlsym(m_library, "ReliabilityCatch"));
        m_call = reinterpret_cast<CallFunction>(::dlsym(m_library, "ReliabilityCall"));
        ASSERT_TRUE(m_throw != nullptr && m_catch != nullptr && m_call != nullptr);
    }
    void TearDown() override {
        if (m_library != nullptr) ::dlclose(m_library);
    }

    void* m_library = nullptr;
    ThrowFunction m_throw = nullptr;
    CatchFunction m_catch = nullptr;
    CallFunction m_call = nullptr;
};

INSTANTIATE_TEST_SUITE_P(OfThisAndTheOtherCompiler, Plugin, testing::Values(OWN_PLUGIN, OTHER_PLUGIN),
                         [](const auto& test) { return test.index == 0 ? "ThisCompiler" : "OtherCompiler"; });

TEST_P(Plugin, ThrowsErrorsThatItsHostCatchesByType) {
    for (int kind = 0; kind < ErrorKinds; ++kind)
        EXPECT_TRUE(CatchesKind(m_throw, kind)) << kind;
}

TEST_P(Plugin, CatchesErrorsOfItsHostByType) {
    for (int kind = 0; kind < ErrorKinds; ++kind)
        EXPECT_TRUE(m_catch(&ThrowKind, kind)) << kind;
}

TEST_P(Plugin, LetsErrorsOfTheLibraryOutToItsHost) {
    EXPECT_EQ(OutcomeOf([&] { m_call(RELIABILITY_PEER); }).Kind, EOutcome::Gone);
    EXPECT_EQ(OutcomeOf([&] { m_call("/no/such/tool"); }).Kind, EOutcome::Launch);
}

}  // namespace
}  // namespace reliability
