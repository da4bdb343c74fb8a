// SPDX-License-Identifier: Apache-2.0
#include "testagent/CMisbehaviour.h"

#include <apigen/CXmlData.h>
#include <apigen/Serialize.h>
#include <zamclientlib/Exceptions.h>

#include <poll.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <type_traits>
#include <utility>

#include "src/ExceptionTypes.h"
#include "support/apigen/Envelope.h"
#include "support/common/Waiting.h"
#include "testagent/Methods.h"

namespace testagent {
namespace {

namespace envelope = apigen::envelope;
namespace exceptions = zamclientlib::exceptions;
using apigen::CXmlData;

/// A value that no enumeration has.
constexpr const char* UnknownMember = "99";

/// Replaces each number that stands right behind `opening`.
void ReplaceNumbersBehind(std::string& text, const std::string& opening, std::string_view number) {
    for (auto at = text.find(opening); at != std::string::npos; at = text.find(opening, at)) {
        at += opening.size();
        const auto end = text.find_first_not_of("-0123456789", at);
        if (end != at && end != std::string::npos) text.replace(at, end - at, number);
    }
}

/// The answer with every enumeration of its records set to the unknown member.
std::string WithUnknownEnums(std::string answer, std::string_view methodId) {
    const SMethod* const method = FindMethod(methodId);
    if (method == nullptr) return answer;
    for (const auto& key : method->EnumKeys) {
        ReplaceNumbersBehind(answer, "<" + key + ">", UnknownMember);
        ReplaceNumbersBehind(answer, "<" + key + "><opt>", UnknownMember);
    }
    return answer;
}

template <class E>
void WriteException(apigen::IData& description, const SRule& rule) {
    E exception(rule.Message);
    if constexpr (std::is_same_v<E, zamclientlib::CIndexingUnmetDependencies>) {
        exception.MissedPackage = rule.MissedPackage;
    }
    apigen::Serialize(description, exceptions::ContentKey, exception);
}

/// An answer with an exception, of a type that the client need not know.
std::string ExceptionAnswer(const SRule& rule) {
    const auto answer = CXmlData::CreateNew();
    const auto description = answer->CreateChild(envelope::ExceptionKey);
    description->SetString(exceptions::TypeKey, rule.Type);
    bool isKnown = false;
    exceptions::ForEachType([&]<class E>(std::string_view name) {
        if (name == rule.Type) isKnown = true, WriteException<E>(*description, rule);
    });
    if (!isKnown) WriteException<zamclientlib::CGenericException>(*description, rule);
    return CXmlData::Serialize(*answer);
}

std::string InternalErrorAnswer(const SRule& rule) {
    const auto answer = CXmlData::CreateNew();
    answer->CreateChild(envelope::InternalErrorKey)->SetString(envelope::InternalErrorTextKey, rule.Message);
    return CXmlData::Serialize(*answer);
}

std::string NullObjectAnswer() {
    const auto answer = CXmlData::CreateNew();
    answer->SetString(envelope::HandleKey, "0");
    return CXmlData::Serialize(*answer);
}

/// The identifier of the method that a request calls; empty when it can't be understood.
std::string MethodOf(const std::string& request) {
    try {
        return CXmlData::Unserialize(request)->GetString(envelope::MethodKey);
    } catch (const std::exception&) {
        return {};
    }
}

/// Whether the rule's method is this one: its identifier, or the name in front of the last underscore.
bool Fits(const SRule& rule, std::string_view method) {
    return rule.Method == method || rule.Method == method.substr(0, method.rfind('_'));
}

}  // namespace

CMisbehaviour::CMisbehaviour(std::shared_ptr<Rules> rules, int output, int ended, BeforeEnd beforeEnd)
    : m_rules(std::move(rules)), m_output(output), m_ended(ended), m_beforeEnd(std::move(beforeEnd)) {}

void CMisbehaviour::Wait(std::chrono::milliseconds time) const {
    const auto end = apigen::common::Clock::now() + time;
    // Of the client nothing is asked for, so only its end shows: nobody is left to wait for.
    std::array<pollfd, 2> client{{{m_output, 0, 0}, {m_ended, POLLIN, 0}}};
    while (apigen::common::Clock::now() < end) {
        if (::poll(client.data(), client.size(), apigen::common::PollTimeout(end)) > 0) return;
    }
}

void CMisbehaviour::EndIfAsked(const SRule& rule) {
    if (rule.Action == EAction::Delay) Wait(rule.Delay);
    if (rule.Action == EAction::Disconnect) throw CDisconnected();
    if (rule.Action != EAction::Exit && rule.Action != EAction::Kill && rule.Action != EAction::Garbage)
        return;
    m_beforeEnd(rule.Action == EAction::Kill ? std::nullopt : std::optional(rule.ExitCode));
    if (rule.Action == EAction::Kill) std::raise(SIGKILL);
    if (rule.Action == EAction::Garbage) {
        (void)!::write(m_output, rule.Message.data(), rule.Message.size());
    }
    ::_exit(rule.ExitCode);
}

void CMisbehaviour::Greet() {
    const auto rule = m_rules->Due([](const SRule& each) { return each.Method == GreetingMethod; });
    if (!rule) return;
    EndIfAsked(*rule);
    if (rule->Action == EAction::Throw) throw zamclientlib::CGenericException(rule->Message);
}

std::string CMisbehaviour::Answer(CAgent& agent, zamservice::CService& service, const std::string& request) {
    const std::string method = MethodOf(request);
    // Names of methods alone: arguments may hold secrets, and a name that no method has anything.
    if (FindMethod(method) != nullptr) agent.Log(method);
    const auto rule = m_rules->Due([&](const SRule& each) { return Fits(each, method); });
    if (!rule) return service.Answer(request);
    EndIfAsked(*rule);
    switch (rule->Action) {
        case EAction::Throw:
            return ExceptionAnswer(*rule);
        case EAction::InternalError:
            return InternalErrorAnswer(*rule);
        case EAction::NullObject:
            return NullObjectAnswer();
        case EAction::Malformed:
            return "<Data><unfinished>";
        case EAction::UnknownEnum:
            return WithUnknownEnums(service.Answer(request), method);
        default:
            return service.Answer(request);
    }
}

}  // namespace testagent
