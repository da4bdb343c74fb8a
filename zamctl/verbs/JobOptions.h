// SPDX-License-Identifier: Apache-2.0
/// \file
/// A job's definition from the options of a command line.
#pragma once

#include <zamclientlib/ZamClientLib.h>

#include "verbs/Verb.h"

namespace zamctl {

/// Of `job create` and `job update`: puts what the options say into the definition; what they don't speak of stays. A
/// repository is looked up, a password is asked for.
void ApplyJobOptions(const CCall& call, zamclientlib::IZamProduct& product,
                     zamclientlib::SBackupJobConfigurationInfo& config);

/// Whether any of them was given.
[[nodiscard]] bool HasJobOptions(const CCall& call);

/// The options, for a verb's table, with its own in front.
[[nodiscard]] std::span<const SOption> JobOptions();

/// The schedule for people: "every day at 22:00", "off".
[[nodiscard]] std::string ScheduleWords(const zamclientlib::SBackupScheduleInfo& schedule);

/// The text of a file, or of standard input for "-"; of 16 MiB at most.
/// \throws CFailure (Usage)
[[nodiscard]] std::string ReadText(const std::string& path);

/// The path from the root on.
[[nodiscard]] std::string AbsolutePath(const std::string& path);

/// Disks, volumes and folders as the agent is asked for them, who doesn't know in which folder somebody says "." or
/// "./mnt". A word without a slash may be a label.
[[nodiscard]] std::vector<zamclientlib::SVolumeBackupObject> ObjectsCalled(
    const std::vector<std::string>& words);

}  // namespace zamctl
