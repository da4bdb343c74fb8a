// SPDX-License-Identifier: Apache-2.0
// A client whose service answers anything: every call gives what its own answer says, as a value or as the error
// that describes it; a stream that can't be trusted any more is never used again.
//
// Input: a letter for the kind of connection, then a line for each answer in the order of the stream, the greeting
// first. A line begins with two letters that choose the object and the method of the call that it answers (in
// front of the greeting they are not looked at). "!t", "!g" and "!b" for an answer make the device time out, lose
// the peer and meet a broken frame; "!w" fails the sending of a call.
#include <apigen/ApiException.h>
#include <apigen/CProcess.h>
#include <apigen/CXmlData.h>
#include <apigen/Serialize.h>
#include <apigen/StreamedXmlInvokerImpl.h>
#include <zamclientlib/AgentProxies.h>
#include <zamclientlib/ApiClient.h>
#include <zamclientlib/CApiExceptionGenerator.h>
#include <zamclientlib/InstallerProxies.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "src/AgentMethods.h"
#include "src/InstallerMethods.h"
#include "tests/fuzz/Check.h"

namespace {

constexpr const char* ReleaseEnd = "</__handle><__method>__dtr</__method></Data>";

/// The service's end: answers in their order, whatever is asked.
class CDevice final : public apigen::IIoDev {
public:
    explicit CDevice(std::vector<std::string_view> answers) : m_answers(std::move(answers)) {}

    std::string ReadString() override {
        if (Reads >= m_answers.size()) throw apigen::PeerGoneError("no more answers");
        const std::string_view answer = m_answers[Reads++];
        if (answer == "!t") throw apigen::TimeoutError("an answer that does not come");
        if (answer == "!g") throw apigen::PeerGoneError("a peer that has gone");
        if (answer == "!b") throw apigen::BrokenMessageError("an answer that is none");
        return std::string(answer);
    }

    void WriteString(const std::string& text) override {
        const std::size_t request = ++Requests;
        // A release waits for nothing, and what it meets is no business of it.
        if (request < m_answers.size() && m_answers[request] == "!w" && !text.ends_with(ReleaseEnd)) {
            throw apigen::TimeoutError("a request that does not go out");
        }
        LastRequest = text;
    }

    std::string ReadRawText(unsigned long maxBytes, bool& flag) override {
        flag = m_answers[0].size() <= maxBytes;
        return std::string(m_answers[0].substr(0, maxBytes));
    }

    void SetDeadline(Clock::time_point /*deadline*/) override {}

    std::size_t Reads = 0;
    std::size_t Requests = 0;
    std::string LastRequest;

private:
    std::vector<std::string_view> m_answers;
};

/// What the next process will be: nothing but its device.
std::shared_ptr<CDevice> theDevice;

}  // namespace

// The library's supervised child, of which the linker takes this one: no process is started here.

class apigen::CProcess::Impl {};

apigen::CProcess::CProcess(const std::string& /*program*/, const std::vector<std::string>& /*arguments*/,
                           std::unordered_map<std::string, std::string> /*environment*/,
                           std::shared_ptr<ILogger> /*logger*/) {}
apigen::CProcess::~CProcess() = default;
std::shared_ptr<apigen::IIoDev> apigen::CProcess::GetIoDev() const {
    return theDevice;
}
apigen::CProcessExitCode apigen::CProcess::GetExitCode() {
    return {0, "tool"};
}
void apigen::CProcess::Abandon() noexcept {}
void apigen::CProcess::Kill() noexcept {}
void apigen::CProcess::Tend() noexcept {}
int apigen::CProcess::Pid() const noexcept {
    return 0;
}

namespace {

using apigen::Handle;
using zamclientlib::MethodsOf;

/// What came of a call: the value as text, or which error with which text.
struct SOutcome {
    const std::type_info* Error = nullptr;  // null for a value
    std::string Text;
    std::vector<Handle> Handles;  // of the objects that were returned
    bool IsLost = false;          // the stream can't be trusted any more
};

/// Runs `action` and notes how it ends. Anything but the documented kinds ends the fuzzer.
template <class Action>
SOutcome OutcomeOf(Action&& action) {
    SOutcome outcome;
    try {
        action(outcome);
    } catch (const apigen::ApiException& error) {
        outcome = {&typeid(error), error.what(), {}, false};
    }
    return outcome;
}

template <class T>
std::string TextOf(const T& value) {
    const auto data = apigen::CXmlData::CreateNew();
    apigen::Serialize(*data, "K", value);
    return apigen::CXmlData::Serialize(*data);
}
template <class T>
std::string TextOf(const std::vector<T>& values) {
    const auto data = apigen::CXmlData::CreateNew();
    apigen::SerializeVector(*data, "K", values);
    return apigen::CXmlData::Serialize(*data);
}

/// The parts of the model that depend on the type of a method's result.
template <class R>
struct Model {
    static void Read(const apigen::IData& answer, SOutcome& outcome) {
        R value{};
        apigen::Deserialize(answer, "__result", value);
        outcome.Text = TextOf(value);
    }
};
template <class T>
struct Model<std::vector<T>> {
    static void Read(const apigen::IData& answer, SOutcome& outcome) {
        std::vector<T> values;
        apigen::DeserializeVector(answer, "__result", values);
        outcome.Text = TextOf(values);
    }
};
template <class I>
struct Model<std::shared_ptr<I>> {
    static void Read(const apigen::IData& answer, SOutcome& outcome) {
        Handle handle;
        apigen::Deserialize(answer, "__handle", handle);
        if (handle) outcome.Handles = {handle};
    }
};
template <class I>
struct Model<std::vector<std::shared_ptr<I>>> {
    static void Read(const apigen::IData& answer, SOutcome& outcome) {
        apigen::DeserializeVector(answer, "__handle", outcome.Handles);
    }
};
template <>
struct Model<void> {
    static void Read(const apigen::IData& /*answer*/, SOutcome& /*outcome*/) {}
};

template <class E>
[[noreturn]] void ThrowDescribed(const apigen::IData& description) {
    const auto exception = description.GetChild("Exception");
    const std::string text = exception->GetChild("ApiException")->GetString("exc_msg");
    if constexpr (std::is_same_v<E, zamclientlib::CIndexingUnmetDependencies>) {
        zamclientlib::EIndexingDependency missed{};
        apigen::Deserialize(*exception, "MissedPackage", missed);
        throw E(text, missed);
    } else {
        throw E(text);
    }
}

/// Throws what an answer says has failed.
void ThrowReported(const apigen::IData& answer) {
    if (answer.HasValue("__exception_obj")) {
        const auto description = answer.GetChild("__exception_obj");
        const std::string type = description->HasString("type") ? description->GetString("type") : "";
        if (type == "CGenericException") ThrowDescribed<zamclientlib::CGenericException>(*description);
        if (type == "CJobIsRunning") ThrowDescribed<zamclientlib::CJobIsRunning>(*description);
        if (type == "CPackageManagerIsLocked") {
            ThrowDescribed<zamclientlib::CPackageManagerIsLocked>(*description);
        }
        if (type == "CIndexingUnmetDependencies") {
            ThrowDescribed<zamclientlib::CIndexingUnmetDependencies>(*description);
        }
        throw apigen::ApiException("of an unknown type");
    }
    if (answer.HasValue("__api_internal_err")) {
        throw apigen::ServiceInternalError(answer.GetChild("__api_internal_err")->GetString("msg"));
    }
}

class CSession;

/// Makes one call of an interface, by number.
struct SInterface {
    struct SMethod {
        std::string_view Id;
        std::function<void(CSession& session, void* object, SOutcome& outcome)> Call;
        void (*Read)(const apigen::IData& answer, SOutcome& outcome);
    };
    std::vector<SMethod> Methods;

    template <class I>
    static const SInterface& Of();
};

struct SHeld {
    std::shared_ptr<void> Object;
    const SInterface* Interface = nullptr;
    Handle Number;
};

class CSession {
public:
    explicit CSession(std::vector<std::string_view> lines) : m_lines(std::move(lines)) {
        std::vector<std::string_view> answers;
        for (const std::string_view line : m_lines)
            answers.push_back(AnswerIn(line));
        m_device = theDevice = std::make_shared<CDevice>(std::move(answers));
    }

    const std::shared_ptr<CDevice>& Device() const { return m_device; }

    /// Connects as a program does.
    template <class I, class Connect>
    void Greet(Connect connect) {
        std::shared_ptr<I> root;
        SOutcome expected = OutcomeOf([&](SOutcome& outcome) {
            const auto greeting = TakeAnswer(0);
            ThrowReported(*greeting);
            Handle handle;
            if (greeting->HasString("__handle")) apigen::Deserialize(*greeting, "__handle", handle);
            if (!handle) throw apigen::BrokenMessageError("no root");
            outcome.Handles = {handle};
        });
        const SOutcome outcome = OutcomeOf([&](SOutcome& /*outcome*/) { root = connect(); });
        Require(outcome.Error == nullptr ? expected.Error == nullptr
                                         : expected.Error != nullptr && *outcome.Error == *expected.Error,
                "a greeting connects, or fails as it says", outcome.Text);
        if (root == nullptr) return;
        Hold(std::move(root));
        Require(m_held.back().Number == expected.Handles[0], "a greeting names the root object");
    }

    template <class I>
    void Hold(std::shared_ptr<I> object) {
        const Handle number = dynamic_cast<const apigen::ProxyBase&>(*object).GetHandle();
        m_held.push_back({std::move(object), &SInterface::Of<I>(), number});
    }

    /// For a connection without a greeting.
    void SkipGreeting() { m_device->Reads = 1; }

    void Run() {
        while (!m_held.empty() && m_device->Requests + 1 < m_lines.size()) {
            const std::string_view line = m_lines[m_device->Requests + 1];
            const auto letter = [line](std::size_t i) {
                return line.size() > i ? static_cast<unsigned char>(line[i]) : 0U;
            };
            const std::size_t chosen = letter(0) % m_held.size();
            SHeld held = m_held[chosen];  // it outlives its call
            const std::size_t count = held.Interface->Methods.size();
            const std::size_t method = letter(1) % (count + 1);
            if (method == count) {
                m_held.erase(m_held.begin() + static_cast<std::ptrdiff_t>(chosen));
                Release(held);
            } else {
                Call(held, held.Interface->Methods[method]);
                held.Object.reset();
            }
            while (m_held.size() > MaxHeld) {
                SHeld last = std::move(m_held.back());
                m_held.pop_back();
                Release(last);
            }
            if (m_isLost && ++m_callsAfterLoss > 2) break;
        }
        m_held.clear();
    }

private:
    static constexpr std::size_t MaxHeld = 8;

    static std::string_view AnswerIn(std::string_view line) {
        return line.substr(std::min<std::size_t>(2, line.size()));
    }

    bool IsUnsent(std::size_t request) const {
        return request < m_lines.size() && AnswerIn(m_lines[request]) == "!w";
    }

    /// The object goes; its answer is for the next call to take.
    void Release(SHeld& held) {
        const std::size_t before = m_device->Requests;
        held.Object.reset();
        if (m_isLost) return Require(m_device->Requests == before, "a lost stream is not used for a release");
        Require(m_device->Requests == before + 1, "an object is released once");
        const std::string expected = "<Data><__handle>" + std::to_string(held.Number.Value) + ReleaseEnd;
        Require(m_device->LastRequest == expected, "a release names its object", m_device->LastRequest);
    }

    /// What the device says when it is asked for answer `index`, and what the text says.
    std::shared_ptr<apigen::IData> TakeAnswer(std::size_t index) {
        if (index >= m_lines.size()) throw apigen::PeerGoneError("no more answers");
        const std::string_view answer = AnswerIn(m_lines[index]);
        if (answer == "!t") throw apigen::TimeoutError("an answer that does not come");
        if (answer == "!g") throw apigen::PeerGoneError("a peer that has gone");
        if (answer == "!b") throw apigen::BrokenMessageError("an answer that is none");
        return apigen::CXmlData::Unserialize(std::string(answer));
    }

    /// The outcome that the answers up to this call's make.
    SOutcome Expect(std::size_t request, const SInterface::SMethod& method) {
        bool isLost = true;
        SOutcome outcome = OutcomeOf([&](SOutcome& expected) {
            if (IsUnsent(request)) throw apigen::TimeoutError("a request that does not go out");
            while (m_nextRead < request)
                TakeAnswer(m_nextRead++);
            const auto answer = TakeAnswer(m_nextRead++);
            isLost = false;
            ThrowReported(*answer);
            method.Read(*answer, expected);
        });
        outcome.IsLost = isLost;
        return outcome;
    }

    void Call(const SHeld& held, const SInterface::SMethod& method) {
        const std::size_t request = m_device->Requests + 1;
        const std::size_t reads = m_device->Reads;
        const SOutcome outcome =
            OutcomeOf([&](SOutcome& made) { method.Call(*this, held.Object.get(), made); });
        const std::string name(method.Id);
        if (m_isLost) {
            Require(outcome.Error != nullptr && *outcome.Error == typeid(apigen::PeerGoneError),
                    "a call on a lost stream fails", name);
            Require(outcome.Text.find(m_lostCause) != std::string::npos, "it tells the first cause", name);
            Require(m_device->Requests + 1 == request && m_device->Reads == reads,
                    "a lost stream is not used", name);
            return;
        }
        RequireRequest(held.Number, method);
        const SOutcome expected = Expect(request, method);
        if (expected.IsLost) {
            m_isLost = true;
            m_lostCause = outcome.Text;
        }
        const auto kind = [](const SOutcome& each) {
            return each.Error != nullptr ? std::string(each.Error->name()) : "a value";
        };
        Require(kind(outcome) == kind(expected), "a call ends as its answer says",
                name + ": " + kind(outcome) + " instead of " + kind(expected) + "; " + outcome.Text);
        if (outcome.Error == nullptr) {
            Require(outcome.Text == expected.Text, "the value is that of the call's own answer", name);
            Require(outcome.Handles == expected.Handles, "the objects are those of the answer", name);
        } else if (!IsMadeHere(*outcome.Error)) {
            Require(outcome.Text == expected.Text, "a reported error keeps its text", name);
        }
        if (!m_isLost) Require(m_device->Reads == request + 1, "each answer is taken once", name);
    }

    /// Errors whose text is the library's own.
    static bool IsMadeHere(const std::type_info& error) {
        return error != typeid(zamclientlib::CGenericException) &&
               error != typeid(zamclientlib::CJobIsRunning) &&
               error != typeid(zamclientlib::CPackageManagerIsLocked) &&
               error != typeid(zamclientlib::CIndexingUnmetDependencies);
    }

    void RequireRequest(Handle number, const SInterface::SMethod& method) {
        if (IsUnsent(m_device->Requests)) return;
        const std::string& text = m_device->LastRequest;
        const std::string end = "<__handle>" + std::to_string(number.Value) + "</__handle><__method>" +
                                std::string(method.Id) + "</__method></Data>";
        Require(text.starts_with("<Data>") && text.ends_with(end), "a request names its object and method",
                text);
    }

    std::vector<std::string_view> m_lines;
    std::shared_ptr<CDevice> m_device;
    std::size_t m_nextRead = 1;  // behind the greeting
    std::vector<SHeld> m_held;
    bool m_isLost = false;
    std::string m_lostCause;
    int m_callsAfterLoss = 0;
};

/// Notes what a call has returned; its objects are kept.
template <class T>
void Note(CSession& /*session*/, const T& value, SOutcome& outcome) {
    outcome.Text = TextOf(value);
}
template <class I>
void Note(CSession& session, std::shared_ptr<I> object, SOutcome& outcome) {
    if (object == nullptr) return;
    outcome.Handles.push_back(dynamic_cast<const apigen::ProxyBase&>(*object).GetHandle());
    session.Hold(std::move(object));
}
template <class I>
void Note(CSession& session, std::vector<std::shared_ptr<I>> objects, SOutcome& outcome) {
    for (auto& object : objects)
        Note(session, std::move(object), outcome);
}

template <class I, class Pointer, class R, class... A>
SInterface::SMethod Bind(const zamclientlib::Method<I, Pointer, R, A...>& method) {
    const auto call = [&method](CSession& session, void* object, SOutcome& outcome) {
        I& called = *static_cast<I*>(object);
        if constexpr (std::is_void_v<R>)
            (called.*method.Member)(A{}...);
        else
            Note(session, (called.*method.Member)(A{}...), outcome);
    };
    return {method.Id, call, &Model<R>::Read};
}

template <class I>
const SInterface& SInterface::Of() {
    static const SInterface table = [] {
        SInterface made;
        MethodsOf<I>::ForEach([&](const auto& method) { made.Methods.push_back(Bind(method)); });
        return made;
    }();
    return table;
}

void CheckVersion(CSession& session) {
    SOutcome expected = OutcomeOf([&](SOutcome& outcome) {
        zamclientlib::SCompatibilityInfo info;
        bool isWhole = false;
        const std::string text = session.Device()->ReadRawText(4096, isWhole);
        apigen::Deserialize(*apigen::CXmlData::Unserialize(text), "SCompatibilityInfo", info);
        outcome.Text = info.protocolVersion.major == 2 ? "fits" : "does not fit";
    });
    const SOutcome outcome = OutcomeOf([](SOutcome& made) {
        made.Text = zamclientlib::IsInstallerApiCompatible("tool") ? "fits" : "does not fit";
    });
    Require((outcome.Error == nullptr) == (expected.Error == nullptr), "a version is read or refused",
            outcome.Text);
    if (outcome.Error == nullptr)
        Require(outcome.Text == expected.Text, "a version fits or not", outcome.Text);
}

/// A connection through an invoker of which the proxies know nothing: their calls go through containers.
template <class I, class Proxy>
void HoldPlain(CSession& session) {
    auto generator = std::make_shared<zamclientlib::CApiExceptionGenerator>(nullptr);
    auto invoker = std::make_shared<apigen::StreamedXmlInvokerImpl>(session.Device(), std::move(generator),
                                                                    std::chrono::seconds(0), nullptr);
    session.SkipGreeting();
    session.Hold(std::shared_ptr<I>(new Proxy(std::move(invoker), Handle{1})));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t MaxLines = 8;
    CInput input(data, size);
    const unsigned char kind = input.Byte();
    std::vector<std::string_view> lines;
    do {
        lines.push_back(input.Line());
    } while (!input.IsEmpty() && lines.size() < MaxLines);

    CSession session(std::move(lines));
    switch (kind) {
        case 'i':
            session.Greet<zamclientlib::ITarvoInstaller>([] {
                return zamclientlib::GetTarvoInstaller("tool", std::chrono::seconds(0), false, nullptr);
            });
            break;
        case 'I':
            HoldPlain<zamclientlib::ITarvoInstaller, zamclientlib::ITarvoInstaller_Proxy>(session);
            break;
        case 'A':
            HoldPlain<zamclientlib::IZamControl, zamclientlib::IZamControl_Proxy>(session);
            break;
        case 'v':
            CheckVersion(session);
            break;
        default:
            session.Greet<zamclientlib::IZamControl>(
                [] { return zamclientlib::GetZamControl(std::chrono::seconds(0), false, nullptr); });
            break;
    }
    session.Run();
    theDevice.reset();
    return 0;
}
