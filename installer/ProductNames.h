// SPDX-License-Identifier: Apache-2.0
// What the product's parts are called on a host.
#pragma once

namespace installer {

inline constexpr const char* agentPackage = "tarvo-agent";
inline constexpr const char* driverPackage = "tarvo-driver";
inline constexpr const char* agentService = "tarvod.service";
inline constexpr const char* logFolder = "/var/log/tarvo/";

}  // namespace installer
