// SPDX-License-Identifier: Apache-2.0
#include "agent/core/Values.h"

namespace tarvo {

std::string PlainText(const Guid& guid) {
    const std::string text = guid.Serialize();
    return text.substr(1, text.size() - 2);
}

}  // namespace tarvo
