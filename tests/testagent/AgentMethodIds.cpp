// SPDX-License-Identifier: Apache-2.0
// Apart from the tests, which use the public headers alone.
#include "tests/testagent/AgentMethodIds.h"

#include "src/AgentMethods.h"

namespace tests {

template <class... I>
std::set<std::string> IdsOf() {
    std::set<std::string> ids;
    (zamclientlib::MethodsOf<I>::ForEach([&](const auto& method) { ids.emplace(method.Id); }), ...);
    return ids;
}

std::set<std::string> AgentMethodIds() {
    using namespace zamclientlib;  // NOLINT: a list of names
    return IdsOf<IZamControl, IZamProduct, IBackupJob, IBackupJobSession, IRepositoryManager,
                 IBackupServerManager, ICloudServiceProviderManager>();
}

}  // namespace tests
