// SPDX-License-Identifier: Apache-2.0
// Runs a job and follows it to its end, whatever becomes of the agent: follow_job JOB SECONDS <PASSWORD_FILE
#include <apigen/CallControl.h>
#include <zamclientlib/RecordText.h>
#include <zamclientlib/ZamClientLib.h>

#include <iostream>
#include <thread>

using namespace zamclientlib;

/// Over one connection; `session` is what an earlier one has started. Whether the run has succeeded.
bool Follow(const std::string& name, const std::string& secret, const SZamControlOwnerInfo& owner,
            apigen::Guid& session, std::chrono::steady_clock::time_point deadline) {
    const apigen::CCallDeadline all(deadline);  // connecting and every call, together
    const auto control = ConnectToAgent();
    const auto product = control->RequestControl(owner, false);
    if (!product) throw CGenericException("The agent hands out no product");
    CEventsStream events(control->GetEventConfig(), nullptr);
    std::shared_ptr<IBackupJob> job;
    for (const auto& each : product->GetBackupJobs())
        if (each->GetInfo().Name == name) job = each;
    if (!job) throw CGenericException("The agent has no job " + name);
    auto run = session.IsNil() ? nullptr : product->FindBackupJobSessionById(session);
    if (!run) try {
            SBackupJobConfigurationInfo config = job->GetConfigurationInfo();
            config.StorageInfo.EncryptionSettings.emplace().Password = secret;
            std::cout << config << std::endl;  // the password is shown as ***
            job->UpdateConfigurationInfo(config);
            run = job->Start({});
        } catch (const CJobIsRunning&) {  // started by a call whose answer was lost, or by somebody else
            run = job->FindLastBackupJobSession();
        }
    if (!run) throw CGenericException("The agent has forgotten the run");
    for (auto info = run->GetInfo();; info = run->GetInfo()) {
        session = info.Uid;
        std::cout << NameOf(info.State) << ' ' << info.PercentCompleted << '%' << std::endl;
        if (info.State == JobState::Stopped) return info.Result == JobResult::Success;
        events.ReadUntil(std::min(deadline, std::chrono::steady_clock::now() + std::chrono::seconds(1)));
    }
}

int main(int argc, char* argv[]) try {
    std::string secret;
    if (argc != 3 || !std::getline(std::cin, secret))
        throw apigen::ApiException("JOB SECONDS <PASSWORD_FILE");
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(std::stoi(argv[2]));
    const SZamControlOwnerInfo owner{apigen::Guid::Random(), "follow_job", ZAMOwnerType::Local, {}};
    for (apigen::Guid session;; std::this_thread::sleep_for(std::chrono::milliseconds(100)))
        try {
            return Follow(argv[1], secret, owner, session, deadline) ? 0 : 1;
        } catch (const std::exception& error) {
            const auto* const known = dynamic_cast<const apigen::ApiException*>(&error);
            if ((known && !known->IsConnectionLost()) || std::chrono::steady_clock::now() >= deadline) throw;
            std::cout << "again: " << error.what() << std::endl;
        }
} catch (const std::exception& error) {
    std::cerr << "follow_job: " << error.what() << '\n';
    return 2;
}
