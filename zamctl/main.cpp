// SPDX-License-Identifier: Apache-2.0
// The command-line program: from words to a verb, and from what happened to an exit status.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <system_error>
#include <vector>

#include "Failure.h"
#include "agent/Interrupt.h"
#include "show/Terminal.h"
#include "show/Words.h"
#include "verbs/CommandLine.h"

namespace zamctl {
namespace {

void Complain(const std::string& what, const std::string& hint) {
    // A hint of several lines is laid out already.
    std::fprintf(stderr, "zamctl: %s\n", what.c_str());
    if (!hint.empty()) std::fprintf(stderr, "  %s\n", hint.c_str());
}

EExit Fail(const std::string& verb, const std::exception& error) {
    if (dynamic_cast<const apigen::InterruptedError*>(&error) != nullptr || InterruptedBy() != 0) {
        Complain(verb + ": interrupted", "");
        return EExit::Interrupted;
    }
    if (const auto* const failure = dynamic_cast<const CFailure*>(&error)) {
        Complain(verb + ": " + failure->what(), failure->Hint());
        return failure->Exit();
    }
    const std::string why = Escaped(error.what());
    if (dynamic_cast<const CFieldError*>(&error) != nullptr) {
        Complain(verb + ": " + why, "");
        return EExit::Usage;
    }
    if (const auto* const own = dynamic_cast<const apigen::ApiException*>(&error)) {
        if (dynamic_cast<const apigen::TimeoutError*>(own) != nullptr) {
            Complain(verb + ": the agent did not answer in time: " + why,
                     "whether it did what was asked is unknown; give it longer with --timeout");
            return EExit::NoAgent;
        }
        if (own->IsConnectionLost()) {
            Complain(verb + ": the agent has gone: " + why,
                     "whether it did what was asked is unknown; look, and try again");
            return EExit::NoAgent;
        }
        if (dynamic_cast<const zamclientlib::CJobIsRunning*>(own) != nullptr) {
            Complain(verb + ": the job is running: " + why, "wait for it, or stop it: zamctl job stop JOB");
            return EExit::Refused;
        }
        if (dynamic_cast<const zamclientlib::CPackageManagerIsLocked*>(own) != nullptr) {
            Complain(verb + ": another program is changing packages: " + why, "try again when it has ended");
            return EExit::Refused;
        }
        Complain(verb + ": " + why, "");
        return EExit::Refused;
    }
    if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr) {
        Complain(verb + ": out of memory", "");
        return EExit::Refused;
    }
    Complain(verb + ": " + why, "");
    return EExit::Refused;
}

/// As if the signal had ended us, for a shell that wants to know.
[[noreturn]] void EndBy(int signal) {
    std::fflush(nullptr);
    std::signal(signal, SIG_DFL);
    ::kill(::getpid(), signal);
    ::_exit(128 + signal);
}

EExit Run(const std::vector<std::string>& arguments) {
    std::string verb = "zamctl";
    try {
        SCommandLine line = ParseCommandLine(arguments);
        if (line.Verb == nullptr) {
            COutput out({});
            out.Raw(line.Help);
            out.Flush();
            return EExit::Done;
        }
        verb = FullName(*line.Verb);
        const bool isYes = line.Common.IsYes;
        line.Common.Agent.AskForce = [isYes](const zamclientlib::SZamControlOwnerInfo& owner) {
            if (isYes) return;
            const std::string question = "Take control of the agent from " + Quoted(owner.Name) + " (" +
                                         std::string(NameOf(owner.Mode)) + ")?";
            if (!IsInputTerminal())
                throw CFailure(EExit::Usage, "nobody is there to be asked: " + question, "say --yes as well");
            if (!Confirm(question)) throw CFailure(EExit::Refused, "not done");
        };
        CatchInterrupts();
        for (const auto& [name, value] : line.Words)
            line.Common.Agent.IsForced = line.Common.Agent.IsForced || name == "--force";
        CCall call(*line.Verb, std::move(line.Common), std::move(line.Words));
        const EExit exit = line.Verb->Run(call);
        call.Out.Flush();
        return exit;
    } catch (const COutputGone&) {
        EndBy(SIGPIPE);
    } catch (const CFailure& failure) {
        return verb == "zamctl" && failure.Exit() == EExit::Usage
                   ? (Complain(failure.what(), failure.Hint()), EExit::Usage)
                   : Fail(verb, failure);
    } catch (const std::exception& error) {
        return Fail(verb, error);
    }
}

}  // namespace
}  // namespace zamctl

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
    return static_cast<int>(zamctl::Run(arguments));
}
