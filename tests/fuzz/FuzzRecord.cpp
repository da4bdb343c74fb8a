// SPDX-License-Identifier: Apache-2.0
// Any document as a record: it is read, or refused by its proper error; what is read survives the wire.
#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>
#include <apigen/Serialize.h>
#include <zamclientlib/EventRecords.h>
#include <zamclientlib/InstallerRecords.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "support/apigen/Encoders.h"
#include "tests/fuzz/Check.h"

namespace {

template <class Record>
std::string Written(const Record& record) {
    const auto data = apigen::CXmlData::CreateNew();
    apigen::Serialize(*data, "Record", record);
    return apigen::CXmlData::Serialize(*data);
}

template <class Record>
void CheckRecord(const apigen::IData& data) {
    Record record;
    try {
        apigen::Deserialize(data, "Record", record);
    } catch (const apigen::ApiInternalError&) {
        return;
    }
    const std::string written = Written(record);
    Record again;
    apigen::Deserialize(*apigen::CXmlData::Unserialize(written), "Record", again);
    if (Written(again) != written) Check("lost in: " + written);
}

/// An event that is read straight from a text is the one that a document of it gives.
void CheckEvent(const std::string& text, const apigen::IData& document) {
    zamclientlib::SBaseEvent event;
    if (!apigen::DeserializeText(text, "Event", event)) return;
    zamclientlib::SBaseEvent expected;
    apigen::Deserialize(document, "Event", expected);
    if (event != expected) Check("an event read wrongly: " + text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::shared_ptr<apigen::IData> document;
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        document = apigen::CXmlData::Unserialize(text);
    } catch (const apigen::BrokenMessageError&) {
        zamclientlib::SBaseEvent event;
        if (apigen::DeserializeText(text, "Event", event)) Check("an event in no document: " + text);
        return 0;
    }
    CheckEvent(text, *document);
    CheckRecord<zamclientlib::SSystemInformation>(*document);
    CheckRecord<zamclientlib::SInstallationInfo>(*document);
    CheckRecord<zamclientlib::SPackageInfo>(*document);
    return 0;
}
