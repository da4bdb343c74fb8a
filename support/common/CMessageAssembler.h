// SPDX-License-Identifier: Apache-2.0
/// \file
/// Messages out of bytes that arrive in pieces of any size.
#pragma once

#include <apigen/Export.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "support/common/CByteQueue.h"

namespace apigen::common {

/// Knows nothing of where the bytes come from. Memory grows with what has come, whatever length is announced.
class APIGEN_API CMessageAssembler {
public:
    enum class EState {
        Between,   ///< no message has begun; fewer bytes than a header may be there
        Within,    ///< a message has begun, and some of it is missing
        Whole,     ///< a message is to be taken
        Overlong,  ///< a length that no message may have is announced
    };

    /// From now on, nothing of what has passed through stays in memory, but what was taken.
    void Wipe() noexcept {
        m_isWiped = true;
        m_bytes.Wipe();
    }

    /// Where the next bytes are to be put; they count once they are committed.
    char* Room() { return m_bytes.Room(); }
    std::size_t RoomSize() const noexcept { return m_bytes.RoomSize(); }
    void Commit(std::size_t count) noexcept { m_bytes.Commit(count); }

    /// Goes as far as the bytes allow. What was viewed is no longer valid.
    EState Advance();

    /// The message, once it is whole. A view is valid until the next call but of the constant members.
    std::string Take();
    std::string_view View();
    /// Whether it came in one piece, and a view of it holds no memory of its own.
    bool IsInPlace() const noexcept { return m_message.empty(); }

    /// The message that has begun: whether one has, what it announces, and what has come of it.
    bool IsWithin() const noexcept { return m_isWithin; }
    std::size_t Length() const noexcept { return m_length; }
    std::string_view Begun() const noexcept { return m_message; }

    /// What has come and belongs to no message yet.
    std::string_view Loose() const noexcept { return m_bytes.Bytes(); }
    void DropLoose(std::size_t count) noexcept { m_bytes.Drop(count); }

private:
    void DropMessage() noexcept;

    CByteQueue m_bytes;
    std::size_t m_viewed = 0;  // how many of them a view stands on
    bool m_isWithin = false;
    bool m_isWiped = false;
    std::size_t m_length = 0;
    std::string m_message;  // what has come of a message that did not arrive in one piece
};

}  // namespace apigen::common
