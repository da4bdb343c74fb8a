// SPDX-License-Identifier: Apache-2.0
// The methods of every interface of the API, as the service calls them. Large, and none of it is where a call's time goes.
#include <zamclientlib/Control.h>
#include <zamclientlib/Installer.h>

#include "service/Dispatcher.h"
#include "src/AgentMethods.h"
#include "src/InstallerMethods.h"

namespace zamservice {

template const CInterface& CInterface::Of<zamclientlib::ITarvoInstaller>();
template const CInterface& CInterface::Of<zamclientlib::IZamControl>();

}  // namespace zamservice
