// SPDX-License-Identifier: Apache-2.0
// Any file as a script of the test agent: it is one, or is refused with the reason. Never obeyed is what is no
// JSON, or holds a member that nobody reads.
#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>

#include "testagent/Script.h"
#include "tests/fuzz/Check.h"
#include "tests/fuzz/MemoryFile.h"

namespace {

const std::set<std::string_view> KnownMembers{"protocolVersion", "clock",  "owner", "repositories", "jobs",
                                              "rules",           "events", "shared"};

void CheckScript(const testagent::SScript& script, std::string_view text) {
    const auto json = nlohmann::json::parse(text, nullptr, false);
    Require(json.is_object(), "a script is an object of JSON", text);
    for (const auto& member : json.items())
        Require(KnownMembers.count(member.key()) != 0, "no unknown member passes", member.key());
    const auto count = [&json](const char* name) {
        const auto list = json.find(name);
        return list != json.end() && list->is_array() ? list->size() : 0;
    };
    Require(script.Repositories.size() == count("repositories"), "every repository is read", text);
    Require(script.Jobs.size() == count("jobs"), "every job is read", text);
    Require(script.Rules.size() == count("rules"), "every rule is read", text);
    Require(script.EventRules.size() == count("events"), "every rule for events is read", text);
    Require(script.Step.count() >= 0, "no time runs backwards", text);
    Require(script.IdleLimit.count() >= 0, "no time runs backwards", text);
    for (const auto& rule : script.Rules) {
        Require(!rule.Method.empty(), "a rule has a method", text);
        Require(rule.Delay.count() >= 0, "no time runs backwards", text);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const CMemoryFile file;
    static const std::string path = [] {
        const std::string made = file.Path();
        ::setenv("ZAM_TESTAGENT_SCRIPT", made.c_str(), 1);
        return made;
    }();
    file.Fill(data, size);
    try {
        CheckScript(testagent::SScript::FromEnvironment(), {reinterpret_cast<const char*>(data), size});
    } catch (const std::runtime_error& error) {
        Require(std::string_view(error.what()).find(path) != std::string_view::npos,
                "a refusal names the file", error.what());
    }
    return 0;
}
