// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/CallText.h"

#include <chrono>
#include <string_view>

#include "support/apigen/Envelope.h"
#include "support/apigen/RequestText.h"
#include "support/apigen/Timeout.h"
#include "support/common/Quietly.h"
#include "support/common/Text.h"

namespace apigen {

/// "30 s", "1500 ms"
std::string DurationText(std::chrono::milliseconds duration) {
    constexpr int Second = 1000;
    const auto count = duration.count();
    return count % Second == 0 ? std::to_string(count / Second) + " s" : std::to_string(count) + " ms";
}

void RequireTimeout(std::chrono::milliseconds timeout) {
    if (timeout.count() < 0)
        throw ApiInternalError("A time-out of " + DurationText(timeout) + " is negative; 0 means no limit");
}

std::string CallName(const std::string* request) {
    if (request == nullptr) return "the greeting";
    const auto parts = SplitRequest(*request);
    if (!parts || parts->Method.empty()) return "a call";
    std::string_view name = parts->Method;
    const std::size_t end = name.find_last_not_of("0123456789");
    if (end != std::string_view::npos && end != 0 && end + 1 != name.size() && name[end] == '_')
        name = name.substr(0, end);
    return common::Escaped(name);
}

void ExplainCall(ApiException& error, const std::string* request, const std::string& peer,
                 const SCallLimits& limits) {
    std::string text = " (in " + CallName(request);
    if (std::string_view(error.what()).find(peer) == std::string_view::npos) text.append(" of ").append(peer);
    if (limits.Deadline != common::Clock::time_point::max())
        text.append(", with a limit of ").append(DurationText(limits.Limit));
    error.Append(text.append(")"));
}

std::string OutcomeText(const IData* answer) {
    if (answer == nullptr) return "answered";
    if (answer->HasValue(envelope::ExceptionKey)) {
        std::string text = "refused by the service";
        const auto described = answer->GetChild(envelope::ExceptionKey);
        // As far as the description has the usual form.
        common::Quietly([&] {
            text += " with " + common::Escaped(described->GetString("type"));
            const auto base = described->GetChild("Exception")->GetChild("ApiException");
            text += ", " + common::Quoted(base->GetString("exc_msg")) + ',';
        });
        return text;
    }
    return answer->HasValue(envelope::InternalErrorKey) ? "failed in the service" : "answered";
}

std::string CallLine(const std::string* request, const std::string& outcome, common::Clock::duration took) {
    const auto count = std::chrono::duration_cast<std::chrono::microseconds>(took).count();
    return "Call of " + CallName(request) + ": " + outcome + " after " + std::to_string(count) + " us";
}

}  // namespace apigen
