// SPDX-License-Identifier: Apache-2.0
// Any file as a package index: it is one, or is refused with the reason. Never believed is what another parser
// takes for no XML, or what breaks a rule of the format that is easily told.
#include <zamclientlib/Exceptions.h>

#include <expat.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "installer/CPackageIndex.h"
#include "tests/fuzz/Check.h"
#include "tests/fuzz/MemoryFile.h"

namespace {

/// Another parser's opinion, and the rules about elements and attributes once more.
class CJudge {
public:
    /// Why the text is no index; empty when nothing was found.
    static std::string Judge(std::string_view text) {
        static const XML_Parser parser = XML_ParserCreate(nullptr);
        XML_ParserReset(parser, nullptr);
        CJudge judge;
        XML_SetUserData(parser, &judge);
        XML_SetStartDoctypeDeclHandler(parser, [](void* self, const char*, const char*, const char*, int) {
            static_cast<CJudge*>(self)->m_fault = "a document type";
        });
        XML_SetElementHandler(
            parser,
            [](void* self, const char* name, const char** attributes) {
                static_cast<CJudge*>(self)->OnStart(name, attributes);
            },
            [](void* self, const char*) { --static_cast<CJudge*>(self)->m_depth; });
        XML_SetCharacterDataHandler(parser, [](void* self, const char* bytes, int length) {
            static_cast<CJudge*>(self)->OnText({bytes, static_cast<std::size_t>(length)});
        });
        if (XML_Parse(parser, text.data(), static_cast<int>(text.size()), 1) != XML_STATUS_OK) {
            // Expat knows the names of the fourth edition, which had fewer letters beyond ASCII.
            const auto at = static_cast<std::size_t>(XML_GetCurrentByteIndex(parser));
            const bool mayBeAName = XML_GetErrorCode(parser) == XML_ERROR_INVALID_TOKEN && at < text.size() &&
                                    static_cast<unsigned char>(text[at]) >= 0x80;
            return mayBeAName ? "" : XML_ErrorString(XML_GetErrorCode(parser));
        }
        return judge.m_fault;
    }

private:
    void OnStart(std::string_view name, const char** attributes) {
        const bool isKnown = m_depth == 0   ? name == "PackageIndex"
                             : m_depth == 1 ? name == "Distribution"
                             : m_depth == 2 ? name == "File" || name == "Package"
                                            : false;
        if (!isKnown) m_fault = "an element that has no place there";
        for (; *attributes != nullptr; attributes += 2) {
            const std::string_view attribute = attributes[0];
            const bool isOfIndex = attribute == "format" || attribute == "version";
            const bool isOfDistribution = attribute == "id" || attribute == "architecture" ||
                                          attribute == "minVersion" || attribute == "maxVersion" ||
                                          attribute == "kmodDriver";
            if (m_depth == 0 ? !isOfIndex : m_depth == 1 ? !isOfDistribution : true)
                m_fault = "an unknown attribute";
            if (attribute == "format" && std::string_view(attributes[1]) != "1") m_fault = "another format";
        }
        ++m_depth;
    }

    void OnText(std::string_view text) {
        if (m_depth < 3 && text.find_first_not_of(" \t\r\n") != std::string_view::npos)
            m_fault = "a stray text";
    }

    std::string m_fault;
    int m_depth = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const CMemoryFile file;
    static const std::string path = file.Path();
    file.Fill(data, size);
    try {
        const installer::CPackageIndex index(path);
        const std::string fault = CJudge::Judge({reinterpret_cast<const char*>(data), size});
        Require(fault.empty(), "an index is believed as a whole or not at all", fault);

        installer::SOsInformation host;
        host.Id = "debian";
        host.Version = {12, 7, 0, 0};
        const auto offer = index.OfferFor(host, zamclientlib::OSHardwarePlatform::X64);
        Require(offer.IsInstallationSupported != offer.PackageForInstall.empty(),
                "who is supported has something to install");
        for (const std::string& package : offer.PackageForInstall)
            Require(!package.empty() && (package.front() == '/' || package.find('/') == package.npos),
                    "every package is an absolute path or a name", package);
    } catch (const zamclientlib::CGenericException& error) {
        Require(std::string_view(error.what()).find(path) != std::string_view::npos,
                "a refusal names the file", error.what());
    }
    return 0;
}
