// SPDX-License-Identifier: Apache-2.0
/// \file
/// An invoker that keeps the requests and gives the answers it was told.
#pragma once

#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>
#include <apigen/IInvoker.h>

#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace zamtest {

class CScriptedInvoker final : public apigen::IInvoker {
public:
    explicit CScriptedInvoker(std::shared_ptr<apigen::IApiExceptionGenerator> generator = nullptr)
        : m_generator(std::move(generator)) {}

    std::shared_ptr<apigen::IData> CreateContainer() override { return apigen::CXmlData::CreateNew(); }

    std::shared_ptr<apigen::IData> Invoke(std::shared_ptr<apigen::IData> request) override {
        if (request->GetString("__method") == "__dtr") {
            Releases.push_back(apigen::CXmlData::Serialize(*request));
            if (IsGone) throw apigen::PeerGoneError("gone");
            return CreateContainer();
        }
        Requests.push_back(apigen::CXmlData::Serialize(*request));
        if (Responses.empty()) throw apigen::PeerGoneError("no answer is left");
        const std::string response = Responses.front();
        Responses.pop_front();
        return apigen::CXmlData::Unserialize(response);
    }

    std::shared_ptr<apigen::IApiExceptionGenerator> GetExceptionGenerator() const override {
        return m_generator;
    }

    std::deque<std::string> Responses;
    std::vector<std::string> Requests;
    std::vector<std::string> Releases;
    bool IsGone = false;

private:
    std::shared_ptr<apigen::IApiExceptionGenerator> m_generator;
};

}  // namespace zamtest
