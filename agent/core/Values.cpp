// SPDX-License-Identifier: Apache-2.0
#include "agent/core/Values.h"

namespace tarvo {

std::string PlainText(const Guid& guid) {
    const std::string text = guid.Serialize();
    return text.substr(1, text.size() - 2);
}

std::string Counted(std::uint64_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

}  // namespace tarvo
