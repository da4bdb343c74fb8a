// SPDX-License-Identifier: Apache-2.0
#include "support/common/CSpawn.h"

#include <fcntl.h>
#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace apigen::common {

namespace {

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

CSpawn::CSpawn(short flags) {
    // Neither fails: the C library allocates nothing here.
    ::posix_spawn_file_actions_init(&m_actions);
    ::posix_spawnattr_init(&m_attributes);
    sigset_t none;
    sigset_t all;
    ::sigemptyset(&none);
    // sigfillset leaves out two signals of the C library, which the child would then get ignored.
    std::memset(&all, 0xff, sizeof all);
    Note(::posix_spawnattr_setsigmask(&m_attributes, &none));
    Note(::posix_spawnattr_setsigdefault(&m_attributes, &all));
    const int allFlags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | flags;
    Note(::posix_spawnattr_setflags(&m_attributes, static_cast<short>(allFlags)));
}

CSpawn::~CSpawn() {
    ::posix_spawn_file_actions_destroy(&m_actions);
    ::posix_spawnattr_destroy(&m_attributes);
}

void CSpawn::Give(int target, const CDescriptor& descriptor) {
    int source = descriptor.Get();
    // A source among the targets could be overwritten before its turn.
    if (source <= LastTarget) {
        CDescriptor copy(::fcntl(source, F_DUPFD_CLOEXEC, LastTarget + 1));
        if (!copy) return Note(errno);
        source = copy.Get();
        m_copies.push_back(std::move(copy));
    }
    Note(::posix_spawn_file_actions_adddup2(&m_actions, source, target));
    m_firstToClose = std::max(m_firstToClose, target + 1);
}

void CSpawn::GiveFile(int target, const char* path, int flags) {
    Note(::posix_spawn_file_actions_addopen(&m_actions, target, path, flags, 0));
    m_firstToClose = std::max(m_firstToClose, target + 1);
}

void CSpawn::EnterFolder(const char* path) {
    Note(::posix_spawn_file_actions_addchdir_np(&m_actions, path));
}

int CSpawn::Run(pid_t& pid, const std::string& program, std::vector<std::string> arguments,
                std::vector<std::string> environment) {
    Note(::posix_spawn_file_actions_addclosefrom_np(&m_actions, m_firstToClose));
    if (m_error != 0) return m_error;
    return ::posix_spawnp(&pid, program.c_str(), &m_actions, &m_attributes, Pointers(arguments).data(),
                          Pointers(environment).data());
}

}  // namespace apigen::common
