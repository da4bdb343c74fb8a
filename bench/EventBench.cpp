// SPDX-License-Identifier: Apache-2.0
// What an event costs its reader, against a reader of the same frames that does not look into them.
#include <apigen/CXmlData.h>
#include <apigen/Serialize.h>
#include <zamclientlib/CEventsStream.h>

#include <benchmark/benchmark.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "bench/Areas.h"
#include "bench/Codec.h"
#include "bench/Samples.h"

namespace zambench {
namespace {

std::string EventFrame() {
    const auto data = apigen::CXmlData::CreateNew();
    apigen::Serialize(*data, "Event", Sample<zamclientlib::SBaseEvent>(1'000'000));
    const std::string text = apigen::CXmlData::Serialize(*data);
    const auto length = static_cast<std::uint32_t>(text.size());
    std::string frame(sizeof length, '\0');
    std::memcpy(frame.data(), &length, sizeof length);
    return frame + text;
}

void SendAll(int socket, const std::string& bytes) {
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t count = ::send(socket, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (count <= 0) return;
        done += static_cast<std::size_t>(count);
    }
}

/// A child that sends everybody who connects the same event so many times.
class CEventChild {
public:
    /// \param together how many events go into one write
    CEventChild(std::size_t count, std::size_t together) {
        std::string folder = (std::filesystem::temp_directory_path() / "zam_bench.XXXXXX").string();
        Require(::mkdtemp(folder.data()) != nullptr, "a folder for the event socket");
        m_folder = folder;
        const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_un address = Address();
        Require(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                    ::listen(listener, 1) == 0,
                "the event socket");
        m_pid = ::fork();
        Require(m_pid >= 0, "fork");
        if (m_pid == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            Serve(listener, count, together);
        }
        ::close(listener);
    }
    CEventChild(const CEventChild&) = delete;
    CEventChild& operator=(const CEventChild&) = delete;
    ~CEventChild() {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }

    std::string Path() const { return m_folder + "/events.sock"; }

    int Connect() const {
        const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_un address = Address();
        const std::uint32_t opening = 0;
        Require(::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                    ::send(socket, &opening, sizeof opening, MSG_NOSIGNAL) == sizeof opening,
                "connect to the event socket");
        return socket;
    }

private:
    sockaddr_un Address() const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = Path();
        Require(path.size() < sizeof address.sun_path, "a short path for the event socket");
        std::memcpy(address.sun_path, path.data(), path.size());
        return address;
    }

    [[noreturn]] static void Serve(int listener, std::size_t count, std::size_t together) {
        std::string chunk;
        for (std::size_t i = 0; i < together; ++i)
            chunk += EventFrame();
        while (true) {
            const int socket = ::accept(listener, nullptr, nullptr);
            char opening[4];
            if (::recv(socket, opening, sizeof opening, MSG_WAITALL) == sizeof opening) {
                for (std::size_t i = 0; i < count / together; ++i)
                    SendAll(socket, chunk);
            }
            ::close(socket);
        }
    }

    std::string m_folder;
    pid_t m_pid = -1;
};

/// From the first event to the last, nanoseconds an event.
double ReadEvents(const CEventChild& child, std::size_t count, EClock clock) {
    zamclientlib::SEventConfig config;
    config.v1 = zamclientlib::SEventConfigV1{child.Path()};
    zamclientlib::CEventsStream stream(config, nullptr);
    Require(stream.Read().Id == 1'000'000, "an event");
    const double start = Now(clock);
    for (std::size_t i = 1; i < count; ++i)
        benchmark::DoNotOptimize(stream.Read());
    return (Now(clock) - start) / static_cast<double>(count - 1);
}

enum class ELook {
    None,
    Scan
};

double ReadFrames(const CEventChild& child, std::size_t count, EClock clock, ELook look = ELook::None) {
    static std::vector<char> buffer(256 * 1024);
    const int socket = child.Connect();
    std::size_t size = 0;
    std::size_t frames = 0;
    double start = 0;
    while (frames != count) {
        const ssize_t received = ::recv(socket, buffer.data() + size, buffer.size() - size, 0);
        Require(received > 0, "events without a client");
        if (start == 0) start = Now(clock);
        size += static_cast<std::size_t>(received);
        std::size_t at = 0;
        for (std::uint32_t length = 0; size - at >= sizeof length; at += sizeof length + length, ++frames) {
            std::memcpy(&length, buffer.data() + at, sizeof length);
            if (size - at - sizeof length < length) break;
            if (look == ELook::Scan)
                benchmark::DoNotOptimize(CountTags({buffer.data() + at + sizeof length, length}));
        }
        std::memmove(buffer.data(), buffer.data() + at, size - at);
        size -= at;
    }
    const double passed = Now(clock) - start;
    ::close(socket);
    return passed / static_cast<double>(count - 1);
}

}  // namespace

void MeasureEvents(const CBench& bench) {
    constexpr std::size_t Together = 100;
    const std::size_t count = bench.IsOnce() ? 10 * Together : 200 * Together;
    const CEventChild single(count, 1);
    const CEventChild many(count, Together);
    const auto compare = [&](const std::string& row, double goal, const CEventChild& child, EClock clock) {
        bench.Compare(
            row, goal, [&] { return ReadEvents(child, count, clock); },
            [&] { return ReadFrames(child, count, clock); });
    };
    compare("event, one a write, ns", 1.25, single, EClock::Wall);
    compare("event, 100 a write, ns", 4, many, EClock::Wall);
    compare("event, 100 a write, reader's CPU, ns", 0, many, EClock::ThreadCpu);
    bench.Compare(
        "event, 100 a write, to frames and a scan, ns", 0,
        [&] { return ReadEvents(many, count, EClock::ThreadCpu); },
        [&] { return ReadFrames(many, count, EClock::ThreadCpu, ELook::Scan); });
}

}  // namespace zambench
