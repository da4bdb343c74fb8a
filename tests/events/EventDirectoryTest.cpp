// SPDX-License-Identifier: Apache-2.0
// Where an event source puts its socket, and where it refuses to.
#include <zamservice/EventSource.h>

#include <fcntl.h>
#include <sys/file.h>

#include <fstream>

#include "tests/events/Sockets.h"

namespace tests {
namespace {

using testing::HasSubstr;
using zamservice::CEventSource;
namespace fs = std::filesystem;

class EventDirectory : public testing::Test {
protected:
    CTemporaryFolder m_folder;
    const std::string m_directory = m_folder.Path() + "/agent";
    const std::string m_path = m_directory + "/events.sock";

    static mode_t ModeOf(const std::string& path) {
        struct stat status {};
        EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
        return status.st_mode & 07777;
    }

    /// Why no source can be made.
    std::string Refusal(int errorNumber, const std::string& name = "events.sock") const {
        try {
            zamservice::SEventSourceOptions options;
            options.StartLimit = 20ms;
            CEventSource source(m_directory, name, options);
            ADD_FAILURE() << "the source was made";
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code().value(), errorNumber) << error.what();
            return error.what();
        }
        return {};
    }
};

TEST_F(EventDirectory, IsMadeForItsOwnerAlone) {
    const CEventSource source(m_directory + "///");
    EXPECT_EQ(source.SocketPath(), m_path);
    EXPECT_EQ(source.Config().v1->socketPath, m_path);
    EXPECT_EQ(ModeOf(m_directory), 0700U);
    EXPECT_EQ(ModeOf(m_path), 0600U);
}

TEST_F(EventDirectory, IsClosedToOthersWhenItHoldsNothingElse) {
    fs::create_directory(m_directory);
    ASSERT_EQ(::chmod(m_directory.c_str(), 0755), 0);
    const CEventSource source(m_directory);
    EXPECT_EQ(ModeOf(m_directory), 0700U);
}

TEST_F(EventDirectory, IsRefusedWhenItIsOpenToOthersAndHoldsMore) {
    fs::create_directory(m_directory);
    std::ofstream(m_directory + "/other") << "x";
    ASSERT_EQ(::chmod(m_directory.c_str(), 0755), 0);
    EXPECT_THAT(Refusal(EPERM), HasSubstr("open to others"));
    EXPECT_EQ(ModeOf(m_directory), 0755U) << "left as it was";
    ASSERT_EQ(::chmod(m_directory.c_str(), 0700), 0);
    EXPECT_NO_THROW(CEventSource{m_directory});
}

TEST_F(EventDirectory, IsRefusedWhenItBelongsToAnotherUser) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root, to give it away";
    fs::create_directory(m_directory);
    ASSERT_EQ(::chown(m_directory.c_str(), 65534, 65534), 0);
    EXPECT_THAT(Refusal(EPERM), HasSubstr("another user"));
}

TEST_F(EventDirectory, IsRefusedWhenItIsNoDirectory) {
    const std::string real = m_folder.Path() + "/real";
    fs::create_directory(real);
    fs::create_symlink(real, m_directory);
    EXPECT_THAT(Refusal(ENOTDIR), HasSubstr(m_directory)) << "a link is not followed";
    fs::remove(m_directory);
    std::ofstream file(m_directory);
    EXPECT_THAT(Refusal(ENOTDIR), HasSubstr(m_directory));
}

TEST_F(EventDirectory, IsNotMadeWithItsParents) {
    EXPECT_THROW(CEventSource(m_directory + "/deeper"), std::system_error);
    EXPECT_FALSE(fs::exists(m_directory));
}

TEST_F(EventDirectory, GivesUpAnAbandonedSocket) {
    ASSERT_EQ(::mkdir(m_directory.c_str(), 0700), 0);
    { const CRawServer abandoned(m_path); }
    ASSERT_TRUE(fs::exists(m_path));
    const CEventSource source(m_directory);
    EXPECT_NO_THROW(zamclientlib::CEventsStream(source.Config(), nullptr));
}

TEST_F(EventDirectory, KeepsASocketThatIsInUse) {
    ASSERT_EQ(::mkdir(m_directory.c_str(), 0700), 0);
    const CRawServer other(m_path);
    EXPECT_THAT(Refusal(EADDRINUSE), HasSubstr("another process"));
    EXPECT_TRUE(fs::exists(m_path));
}

TEST_F(EventDirectory, KeepsAnotherFileOfTheSocketsName) {
    ASSERT_EQ(::mkdir(m_directory.c_str(), 0700), 0);
    std::ofstream(m_path) << "precious";
    EXPECT_THAT(Refusal(EEXIST), HasSubstr("another file"));
    EXPECT_EQ(fs::file_size(m_path), 8U);
}

TEST_F(EventDirectory, KeepsALinkOfTheSocketsNameThatLeadsNowhere) {
    ASSERT_EQ(::mkdir(m_directory.c_str(), 0700), 0);
    const std::string target = m_folder.Path() + "/target";
    fs::create_symlink(target, m_path);
    EXPECT_THAT(Refusal(EEXIST), HasSubstr("another file"));
    EXPECT_TRUE(fs::is_symlink(m_path));
    EXPECT_FALSE(fs::exists(target));
}

TEST_F(EventDirectory, IsRefusedWhenAnotherProcessKeepsItLocked) {
    ASSERT_EQ(::mkdir(m_directory.c_str(), 0700), 0);
    const int lock = ::open(m_directory.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(::flock(lock, LOCK_EX), 0);
    EXPECT_THAT(Refusal(EBUSY), testing::AllOf(HasSubstr(m_directory), HasSubstr("locked")));
    ASSERT_EQ(::flock(lock, LOCK_UN), 0);
    EXPECT_NO_THROW(CEventSource{m_directory});
    ::close(lock);
}

TEST_F(EventDirectory, StaysWhereItIsWhenTheProgramGoesElsewhere) {
    const fs::path before = fs::current_path();
    fs::current_path(m_folder.Path());
    {
        CEventSource source("agent");
        fs::current_path("/");
        EXPECT_EQ(source.SocketPath(), m_path);
        EXPECT_NO_THROW(zamclientlib::CEventsStream(source.Config(), nullptr));
    }
    fs::current_path(before);
    EXPECT_FALSE(fs::exists(m_path)) << "its end removes it";
}

TEST_F(EventDirectory, HoldsNoSocketWhoseNameIsNone) {
    for (const auto& name : {std::string(), std::string("."), std::string(".."),
                             std::string("deeper/events.sock"), std::string("a\0b", 3)}) {
        EXPECT_THAT(Refusal(EINVAL, name), HasSubstr("name"));
    }
    EXPECT_FALSE(fs::exists(m_directory));
    EXPECT_THROW(CEventSource{""}, std::system_error);
    EXPECT_THROW(CEventSource{m_directory + std::string("\0x", 2)}, std::system_error);
    EXPECT_FALSE(fs::exists(m_directory));
}

TEST_F(EventDirectory, HoldsASocketWhosePathHas107BytesAndNoLongerOne) {
    const std::string name(107 - m_directory.size() - 1, 'x');
    const CEventSource source(m_directory, name);
    EXPECT_EQ(source.SocketPath().size(), 107U);
    EXPECT_NO_THROW(zamclientlib::CEventsStream(source.Config(), nullptr));
    try {
        CEventSource(m_directory, name + "x");
        FAIL() << "a path of 108 bytes was taken";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), ENAMETOOLONG);
    }
}

}  // namespace
}  // namespace tests
