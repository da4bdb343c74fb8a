// SPDX-License-Identifier: Apache-2.0
/// \file
/// The places that backups go to: repositories, backup servers, cloud service providers.
///
/// Every method is a remote call and fails as those of Installer.h do.
#pragma once

#include <apigen/Export.h>
#include <apigen/Guid.h>
#include <apigen/Optional.h>
#include <zamclientlib/InfrastructureRecords.h>

#include <vector>

namespace zamclientlib APIGEN_API {

/// The repositories. An unknown id gives an empty optional, not an exception.
class IRepositoryManager {
public:
    /// \return the repository as the service has it, with its id
    virtual SBackupRepositoryInfo CreateRepository(SBackupRepositoryInfo info) = 0;

    /// \return the repository as the service has it now
    virtual SBackupRepositoryInfo UpdateRepository(SBackupRepositoryInfo info) = 0;

    /// Takes the repository out of the list.
    /// \throws CGenericException when it may not be: a job uses it, for instance
    virtual void DeleteRepository(apigen::Guid repositoryId) = 0;
    /// Whether `DeleteRepository` would be allowed now.
    [[nodiscard]] virtual bool CanBeDeleted(apigen::Guid repositoryId) const = 0;
    /// Every repository that the agent knows.
    [[nodiscard]] virtual std::vector<SBackupRepositoryInfo> GetRepositories() const = 0;
    /// The repository, or empty when there is none.
    [[nodiscard]] virtual apigen::Optional<SBackupRepositoryInfo> FindRepository(
        apigen::Guid repositoryId) const = 0;

    /// Asks the repository for its capacity; may take a while.
    [[nodiscard]] virtual apigen::Optional<SBackupRepositorySizeInfo> RequestSizeInfo(
        apigen::Guid repositoryId) const = 0;

    virtual ~IRepositoryManager() = default;
};

/// The backup servers. An unknown id gives an empty optional, not an exception.
class IBackupServerManager {
public:
    /// \return the server as the service has it, with its id
    virtual SBackupServerInfo AddBackupServer(SBackupServerInfo serverInfo) = 0;

    /// \return whether there was such a server
    virtual bool DeleteBackupServer(apigen::Guid backupServerId) = 0;

    /// Reads the server's list of repositories anew.
    virtual void ResyncBackupServerRepositoriesList(apigen::Guid backupServerId) = 0;

    /// Every backup server that the agent knows.
    [[nodiscard]] virtual std::vector<SBackupServerInfo> GetBackupServers() const = 0;
    /// The server, or empty when there is none.
    [[nodiscard]] virtual apigen::Optional<SBackupServerInfo> FindBackupServer(
        apigen::Guid backupServerId) const = 0;
    /// Changes the server that has the record's id.
    virtual void UpdateBackupServer(SBackupServerInfo serverInfo) = 0;

    virtual ~IBackupServerManager() = default;
};

/// The cloud service providers. An unknown id gives an empty optional, not an exception.
class ICloudServiceProviderManager {
public:
    /// \return the provider as the service has it, with its id
    virtual SCloudServiceProviderInfo AddCloudServiceProvider(
        SCloudServiceProviderInfo serviceProviderInfo) = 0;

    /// \return whether there was such a provider
    virtual bool DeleteCloudServiceProvider(apigen::Guid cloudServiceProviderId) = 0;

    /// Reads the provider's list of repositories anew.
    virtual void ResyncCloudRepositoriesList(apigen::Guid cloudServiceProviderId) = 0;

    /// Every provider that the agent knows.
    [[nodiscard]] virtual std::vector<SCloudServiceProviderInfo> GetCloudServiceProviders() const = 0;
    /// The provider, or empty when there is none.
    [[nodiscard]] virtual apigen::Optional<SCloudServiceProviderInfo> FindCloudServiceProvider(
        apigen::Guid cloudServiceProviderId) const = 0;
    /// Changes the provider that has the record's id.
    virtual void UpdateCloudServiceProvider(SCloudServiceProviderInfo cloudServiceInfo) = 0;
    /// The gateways through which the provider is reached.
    [[nodiscard]] virtual std::vector<SGatewayInfo> GetCloudServiceProviderGateways(
        apigen::Guid cloudServiceProviderId) const = 0;

    virtual ~ICloudServiceProviderManager() = default;
};

}  // namespace zamclientlib
