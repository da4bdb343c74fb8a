// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <iostream>
#include <string>

#include "TestFolder.h"
#include "installer/InsideRoot.h"

namespace installer::test {
namespace {

// Lets openat2 fail with `error` for the rest of this process, as an old kernel or a strict filter does.
bool Forbid(int error) {
    std::array<sock_filter, 4> program{
        sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
        sock_filter BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(error)),
        sock_filter BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0 &&
           syscall(SYS_openat2, AT_FDCWD, "/", nullptr, 0) == -1 && errno == error;
}

// A parameter is the error with which openat2 fails; 0 leaves it alone.
class InsideRoot : public testing::TestWithParam<int> {
protected:
    void SetUp() override {
        m_outside.Write("file", "outside");
        m_folder.Write("plain/file", "inside");
        m_folder.Write("file", "top");
        ASSERT_EQ(mkfifo((Root() / "fifo").c_str(), 0600), 0);
        const auto link = [&](const std::filesystem::path& target, const char* name) {
            std::filesystem::create_symlink(target, Root() / name);
        };
        link("/plain", "absolute");
        link("plain/file", "relative");
        link("../../../plain/../plain//./file", "above");
        link("/absolute/file", "twice");
        link("absolute", "folder link");
        link(m_outside.Path(), "outward");
        link(Root() / "plain", "by its own path");
        link("loop", "loop");
        link("missing", "dangling");
        link("/", "to the root");
        link("plain/file/", "file as folder");
    }

    std::filesystem::path Root() const { return m_folder.Path(); }

    // What stands in the file; "#" and an error number when it can't be opened.
    std::string Read(const std::string& path) const {
        const auto file = OpenInside(Root(), path, O_RDONLY | O_NONBLOCK);
        if (!file) return "#" + std::to_string(errno);
        std::array<char, 100> text{};
        const ssize_t count = read(file.Get(), text.data(), text.size());
        if (count < 0) return "!" + std::to_string(errno);
        return {text.data(), static_cast<std::size_t>(count)};
    }

    // Runs `check` in a process of its own, which the filter may stay with.
    template <class F>
    void Check(F check) {
        const pid_t pid = fork();
        if (pid == 0) {
            if (GetParam() != 0 && !Forbid(GetParam())) std::cerr << "openat2 can't be forbidden\n", _exit(2);
            check();
            _exit(HasFailure() ? 1 : 0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_EQ(status, 0);
    }

    CTestFolder m_outside;
    CTestFolder m_folder;
};

TEST_P(InsideRoot, LinksMeanWhatTheyMeanInTheSystem) {
    Check([&] {
        for (const char* const path :
             {"/plain/file", "plain/file", "/absolute/file", "/relative", "/above", "/twice",
              "/folder link/file", "/../../plain/file", "/absolute/../plain/file",
              "/to the root/to the root/plain/file", "//plain//file"}) {
            EXPECT_EQ(Read(path), "inside") << path;
        }
        EXPECT_EQ(Read("/absolute/../file"), "top");
        EXPECT_EQ(Read("/absolute/../../../file"), "top");
    });
}

TEST_P(InsideRoot, NothingOutsideIsReached) {
    Check([&] {
        for (const std::string path :
             {"/outward/file", "/missing", "/dangling", "/by its own path/file", "/plain/missing/x", ""}) {
            EXPECT_EQ(Read(path), path.empty() ? "!" + std::to_string(EISDIR) : "#" + std::to_string(ENOENT))
                << path;
        }
        EXPECT_EQ(Read(".." + m_outside.Path().string() + "/file"), "#" + std::to_string(ENOENT));
        EXPECT_EQ(Read("/loop"), "#" + std::to_string(ELOOP));
        for (const char* const path :
             {"/plain/file/", "/plain/file/.", "/plain/file/..", "/plain/file/x", "/file as folder"}) {
            EXPECT_EQ(Read(path), "#" + std::to_string(ENOTDIR)) << path;
        }
        EXPECT_EQ(Read(std::string("/plain/file\0x", 13)), "#" + std::to_string(EINVAL));
        EXPECT_EQ(Read("/fifo"), "") << "a FIFO is opened without waiting";
        EXPECT_FALSE(OpenInside(Root() / "missing", "/file", O_RDONLY));
        EXPECT_FALSE(OpenInside(Root() / "file", "/", O_RDONLY));
    });
}

TEST_P(InsideRoot, AResolvedPathHasNoLinks) {
    Check([&] {
        EXPECT_EQ(ResolveInside(Root(), "/twice"), Root() / "plain/file");
        EXPECT_EQ(ResolveInside(Root(), "/folder link/."), Root() / "plain");
        EXPECT_EQ(ResolveInside(Root(), "/to the root/"), Root());
        EXPECT_EQ(ResolveInside(Root(), "/outward"), std::nullopt);
        EXPECT_EQ(ResolveInside("/", "/proc/../etc/passwd"), "/etc/passwd");
        const auto file = OpenInside(Root(), "/relative", O_RDONLY);
        EXPECT_EQ(fcntl(file.Get(), F_GETFD), FD_CLOEXEC);
    });
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutTheKernelsHelp, InsideRoot, testing::Values(0, ENOSYS, EPERM));

}  // namespace
}  // namespace installer::test
