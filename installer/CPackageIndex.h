// SPDX-License-Identifier: Apache-2.0
// The file that lists what can be installed on which distribution. Its format: docs/package-index.md.
#pragma once

#include <zamclientlib/Enums.h>
#include <zamclientlib/InstallerRecords.h>

#include <filesystem>
#include <string>
#include <vector>

#include "installer/CHostInformation.h"
#include "installer/VersionText.h"

namespace installer {

class CPackageIndex {
public:
    // Throws CGenericException with the path, the reason and the place in the file when it can't be read or
    // breaks a rule of the format: it is believed as a whole or not at all.
    explicit CPackageIndex(const std::filesystem::path& path);

    // What the first distribution that fits offers.
    zamclientlib::SInstallationInfo OfferFor(const SOsInformation& os,
                                             zamclientlib::OSHardwarePlatform platform) const;

private:
    struct SDistribution {
        std::string Id;
        zamclientlib::OSHardwarePlatform Platform{};
        SStrictVersion MinVersion;  // no parts: no bound
        SStrictVersion MaxVersion;
        bool IsKmodDriver = false;
        std::vector<std::string> Packages;

        bool Fits(const SOsInformation& os, zamclientlib::OSHardwarePlatform platform) const;
    };
    class CReader;

    zamclientlib::SVersion m_productVersion;
    std::vector<SDistribution> m_distributions;
};

}  // namespace installer
