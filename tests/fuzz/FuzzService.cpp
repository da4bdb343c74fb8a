// SPDX-License-Identifier: Apache-2.0
// A service whose client asks anything: every answer is a well-formed document, no call reaches an object that the
// client does not hold, and no object lives that it does not hold.
//
// Input: a letter for the root object ("i": the installer), then lines:
//   "!" and a request as it stands
//   "~" and a letter: how the next call fails
//   otherwise a letter for the handle ("1" for 1 and so on), one for the method of that object, and arguments
#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>
#include <apigen/Handle.h>
#include <apigen/Serialize.h>
#include <zamservice/Service.h>

#include <expat.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "src/AgentMethods.h"
#include "src/InstallerMethods.h"
#include "tests/fuzz/Check.h"
#include "tests/fuzz/FakeService.h"

namespace {

using apigen::Handle;

/// The methods of an interface, and which of them return objects of which.
struct SInterface {
    struct SMethod {
        std::string_view Id;
        const SInterface* (*Returned)() = nullptr;
    };
    std::vector<SMethod> Methods;

    const SMethod* Find(std::string_view id) const {
        for (const SMethod& method : Methods)
            if (method.Id == id) return &method;
        return nullptr;
    }

    template <class I>
    static const SInterface& Of();
};

template <class R>
struct Returned {
    static constexpr const SInterface* (*Of)() = nullptr;
};
template <class I>
struct Returned<std::shared_ptr<I>> {
    static const SInterface* Of() { return &SInterface::Of<I>(); }
};
template <class I>
struct Returned<std::vector<std::shared_ptr<I>>> : Returned<std::shared_ptr<I>> {};

template <class I>
const SInterface& SInterface::Of() {
    static const SInterface table = [] {
        SInterface made;
        zamclientlib::MethodsOf<I>::ForEach([&](const auto& method) {
            using Result = typename std::remove_reference_t<decltype(method)>::Result;
            made.Methods.push_back({method.Id, Returned<Result>::Of});
        });
        return made;
    }();
    return table;
}

/// Another parser's opinion of an answer.
bool IsWellFormed(const std::string& text) {
    static const XML_Parser parser = XML_ParserCreate("UTF-8");
    XML_ParserReset(parser, "UTF-8");
    return XML_Parse(parser, text.data(), static_cast<int>(text.size()), 1) == XML_STATUS_OK;
}

enum class EAnswer {
    Result,
    Failure,
    InternalError
};

/// An answer that reports an error holds nothing else.
EAnswer KindOf(std::string_view answer) {
    if (answer.starts_with("<Data><__exception_obj>")) return EAnswer::Failure;
    return answer.starts_with("<Data><__api_internal_err>") ? EAnswer::InternalError : EAnswer::Result;
}

/// One service with its objects.
struct SService {
    SWorld World;
    zamservice::CService Service;

    template <class Root>
    explicit SService(Root* /*kind*/) : Service(std::make_shared<Root>(World)) {}
};

/// Two services get the same requests, one of them in a form that takes the way through a container. What they
/// do is compared with each other and with the handles that they have given out.
class CSession {
public:
    static constexpr int MaxSteps = 5;

    template <class I, class Root>
    static void Run(CInput& input) {
        Root* const kind = nullptr;
        SService first(kind);
        SService second(kind);
        CSession session(first, second, SInterface::Of<I>());
        for (int i = 0; i < MaxSteps && !input.IsEmpty(); ++i)
            session.Step(input.Line());
        session.RequireCounts();
    }

private:
    CSession(SService& first, SService& second, const SInterface& root)
        : m_first(first), m_second(second), m_root(root) {
        const Handle handle =
            apigen::HandleUtils::FromData(*apigen::CXmlData::Unserialize(first.Service.Greeting()));
        Require(bool(handle), "the greeting names the root object");
        m_held.emplace(handle.Value, &root);
        m_last = handle.Value;
    }

    void Step(std::string_view line) {
        if (line.size() < 2) return;
        if (line[0] == '~') {
            m_first.World.Failure = m_second.World.Failure = line[1];
            return;
        }
        Ask(line[0] == '!' ? std::string(line.substr(1)) : RequestIn(line));
    }

    std::string RequestIn(std::string_view line) const {
        const auto handle = static_cast<std::uint64_t>(line[0] - '0');
        const auto found = m_held.find(handle);
        const SInterface& interface = found != m_held.end() ? *found->second : m_root;
        const std::size_t index = static_cast<unsigned char>(line[1]) % (interface.Methods.size() + 1);
        const std::string_view method =
            index < interface.Methods.size() ? interface.Methods[index].Id : std::string_view("__dtr");
        return std::string("<Data>")
            .append(line.substr(2))
            .append("<__handle>")
            .append(std::to_string(handle))
            .append("</__handle><__method>")
            .append(method)
            .append("</__method></Data>");
    }

    void Ask(const std::string& request) {
        const std::size_t calls = m_first.World.Calls;
        const std::string text = m_first.Service.Answer(request);
        Require(IsWellFormed(text), "an answer is a well-formed document", text);
        const EAnswer kind = KindOf(text);
        const std::size_t made = m_first.World.Calls - calls;
        Judge(request, kind, made != 0, text);

        // What was refused went through a container already. A byte order mark changes nothing, but that the text is
        // none that a client of ours would write.
        if (kind != EAnswer::InternalError) {
            const bool isPlain = request.starts_with("<Data>");
            const std::string other = m_second.Service.Answer(isPlain ? "\xEF\xBB\xBF" + request : request);
            Require(other == text, "a request means the same in any form", text + " and " + other);
        }
        Require(m_first.World.Calls == m_second.World.Calls, "a request does the same in any form", request);
        RequireCounts();
    }

    /// What the request may have done, going by its text.
    void Judge(const std::string& request, EAnswer kind, bool isCalled, const std::string& text) {
        if (isCalled)
            Require(kind != EAnswer::InternalError, "an object that was called answers", text);
        else
            Require(kind != EAnswer::Failure, "only an object fails by type", text);

        const auto target = TargetOf(request);
        if (!target)
            return Require(kind == EAnswer::InternalError && !isCalled, "no request, no call", request);
        const auto held = m_held.find(target->first);
        if (held == m_held.end()) {
            return Require(kind == EAnswer::InternalError && !isCalled, "a forged handle is refused",
                           request);
        }
        if (target->second == "__dtr") {
            Require(text == "<Data/>" && !isCalled, "a release is answered by nothing", text);
            m_held.erase(held);
            return;
        }
        const auto* const method = held->second->Find(target->second);
        if (method == nullptr) {
            return Require(kind == EAnswer::InternalError && !isCalled, "an unknown method is refused",
                           request);
        }
        if (kind == EAnswer::Result) Require(isCalled, "a result comes from a call", request);
        if (kind == EAnswer::Result && method->Returned != nullptr) TakeHandles(*method->Returned(), text);
    }

    /// The object and the method that a text asks for; nothing when it is no request.
    static std::optional<std::pair<std::uint64_t, std::string>> TargetOf(const std::string& request) {
        try {
            const auto data = apigen::CXmlData::Unserialize(request);
            const std::uint64_t handle = apigen::HandleUtils::FromData(*data).Value;
            return std::pair(handle, data->GetString("__method"));
        } catch (const apigen::ApiInternalError&) {
            return std::nullopt;
        }
    }

    void TakeHandles(const SInterface& interface, const std::string& text) {
        const auto data = apigen::CXmlData::Unserialize(text);
        const apigen::IData& answer = *data;
        std::vector<Handle> handles;
        if (answer.HasString("__handle"))
            handles.push_back(apigen::HandleUtils::FromData(answer));
        else
            apigen::DeserializeVector(answer, "__handle", handles);
        for (const Handle handle : handles) {
            if (!handle) continue;
            Require(handle.Value > m_last, "every object gets a handle of its own", text);
            m_last = handle.Value;
            m_held.emplace(handle.Value, &interface);
        }
    }

    void RequireCounts() const {
        for (const SService* const each : {&m_first, &m_second}) {
            Require(each->Service.ObjectCount() == m_held.size(),
                    "as many objects are counted as were given out");
            Require(each->World.Living == m_held.size(), "an object lives as long as it is held");
        }
    }

    SService& m_first;
    SService& m_second;
    const SInterface& m_root;
    std::map<std::uint64_t, const SInterface*> m_held;
    std::uint64_t m_last = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CInput input(data, size);
    if (input.Byte() == 'i')
        CSession::Run<zamclientlib::ITarvoInstaller, CFakeInstaller>(input);
    else
        CSession::Run<zamclientlib::IZamControl, CFakeControl>(input);
    return 0;
}
