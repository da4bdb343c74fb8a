// SPDX-License-Identifier: Apache-2.0
#include "installer/CPackageIndex.h"

#include <apigen/ApiException.h>
#include <apigen/CXmlData.h>
#include <zamclientlib/Exceptions.h>

#include <pugixml.hpp>

#include <algorithm>
#include <initializer_list>
#include <string_view>
#include <system_error>

#include "installer/ListedPackage.h"
#include "installer/SmallFile.h"
#include "support/common/Text.h"

namespace installer {
namespace {

using apigen::common::ErrorText;
using apigen::common::Quoted;
using zamclientlib::CGenericException;
using zamclientlib::OSHardwarePlatform;

constexpr std::size_t sizeLimit = 16 * 1024 * 1024;
constexpr std::string_view supportedFormat = "1";

}  // namespace

// Reads the document into an index, strictly: a misspelt bound must not widen what is supported.
class CPackageIndex::CReader {
public:
    explicit CReader(const std::filesystem::path& path) : m_path(path) {}

    void Read(CPackageIndex& index) {
        Parse();
        const pugi::xml_node root = m_document.document_element();
        if (std::string_view(root.name()) != "PackageIndex") {
            Fail(root, "the root element is " + Quoted(root.name()) + ", not \"PackageIndex\"");
        }
        RequireAttributes(root, {"format", "version"});
        if (const std::string format = Required(root, "format"); format != supportedFormat) {
            Fail(root, "format " + Quoted(format) + " is unknown, this tool reads format " +
                           std::string(supportedFormat));
        }
        index.m_productVersion = ReadVersion(root, "version", Required(root, "version")).Version;
        for (const pugi::xml_node node : root.children()) {
            if (!IsElement(node)) continue;
            if (std::string_view(node.name()) != "Distribution") {
                Fail(node, "element " + Quoted(node.name()) + " where only \"Distribution\" may stand");
            }
            index.m_distributions.push_back(ReadDistribution(node));
        }
    }

private:
    void Parse() {
        std::string text;
        try {
            text = ReadSmallFile(m_path, sizeLimit);
        } catch (const std::system_error& error) {
            const bool isNoFile = error.code() == std::errc::invalid_argument;
            Throw(isNoFile ? "it is no regular file" : ErrorText(error.code().value()));
        }
        // pugixml, which keeps the attributes, takes much that is no well-formed XML; our own parser doesn't.
        try {
            apigen::CXmlData::Unserialize(text);
        } catch (const apigen::BrokenMessageError& error) {
            Throw(error.what());
        }
        const pugi::xml_parse_result result = m_document.load_buffer(
            text.data(), text.size(), pugi::parse_default | pugi::parse_ws_pcdata, pugi::encoding_utf8);
        if (!result) {
            Throw(std::string(result.description()) + " at offset " + std::to_string(result.offset));
        }
    }

    SDistribution ReadDistribution(const pugi::xml_node& node) const {
        RequireAttributes(node, {"id", "architecture", "minVersion", "maxVersion", "kmodDriver"});
        SDistribution distribution;
        distribution.Id = Required(node, "id");
        // An architecture that this tool has never heard of fits no host, and does no harm to the others.
        distribution.Platform = PlatformOf(Required(node, "architecture"));
        distribution.MinVersion = OptionalVersion(node, "minVersion");
        distribution.MaxVersion = OptionalVersion(node, "maxVersion");
        const std::string_view kmod = node.attribute("kmodDriver").as_string("false");
        if (kmod != "true" && kmod != "false") {
            Fail(node, "kmodDriver is " + Quoted(kmod) + ", neither \"true\" nor \"false\"");
        }
        distribution.IsKmodDriver = kmod == "true";
        for (const pugi::xml_node child : node.children()) {
            if (IsElement(child)) distribution.Packages.push_back(ReadPackage(child));
        }
        if (distribution.Packages.empty()) Fail(node, "a distribution without packages");
        return distribution;
    }

    // A file as an absolute path, or a package's name as it stands.
    std::string ReadPackage(const pugi::xml_node& node) const {
        const std::string_view kind = node.name();
        if (kind != "File" && kind != "Package") {
            Fail(node, "element " + Quoted(kind) + " where only \"File\" and \"Package\" may stand");
        }
        RequireAttributes(node, {});
        std::string text;
        for (const pugi::xml_node child : node.children()) {
            if (child.type() == pugi::node_element) Fail(child, "an element within a " + std::string(kind));
            text += child.value();
        }
        text = Trimmed(std::move(text));
        if (text.empty()) Fail(node, "an empty " + std::string(kind));
        if (std::any_of(text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 0x7f; })) {
            Fail(node, "a control character in a " + std::string(kind));
        }
        if (kind == "Package") {
            // In the list that it joins it must not pass for a file.
            if (IsFileEntry(text) || text.find(' ') != text.npos) {
                Fail(node,
                     Quoted(text) +
                         " is no name of a package: a name has no '/' and no blank, and doesn't end in .deb");
            }
            return text;
        }
        return (m_path.parent_path() / text).lexically_normal().string();
    }

    SStrictVersion OptionalVersion(const pugi::xml_node& node, const char* name) const {
        const pugi::xml_attribute attribute = node.attribute(name);
        return attribute ? ReadVersion(node, name, attribute.value()) : SStrictVersion{};
    }

    SStrictVersion ReadVersion(const pugi::xml_node& node, const char* name, const std::string& text) const {
        const auto version = StrictVersion(text);
        if (!version) {
            Fail(node, std::string(name) + " is " + Quoted(text) +
                           ", not one to four numbers up to 65535 with dots between them");
        }
        return *version;
    }

    std::string Required(const pugi::xml_node& node, const char* name) const {
        const std::string_view value = node.attribute(name).value();
        if (value.empty()) Fail(node, std::string("attribute \"") + name + "\" is missing or empty");
        return std::string(value);
    }

    void RequireAttributes(const pugi::xml_node& node, std::initializer_list<std::string_view> known) const {
        for (auto attribute = node.first_attribute(); attribute; attribute = attribute.next_attribute()) {
            const std::string_view name = attribute.name();
            if (std::find(known.begin(), known.end(), name) == known.end()) {
                Fail(node, "unknown attribute " + Quoted(name));
            }
            for (auto next = attribute.next_attribute(); next; next = next.next_attribute()) {
                if (name == next.name()) Fail(node, "attribute " + Quoted(name) + " stands twice");
            }
        }
    }

    // True for an element; text that is more than white space has no place between elements.
    bool IsElement(const pugi::xml_node& node) const {
        if (node.type() == pugi::node_element) return true;
        if ((node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata) &&
            !Trimmed(node.value()).empty()) {
            Fail(node, "text between elements");
        }
        return false;
    }

    [[noreturn]] void Fail(const pugi::xml_node& node, const std::string& reason) const {
        Throw(reason + ", at offset " + std::to_string(std::max<std::ptrdiff_t>(node.offset_debug(), 0)));
    }

    [[noreturn]] void Throw(const std::string& reason) const {
        throw CGenericException("Can't read the package index " + Quoted(m_path.string()) + ": " + reason +
                                ".");
    }

    std::filesystem::path m_path;
    pugi::xml_document m_document;
};

CPackageIndex::CPackageIndex(const std::filesystem::path& path) {
    if (path.empty()) throw CGenericException("The path of the package index is empty.");
    if (path.native().find('\0') != std::string::npos) {
        throw CGenericException("The path of the package index " + Quoted(path.native()) +
                                " holds a NUL character.");
    }
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(path, error);
    if (error) {
        throw CGenericException("Can't find the package index " + Quoted(path.native()) + ": " +
                                ErrorText(error.value()) + ".");
    }
    CReader(absolute).Read(*this);
}

bool CPackageIndex::SDistribution::Fits(const SOsInformation& os, OSHardwarePlatform platform) const {
    // Only the parts that a bound names are compared: up to "12" includes 12.11.
    return Id == os.Id && Platform == platform && platform != OSHardwarePlatform::Unknown &&
           Compare(os.Version, MinVersion.Version, MinVersion.Parts) >= 0 &&
           Compare(os.Version, MaxVersion.Version, MaxVersion.Parts) <= 0;
}

zamclientlib::SInstallationInfo CPackageIndex::OfferFor(const SOsInformation& os,
                                                        OSHardwarePlatform platform) const {
    zamclientlib::SInstallationInfo offer;
    offer.PackagesVersion = m_productVersion;
    const auto found = std::find_if(m_distributions.begin(), m_distributions.end(),
                                    [&](const SDistribution& row) { return row.Fits(os, platform); });
    if (found != m_distributions.end()) {
        offer.PackageForInstall = found->Packages;
        offer.IsKmodDriver = found->IsKmodDriver;
        offer.IsInstallationSupported = true;
    }
    return offer;
}

}  // namespace installer
