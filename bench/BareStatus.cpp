// SPDX-License-Identifier: Apache-2.0
// The calls of "zamctl status", and nothing else.
#include <zamclientlib/Connect.h>
#include <zamclientlib/ZamClientLib.h>

int main() {
    const auto control = zamclientlib::ConnectToAgent();
    (void)control->GetProductInfo();
    (void)control->GetCurrentOwner();
    zamclientlib::SZamControlOwnerInfo owner;
    owner.Id = apigen::Guid::Random();
    owner.Mode = zamclientlib::ZAMOwnerMode::Shared;
    const auto product = control->RequestControl(owner, false);
    control->ReleaseControl(owner);
    (void)product->IsSchedulerAllowedToRunJobs();
    for (const auto& job : product->GetBackupJobs()) {
        (void)job->GetInfo();
        (void)job->GetConfigurationInfo();
        if (const auto session = job->FindLastBackupJobSession()) (void)session->GetInfo();
    }
    const auto places = product->GetRepositoryManager();
    for (const auto& repository : places->GetRepositories())
        (void)places->RequestSizeInfo(repository.Id);
    return 0;
}
