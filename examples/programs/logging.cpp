// SPDX-License-Identifier: Apache-2.0
// Two logs, of the library's make and of one's own, each with a line about every call: logging FOLDER
#include <zamclientlib/ZamClientLib.h>

#include <exception>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>

using namespace zamclientlib;

namespace {

/// Connections share it, so any thread may come.
class CLogger final : public apigen::ILogger {
public:
    void Info(const std::string& message) override { Write("info", message); }
    void Error(const std::string& message, std::exception& error) override {
        Write("error", message + ": " + error.what());
    }

private:
    void Write(const std::string& level, const std::string& message) {
        const std::lock_guard lock(m_mutex);
        std::clog << level << ": " << message << std::endl;
    }

    std::mutex m_mutex;
};

}  // namespace

int main(int argc, char* argv[]) {
    if (argc != 2) return 2;
    const auto file = std::make_shared<CSimpleLogger>(argv[1], "logging.log");
    // Nothing is thrown for a log: who wants to know asks.
    if (const auto error = file->GetError()) std::cerr << "no log: " << error.message() << std::endl;

    SConnectOptions options;
    options.IsEachCallLogged = true;
    try {
        options.Logger = file;
        static_cast<void>(ConnectToAgent(options)->GetProductInfo());
        options.Logger = std::make_shared<CLogger>();
        static_cast<void>(ConnectToAgent(options)->GetProductInfo());
    } catch (const apigen::ApiException& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
    std::cout << file->GetPath() << std::endl;
    return 0;
}
