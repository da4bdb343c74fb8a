// SPDX-License-Identifier: Apache-2.0
/// \file
/// A tree as a text in which two that differ in anything a restore is to bring back differ.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace tests {

/// Names, types, modes, owners, times, contents, targets, attributes, and which names are one file.
inline std::string TreeText(const std::string& root) {
    std::string text;
    std::map<std::pair<dev_t, ino_t>, std::string> linked;
    const std::function<void(const std::string&)> add = [&](const std::string& name) {
        const std::string path = root + name;
        struct stat status {};
        if (::lstat(path.c_str(), &status) != 0) return;
        text += name + '|' + std::to_string(status.st_mode) + '|' + std::to_string(status.st_uid) + ':' +
                std::to_string(status.st_gid) + '|';
        if (!S_ISLNK(status.st_mode))
            text +=
                std::to_string(status.st_mtim.tv_sec) + '.' + std::to_string(status.st_mtim.tv_nsec) + '|';
        if (S_ISLNK(status.st_mode)) {
            std::array<char, 4096> target{};
            const auto length = ::readlink(path.c_str(), target.data(), target.size());
            text.append(target.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
        }
        if (S_ISREG(status.st_mode)) {
            const auto [first, isNew] = linked.try_emplace({status.st_dev, status.st_ino}, name);
            if (status.st_nlink > 1) text += "same as " + (isNew ? name : first->second) + '|';
            std::ifstream file(path, std::ios::binary);
            const std::string content{std::istreambuf_iterator<char>(file), {}};
            text += std::to_string(content.size()) + ':' + std::to_string(std::hash<std::string>()(content));
            std::array<char, 1024> value{};
            const auto size = ::lgetxattr(path.c_str(), "user.note", value.data(), value.size());
            if (size > 0) text += "|note=" + std::string(value.data(), static_cast<std::size_t>(size));
        }
        text += '\n';
        if (!S_ISDIR(status.st_mode)) return;
        std::vector<std::string> names;
        if (DIR* folder = ::opendir(path.c_str())) {
            while (const dirent* entry = ::readdir(folder))
                if (const std::string each = entry->d_name; each != "." && each != "..")
                    names.push_back(each);
            ::closedir(folder);
        }
        std::sort(names.begin(), names.end());
        for (const auto& each : names)
            add(name + "/" + each);
    };
    add("");
    return text;
}

}  // namespace tests
