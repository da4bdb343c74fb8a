// SPDX-License-Identifier: Apache-2.0
// Services of systemd, over D-Bus.
#pragma once

#include <zamclientlib/Installer.h>

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "installer/SInstallerContext.h"

namespace installer {

struct SServiceLimits {
    std::chrono::milliseconds Call = std::chrono::seconds(25);  // one exchange on the bus
    std::chrono::milliseconds Job = std::chrono::minutes(3);    // a unit's start or stop
};

// One unit. Every operation has a bus connection of its own, so that a bus that was restarted does no harm.
class CSystemdService final : public zamclientlib::IService {
public:
    // The service called `name`, ".service" being added where it is missing, or an empty pointer when systemd
    // knows none. Throws CGenericException when the name can't be one or systemd can't be reached.
    static std::shared_ptr<CSystemdService> Find(const SInstallerContext& context, const std::string& name,
                                                 const SServiceLimits& limits = {});

    // The unit's full name, "tarvod.service".
    std::string GetName() const override { return m_unit; }
    zamclientlib::EServiceStatus GetServiceStatus() const override;
    void Start() override;
    void Stop() override;

private:
    CSystemdService(const SInstallerContext& context, std::string unit, const SServiceLimits& limits)
        : m_context(context), m_unit(std::move(unit)), m_limits(limits) {}

    void RunJob(const char* method, std::string_view verb) const;

    SInstallerContext m_context;
    std::string m_unit;
    SServiceLimits m_limits;
};

}  // namespace installer
