// SPDX-License-Identifier: Apache-2.0
/// \file
/// Where backups go, and the servers that the agent talks to. Secrets are left off the wire when empty.
#pragma once

#include <apigen/Export.h>
#include <apigen/Fields.h>
#include <apigen/Guid.h>
#include <apigen/Optional.h>
#include <zamclientlib/Enums.h>
#include <zamclientlib/RecordEquality.h>

#include <string>
#include <vector>

namespace zamclientlib APIGEN_API {

/// One network endpoint. Not validated here: the service judges addresses and ports.
struct SServerConnectionInfo {
    std::string Address{};
    int Port = 0;

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("Address", &SServerConnectionInfo::Address);
        field("Port", &SServerConnectionInfo::Port);
    }
};

/// A gateway of a cloud service provider.
struct SGatewayInfo {
    SServerConnectionInfo Connection{};
    unsigned short Priority = 0;  ///< the lowest number goes first

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("Connection", &SGatewayInfo::Connection);
        field("Priority", &SGatewayInfo::Priority);
    }
};

/// A network shared folder that serves as a repository.
struct SSharedFolderInfo {
    SharedFolderType FolderType{};
    std::string Directory{};
    std::string Username{};
    std::string Domain{};
    apigen::Optional<std::string> Password{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("FolderType", &SSharedFolderInfo::FolderType);
        field("Directory", &SSharedFolderInfo::Directory);
        field("Username", &SSharedFolderInfo::Username);
        field("Domain", &SSharedFolderInfo::Domain);
        field(apigen::Secret("Password"), &SSharedFolderInfo::Password);
    }
};

/// A place for backups.
struct SBackupRepositoryInfo {
    apigen::Guid Id{};
    std::string Name{};
    apigen::Optional<std::string> OriginalName{};
    BackupTargetType Type{};
    std::string Location{};  ///< a path, for what is a folder
    apigen::Optional<apigen::Guid> ServerId{};
    apigen::Optional<SSharedFolderInfo> SharedFolderInfo{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("Id", &SBackupRepositoryInfo::Id);
        field("Name", &SBackupRepositoryInfo::Name);
        field("OriginalName", &SBackupRepositoryInfo::OriginalName);
        field("Type", &SBackupRepositoryInfo::Type);
        field("Location", &SBackupRepositoryInfo::Location);
        field("ServerId", &SBackupRepositoryInfo::ServerId);
        field("SharedFolderInfo", &SBackupRepositoryInfo::SharedFolderInfo);
    }
};

/// Capacity of a repository.
struct SBackupRepositorySizeInfo {
    long Capacity = 0;   ///< in bytes; -1 when it is unknown
    long FreeSpace = 0;  ///< in bytes; -1 when it is unknown

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("Capacity", &SBackupRepositorySizeInfo::Capacity);
        field("FreeSpace", &SBackupRepositorySizeInfo::FreeSpace);
    }
};

/// A backup server that the agent talks to.
struct SBackupServerInfo {
    apigen::Guid Id{};
    std::string Name{};
    std::vector<SServerConnectionInfo> Connection{};
    std::string Username{};
    std::string Domain{};
    apigen::Optional<std::string> Password{};
    bool OnlyForRestore = false;  ///< backups may be read from it, not written to it

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("Id", &SBackupServerInfo::Id);
        field("Name", &SBackupServerInfo::Name);
        field("Connection", &SBackupServerInfo::Connection);
        field("Username", &SBackupServerInfo::Username);
        field("Domain", &SBackupServerInfo::Domain);
        field(apigen::Secret("Password"), &SBackupServerInfo::Password);
        field("OnlyForRestore", &SBackupServerInfo::OnlyForRestore);
    }
};

/// A provider's credential with its kind.
struct SCloudServiceProviderPassword {
    std::string Value{};  ///< the secret itself
    ECloudServiceProviderPasswordType Type{};

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field(apigen::Secret("Value"), &SCloudServiceProviderPassword::Value);
        field("Type", &SCloudServiceProviderPassword::Type);
    }
};

/// A cloud service provider.
struct SCloudServiceProviderInfo {
    apigen::Guid Id{};
    std::string Name{};
    std::vector<SServerConnectionInfo> Connection{};
    std::string Username{};
    apigen::Optional<SCloudServiceProviderPassword> Password{};
    std::string TrustedThumbprint{};  ///< of the provider's certificate, as the service writes it

    template <class Visitor>
    static constexpr void Fields(Visitor&& field) {
        field("Id", &SCloudServiceProviderInfo::Id);
        field("Name", &SCloudServiceProviderInfo::Name);
        field("Connection", &SCloudServiceProviderInfo::Connection);
        field("Username", &SCloudServiceProviderInfo::Username);
        field(apigen::Secret("Password"), &SCloudServiceProviderInfo::Password);
        field("TrustedThumbprint", &SCloudServiceProviderInfo::TrustedThumbprint);
    }
};

}  // namespace zamclientlib
