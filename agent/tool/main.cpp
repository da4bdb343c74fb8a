// SPDX-License-Identifier: Apache-2.0
// The agent's tool: takes its client to the daemon, and leaves with it.
#include <apigen/CXmlData.h>
#include <zamclientlib/Exceptions.h>
#include <zamservice/Service.h>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "agent/host/Folders.h"
#include "agent/tool/Connection.h"
#include "agent/tool/ToolLog.h"
#include "service/Failure.h"
#include "support/common/CDescriptor.h"
#include "support/common/FrameHeader.h"
#include "support/common/Waiting.h"

namespace tarvo::tool {
namespace {

using apigen::common::CDescriptor;

constexpr int UsageError = 2;

/// False when nobody takes it.
bool WriteAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
        if (written > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            pollfd writable{descriptor, POLLOUT, 0};
            ::poll(&writable, 1, -1);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

/// Greets the client with what went wrong.
void Refuse(const std::string& why) {
    const std::string text =
        apigen::CXmlData::Serialize(*zamservice::Failure(zamclientlib::CGenericException(why)));
    const auto header = apigen::common::EncodeHeader(text.size());
    WriteAll(STDOUT_FILENO, std::string(header.data(), header.size()) + text);
    WriteAll(STDERR_FILENO, why + '\n');
}

/// Whether poll found the descriptor's other end closed. It is not asked about again then.
bool HasLeft(pollfd& end) {
    if (end.fd < 0) return true;
    if (end.revents != 0) end.fd = -1;
    return end.fd < 0;
}

/// Waits until the client or the daemon has left.
int StayWith(const CDescriptor& control) {
    bool isRefused = false;
    // Of the client's streams only their end: what travels on them is the daemon's.
    std::array<pollfd, 3> ends = {
        pollfd{control.Get(), POLLIN, 0}, {STDIN_FILENO, 0, 0}, {STDOUT_FILENO, 0, 0}};
    for (;;) {
        apigen::common::PollPatiently(ends.data(), ends.size(), -1);
        const bool hasInputEnded = HasLeft(ends[1]);
        const bool hasClientLeft = HasLeft(ends[2]) && hasInputEnded;
        if (hasClientLeft) return 0;
        if (ends[0].revents == 0) continue;
        std::array<char, 4096> bytes{};
        const ssize_t got = ::recv(control.Get(), bytes.data(), bytes.size(), 0);
        if (got < 0 && errno == EINTR) continue;
        if (got > 0) {
            isRefused = true;
            if (WriteAll(STDOUT_FILENO, {bytes.data(), static_cast<std::size_t>(got)})) continue;
            return 1;
        }
        if (isRefused) return 1;
        if (hasInputEnded) return 0;
        WriteAll(STDERR_FILENO, "The agent's daemon has ended the connection\n");
        return 1;
    }
}

int Connect(const std::string& logName) {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        apigen::common::OpenStandardStream(stream);
    std::signal(SIGPIPE, SIG_IGN);
    try {
        const SFolders folders = FoldersOfProcess();
        CToolLog log(folders.Log, logName);
        try {
            const CDescriptor control = ConnectToDaemon(folders);
            HandOver(control);
            log.Write("handed a client over to the daemon");
            return StayWith(control);
        } catch (const std::exception& error) {
            log.Write(error.what());
            throw;
        }
    } catch (const std::exception& error) {
        Refuse(error.what());
        return 1;
    }
}

int Run(const std::vector<std::string_view>& arguments) {
    if (arguments.size() == 2 && arguments[0] == "extended" && arguments[1] == "protocolVersion") {
        return zamservice::PrintProtocolVersion();
    }
    if (arguments.size() == 4 && arguments[0] == "extended" && arguments[1] == "startCommandInvoker" &&
        arguments[2] == "--logFileName") {
        return Connect(std::string(arguments[3]));
    }
    const bool isHelp = arguments.size() == 1 && (arguments[0] == "--help" || arguments[0] == "-h");
    const bool isWritten = WriteAll(isHelp ? STDOUT_FILENO : STDERR_FILENO,
                                    "Connects a program to the backup agent on this host. Usage:\n"
                                    "  tarvoconfig extended startCommandInvoker --logFileName NAME\n"
                                    "  tarvoconfig extended protocolVersion\n");
    if (!isHelp) return UsageError;
    return isWritten ? 0 : 1;
}

}  // namespace
}  // namespace tarvo::tool

int main(int argc, char** argv) {
    return tarvo::tool::Run({argv + 1, argv + argc});
}
