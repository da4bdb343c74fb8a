// SPDX-License-Identifier: Apache-2.0
#include "agent/engine/IEngine.h"

namespace tarvo {

std::string PasswordProblem(std::string_view password) {
    constexpr std::string_view White = " \t\r\n\v\f";
    if (password.find_first_not_of(White) == std::string_view::npos) return "the password is empty";
    if (White.find(password.front()) != std::string_view::npos ||
        White.find(password.back()) != std::string_view::npos)
        return "the password begins or ends with white space, which the engine drops";
    if (password.find('\0') != std::string_view::npos) return "the password holds a NUL character";
    return {};
}

std::string StoreFolder(std::string_view location, std::string_view job, std::uint64_t chain) {
    std::string folder(location);
    while (folder.ends_with('/'))
        folder.pop_back();
    return folder + "/tarvo/" + std::string(job) + "/" + std::to_string(chain);
}

std::string LocationOf(std::string_view storeFolder) {
    for (int level = 0; level < 3; ++level)
        storeFolder = storeFolder.substr(0, storeFolder.find_last_of('/'));
    return storeFolder.empty() ? "/" : std::string(storeFolder);
}

}  // namespace tarvo
