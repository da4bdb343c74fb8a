// SPDX-License-Identifier: Apache-2.0
/// \file
/// The floor's side of a connection, and the conditions that both sides are measured under.
#pragma once

#include <sched.h>
#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace zamclientlib {
class IZamControl;
class IZamProduct;
}  // namespace zamclientlib

namespace zambench {

/// A child on bare pipes that answers every so many bytes with so many others.
class CBareChild {
public:
    /// Returns when the child's first byte has come.
    CBareChild(std::size_t request, std::size_t answer);
    CBareChild(const CBareChild&) = delete;
    CBareChild& operator=(const CBareChild&) = delete;
    ~CBareChild();

    void Exchange();

private:
    void Read(std::size_t size);

    std::size_t m_request;
    std::size_t m_answer;
    int m_write = -1;
    int m_read = -1;
    pid_t m_pid = -1;
    std::vector<char> m_bytes;
};

/// Where this process and its children run.
enum class EPlace {
    Free,     ///< wherever the system puts them
    OneCpu,   ///< all on one processor
    TwoCpus,  ///< this process on one, the children on another
};

/// Sets the place of this process, and of the children that it starts before `ChildrenStarted`.
class CPinned {
public:
    explicit CPinned(EPlace place);
    CPinned(const CPinned&) = delete;
    CPinned& operator=(const CPinned&) = delete;
    ~CPinned();

    void ChildrenStarted();

private:
    void MoveTo(std::size_t which) const;

    EPlace m_place;
    cpu_set_t m_before{};
};

/// Connects to the idle agent.
std::shared_ptr<zamclientlib::IZamControl> ConnectToAgent();

/// Its product, whose lists have `size` entries each.
std::shared_ptr<zamclientlib::IZamProduct> ProductOfSize(std::size_t size);

}  // namespace zambench
