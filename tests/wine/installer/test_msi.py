#!/usr/bin/env python3
"""The product's MSI under Wine's msiexec, run quietly as an administrator runs
it: an install the service manager refuses, the install, an upgrade in place
by the next version's MSI, and the removal, after which the executable's own
registration in the same folder must match what the install left."""
import os
import re
import shutil
import unittest

from registration import (IID, LIBID, SERVICE, SERVICE_RUNNING, installed_service, registration,
                          serve_type_library_to_wine, service_registration)
from winetest import USER, USERS_KEY, PrefixStory, build_file, windows_path

MSI = build_file("installer", "TarnwickHotFolders.msi")
NEXT_MSI = build_file("tests", "wine", "installer", "TarnwickHotFolders-next.msi")
INSTALL_FOLDER = r"C:\Program Files\Tarnwick"
EXECUTABLE = INSTALL_FOLDER + r"\TarnwickHotFolder.exe"
PROGRAMS = ["HotFolderControl.exe", "TarnwickHotFolder.exe"]
# The end of each action in a log: "Action ended 12:14:42: Name. Return value 1."
ACTION_ENDED = re.compile(r"^Action ended [\d:]+: (\w+)\. Return value \d+\.", re.MULTILINE)


class MsiStory(PrefixStory):
    prefix_name = "msi"

    def msiexec(self, action, msi, log_name, debug="-all", succeeds=True):
        """`msiexec ACTION MSI /qn`, which must exit 0 if it `succeeds`: its exit code, log and trace of `debug`."""
        result = self.prefix.wine("msiexec", action, windows_path(msi), "/qn", "/l*v", "C:\\" + log_name,
                                  timeout=180, check=False, debug=debug)
        log = (self.prefix.path / "drive_c" / log_name).read_text(errors="replace")
        if succeeds:
            self.assertEqual(result.returncode, 0, log[-3000:])
        return result.returncode, log, result.stderr.decode("utf-8", "replace")

    def control(self, *arguments, input=None):
        return self.prefix.control(*arguments, tool=INSTALL_FOLDER + r"\HotFolderControl.exe", input=input)

    def install_user(self):
        serve_type_library_to_wine(self.prefix)
        self.assertEqual(self.control("install-user", USER, input=b"s3cret\n"), (0, f"installed {USER}"))

    def installed_files(self):
        folder = self.prefix.path / "drive_c" / "Program Files" / "Tarnwick"
        return sorted(path.name for path in folder.iterdir()) if folder.exists() else []

    def products(self):
        listing = self.prefix.reg_tree(r"HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall") or {}
        return sorted(values["DisplayVersion"][1] for values in listing.values()
                      if values.get("DisplayName", (None, ""))[1] == SERVICE and "DisplayVersion" in values)

    def whole_registration(self):  # with every value under the type library's and the interface's keys
        return dict(registration(self.prefix, EXECUTABLE), typelib=self.prefix.reg_tree(r"HKCR\TypeLib" "\\" + LIBID),
                    interface=self.prefix.reg_tree(r"HKCR\Interface" "\\" + IID))

    def assertInstalled(self):
        self.assertEqual(self.installed_files(), PROGRAMS)
        self.assertEqual(installed_service(self.prefix, state=True), SERVICE_RUNNING)

    def test_1_a_quiet_install_registers_and_starts_the_service(self):
        prefix = self.prefix
        # An installer's custom actions run on a desktop no one sees, where a
        # message box waits for ever; Wine's null display driver does the
        # same (without it, Wine's MessageBoxW returns at once).
        prefix.wine("reg", "add", r"HKCU\Software\Wine\Drivers", "/f", "/v", "Graphics", "/d", "null")
        prefix.stop()
        prefix.start()
        # A service manager that refuses to create the service (another
        # service holds its display name): the registration shows a message
        # box. The quiet install must not wait on it: it fails, and the log
        # names the step.
        prefix.wine("sc", "create", "Squatter", "displayname=", SERVICE, "binpath=", r"C:\windows\notepad.exe")
        code, log, _ = self.msiexec("/i", MSI, "refused.log", succeeds=False)
        self.assertNotEqual(code, 0)
        ended = ACTION_ENDED.findall(log)
        failed = [name for name, after in zip(ended, ended[1:]) if after == "InstallFinalize"]
        self.assertEqual(failed, ["RegisterHotFolderService"], log[-3000:])
        prefix.wine("sc", "delete", "Squatter")

        self.msiexec("/i", MSI, "install.log")
        self.assertInstalled()
        type(self).installed, expected = self.whole_registration(), service_registration(EXECUTABLE)
        self.assertEqual({key: self.installed[key] for key in expected}, expected)
        self.install_user()
        self.assertEqual(self.control("is-installed", USER), (0, f"{USER} is installed"))

    def test_2_a_newer_msi_replaces_the_product_and_keeps_the_users(self):
        before, older = self.prefix.reg_tree(USERS_KEY), self.products()
        trace = self.msiexec("/i", NEXT_MSI, "upgrade.log", debug="+msi")[2]
        self.assertEqual(len(self.products()), 1, "the newer product replaced the older")
        self.assertNotEqual(self.products(), older)
        services = self.prefix.reg_tree(r"HKLM\SYSTEM\CurrentControlSet\Services") or {}
        ours = [key for key, values in services.items() if "TarnwickHotFolder" in values.get("ImagePath", ("", ""))[1]]
        self.assertEqual(ours, [SERVICE])
        self.assertInstalled()

        removal = re.search(r'MsiConfigureProductExW L"\{[^"]*\}" \d+ \d+ L"([^"]*)"', trace)
        users = (self.prefix.reg_tree(USERS_KEY) or {}).get("", {})
        if USER not in users and removal and "UPGRADINGPRODUCTCODE" not in removal.group(1):
            self.skipTest(f"Wine's RemoveExistingProducts removes the older product with {removal.group(1).strip()!r} "
                          "and no UPGRADINGPRODUCTCODE, so it takes the installed users with it (tests/wine/README.md)")
        self.assertEqual(self.prefix.reg_tree(USERS_KEY), before)
        serve_type_library_to_wine(self.prefix)
        self.assertEqual(self.control("is-installed", USER), (0, f"{USER} is installed"))

    def test_3_removal_leaves_nothing_but_the_users_hot_folders(self):
        self.install_user()  # again: under Wine the upgrade took the users with it
        ini, text = self.prefix.hot_folder("Invoices", r"C:\In", r"C:\Out", r"C:\Scripts\stamp.py")
        ini.write_bytes(text)
        (ini.parent / "kept.pdf").write_bytes(b"%PDF-1.4 kept")
        # The copy of the type library that only Wine needs is the test's own.
        self.prefix.wine("reg", "delete", r"HKCR\TypeLib" "\\" + LIBID + r"\1.0\0", "/f")

        self.msiexec("/x", NEXT_MSI, "remove.log")
        self.assertEqual(self.installed_files(), [])
        self.assertEqual({key: tree for key, tree in registration(self.prefix, EXECUTABLE).items() if tree}, {})
        self.assertIsNone(self.prefix.reg_tree(USERS_KEY))
        self.assertEqual(self.products(), [])
        self.assertEqual(sorted(path.name for path in ini.parent.iterdir()), ["Desktop.ini", "kept.pdf"])
        self.assertEqual((ini.parent / "kept.pdf").read_bytes(), b"%PDF-1.4 kept")

        # The executable's own -Service, from the same folder, leaves what the install left.
        folder = self.prefix.path / "drive_c" / "Program Files" / "Tarnwick"
        folder.mkdir(exist_ok=True)
        shutil.copy2(os.environ["HF_EXECUTABLE"], folder / "TarnwickHotFolder.exe")
        self.assertEqual(self.prefix.run(EXECUTABLE, "-Service", timeout=120).exit_code, 0)
        self.assertEqual(self.whole_registration(), self.installed)


if __name__ == "__main__":
    unittest.main()
