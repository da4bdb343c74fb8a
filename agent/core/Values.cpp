// SPDX-License-Identifier: Apache-2.0
#include "agent/core/Values.h"

#include <mutex>
#include <random>

namespace tarvo {

Guid NewGuid() {
    static std::mutex mutex;
    static std::random_device random;
    const std::lock_guard lock(mutex);
    Guid guid;
    guid.Data1 = random();
    guid.Data2 = static_cast<std::uint16_t>(random());
    guid.Data3 = static_cast<std::uint16_t>((random() & 0x0fffU) | 0x4000U);
    for (auto& byte : guid.Data4) {
        byte = static_cast<std::uint8_t>(random());
    }
    guid.Data4[0] = static_cast<std::uint8_t>((guid.Data4[0] & 0x3fU) | 0x80U);
    return guid;
}

std::string PlainText(const Guid& guid) {
    const std::string text = guid.Serialize();
    return text.substr(1, text.size() - 2);
}

}  // namespace tarvo
