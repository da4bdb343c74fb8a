// SPDX-License-Identifier: Apache-2.0
#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>
#include <zamservice/Service.h>

#include <cstdint>
#include <exception>
#include <typeinfo>
#include <utility>

#include "service/Dispatcher.h"
#include "service/Failure.h"
#include "src/AgentMethods.h"
#include "src/InstallerMethods.h"

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

    Handle Add(SObject object) override {
        const Handle handle{++m_lastHandle};
        m_objects.emplace(handle.Value, std::move(object));
        return handle;
    }

    std::shared_ptr<IData> Answer(const std::string& requestText) {
        SCall call{*this};
        try {
            call.Request = CXmlData::Unserialize(requestText);
            call.Response = CXmlData::CreateNew();
            CarryOut(call);
            return call.Response;
        } catch (const std::exception& error) {
            return call.IsUnderstood ? Failure(error) : InternalError(error.what());
        } catch (...) {
            return Failure(ApiInternalError("The service failed for a reason that it can't name"));
        }
    }

private:
    void CarryOut(SCall& call) {
        const Handle handle = apigen::HandleUtils::FromData(call.Request);
        const std::string method = call.Request->GetString(envelope::MethodKey);
        const auto found = m_objects.find(handle.Value);
        if (found == m_objects.end()) {
            throw ApiInternalError("No object has the handle " + std::to_string(handle.Value));
        }
        if (method == envelope::ReleaseMethod) {
            m_objects.erase(found);
            return;
        }
        // A copy: the object outlives its call whatever that does.
        const SObject object = found->second;
        const auto* const handler = object.Interface->Find(method);
        if (handler == nullptr) {
            throw ApiInternalError("The object with the handle " + std::to_string(handle.Value) +
                                   " has no method " + method);
        }
        (*handler)(object.Object.get(), call);
    }

    std::unordered_map<std::uint64_t, SObject> m_objects;
    std::uint64_t m_lastHandle = 0;
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
    const auto greeting = CXmlData::CreateNew();
    apigen::Serialize(*greeting, envelope::HandleKey, m_impl->Root());
    return CXmlData::Serialize(*greeting);
}

std::string CService::Answer(const std::string& request) {
    const auto response = m_impl->Answer(request);
    try {
        std::string text = CXmlData::Serialize(*response);
        if (text.size() <= apigen::IIoDev::MaxMessageBytes) return text;
        return CXmlData::Serialize(*InternalError("The answer of " + std::to_string(text.size()) +
                                                  " bytes is over the limit of a message"));
    } catch (const ApiInternalError& error) {
        return CXmlData::Serialize(*InternalError(error.what()));
    }
}

std::size_t CService::ObjectCount() const noexcept {
    return m_impl->ObjectCount();
}

void Serve(CService& service, apigen::IIoDev& device) {
    try {
        device.WriteString(service.Greeting());
        while (true) {
            device.WriteString(service.Answer(device.ReadString()));
        }
    } catch (const apigen::PeerGoneError&) {
        // The client has left, perhaps without waiting for the answers of its last releases.
    }
}

}  // namespace zamservice
