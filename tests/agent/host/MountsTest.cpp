// SPDX-License-Identifier: Apache-2.0
// What is mounted, and what users may mean by a text.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "agent/host/Mounts.h"
#include "tests/agent/CTemporaryFolder.h"

namespace {

using namespace tarvo;
using tests::CTemporaryFolder;
using zamclientlib::EVolumeBackupObjectType;
namespace fs = std::filesystem;

constexpr const char* Table =
    "20 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
    "21 20 0:5 / /proc rw - proc proc rw\n"
    "22 20 253:0 / /home rw - xfs /dev/mapper/vg-home rw\n"
    "23 20 8:17 / /mnt/with\\040space\\011tab\\134back\\012line rw shared:2 master:3 - vfat /dev/sdb1 rw\n"
    "24 20 0:40 / /net rw - nfs4 host:/export rw\n"
    "25 22 8:1 /srv /home/bound rw - ext4 /dev/sda1 rw\n"
    "nonsense\n"
    "26 20 8 / /odd rw - ext4 /dev/x rw\n";

TEST(Mounts, NamesComeWithoutTheTablesEscapes) {
    const auto mounts = ParseMounts(Table);
    ASSERT_EQ(mounts.size(), 6U);
    EXPECT_EQ(mounts[3].Point, "/mnt/with space\ttab\\back\nline");
    EXPECT_EQ(mounts[3].Type, "vfat");
    EXPECT_TRUE(mounts[0].IsReal);
    EXPECT_FALSE(mounts[1].IsReal);
    EXPECT_EQ(MountOf(mounts, "/home/u/x")->Point, "/home");
    EXPECT_EQ(MountOf(mounts, "/homes")->Point, "/");
}

TEST(Mounts, WhatIsMountedOverDoesNotCount) {
    const auto mounts = ParseMounts(
        "1 0 8:1 / / rw - ext4 /dev/a rw\n"
        "2 1 8:2 / /a rw - ext4 /dev/b rw\n"
        "3 2 8:3 / /a/b rw - ext4 /dev/c rw\n"
        "4 2 8:4 / /a rw - ext4 /dev/d rw\n"
        "5 4 8:5 / /a/c rw - ext4 /dev/e rw\n");
    std::vector<std::string> sources;
    for (const auto& mount : mounts)
        sources.push_back(mount.Source);
    EXPECT_EQ(sources, (std::vector<std::string>{"/dev/a", "/dev/d", "/dev/e"}));
}

/// A host of files: a device is one that holds its number.
class Host : public testing::Test {
protected:
    Host() {
        Device("sda", "8:0");
        Device("sda1", "8:1");
        Device("sdb", "8:16");
        Device("sdb1", "8:17");
        Device("sdc", "8:32");
        Device("dm-0", "253:0");
        m_folder.Write("sys/dev/block/8:0/sda1/dev", "8:1\n");
        m_folder.Write("sys/dev/block/8:0/sda1/partition", "1\n");
        m_folder.Write("sys/dev/block/8:1/partition", "1\n");
        m_folder.Write("sys/dev/block/8:16/sdb1/dev", "8:17\n");
        m_folder.Write("sys/dev/block/8:16/sdb1/partition", "1\n");
        m_folder.Write("sys/dev/block/8:17/partition", "1\n");
        m_folder.Write("sys/dev/block/8:32/holders/dm-0/dev", "253:0\n");
        m_folder.Write("sys/dev/block/253:0/dm/uuid", "LVM-abc\n");
        Link("mapper/vg-home", "../dm-0");
        Link("disk/by-label/My\\x20disk", "../../sdb1");
        Link("disk/by-uuid/1111-2222", "../../sda1");
        m_folder.Write("mountinfo", Table);
        m_places = {m_folder / "dev", m_folder / "sys", m_folder / "mountinfo"};
    }
    void Device(const std::string& name, const std::string& number) { m_folder.Write("dev/" + name, number); }
    void Link(const std::string& name, const std::string& target) {
        const fs::path path = m_folder / ("dev/" + name);
        fs::create_directories(path.parent_path());
        fs::create_symlink(target, path);
    }
    zamclientlib::SResolveObjectInfo Resolve(const std::string& text) {
        return tarvo::Resolve({text, EVolumeBackupObjectType::Unknown}, m_places);
    }
    std::vector<std::string> Points(const std::string& text) {
        return MountPointsOf({text, EVolumeBackupObjectType::Unknown}, m_why, m_places);
    }

    CTemporaryFolder m_folder;
    SHostPlaces m_places;
    std::string m_why;
};

TEST_F(Host, ADeviceIsFoundByEachOfItsNames) {
    for (const auto& name : {"sdb1", "LABEL=My disk", "LABEL=\"My disk\"", "My disk"}) {
        const auto info = Resolve(name);
        EXPECT_EQ(info.SourceInput, name);
        EXPECT_EQ(info.ObjectType, EVolumeBackupObjectType::Volume) << name;
        EXPECT_EQ(info.DisplayName, m_folder / "dev/sdb1");
        EXPECT_NE(info.ResolveDetails.find("label My\\x20disk"), std::string::npos) << info.ResolveDetails;
    }
    EXPECT_EQ(Resolve("UUID=1111-2222").DisplayName, m_folder / "dev/sda1");
    EXPECT_EQ(Resolve("1111-2222").DisplayName, m_folder / "dev/sda1");
    EXPECT_EQ(Resolve(m_folder / "dev/sda").ObjectType, EVolumeBackupObjectType::Disk);
    EXPECT_EQ(Resolve("mapper/vg-home").ObjectType, EVolumeBackupObjectType::Lvm);
}

TEST_F(Host, WhatIsNothingHereIsSaidToBe) {
    for (const auto& name : {"", "sdz", "UUID=", "LABEL=../sda", "../../etc", "/no/such/path", "a/../sda"}) {
        const auto info = Resolve(name);
        EXPECT_EQ(info.ObjectType, EVolumeBackupObjectType::Unknown) << name;
        EXPECT_NE(info.ResolveDetails, "");
    }
    EXPECT_EQ(Resolve(std::string("a\0b", 3)).ObjectType, EVolumeBackupObjectType::Unknown);
}

TEST_F(Host, FoldersFilesAndMountPointsAreKnownApart) {
    m_folder.Write("mountinfo", Table + ("30 20 8:99 / " + (m_folder / "there") + " rw - ext4 /dev/q rw\n"));
    m_folder.Folder("there/folder");
    m_folder.Write("there/file", "");
    EXPECT_EQ(Resolve(m_folder / "there").ObjectType, EVolumeBackupObjectType::MountPoint);
    EXPECT_EQ(Resolve(m_folder / "there/folder/").ObjectType, EVolumeBackupObjectType::Directory);
    EXPECT_EQ(Resolve(m_folder / "there/file").ObjectType, EVolumeBackupObjectType::File);
    EXPECT_EQ(Resolve(m_folder / "there/folder/").DisplayName, m_folder / "there/folder");
    EXPECT_EQ(Points(m_folder / "there"), std::vector<std::string>{m_folder / "there"});
    EXPECT_TRUE(Points(m_folder / "there/folder").empty());
    EXPECT_NE(m_why.find("no volume and no mount point"), std::string::npos);
}

TEST_F(Host, AVolumeNamesTheFileSystemsThatAreMountedFromIt) {
    EXPECT_EQ(Points("sda1"), std::vector<std::string>{"/"});  // once, and whole rather than the bound folder
    EXPECT_EQ(Points("sda"), std::vector<std::string>{"/"});
    EXPECT_EQ(Points("sdc"), std::vector<std::string>{"/home"});  // through the logical volume on it
    EXPECT_EQ(Points("My disk"), std::vector<std::string>{"/mnt/with space\ttab\\back\nline"});
    m_folder.Write("mountinfo", "");
    EXPECT_TRUE(Points("sda1").empty());
    EXPECT_NE(m_why.find("not mounted"), std::string::npos);
}

TEST_F(Host, TheEntireMachineIsItsOwnRealFileSystemsEachOnce) {
    EXPECT_EQ(RealMountPoints(m_places),
              (std::vector<std::string>{"/", "/home", "/mnt/with space\ttab\\back\nline"}));
}

TEST_F(Host, RemovableAndUsbDrivesAreKnown) {
    const auto disk = [&](const std::string& path, const std::string& number, const std::string& removable) {
        m_folder.Write("sys/devices/" + path + "/removable", removable + "\n");
        fs::create_directories(m_folder / "sys/dev/block");
        fs::remove_all(m_folder / ("sys/dev/block/" + number));
        fs::create_symlink("../../devices/" + path, m_folder / ("sys/dev/block/" + number));
    };
    const auto part = [&](const std::string& path, const std::string& number) {
        m_folder.Write("sys/devices/" + path + "/partition", "1\n");
        fs::remove_all(m_folder / ("sys/dev/block/" + number));
        fs::create_symlink("../../devices/" + path, m_folder / ("sys/dev/block/" + number));
    };
    disk("pci0/ata1/block/sda", "8:0", "0");
    part("pci0/ata1/block/sda/sda1", "8:1");
    disk("pci0/usb2/2-1/block/sdb", "8:16", "0");
    part("pci0/usb2/2-1/block/sdb/sdb1", "8:17");
    disk("pci0/mmc/block/sdc", "8:32", "1");
    m_folder.Write("sys/dev/block/253:0/slaves/sda1/dev", "8:1\n");
    const std::string home = "/home";
    EXPECT_EQ(DriveOf("/", m_places), EDrive::Fixed);
    EXPECT_EQ(DriveOf("/mnt/with space\ttab\\back\nline", m_places), EDrive::Removable);  // by USB
    EXPECT_EQ(DriveOf(home, m_places), EDrive::Fixed);
    m_folder.Write("sys/dev/block/253:0/slaves/sdc/dev", "8:32\n");  // now it spans a card as well
    EXPECT_EQ(DriveOf(home, m_places), EDrive::Removable);
    fs::remove_all(m_folder / "sys/dev/block/253:0");
    EXPECT_EQ(DriveOf(home, m_places), EDrive::Unknown);
    EXPECT_EQ(DriveOf("/nowhere", m_places), EDrive::Unknown);
}

TEST_F(Host, ThisHostHasARoot) {
    const auto mounts = Mounts();
    ASSERT_NE(MountOf(mounts, "/"), nullptr);
    const auto points = RealMountPoints();
    ASSERT_FALSE(points.empty());
    EXPECT_EQ(points.front(), "/");
    EXPECT_EQ(tarvo::Resolve({"/proc", EVolumeBackupObjectType::Unknown}).ObjectType,
              EVolumeBackupObjectType::MountPoint);
}

}  // namespace
