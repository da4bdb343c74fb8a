// SPDX-License-Identifier: Apache-2.0
/// \file
/// The whole public API, but for what only its users should pay for: Chrono.h, EventVisit.h, RecordText.h.
#pragma once

#include <apigen/ApiGen.h>
#include <zamclientlib/AgentProxies.h>
#include <zamclientlib/ApiClient.h>
#include <zamclientlib/CApiExceptionGenerator.h>
#include <zamclientlib/CEventsStream.h>
#include <zamclientlib/CSimpleLogger.h>
#include <zamclientlib/CommonRecords.h>
#include <zamclientlib/Connect.h>
#include <zamclientlib/Control.h>
#include <zamclientlib/Enums.h>
#include <zamclientlib/EventRecords.h>
#include <zamclientlib/Exceptions.h>
#include <zamclientlib/InfrastructureRecords.h>
#include <zamclientlib/Installer.h>
#include <zamclientlib/InstallerProxies.h>
#include <zamclientlib/InstallerRecords.h>
#include <zamclientlib/JobConfigurationRecords.h>
#include <zamclientlib/JobRecords.h>
#include <zamclientlib/Jobs.h>
#include <zamclientlib/Managers.h>
#include <zamclientlib/RecordEquality.h>
