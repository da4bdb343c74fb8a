// SPDX-License-Identifier: Apache-2.0
#include "agent/engine/ReadMe.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <utility>

#include "agent/host/Files.h"
#include "support/common/CDescriptor.h"
#include "support/common/Text.h"
#include "support/common/Waiting.h"

namespace tarvo {
namespace {

constexpr std::string_view JobLine = "Backups of the job ";
constexpr std::string_view ConstantLine = "Chains that open with the constant key: ";

/// The chains that an earlier text names there.
std::set<std::uint64_t> ConstantChains(const std::string& path) {
    std::set<std::uint64_t> chains;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (!line.starts_with(ConstantLine)) continue;
        std::istringstream numbers(line.substr(ConstantLine.size()));
        for (std::uint64_t number = 0; numbers >> number;)
            chains.insert(number);
    }
    return chains;
}

/// The path as a shell takes it for one word.
std::string ShellWord(const std::string& path) {
    std::string word = "'";
    for (const char c : path)
        word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return word + "'";
}

std::string Text(const SPrepareRequest& request, const std::set<std::uint64_t>& constant) {
    const std::string folder = ShellWord(request.Store.Folder);
    std::ostringstream text;
    text
        << JobLine << apigen::common::Quoted(request.JobName)
        << "\n\n"
           "Each numbered folder here is a repository of restic (https://restic.net), the greatest number "
           "the\n"
           "newest. The stock program restores from it without anything else. TARGET stands for an empty "
           "folder:\n\n"
           "    restic -r "
        << folder << " snapshots\n    restic -r " << folder << " ls latest\n    restic -r " << folder
        << " restore latest --target TARGET\n    restic -r " << folder
        << " restore latest --target TARGET --include /PATH/OF/AN/ENTRY\n    restic -r " << folder
        << " check --read-data\n\n"
           "Each entry lands below TARGET with its whole original path. Instead of \"latest\", name a "
           "snapshot\n"
           "by its id; its tags name the job and the point.\n\n"
           "restic asks for the password of the repository. For a chain of a job with a password, it is the\n"
           "password that the job has.\n";
    if (!constant.empty()) {
        text
            << "Other chains open with a constant key, which is no secret: whoever can read these files can\n"
               "read what is in them.\n\n"
            << ConstantLine;
        bool isFirst = true;
        for (const auto chain : constant)
            text << (std::exchange(isFirst, false) ? "" : " ") << chain;
        text << "\n\nRESTIC_PASSWORD=" << ConstantKey << "\n";
    }
    return text.str();
}

}  // namespace

void WriteReadMe(const SPrepareRequest& request) {
    const std::filesystem::path store(request.Store.Folder);
    const std::string path = store.parent_path() / "README.txt";
    auto constant = ConstantChains(path);
    const auto number = std::strtoull(store.filename().c_str(), nullptr, 10);
    if (request.Store.Password) {
        constant.erase(number);
    } else {
        constant.insert(number);
    }
    WriteSecretFile(path, Text(request, constant));
}

std::string JobNameInReadMe(const std::string& path) {
    using apigen::common::CDescriptor;
    constexpr std::size_t Longest = 4096;
    // It may be anything by now: a pipe would have us wait.
    const CDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat status {};
    if (!file || ::fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
    std::string line(Longest, '\0');
    const auto length =
        apigen::common::RetryInterrupted([&] { return ::pread(file.Get(), line.data(), line.size(), 0); });
    line.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    line.resize(std::min(line.find('\n'), line.size()));
    const std::size_t start = JobLine.size() + 1;
    if (!line.starts_with(std::string(JobLine) + '"') || !line.ends_with('"') || line.size() < start + 2)
        return {};
    return apigen::common::Escaped(line.substr(start, line.size() - start - 1));
}

}  // namespace tarvo
