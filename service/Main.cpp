// SPDX-License-Identifier: Apache-2.0
// The command line of a tool.
#include <zamclientlib/Exceptions.h>
#include <zamservice/Main.h>

#include <cxxabi.h>

#include <cstddef>
#include <exception>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "support/common/Text.h"

namespace zamservice {
namespace {

using apigen::common::Escaped;
using apigen::common::Quoted;
using zamclientlib::CGenericException;

constexpr int Failed = 1;
constexpr int NotUnderstood = 2;
constexpr const char* Nameless = "it failed for a reason that it can't name";

/// The words that clients of a kind use.
struct SWords {
    std::string_view DefaultName;  ///< of the tool
    std::string_view Prefix;       ///< stands before the command; may be empty
    std::string_view Serve;
    std::string_view LogOption;
    std::string_view TellVersion;

    std::string Form(std::string_view command) const {
        return (Prefix.empty() ? "" : std::string(Prefix) + ' ') + std::string(command);
    }
    std::string ServeForm() const { return Form(Serve) + ' ' + std::string(LogOption) + " NAME"; }
};

constexpr SWords AgentWords{"tarvoconfig", "extended", "startCommandInvoker", "--logFileName",
                            "protocolVersion"};
constexpr SWords InstallerWords{"tarvoinstaller", "", "start-command-invoker", "--log-name",
                                "protocol-version"};

const SWords& WordsOf(EToolKind kind) {
    return kind == EToolKind::Installer ? InstallerWords : AgentWords;
}

class CUsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

enum class ECommand {
    Help,
    Version,
    Serve,
    TellVersion
};

struct SCommandLine {
    ECommand Command{};
    std::string LogName = {};
};

/// Reads the arguments of one tool.
class CReader {
public:
    CReader(const SWords& words, const std::vector<std::string_view>& arguments)
        : m_words(words), m_arguments(arguments) {}

    SCommandLine Read(bool hasVersion) {
        for (m_next = 0; m_next < m_arguments.size();) {
            const std::string_view argument = m_arguments[m_next++];
            if (argument == "--help" || argument == "-h") return {ECommand::Help};
            if (argument == "--version" && hasVersion) return {ECommand::Version};
            if (argument.size() > 1 && argument.front() == '-') {
                ReadLogName(argument);
            } else {
                ReadWord(argument);
            }
        }
        if (!m_command) {
            throw CUsageError(m_hasPrefix ? "after " + std::string(m_words.Prefix) + " a command is missing"
                                          : "a command is missing");
        }
        const bool isServe = *m_command == ECommand::Serve;
        if (isServe && !m_logName) {
            throw CUsageError(std::string(m_words.Serve) + " needs " + std::string(m_words.LogOption) +
                              " NAME");
        }
        if (!isServe && m_logName) {
            throw CUsageError(std::string(m_words.TellVersion) + " takes no " +
                              std::string(m_words.LogOption));
        }
        return {*m_command, m_logName.value_or("")};
    }

private:
    void ReadWord(std::string_view word) {
        if (!m_command && !m_hasPrefix && !m_words.Prefix.empty() && word == m_words.Prefix) {
            m_hasPrefix = true;
            return;
        }
        if (!m_command && (m_hasPrefix || m_words.Prefix.empty())) {
            if (word == m_words.Serve) m_command = ECommand::Serve;
            if (word == m_words.TellVersion) m_command = ECommand::TellVersion;
            if (m_command) return;
        }
        throw CUsageError("unexpected argument " + Quoted(word));
    }

    void ReadLogName(std::string_view argument) {
        const std::size_t nameEnd = argument.find('=');
        const std::string_view name = argument.substr(0, nameEnd);
        if (name != m_words.LogOption) throw CUsageError("unknown option " + Quoted(name));
        if (m_logName) throw CUsageError(std::string(name) + " is given twice");
        if (nameEnd != std::string_view::npos) {
            m_logName = argument.substr(nameEnd + 1);
        } else if (m_next < m_arguments.size() && m_arguments[m_next].substr(0, 1) != "-") {
            m_logName = m_arguments[m_next++];
        } else {
            throw CUsageError(std::string(name) + " needs a NAME");
        }
        // Services put it behind the folder of their logs.
        if (m_logName->empty() || *m_logName == "." || *m_logName == ".." ||
            m_logName->find('/') != std::string::npos) {
            throw CUsageError(std::string(name) + ' ' + Quoted(*m_logName) +
                              ": it must be a file name without a folder");
        }
    }

    const SWords& m_words;
    const std::vector<std::string_view>& m_arguments;
    std::size_t m_next = 0;
    bool m_hasPrefix = false;
    std::optional<ECommand> m_command;
    std::optional<std::string> m_logName;
};

int Print(const std::string& text) {
    std::cout << text << std::flush;
    return std::cout ? 0 : Failed;
}

std::string Help(const std::string& name, const SWords& words, const STool& tool) {
    const auto form = [&](const std::string& arguments, const std::string& meaning) {
        return "  " + name + ' ' + arguments + "\n      " + meaning + '\n';
    };
    return (tool.Description.empty() ? "" : tool.Description + "\n\n") + "Usage:\n" +
           form(words.ServeForm(),
                "Serve calls on the standard streams until they close; NAME is for the log") +
           form(words.Form(words.TellVersion), "Print the version of the protocol as a document") +
           (tool.Version.empty() ? "" : form("--version", "Print the version of this program")) +
           form("--help", "Print this text");
}

int Serve(const STool& tool, const std::string& logName) {
    if (tool.Serve) return tool.Serve(logName);
    return ServeStandardStreams([&]() -> CService {
        try {
            if (!tool.MakeService) throw CGenericException("The tool has no service");
            return tool.MakeService(logName);
        } catch (const std::exception&) {
            throw;
        } catch (const abi::__forced_unwind&) {
            throw;
        } catch (...) {
            throw CGenericException(std::string("The service can't be made: ") + Nameless);
        }
    });
}

int Run(const std::string& name, const std::vector<std::string_view>& arguments, const STool& tool) {
    const SWords& words = WordsOf(tool.Kind);
    const SCommandLine line = CReader(words, arguments).Read(!tool.Version.empty());
    switch (line.Command) {
        case ECommand::Help:
            return Print(Help(name, words, tool));
        case ECommand::Version:
            return Print(name + ' ' + tool.Version + '\n');
        case ECommand::TellVersion:
            return tool.ProtocolVersion ? PrintProtocolVersion(tool.ProtocolVersion())
                                        : PrintProtocolVersion();
        case ECommand::Serve:
            break;
    }
    return Serve(tool, line.LogName);
}

template <class Root>
STool ToolOf(EToolKind kind, const std::function<std::shared_ptr<Root>(const std::string&)>& makeRoot) {
    STool tool;
    tool.Kind = kind;
    tool.MakeService = [&makeRoot](const std::string& logName) -> CService {
        std::shared_ptr<Root> root = makeRoot ? makeRoot(logName) : nullptr;
        if (root == nullptr) throw CGenericException("The tool has no object to serve");
        return {std::move(root)};
    };
    return tool;
}

}  // namespace

int Main(int argc, const char* const* argv, const STool& tool) {
    const SWords& words = WordsOf(tool.Kind);
    std::string name(words.DefaultName);
    try {
        std::vector<std::string_view> arguments(argv, argv + argc);
        if (!arguments.empty()) {
            const std::string_view path = arguments.front();
            if (!path.empty()) name = Escaped(path.substr(path.rfind('/') + 1));
            arguments.erase(arguments.begin());
        }
        return Run(name, arguments, tool);
    } catch (const CUsageError& error) {
        std::cerr << name << ": " << error.what() << ". Usage: " << name << ' ' << words.ServeForm() << " | "
                  << words.Form(words.TellVersion) << " | --help" << std::endl;
        return NotUnderstood;
    } catch (const std::exception& error) {
        std::cerr << name << ": " << Escaped(error.what()) << std::endl;
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
        std::cerr << name << ": " << Nameless << std::endl;
    }
    return Failed;
}

int Main(int argc, const char* const* argv,
         const std::function<AgentPtr(const std::string& logName)>& makeAgent) {
    return Main(argc, argv, ToolOf(EToolKind::Agent, makeAgent));
}

int Main(int argc, const char* const* argv,
         const std::function<InstallerPtr(const std::string& logName)>& makeInstaller) {
    return Main(argc, argv, ToolOf(EToolKind::Installer, makeInstaller));
}

}  // namespace zamservice
