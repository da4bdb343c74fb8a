// SPDX-License-Identifier: Apache-2.0
#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>
#include <zamservice/Service.h>

#include <cxxabi.h>

#include <cstdint>
#include <exception>
#include <utility>

#include "service/CInterface.h"
#include "service/Failure.h"
#include "support/apigen/CXmlWriter.h"
#include "support/apigen/Envelope.h"
#include "support/apigen/RequestText.h"
#include "support/apigen/TextEncoders.h"
#include "support/common/Text.h"

namespace zamservice {

namespace envelope = apigen::envelope;
using apigen::ApiInternalError;
using apigen::CXmlData;
using apigen::Handle;
using apigen::IData;

class CService::Impl final : public IObjectTable {
public:
    explicit Impl(SObject root) : m_root(Add(std::move(root))) {}

    Handle Root() const noexcept { return m_root; }
    std::size_t ObjectCount() const noexcept { return m_objects.size(); }

    void SetObjectLimit(std::size_t limit) noexcept { m_objectLimit = limit; }

    Handle Add(SObject object) override {
        if (m_objects.size() >= m_objectLimit) {
            throw ApiInternalError("The client holds " + std::to_string(m_objects.size()) +
                                   " objects, and may hold no more: release some first");
        }
        const Handle handle{m_lastHandle + 1};
        m_objects.emplace(handle.Value, std::move(object));
        m_lastHandle = handle.Value;
        return handle;
    }

    void Answer(std::string_view request, std::string& answer) {
        const std::uint64_t lastHandle = m_lastHandle;
        apigen::CXmlWriter response;
        apigen::BeginDocument(response);
        const std::size_t opened = response.Text().size();
        SCall call{*this, response};
        try {
            if (!CarryOutText(call, request)) CarryOutContainer(call, request);
            response.Close(apigen::RootName, opened);
            if (IsMessage(response.Text())) {
                answer = response.Text();
                return;
            }
            RemoveSince(lastHandle);
            answer = TextOf(TooLarge("answer", response.Text()));
        } catch (const std::exception& error) {
            RemoveSince(lastHandle);
            answer = TextOf(call.IsUnderstood ? Failure(error) : InternalError(error.what()));
            if (!IsMessage(answer)) answer = TextOf(TooLarge("failure's text", answer));
        } catch (const abi::__forced_unwind&) {
            throw;  // the end of this thread
        } catch (...) {
            RemoveSince(lastHandle);
            answer = TextOf(Failure(ApiInternalError("The service failed for a reason that it can't name")));
        }
    }

private:
    /// Objects that the client never hears of.
    void RemoveSince(std::uint64_t handle) noexcept {
        while (m_lastHandle != handle)
            m_objects.erase(m_lastHandle--);
    }

    static bool IsMessage(std::string_view text) { return text.size() <= apigen::IIoDev::MaxMessageBytes; }

    static std::shared_ptr<IData> TooLarge(const std::string& what, std::string_view text) {
        return InternalError("The " + what + " of " + std::to_string(text.size()) +
                             " bytes is over the limit of a message");
    }

    static std::string TextOf(const std::shared_ptr<IData>& failure) { return CXmlData::Serialize(*failure); }

    /// The short way. False, and nothing done, for a request that takes the other one.
    bool CarryOutText(SCall& call, std::string_view request) {
        const auto parts = apigen::SplitRequest(request);
        if (!parts) return false;
        call.Arguments = parts->Arguments;
        return CarryOut(call, parts->Target, parts->Method);
    }

    void CarryOutContainer(SCall& call, std::string_view request) {
        call.Arguments = {};
        call.Container = CXmlData::Unserialize(std::string(request));
        const Handle target = apigen::HandleUtils::FromData(call.Container);
        const std::string method = call.Container->GetString(envelope::MethodKey);
        if (CarryOut(call, target, method)) return;
        const std::string handle = std::to_string(target.Value);
        if (m_objects.count(target.Value) == 0) throw ApiInternalError("No object has the handle " + handle);
        throw ApiInternalError("The object with the handle " + handle + " has no method " +
                               apigen::common::Escaped(method));
    }

    /// False when there is nothing to call, or when the text of the arguments has to become a container.
    bool CarryOut(SCall& call, Handle target, std::string_view method) {
        const auto found = m_objects.find(target.Value);
        if (found == m_objects.end()) return false;
        if (method == envelope::ReleaseMethod) {
            if (!call.Arguments.empty()) return false;
            m_objects.erase(found);
            return true;
        }
        // A copy: the object outlives its call whatever that does.
        const SObject object = found->second;
        const auto* const handler = object.Interface->Find(method);
        return handler != nullptr && (*handler)(object.Object.get(), call);
    }

    std::unordered_map<std::uint64_t, SObject> m_objects;
    std::uint64_t m_lastHandle = 0;
    std::size_t m_objectLimit = DefaultObjectLimit;
    Handle m_root;
};

CService::CService(std::shared_ptr<zamclientlib::ITarvoInstaller> root)
    : m_impl(std::make_unique<Impl>(SObject{root, &CInterface::Of<zamclientlib::ITarvoInstaller>()})) {}

CService::CService(std::shared_ptr<zamclientlib::IZamControl> root)
    : m_impl(std::make_unique<Impl>(SObject{root, &CInterface::Of<zamclientlib::IZamControl>()})) {}

CService::CService(CService&&) noexcept = default;
CService& CService::operator=(CService&&) noexcept = default;
CService::~CService() = default;

std::string CService::Greeting() const {
    return apigen::SerializeDocument(envelope::HandleKey, m_impl->Root());
}

std::string CService::Answer(const std::string& request) {
    std::string answer;
    m_impl->Answer(request, answer);
    return answer;
}

void CService::Answer(std::string_view request, std::string& answer) {
    m_impl->Answer(request, answer);
}

std::size_t CService::ObjectCount() const noexcept {
    return m_impl->ObjectCount();
}

void CService::SetObjectLimit(std::size_t limit) noexcept {
    m_impl->SetObjectLimit(limit);
}

}  // namespace zamservice
