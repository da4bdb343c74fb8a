// SPDX-License-Identifier: Apache-2.0
/// \file
/// The framework below the API: values, containers, encoders, the proxy base and the transport.
#pragma once

#include <apigen/ApiException.h>
#include <apigen/CApiClientInvoker.h>
#include <apigen/CAtomicEvent.h>
#include <apigen/CCancellation.h>
#include <apigen/CInterruptibleIoDev.h>
#include <apigen/CProcess.h>
#include <apigen/CXmlData.h>
#include <apigen/CallControl.h>
#include <apigen/Export.h>
#include <apigen/Fields.h>
#include <apigen/Guid.h>
#include <apigen/Handle.h>
#include <apigen/IData.h>
#include <apigen/IInvoker.h>
#include <apigen/IIoDev.h>
#include <apigen/ILogger.h>
#include <apigen/Optional.h>
#include <apigen/Owned.h>
#include <apigen/ProxyBase.h>
#include <apigen/Serialize.h>
#include <apigen/StreamedXmlInvokerImpl.h>
