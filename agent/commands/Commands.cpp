// SPDX-License-Identifier: Apache-2.0
#include "agent/commands/Commands.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <exception>
#include <filesystem>

#include "agent/commands/Actions.h"
#include "agent/commands/Lookup.h"
#include "support/common/Text.h"

namespace tarvo::commands {
namespace {

constexpr std::string_view Names[]{"points", "files", "restore", "verify", "chains", "forget", "adopt"};

/// As entries are named: absolute, without a slash too many, "." or "..", which the point's own paths never have.
void Normalise(std::vector<std::string>& paths) {
    for (auto& path : paths) {
        if (!path.starts_with('/'))
            throw CCommandError(Usage, "A path in a point is absolute, not " + apigen::common::Quoted(path));
        path = std::filesystem::path(path).lexically_normal().string();
        if (path.size() > 1 && path.ends_with('/')) path.pop_back();
    }
}

struct SCommandLine {
    CLI::App App{"What the backup agent has stored, and what can be done with it", "tarvod"};
    SOptions Options;
    std::function<int(const SPlace&, const SOptions&)> Action;

    CLI::App* Add(const char* name, const char* description, int (*action)(const SPlace&, const SOptions&)) {
        auto* command = App.add_subcommand(name, description);
        command->callback([this, action] { Action = action; });
        return command;
    }
    void AddJob(CLI::App* command) {
        command->add_option("--job", Options.Job, "name or id of the job")->type_name("JOB");
    }
    void AddPassword(CLI::App* command) {
        command
            ->add_option("--password-file", Options.PasswordFile,
                         "file with the password, when the agent does not have it")
            ->type_name("FILE");
    }
    void AddJson(CLI::App* command) {
        command->add_flag("--json", Options.IsJson, "a line of JSON for each row");
    }
    void AddPoint(CLI::App* command) {
        command
            ->add_option("POINT", Options.Point, "id of the point, a unique beginning of it, or \"latest\"")
            ->type_name("")
            ->required();
        AddJob(command);
        command
            ->add_option("--path", Options.Paths,
                         "only this entry, with all that is in it; may be said again for others")
            ->type_name("PATH")
            ->take_all()
            ->expected(1)
            ->allow_extra_args(false);
        AddPassword(command);
    }

    SCommandLine() {
        App.failure_message([](const CLI::App*, const CLI::Error& error) {
            return std::string("tarvod: ") + error.what() + "\nRun with --help for more information.\n";
        });
        App.require_subcommand(1);
        auto* points = Add("points", "lists the restore points", ShowPoints);
        AddJob(points);
        AddJson(points);
        points->add_flag("--preview", Options.IsPreview, "what the next run will keep and remove, and why");
        auto* chains = Add("chains", "lists the chains that hold the points", ShowChains);
        AddJob(chains);
        AddJson(chains);
        auto* files = Add("files", "lists what a point holds", ShowFiles);
        AddPoint(files);
        AddJson(files);
        auto* restore = Add("restore", "restores a point, or a part of it", Restore);
        AddPoint(restore);
        restore
            ->add_option("--to", Options.To,
                         "folder below which each entry lands with its whole original path")
            ->type_name("DIR")
            ->required();
        restore->add_flag("--dry-run", Options.IsDryRun, "only tell what would be restored");
        auto* verify = Add("verify", "reads what is stored and tells whether it is sound", Verify);
        AddJob(verify);
        AddJson(verify);
        verify->add_option("--chain", Options.Chain, "only this chain")
            ->type_name("N")
            ->check(CLI::Range(1, 1'000'000'000));
        verify
            ->add_option("--parts", Options.Parts, "only the next of so many parts; which one is remembered")
            ->type_name("N")
            ->check(CLI::Range(1U, MostVerifyParts));
        AddPassword(verify);
        auto* forget = Add("forget", "removes points for good", ForgetOrphans);
        forget->add_flag("--orphans", Options.Orphans, "all points of jobs that were deleted")->required();
        forget->add_flag("--dry-run", Options.IsDryRun, "only tell what would be removed");
        auto* adopt = Add("adopt", "takes up chains that are in a folder, but not in the agent's state",
                          commands::Adopt);
        adopt->add_option("location", Options.Location, "the repository's folder, in which \"tarvo\" is")
            ->required();
        adopt->add_option("--password-file", Options.PasswordFile,
                          "file with the password of the chains that have one");
        adopt->add_flag("--dry-run", Options.IsDryRun, "only tell what would be adopted");
        AddJson(adopt);
    }
};

}  // namespace

bool IsCommand(std::string_view word) {
    return std::find(std::begin(Names), std::end(Names), word) != std::end(Names);
}

int Run(const std::vector<std::string>& arguments, const SPlace& place) {
    SCommandLine line;
    try {
        std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
        line.App.parse(reversed);
    } catch (const CLI::ParseError& error) {
        return line.App.exit(error, place.Out, place.Errors) == 0 ? Done : Usage;
    }
    try {
        Normalise(line.Options.Paths);
        const int status = line.Action(place, line.Options);
        place.Out.flush();
        if (!place.Out) throw CCommandError(Failed, "The output could not be written");
        return status;
    } catch (const CCommandError& error) {
        place.Errors << "tarvod: " << error.what() << '\n';
        return error.Status();
    } catch (const CNoSuchPoint& error) {
        place.Errors << "tarvod: " << error.what() << '\n';
        return NotFound;
    } catch (const CWrongKey& error) {
        place.Errors << "tarvod: " << error.what() << "; give the right password with --password-file FILE\n";
        return Failed;
    } catch (const std::exception& error) {
        place.Errors << "tarvod: " << error.what() << '\n';
        return Failed;
    }
}

}  // namespace tarvo::commands
