// SPDX-License-Identifier: Apache-2.0
#include <zamclientlib/Exceptions.h>

#include <sys/stat.h>

#include <string>
#include <utility>
#include <vector>

#include "TestFolder.h"
#include "installer/CPackageIndex.h"

namespace installer::test {
namespace {

using zamclientlib::CGenericException;
using zamclientlib::OSHardwarePlatform;
using zamclientlib::SInstallationInfo;
using zamclientlib::SVersion;

constexpr const char* goodIndex = R"(<?xml version="1.0" encoding="UTF-8"?>
<!-- what fits where -->
<PackageIndex format="1" version="6.1.0.27">
  <Distribution id="debian" minVersion="11" maxVersion="12" architecture="x86_64" kmodDriver="true">
    <File>debian/tarvo-driver_6.1.0.27_amd64.deb</File>
    <File> ../odd &amp; <!-- really --> <![CDATA[<name>]]>.deb </File>
    <File>/srv/tarvo-agent.deb</File>
  </Distribution>
  <Distribution id="debian" maxVersion="12.5" architecture="arm64">
    <Package>lvm2</Package>
  </Distribution>
  <Distribution id="debian" architecture="amd64"><Package>late</Package></Distribution>
  <Distribution id="future" architecture="quantum128"><Package>never</Package></Distribution>
</PackageIndex>
)";

class PackageIndex : public testing::Test {
protected:
    SInstallationInfo Offer(const std::string& id, SVersion version, OSHardwarePlatform platform) const {
        return CPackageIndex(m_folder.Path() / "index.xml").OfferFor({id, "", "", version}, platform);
    }
    void ExpectRefused(const std::string& text, const std::string& reason) const {
        const auto path = m_folder.Write("bad.xml", text);
        EXPECT_THROW_WITH(CPackageIndex{path}, CGenericException, reason);
        EXPECT_THROW_WITH(CPackageIndex{path}, CGenericException, path.string());
        EXPECT_THROW_WITH(CPackageIndex{path}, CGenericException, "offset");
    }

    CTestFolder m_folder;
};

TEST_F(PackageIndex, OffersWhatTheFirstFittingDistributionLists) {
    m_folder.Write("index.xml", goodIndex);
    const SInstallationInfo offer = Offer("debian", {12, 11, 0, 0}, OSHardwarePlatform::X64);
    EXPECT_EQ(offer.PackagesVersion, (SVersion{6, 1, 0, 27}));
    EXPECT_TRUE(offer.IsInstallationSupported);
    EXPECT_TRUE(offer.IsKmodDriver);
    EXPECT_EQ(offer.PackageForInstall,
              (std::vector<std::string>{(m_folder.Path() / "debian/tarvo-driver_6.1.0.27_amd64.deb").string(),
                                        (m_folder.Path().parent_path() / "odd &  <name>.deb").string(),
                                        "/srv/tarvo-agent.deb"}));

    const SInstallationInfo later = Offer("debian", {13, 0, 0, 0}, OSHardwarePlatform::X64);
    EXPECT_EQ(later.PackageForInstall, std::vector<std::string>{"late"});
    EXPECT_FALSE(later.IsKmodDriver);
}

TEST_F(PackageIndex, BoundsIncludeTheVersionsThatTheyName) {
    m_folder.Write("index.xml", goodIndex);
    const auto isSupported = [&](SVersion version) {
        return Offer("debian", version, OSHardwarePlatform::Arm64).IsInstallationSupported;
    };
    EXPECT_TRUE(isSupported({}));
    EXPECT_TRUE(isSupported({12, 5, 9, 9}));
    EXPECT_FALSE(isSupported({12, 6, 0, 0}));
    EXPECT_FALSE(isSupported({13, 0, 0, 0}));
}

TEST_F(PackageIndex, OffersNothingToOthers) {
    m_folder.Write("index.xml", goodIndex);
    for (const auto& offer : {Offer("ubuntu", {12, 0, 0, 0}, OSHardwarePlatform::X64),
                              Offer("Debian", {12, 0, 0, 0}, OSHardwarePlatform::X64),
                              Offer("debian", {12, 0, 0, 0}, OSHardwarePlatform::S390X),
                              Offer("future", {}, OSHardwarePlatform::Unknown)}) {
        EXPECT_FALSE(offer.IsInstallationSupported);
        EXPECT_FALSE(offer.IsKmodDriver);
        EXPECT_TRUE(offer.PackageForInstall.empty());
        EXPECT_EQ(offer.PackagesVersion, (SVersion{6, 1, 0, 27}));
    }
}

TEST_F(PackageIndex, ARelativeIndexPathStillGivesAbsolutePackagePaths) {
    m_folder.Write("index.xml", goodIndex);
    const auto old = std::filesystem::current_path();
    std::filesystem::current_path(m_folder.Path());
    const auto offer =
        CPackageIndex("index.xml").OfferFor({"debian", "", "", {12, 0, 0, 0}}, OSHardwarePlatform::X64);
    std::filesystem::current_path(old);
    EXPECT_EQ(offer.PackageForInstall.front(),
              (m_folder.Path() / "debian/tarvo-driver_6.1.0.27_amd64.deb").string());
}

TEST_F(PackageIndex, AnIndexWithoutDistributionsSupportsNothing) {
    m_folder.Write("index.xml", "<PackageIndex format='1' version='1'/>");
    EXPECT_FALSE(Offer("debian", {12, 0, 0, 0}, OSHardwarePlatform::X64).IsInstallationSupported);
}

TEST_F(PackageIndex, FilesThatCannotBeReadAreNamed) {
    EXPECT_THROW_WITH(CPackageIndex{m_folder.Path() / "missing.xml"}, CGenericException,
                      "missing.xml\": No such file or directory");
    EXPECT_THROW_WITH(CPackageIndex{m_folder.Path()}, CGenericException, "Is a directory");
    EXPECT_THROW_WITH(CPackageIndex{"/dev/zero"}, CGenericException, "it is no regular file");
    ASSERT_EQ(mkfifo((m_folder.Path() / "fifo").c_str(), 0600), 0);
    EXPECT_THROW_WITH(CPackageIndex{m_folder.Path() / "fifo"}, CGenericException, "it is no regular file");
    EXPECT_THROW_WITH(CPackageIndex{"/two\nlines\x1b[31m"}, CGenericException, "\"/two\\nlines\\x1b[31m\"");
    EXPECT_THROW_WITH(CPackageIndex{""}, CGenericException, "is empty");
    EXPECT_THROW_WITH(CPackageIndex{std::string("/tmp/a\0b", 8)}, CGenericException, "NUL");
    std::filesystem::resize_file(m_folder.Write("huge.xml", ""), 17 * 1024 * 1024);
    EXPECT_THROW_WITH(CPackageIndex{m_folder.Path() / "huge.xml"}, CGenericException, "File too large");
}

TEST_F(PackageIndex, HostileAndBrokenDocumentsAreRefused) {
    const std::string open = "<PackageIndex format='1' version='1'>";
    const std::string close = "</PackageIndex>";
    const auto distribution = [&](const std::string& attributes,
                                  const std::string& content = "<Package>x</Package>") {
        return open + "<Distribution " + attributes + ">" + content + "</Distribution>" + close;
    };
    const std::string valid = "id='a' architecture='amd64' ";
    const std::vector<std::pair<std::string, std::string>> cases{
        {"", "Malformed document: "},
        {"hello", "Malformed document: "},
        {open, "Malformed document: "},
        {open + "<Distribution></PackageIndex>", "Malformed document: "},
        {std::string(open).append(3, '\0') + close, "Malformed document: "},
        {"<!DOCTYPE x [<!ENTITY a 'b'>]>" + open + close, "document type"},
        {"<!DOCTYPE PackageIndex>" + open + close, "document type"},
        {open + close + open + close, "second root element"},
        {"<Data/>", "the root element is \"Data\""},
        {"<PackageIndex version='1'/>", "\"format\" is missing"},
        {"<PackageIndex format='2' version='1'/>", "format \"2\" is unknown"},
        {"<PackageIndex format='1'/>", "\"version\" is missing"},
        {"<PackageIndex format='1' version='x'/>", "version is \"x\""},
        {"<PackageIndex format='1' version='1.2.3.4.5'/>", "version is"},
        {"<PackageIndex format='1' version='65536'/>", "version is"},
        {"<PackageIndex format='1' version='1' more='1'/>", "unknown attribute \"more\""},
        {"<PackageIndex format='1' version='1' version='2'/>", "an attribute given twice at offset 37"},
        {open + "<Other/>" + close, "element \"Other\""},
        {open + "words" + close, "text between elements"},
        {open + "<![CDATA[words]]>" + close, "text between elements"},
        {distribution("architecture='amd64'"), "\"id\" is missing"},
        {distribution("id='a'"), "\"architecture\" is missing"},
        {distribution(valid + "maxversion='1'"), "unknown attribute \"maxversion\""},
        {distribution(valid + "minVersion=''"), "minVersion is"},
        {distribution(valid + "maxVersion='1.x'"), "maxVersion is"},
        {distribution(valid + "kmodDriver='yes'"), "kmodDriver is \"yes\""},
        {distribution(valid, ""), "without packages"},
        {distribution(valid, "<Pakage>x</Pakage>"), "element \"Pakage\""},
        {distribution(valid, "<File/>"), "an empty File"},
        {distribution(valid, "<File> \n </File>"), "an empty File"},
        {distribution(valid, "<File>a<b/>c</File>"), "an element within a File"},
        {distribution(valid, "<File sum='1'>a</File>"), "unknown attribute"},
        {distribution(valid, "<File>a\nb</File>"), "a control character"},
        {distribution(valid, "<Package>a/b</Package>"), "\"a/b\" is no name of a package"},
        {distribution(valid, "<Package>agent_1_all.deb</Package>"), "is no name of a package"},
        {distribution(valid, "<Package>a b</Package>"), "is no name of a package"},
        {distribution(valid, "loose<Package>x</Package>"), "text between elements"},
    };
    for (const auto& [text, reason] : cases) {
        SCOPED_TRACE(text);
        ExpectRefused(text, reason);
    }
}

TEST_F(PackageIndex, WhatIsNoWellFormedXmlIsRefusedHoweverHarmless) {
    const std::string open = "<PackageIndex format='1' version='1'>";
    const std::string distribution = "<Distribution id='a' architecture='amd64'>";
    const std::string close = "</Distribution></PackageIndex>";
    for (const std::string& text : {
             open + distribution + "<File>a & b</File>" + close,
             open + distribution + "<File>a&unknown;</File>" + close,
             open + distribution + "<File>a]]>b</File>" + close,
             open + distribution + "<File>a\xff</File>" + close,
             open + distribution + "<File>a\x1b[31m</File>" + close,
             open + distribution + "<File>a&#0;</File>" + close,
             open + distribution + "<File>a</File ><!-- a -- b -->" + close,
             open + "<Distribution id='a'architecture='amd64'><File>a</File>" + close,
             open + "<Distribution id='<' architecture='amd64'><File>a</File>" + close,
             open + "<Distribution id='a&b' architecture='amd64'><File>a</File>" + close,
             open + distribution + "<File>a</File>" + close + "trailing",
             open + distribution + "<File>a</File>" + close + "</PackageIndex>",
             " <?xml version='1.0'?>" + open + distribution + "<File>a</File>" + close,
             "<?xml version='1.0' encoding='ISO-8859-1'?>" + open + distribution + "<File>\xe4</File>" +
                 close,
         }) {
        SCOPED_TRACE(text);
        ExpectRefused(text, "Malformed document: ");
    }
    const auto path = m_folder.Write(
        "index.xml", "\xef\xbb\xbf<?xml version='1.0' encoding='UTF-8'?>" + open + distribution +
                         "<File>k\xc3\xa4se&#x20;&lt;</File ><?a?><!-- - -->" + close + "\n<!-- end -->\n");
    EXPECT_EQ(CPackageIndex(path).OfferFor({"a", "", "", {}}, OSHardwarePlatform::X64).PackageForInstall,
              std::vector<std::string>{(m_folder.Path() / "k\xc3\xa4se <").string()});
}

TEST_F(PackageIndex, WhatAnIndexSaysIsQuotedHarmlessly) {
    ExpectRefused("<PackageIndex format='1' version='&#x9b;31m&#10;'/>", "version is \"\\xc2\\x9b31m\\n\"");
    ExpectRefused("<PackageIndex format='1' version='1'><W\xc3\xa4r/></PackageIndex>",
                  "Malformed document: ");
}

TEST_F(PackageIndex, EndlessNestingIsNoDanger) {
    std::string text = "<PackageIndex format='1' version='1'>";
    for (int i = 0; i < 200000; ++i)
        text += "<Distribution>";
    ExpectRefused(text, "nested deeper than 256 levels");
    for (int i = 0; i < 200000; ++i)
        text += "</Distribution>";
    ExpectRefused(text + "</PackageIndex>", "nested deeper than 256 levels");
}

TEST_F(PackageIndex, ErrorsPointAtTheirPlace) {
    ExpectRefused("<PackageIndex format='1' version='1'><Wrong/></PackageIndex>", "at offset 38");
}

}  // namespace
}  // namespace installer::test
