// SPDX-License-Identifier: Apache-2.0
/// \file
/// The whole public API.
#pragma once

#include <apigen/ApiGen.h>
#include <zamclientlib/ApiClient.h>
#include <zamclientlib/CApiExceptionGenerator.h>
#include <zamclientlib/CSimpleLogger.h>
#include <zamclientlib/CommonRecords.h>
#include <zamclientlib/Enums.h>
#include <zamclientlib/Exceptions.h>
#include <zamclientlib/Installer.h>
#include <zamclientlib/InstallerProxies.h>
#include <zamclientlib/InstallerRecords.h>
