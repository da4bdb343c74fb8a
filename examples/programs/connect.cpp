// SPDX-License-Identifier: Apache-2.0
// Connects to the agent, or says why that can't be done: connect [TOOL]
#include <zamclientlib/RecordText.h>
#include <zamclientlib/ZamClientLib.h>

#include <chrono>
#include <iostream>

int main(int argc, char* argv[]) {
    zamclientlib::SConnectOptions options;
    if (argc > 1) options.Tool = argv[1];  // otherwise "tarvoconfig", looked up in PATH
    options.ConnectTimeout = std::chrono::seconds(10);
    options.CallTimeout = std::chrono::minutes(1);
    options.IsVersionChecked = true;
    try {
        const auto control = zamclientlib::ConnectToAgent(options);
        std::cout << control->GetProductInfo() << '\n';
        return 0;
    } catch (const apigen::ProcessLaunchError& error) {
        std::cerr << "There is no agent here: " << error.what() << '\n';
    } catch (const zamclientlib::IncompatibleToolError& error) {
        std::cerr << "The agent speaks version " << error.ToolVersion() << ", this program "
                  << zamclientlib::GetLibraryApiVersion() << '\n';
    } catch (const apigen::ApiInternalError& error) {
        std::cerr << "The agent can't be reached: " << error.what() << '\n';
    } catch (const apigen::ApiException& error) {
        std::cerr << "The agent refuses: " << error.what() << '\n';
    }
    return 1;
}
