// SPDX-License-Identifier: Apache-2.0
// Any text: our reader agrees with the others and reads back what it writes.
#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "tests/apigen/XmlOracles.h"
#include "tests/fuzz/Check.h"

namespace {

std::string FindLossInWriting(const std::string& text) {
    try {
        const std::string written = apigen::CXmlData::Serialize(*apigen::CXmlData::Unserialize(text));
        const std::string again = apigen::CXmlData::Serialize(*apigen::CXmlData::Unserialize(written));
        return again == written ? "" : "written: " + written + "\nread and written again: " + again;
    } catch (const apigen::BrokenMessageError&) {
        return {};
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    Check(apigen::test::FindDisagreement(text));
    Check(FindLossInWriting(text));
    return 0;
}
