# SPDX-License-Identifier: Apache-2.0
"""zamctl installer, against the real tool, which manages an empty system in a folder."""
import shlex
import subprocess
import tempfile
import unittest
from pathlib import Path

from program import DONE, INSTALLER, NO_AGENT, NOT_FOUND, REFUSED, USAGE, Program


class Installer(Program):
    def setUp(self):
        self.root = Path(tempfile.mkdtemp(dir=self.folder))
        for folder in ("info", "updates", "triggers"):
            (self.root / "var/lib/dpkg" / folder).mkdir(parents=True)
        (self.root / "var/log").mkdir()
        (self.root / "etc").mkdir()
        (self.root / "etc/os-release").write_text("ID=debian\nVERSION_ID=12\nPRETTY_NAME='Debian of a test'\n")
        for file in ("status", "available"):
            (self.root / "var/lib/dpkg" / file).write_text("")
        tool = self.root / "tool"
        tool.write_text(f"#!/bin/sh\nexec {shlex.quote(str(INSTALLER))} --root {shlex.quote(str(self.root))} \"$@\"\n")
        tool.chmod(0o755)
        self.tool = ["--installer-tool", tool]

    def package(self, name, version="1.0", folder=None):
        tree = Path(tempfile.mkdtemp(dir=self.folder))
        tree.chmod(0o755)
        (tree / "DEBIAN").mkdir()
        (tree / "DEBIAN/control").write_text(
            f"Package: {name}\nVersion: {version}\nArchitecture: all\nMaintainer: Somebody <somebody@example.org>\n"
            f"Description: What {name} is\n in more words\n")
        file = (folder or self.folder) / f"{name}_{version}.deb"
        subprocess.run(["dpkg-deb", "--root-owner-group", "--build", tree, file], check=True,
                       stdout=subprocess.DEVNULL)
        return file

    def test_host_is_told_of(self):
        host = self.fitting("installer", "info", *self.tool, command="installer-info")
        self.assertEqual((host["OsName"], host["OsId"], host["IsSystemSupported"]),
                         ("Debian of a test", "debian", True))
        self.assertTrue(host["NetworkInterfaces"])
        shown = self.expect(DONE, "installer", "info", *self.tool)
        self.assertIn("Debian of a test", shown)
        self.assertIn("INTERFACE", shown)

    def test_missing_tool_is_told_of(self):
        errors = self.refused(NO_AGENT, "installer", "info")
        self.assertIn("the installer tool can't be reached", errors)
        self.assertIn("--installer-tool", errors)

    def test_services_of_a_folder_are_refused_by_the_tool(self):
        for words in ([], ["no-such-thing"], ["--start"], ["cron", "--stop"]):
            self.assertIn("it is not the running system",
                          self.refused(REFUSED, "installer", "service", *words, *self.tool))

    def test_package_is_installed_updated_and_removed(self):
        self.package("useful")
        self.assertIn('"useful" is not installed',
                      self.refused(NOT_FOUND, "installer", "package", "useful", *self.tool))
        # The tool has a folder of its own: what is relative is so to the user's.
        said = self.expect(DONE, "installer", "install", "./useful_1.0.deb", *self.tool)
        self.assertEqual(said, 'Package "useful" is installed: version 1.0\n')
        self.assertEqual(self.fitting("installer", "package", "useful", *self.tool, command="installer-package"),
                         {"Name": "useful", "Description": "What useful is\n in more words", "VersionRaw": "1.0"})
        self.assertEqual(self.expect(DONE, "installer", "package", "useful", *self.tool).splitlines(),
                         ["Package:     useful", "Version:     1.0", "Description: What useful is"])
        newer = self.package("useful", "1.1")
        self.assertEqual(self.fitting("installer", "update", newer, *self.tool, command="installer-update")[0]["VersionRaw"], "1.1")
        self.assertEqual(self.json("installer", "package", newer, *self.tool)["VersionRaw"], "1.1")
        self.assertIn("nobody is there to be asked", self.refused(USAGE, "installer", "remove", "useful", *self.tool))
        terminal = self.terminal("installer", "remove", "useful", *self.tool)
        terminal.expect('Remove 1 package, "useful", from this host? [y/N]')
        terminal.send("no\n")
        self.assertEqual(terminal.end(), REFUSED)
        self.assertEqual(self.fitting("installer", "remove", "useful", "--yes", *self.tool,
                                      command="installer-remove")[0]["VersionRaw"], "1.1")
        self.refused(NOT_FOUND, "installer", "remove", "useful", "--yes", *self.tool)

    def test_refusals_of_the_tool_reach_the_user(self):
        broken = self.folder / "broken.deb"
        broken.write_text("no package")
        self.assertIn("broken.deb", self.refused(REFUSED, "installer", "install", broken, *self.tool))
        self.refused(REFUSED, "installer", "update", self.package("absent"), *self.tool)
        self.assertIn('no file "', self.refused(NOT_FOUND, "installer", "install", "./nowhere.deb", *self.tool))

    def test_product_is_deployed_and_removed(self):
        release = self.folder / "release"
        release.mkdir(exist_ok=True)
        self.package("tarvo-agent", "6.1.0.27", release)
        index = release / "index.xml"
        index.write_text('<PackageIndex format="1" version="6.1.0.27"><Distribution id="debian" architecture="amd64">'
                         '<File>tarvo-agent_6.1.0.27.deb</File></Distribution></PackageIndex>')
        before = self.fitting("installer", "deployer", index, *self.tool, command="installer-deployer")
        self.assertEqual((before["IsProductInstalled"], before["AgentVersion"]), (False, None))
        self.assertEqual(before["Offer"]["PackagesVersion"], "6.1.0.27")
        self.assertIn("tarvo-agent_6.1.0.27.deb", self.expect(DONE, "installer", "deployer", index, *self.tool))
        if not before["Offer"]["IsInstallationSupported"]:
            self.skipTest("another processor")
        self.refused(NOT_FOUND, "installer", "uninstall", "--yes", *self.tool)
        self.assertIn("6.1.0.27", self.expect(DONE, "installer", "deploy", "release/index.xml", *self.tool))
        after = self.fitting("installer", "deployer", *self.tool, command="installer-deployer")
        self.assertEqual((after["AgentVersion"], after["Offer"]), ("6.1.0.27", None))
        self.refused(USAGE, "installer", "uninstall", *self.tool)
        self.assertFalse(self.json("installer", "uninstall", "--yes", *self.tool)["IsProductInstalled"])

    def test_index_that_offers_nothing_is_told_of(self):
        index = self.folder / "other.xml"
        index.write_text('<PackageIndex format="1" version="1.0"><Distribution id="another" architecture="amd64">'
                         '<Package>p</Package></Distribution></PackageIndex>')
        self.assertIn("offers nothing for this host", self.refused(REFUSED, "installer", "deploy", index, *self.tool))
        index.write_text("<nonsense")
        self.assertIn("other.xml", self.refused(REFUSED, "installer", "deployer", index, *self.tool))


if __name__ == "__main__":
    unittest.main()
