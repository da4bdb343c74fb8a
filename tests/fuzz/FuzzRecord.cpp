// SPDX-License-Identifier: Apache-2.0
// Any document as a record: it is read, or refused by its proper error; what is read survives the wire.
#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>
#include <apigen/Serialize.h>
#include <zamclientlib/InstallerRecords.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::shared_ptr<apigen::IData> document;
    try {
        document = apigen::CXmlData::Unserialize(std::string(reinterpret_cast<const char*>(data), size));
    } catch (const apigen::BrokenMessageError&) {
        return 0;
    }
    CheckRecord<zamclientlib::SSystemInformation>(*document);
    CheckRecord<zamclientlib::SInstallationInfo>(*document);
    CheckRecord<zamclientlib::SPackageInfo>(*document);
    return 0;
}
