// SPDX-License-Identifier: Apache-2.0
#include "show/Schema.h"

#include <apigen/Fields.h>
#include <apigen/Guid.h>
#include <apigen/Optional.h>
#include <zamclientlib/CommonRecords.h>
#include <zamclientlib/Enums.h>
#include <zamclientlib/EventRecords.h>
#include <zamclientlib/InfrastructureRecords.h>
#include <zamclientlib/InstallerRecords.h>
#include <zamclientlib/JobConfigurationRecords.h>
#include <zamclientlib/JobRecords.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <type_traits>

namespace zamctl {
namespace {

using namespace zamclientlib;  // NOLINT: the records, of which this file speaks

/// A key that a shape of one's own has; "SizeInfo?" where it may be left out.
struct SKey {
    const char* Name;
    const char* Shape;
};

/// What a command shows that is no record: a record with further keys, or keys alone.
struct SShape {
    const char* Name;
    const char* Record;  ///< empty: none
    std::vector<SKey> Keys;
};

/// By their names, as verbs have them.
const std::vector<SShape>& Shapes() {
    static const std::vector<SShape> shapes{
        // of the agent as a whole
        {"Status",
         "",
         {{"Product", "SZamProductInfo"},
          {"Owner", "SZamControlOwnerInfo?"},
          {"IsSchedulerAllowed", "truth"},
          {"Jobs", "[JobRow]"},
          {"Repositories", "[Repository]"}}},
        {"Control",
         "",
         {{"Owner", "SZamControlOwnerInfo?"},
          {"IsMine", "truth"},
          {"Product", "SZamProductInfo"},
          {"SessionId", "id"}}},
        {"Scheduler", "", {{"IsSchedulerAllowedToRunJobs", "truth"}}},
        {"Logs", "", {{"Path", "text"}}},
        // of jobs
        {"LastSession",
         "",
         {{"Uid", "id"},
          {"State", "JobState"},
          {"Result", "JobResult"},
          {"StartTimeUtc", "time?"},
          {"EndTimeUtc", "time?"},
          {"PercentCompleted", "integer"}}},
        {"JobRow",
         "SBackupJobInfo",
         {{"LastSession", "LastSession?"}, {"NextRunTimeUtc", "time?"}, {"IsOverdue", "truth"}}},
        {"Definition", "SBackupJobConfigurationInfo", {{"RepositoryName?", "text"}}},
        {"Job", "JobRow", {{"Configuration", "Definition"}}},
        {"DryRun", "", {{"Configuration", "Definition"}, {"Findings", "[SCheckJobValidityMessage]"}}},
        {"Finding", "SCheckJobValidityMessage", {{"JobId", "id"}, {"JobName", "text"}}},
        {"Difference", "", {{"Path", "text"}, {"Present", "any"}, {"New", "any"}}},
        {"Note", "", {{"UserData", "text"}}},
        {"PointRow", "SRestoreOib", {{"JobName", "text"}}},
        {"FileRow",
         "",
         {{"path", "text"},
          {"escaped", "text"},
          {"type", "text"},
          {"size", "integer"},
          {"mode", "text"},
          {"user", "integer"},
          {"group", "integer"},
          {"changed", "text"}}},
        {"Event",
         "SBaseEvent",
         {{"JobId", "id?"},
          {"JobName", "text?"},
          {"SessionId", "id?"},
          {"Status", "text?"},
          {"Username", "text?"}}},
        // of places
        {"Repository",
         "SBackupRepositoryInfo",
         {{"SizeInfo?", "SBackupRepositorySizeInfo?"}, {"CanBeDeleted?", "truth"}}},
        {"Server", "SBackupServerInfo", {{"Addresses", "text"}}},
        {"Provider", "SCloudServiceProviderInfo", {{"Addresses", "text"}}},
        // of the host
        {"Host", "SSystemInformation", {{"IsSystemSupported", "truth"}, {"ToolVersion", "version"}}},
        {"Service", "", {{"Name", "text"}, {"Status", "EServiceStatus"}}},
        {"Product",
         "",
         {{"IsProductInstalled", "truth"},
          {"AgentVersion", "version?"},
          {"DriverVersion", "version?"},
          {"Offer", "SInstallationInfo?"}}},
        {"Versions", "", {{"Program", "text"}, {"Protocol", "version"}, {"AgentProtocol", "version?"}}},
    };
    return shapes;
}

struct SPlain {
    const char* Name;
    const char* Type;
    const char* Pattern;
    const char* Description;
};

/// The words for what is neither a record nor a shape of one's own.
constexpr std::array Plain{
    SPlain{"text", "string", "", ""},
    SPlain{"truth", "boolean", "", ""},
    SPlain{"integer", "integer", "", ""},
    SPlain{"number", "number", "", ""},
    SPlain{"object", "object", "", ""},
    SPlain{"id", "string", "^[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}$", ""},
    SPlain{"version", "string", R"(^\d+\.\d+\.\d+\.\d+$)", ""},
    SPlain{"time", "string", R"(^\d{4,}-\d\d-\d\dT\d\d:\d\d:\d\d(\.\d{3})?Z$)", "RFC 3339, in UTC"},
    SPlain{"seconds", "number", "", "a duration in seconds"},
};

Json OrNull(Json schema) {
    Json both;
    both["anyOf"] = Json::array({std::move(schema), Json{{"type", "null"}}});
    return both;
}

Json ListOf(Json schema) {
    Json list;
    list["type"] = "array";
    list["items"] = std::move(schema);
    return list;
}

Json PlainSchema(std::string_view name) {
    for (const auto& plain : Plain) {
        if (name != plain.Name) continue;
        Json schema;
        schema["type"] = plain.Type;
        if (plain.Pattern[0] != '\0') schema["pattern"] = plain.Pattern;
        if (plain.Description[0] != '\0') schema["description"] = plain.Description;
        return schema;
    }
    return {};
}

/// Nothing but what the definition lists.
Json Reference(const std::string& name) {
    Json schema;
    schema["$ref"] = "#/$defs/" + name;
    schema["unevaluatedProperties"] = false;
    return schema;
}

template <class T>
inline constexpr bool IsVector = false;
template <class T>
inline constexpr bool IsVector<std::vector<T>> = true;

/// The name of a type of the API, as its declaration has it.
template <class T>
std::string TypeName() {
    const std::string_view text = __PRETTY_FUNCTION__;
    const auto start = text.find("zamclientlib::") + std::string_view("zamclientlib::").size();
    return std::string(text.substr(start, text.find_first_of(";]", start) - start));
}

class CDefinitions {
public:
    template <class Record>
    void Add() {
        const std::string name = TypeName<Record>();
        if (m_definitions.contains(name)) return;
        m_definitions[name];  // in its place, before those that it refers to
        Json properties = Json::object();
        Json required = Json::array();
        Record::Fields([&](const apigen::FieldInfo& info, auto member) {
            using Field = std::decay_t<decltype(std::declval<Record&>().*member)>;
            const std::string key(info.Key);
            Json schema = SchemaOf<Field>();
            if (info.IsSecret)
                schema = Json{{"type", "null"}, {"description", "a secret, which is never shown"}};
            if (std::is_same_v<Record, SCalendarInfo> && (key == "Days" || key == "Months"))
                schema = Json{{"type", "string"}, {"description", "names, parted by |"}};
            properties[key] = std::move(schema);
            required.push_back(key);
        });
        m_definitions[name] = Object(std::move(properties), std::move(required));
    }

    void Add(const SShape& shape) {
        Json properties = Json::object();
        Json required = Json::array();
        for (const auto& key : shape.Keys) {
            std::string name = key.Name;
            const bool isOptional = name.ends_with('?');
            if (isOptional) name.pop_back();
            properties[name] = SchemaOfShape(key.Shape);
            if (!isOptional) required.push_back(name);
        }
        Json schema = Object(std::move(properties), std::move(required));
        if (shape.Record[0] != '\0') schema["$ref"] = std::string("#/$defs/") + shape.Record;
        m_definitions[shape.Name] = std::move(schema);
    }

    void AddCommand(const std::string& name, std::string_view shape) {
        m_definitions[name] = SchemaOfShape(shape);
    }

    template <class Enum>
    void AddEnum() {
        const std::string name = TypeName<Enum>();
        if (m_definitions.contains(name)) return;
        Json names = Json::array();
        for (const Enum member : MembersOf<Enum>())
            names.push_back(NameOf(member));
        Json schema;
        schema["anyOf"] =
            Json::array({Json{{"enum", std::move(names)}},
                         Json{{"type", "integer"}, {"description", "a member without a name"}}});
        m_definitions[name] = std::move(schema);
    }

    [[nodiscard]] Json Take() && { return std::move(m_definitions); }

private:
    static Json Object(Json properties, Json required) {
        Json schema;
        schema["type"] = "object";
        schema["properties"] = std::move(properties);
        schema["required"] = std::move(required);
        return schema;
    }

    template <class T>
    Json SchemaOf() {
        if constexpr (std::is_same_v<T, std::string>) {
            return PlainSchema("text");
        } else if constexpr (std::is_same_v<T, bool>) {
            return PlainSchema("truth");
        } else if constexpr (std::is_integral_v<T>) {
            return PlainSchema("integer");
        } else if constexpr (std::is_same_v<T, apigen::Guid>) {
            return PlainSchema("id");
        } else if constexpr (std::is_same_v<T, SVersion>) {
            return PlainSchema("version");
        } else if constexpr (std::is_same_v<T, SDateTime>) {
            return OrNull(PlainSchema("time"));
        } else if constexpr (std::is_same_v<T, STimeSpan>) {
            return PlainSchema("seconds");
        } else if constexpr (IsEnumeration<T>) {
            AddEnum<T>();
            return Json{{"$ref", "#/$defs/" + TypeName<T>()}};
        } else if constexpr (apigen::detail::IsOptional<T>) {
            return OrNull(SchemaOf<typename T::value_type>());
        } else if constexpr (IsVector<T>) {
            return ListOf(SchemaOf<typename T::value_type>());
        } else {
            Add<T>();
            return Reference(TypeName<T>());
        }
    }

    Json SchemaOfShape(std::string_view shape) const {
        if (shape == "any") return true;
        if (shape.ends_with('?')) return OrNull(SchemaOfShape(shape.substr(0, shape.size() - 1)));
        if (shape.starts_with('[') && shape.ends_with(']'))
            return ListOf(SchemaOfShape(shape.substr(1, shape.size() - 2)));
        if (const auto bar = shape.find('|'); bar != std::string_view::npos) {
            Json either;
            either["anyOf"] =
                Json::array({SchemaOfShape(shape.substr(0, bar)), SchemaOfShape(shape.substr(bar + 1))});
            return either;
        }
        if (Json plain = PlainSchema(shape); !plain.is_null()) return plain;
        const std::string name(shape);
        const auto found = m_definitions.find(name);
        const bool isShape = std::any_of(Shapes().begin(), Shapes().end(),
                                         [&](const SShape& known) { return name == known.Name; });
        if (found == m_definitions.end() && !isShape) return true;
        if (!isShape && found->contains("anyOf")) return Json{{"$ref", "#/$defs/" + name}};
        return Reference(name);
    }

    Json m_definitions = Json::object();
};

}  // namespace

Json Schema(const std::vector<std::pair<std::string, std::string>>& commands) {
    CDefinitions definitions;
    definitions.Add<SBackupJobInfo>();
    definitions.Add<SBackupJobConfigurationInfo>();
    definitions.Add<SBackupJobSessionInfo>();
    definitions.Add<SJobStartOptions>();
    definitions.Add<SRestoreOib>();
    definitions.Add<SCheckJobValidityMessage>();
    definitions.Add<SResolveObjectInfo>();
    definitions.Add<SBackupRepositoryInfo>();
    definitions.Add<SBackupServerInfo>();
    definitions.Add<SCloudServiceProviderInfo>();
    definitions.Add<SGatewayInfo>();
    definitions.Add<SBaseEvent>();
    definitions.Add<SEventConfig>();
    definitions.Add<SZamProductInfo>();
    definitions.Add<SZamControlOwnerInfo>();
    definitions.Add<SSystemInformation>();
    definitions.Add<SInstallationInfo>();
    definitions.Add<SPackageInfo>();
    definitions.AddEnum<EServiceStatus>();
    for (const auto& shape : Shapes())
        definitions.Add(shape);
    for (const auto& [name, shape] : commands)
        definitions.AddCommand(name, shape);

    Json schema;
    schema["$schema"] = "https://json-schema.org/draft/2020-12/schema";
    schema["title"] = "What zamctl writes with --output json";
    schema["description"] =
        "$defs has each command by its name, \"job-list\" say: with --output json that is the document. With "
        "--output jsonl each line is one of its items, or the one object; that is the only JSON of what "
        "follows something, session-follow, events, and job-start with --follow. Points in time that are not "
        "known are null, and so are secrets, always.";
    schema["$defs"] = std::move(definitions).Take();
    return schema;
}

}  // namespace zamctl
